// What the board is: read once at start from /etc/tarn/platform.json, asked by everybody.
#pragma once

#include <string>

/// Reads the platform file. A missing or broken one is logged and leaves empty data, with which
/// every question below answers as for a missing member.
void platform_detect();

/// Replaces the platform data by `json_text`; false (logged, data emptied) when it does not parse.
bool _parse_platform_data(const char *json_text);

/// "ctl_variant" of the board, or null.
const char *get_platform_ctl_variant();
/// "model" of the board, or null.
const char *platform_get_model();
/// "management_mac" as text, or null. Its form is not checked here.
const char *platform_get_management_mac();

/// Number of radios, or -1 with ERROR "Wireless platform data has no num_radios member".
int platform_wireless_get_num_radios();
/// Index of the radio whose band is `band` ("2.4GHz", ...), or -1; without a radio list also ERROR
/// "Wireless platform data has no wifi_radios member".
int platform_wireless_get_radio_idx(const char *band);
/// Band name of radio `index`, or null with ERROR "Wireless platform data has no wifi_radios
/// member" or "Invalid radio index %d".
const char *platform_wireless_get_radio_band_name(int index);
/// False when the member is missing.
bool platform_wireless_get_dfs_support();
bool platform_wireless_get_scanning_support();

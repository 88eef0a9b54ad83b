// What the files of the settings parser share.
#pragma once

#include "wifi/settings_table.h"
#include "wifi/wifi_settings.h"

/// Parses one element of `ssids`. False when it is refused (logged).
[[nodiscard]] bool wifid_parse_ssid(blob_attr *table, wifi_settings *settings);

/// Logs a part of the document as JSON at DEBUG, every secret in it as "***".
void settings_log_json(blob_attr *attr);

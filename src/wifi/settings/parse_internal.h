// What the files of the settings parser share.
#pragma once

#include "wifi/settings/document.h"
#include "wifi/settings/record.h"

/// Parses one element of `ssids`. False when it is refused (logged).
[[nodiscard]] bool wifid_parse_ssid(blob_attr *table, wifi_settings *settings);

/// Logs a table of that level, or an array of such, as JSON at DEBUG. Only values of known keys
/// that hold no secret are shown, all others are "***".
void settings_log_json(const settings_level &level, blob_attr *attr);

// What the files of the settings parser share.
#pragma once

#include "wifi/settings/document.h"
#include "wifi/settings/record.h"

/// Parses one element of `ssids`. False when it is refused (logged).
[[nodiscard]] bool wifid_parse_ssid(blob_attr *table, wifi_settings *settings);

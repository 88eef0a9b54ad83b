// Turning the cloud's settings document into a settings record.
#pragma once

#include "wifi/wifi_settings.h"

struct blob_attr;

/// Parses a settings document (the `params` table) into `settings`, which must be a copy of the
/// live record: what the document omits stays. 0; or 2 (UBUS_STATUS_INVALID_ARGUMENT), the reason
/// logged at ERROR, and `settings` is then half-changed and to be thrown away.
[[nodiscard]] int wifi_settings_parse(blob_attr *params, wifi_settings *settings);

/// Parses a document into a copy of the live record and hands it to the settings writer. 0 or 2.
[[nodiscard]] int wifid_parse_config(blob_attr *params);

/// Platform radio of a band type, or -1.
int wifid_find_radio(int band);
/// True for a channel number a radio may be set to.
bool wifi_channel_is_valid(int channel);

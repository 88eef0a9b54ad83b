// Turning the cloud's settings document into a settings record.
#pragma once

#include "wifi/settings/record.h"

struct blob_attr;

/// What a document comes to.
struct wifi_parsed_document {
    /// To be given: a copy of the live record; what the document omits stays.
    wifi_settings *settings;
    const char *override_reason; ///< the local radio override it asks for ("lonely", ...), or null
    blob_attr *neighbors;        ///< its neighbour list, checked, within the document; or null
};

/// Parses a settings document (the `params` table of a message that zu_blobmsg_valid() accepts). 0;
/// or 2 (UBUS_STATUS_INVALID_ARGUMENT), the reason logged at ERROR, and `settings` is then
/// half-changed and to be thrown away. Nothing else is changed.
[[nodiscard]] int wifi_settings_parse(blob_attr *params, wifi_parsed_document *parsed);

/// Platform radio of a band type, or -1.
int wifid_find_radio(int band);
/// True for a channel number a radio may be set to.
bool wifi_channel_is_valid(uint32_t channel);

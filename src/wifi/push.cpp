// The wireless package's parse_config callback.

#include "platform/zu/log.h"
#include "wifi/settings/document.h"
#include "wifi/settings/parse.h"
#include "wifi/wifi.h"
#include "wifi/wifi_internal.h"

int wifi_parse_config(ubus_context *, blob_attr *msg, blob_buf *)
{
    enum { CONFIG_ENABLE, CONFIG_PARAMS, CONFIG_FIELDS };
    static constexpr blobmsg_policy POLICY[CONFIG_FIELDS] = {
        {"enable", BLOBMSG_TYPE_INT8},
        {"params", BLOBMSG_TYPE_TABLE},
    };
    blob_attr *fields[CONFIG_FIELDS] = {};
    if (!msg || blobmsg_parse(POLICY, CONFIG_FIELDS, fields, blob_data(msg), blob_len(msg)) != 0) {
        log_error("Unable to parse arguments");
        return UBUS_STATUS_INVALID_ARGUMENT;
    }
    if (!wifi_settings_are_read()) {
        log_error("The settings in force have not been read yet, try again in a moment");
        return UBUS_STATUS_INVALID_ARGUMENT;
    }
    const int status = wifid_parse_config(fields[CONFIG_PARAMS]);
    if (fields[CONFIG_PARAMS])
        settings_explain_unknown_keys(SETTINGS_TOP, fields[CONFIG_PARAMS]);
    return status;
}

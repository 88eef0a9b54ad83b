// Parts of a settings document in the log, without what must not be there.

#include "platform/zu/blobmsg_util.h"
#include "platform/zu/log.h"
#include "wifi/settings_parse_internal.h"

#include <cstring>

extern "C" {
#include <libubox/blobmsg_json.h>
}

namespace {

bool is_secret(const settings_level &level, const char *key)
{
    for (const settings_field &field : level.fields)
        if (field.secret && strcmp(field.key, key) == 0)
            return true;
    return false;
}

// A name that is secret anywhere is hidden everywhere, whatever its value: a part of the document
// is logged out of its level.
const char *hide_secret(void *, blob_attr *attr)
{
    const char *name = blobmsg_name(attr);
    return is_secret(SETTINGS_SSID, name) || is_secret(SETTINGS_MESH, name) ? "\"***\"" : nullptr;
}

} // namespace

void settings_log_json(blob_attr *attr)
{
    if (!zu_log_wanted(ZU_LOG_DEBUG))
        return;
    // libubox formats by recursion without a limit.
    json_text json;
    if (zu_blobmsg_valid(attr))
        json.reset(blobmsg_format_json_with_cb(attr, true, hide_secret, nullptr, -1));
    log_debug("'%s'", json ? json.get() : "NULL");
}

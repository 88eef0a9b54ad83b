// Parts of a settings document in the log, without what must not be there.

#include "wifi/settings/log_json.h"

#include <cstring>

extern "C" {
#include <libubox/blobmsg_json.h>
}

#include "platform/zu/blobmsg_util.h"
#include "platform/zu/log.h"

/// The row of a key, on the level or within it; null for a key that no row has.
static const settings_field *find_row(const settings_level &level, const char *key)
{
    for (const settings_field &field : level.fields) {
        if (strcmp(field.key, key) == 0)
            return &field;
        if (const settings_field *inner = field.level ? find_row(*field.level, key) : nullptr)
            return inner;
    }
    return nullptr;
}

/// Hides every value but those of known keys that hold no secret: a secret may have been put under
/// a wrong name, or in a place where another type is expected.
static const char *hide_unknown(void *level, blob_attr *attr)
{
    const char *name = blobmsg_name(attr);
    if (!name[0] && blobmsg_type(attr) == BLOBMSG_TYPE_TABLE)
        return nullptr; // an array's element, judged member by member
    const settings_field *row = find_row(*static_cast<const settings_level *>(level), name);
    const bool shown =
        row && !row->secret && blobmsg_type(attr) == settings_blobmsg_type(row->kind);
    return shown ? nullptr : "\"***\"";
}

void settings_log_json(const settings_level &level, blob_attr *attr)
{
    if (!zu_log_wanted(ZU_LOG_DEBUG))
        return;
    // libubox formats by recursion without a limit.
    zu_text json;
    if (zu_blobmsg_valid(attr))
        json.reset(blobmsg_format_json_with_cb(attr, true, hide_unknown,
                                               const_cast<settings_level *>(&level), -1));
    log_debug("'%s'", json ? json.get() : "NULL");
}

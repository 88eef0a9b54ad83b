// Blobmsg helpers: the whole-message check, text for log lines, copying.
#include "platform/zu/blobmsg_util.h"

extern "C" {
#include <libubox/blobmsg_json.h>
}

static bool attr_valid(blob_attr *attr, int depth);

/// The children of a container, which may hold `depth` further levels of containers.
static bool children_valid(blob_attr *container, int depth)
{
    blob_attr *child = nullptr;
    std::size_t rest = 0;
    blobmsg_for_each_attr(child, container, rest)
    {
        if (!attr_valid(child, depth))
            return false;
    }
    // The walk just stops at a length that does not fit.
    return rest == 0;
}

static bool attr_valid(blob_attr *attr, int depth)
{
    // A plain attribute has no name to look at, though libubox would.
    if (!blob_is_extended(attr) || !blobmsg_check_attr(attr, false))
        return false;
    const int type = blobmsg_type(attr);
    if (type != BLOBMSG_TYPE_TABLE && type != BLOBMSG_TYPE_ARRAY)
        return true;
    return depth > 0 && children_valid(attr, depth - 1);
}

bool zu_blobmsg_valid(blob_attr *attr)
{
    if (!attr)
        return false;
    // The root of a message is a plain attribute, whatever its id.
    return blob_is_extended(attr) ? attr_valid(attr, ZU_BLOBMSG_DEPTH_MAX)
                                  : children_valid(attr, ZU_BLOBMSG_DEPTH_MAX);
}

bool zu_blobmsg_parse(std::span<const blobmsg_policy> policy, std::span<blob_attr *> members,
                      blob_attr *message)
{
    // Without data everything becomes null. What stands in a root and in a table is found alike.
    return blobmsg_parse(policy.data(), static_cast<int>(policy.size()), members.data(),
                         message ? blobmsg_data(message) : nullptr,
                         message ? static_cast<unsigned>(blobmsg_data_len(message)) : 0) == 0;
}

blob_attr *zu_blobmsg_member(blob_attr *message, const blobmsg_policy &policy)
{
    blob_attr *member = nullptr;
    (void)zu_blobmsg_parse({&policy, 1}, {&member, 1}, message);
    return member;
}

zu_text zu_blobmsg_json(blob_attr *attr, bool list)
{
    if (!zu_blobmsg_valid(attr))
        return nullptr;
    return zu_text(blobmsg_format_json_with_cb(attr, list, nullptr, nullptr, -1));
}

int zu_blobmsg_copy(blob_buf *buf, blob_attr *message)
{
    blob_attr *member = nullptr;
    std::size_t rest = 0;
    blobmsg_for_each_attr(member, message, rest) if (blobmsg_add_blob(buf, member) != 0) return -1;
    return 0;
}

// Blobmsg helpers shared by all subsystems.
#pragma once

#include <span>

extern "C" {
#include <libubox/blobmsg.h>
}

#include "platform/zu/handle.h"

/// A blob buffer that is freed with its scope.
struct blob_buffer : blob_buf {
    blob_buffer() : blob_buf{} {}
    ~blob_buffer() { blob_buf_free(this); }
    blob_buffer(const blob_buffer &) = delete;
    blob_buffer &operator=(const blob_buffer &) = delete;
};

/// Deepest nesting of tables and arrays that is taken from a message.
constexpr int ZU_BLOBMSG_DEPTH_MAX = 32;
/// True when a message, or one attribute, is well formed at every level and nests no deeper than
/// ZU_BLOBMSG_DEPTH_MAX. To be asked of whatever came from outside before its tables are walked:
/// libubox checks one level only, and formats text by recursion without a limit. Null is not valid.
bool zu_blobmsg_valid(blob_attr *attr);

/// Finds the members that the policy names in a message or a table. A member that is
/// missing or has another type becomes null, and so does every one when `message` is null. False
/// when the message is malformed or empty.
bool zu_blobmsg_parse(std::span<const blobmsg_policy> policy, std::span<blob_attr *> members,
                      blob_attr *message);
/// The one member, or null.
blob_attr *zu_blobmsg_member(blob_attr *message, const blobmsg_policy &policy);

/// Compact JSON of `attr` for a log line; null when it is not valid (as above) or memory runs out.
/// `list` as in blobmsg_format_json: true for a message, false for one attribute.
zu_text zu_blobmsg_json(blob_attr *attr, bool list);
/// Bytes that the message takes so far, also while tables and arrays of it are open: then
/// `buf->head` is the innermost of them.
inline size_t zu_blob_size(const blob_buf *buf)
{
    return static_cast<size_t>(reinterpret_cast<const char *>(buf->head) -
                               static_cast<const char *>(buf->buf)) +
           blob_pad_len(buf->head);
}

/// Adds every member of `message` to `buf`. 0; or -1 when one could not be added.
int zu_blobmsg_copy(blob_buf *buf, blob_attr *message);

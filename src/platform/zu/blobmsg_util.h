// Blobmsg helpers shared by all subsystems.
#pragma once

#include <libubox/blobmsg.h>

#include <cstdlib>
#include <memory>

struct free_deleter {
    void operator()(void *p) const { free(p); }
};
/// JSON text from libubox, freed with the handle.
using json_text = std::unique_ptr<char, free_deleter>;

/// A blob buffer that is freed with its scope.
struct blob_buffer : blob_buf {
    blob_buffer() : blob_buf{} {}
    ~blob_buffer() { blob_buf_free(this); }
    blob_buffer(const blob_buffer &) = delete;
    blob_buffer &operator=(const blob_buffer &) = delete;
};

/// Compact JSON of `attr` for a log line; null when it cannot be formatted. `list` as in
/// blobmsg_format_json: true for a message, false for one attribute.
json_text zu_blobmsg_json(blob_attr *attr, bool list);
/// Adds every member of `message` to `buf`. 0 or -1.
int zu_blobmsg_copy(blob_buf *buf, blob_attr *message);

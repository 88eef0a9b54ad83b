// What blobmsg.cpp needs of blob.cpp besides the public interface.
#pragma once

#include <libubox/blob.h>

/// Grows the buffer until it reaches `end` bytes. False as with blob_buf_grow.
[[nodiscard]] bool blob_buf_reserve(blob_buf *buf, size_t end);

/// Byte offset of an attribute in its buffer: what stays valid when the buffer moves.
inline size_t blob_offset(const blob_buf *buf, const blob_attr *attr)
{
    return static_cast<size_t>(reinterpret_cast<const char *>(attr) -
                               static_cast<const char *>(buf->buf));
}

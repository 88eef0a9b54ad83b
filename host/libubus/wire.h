// What the bus client and the broker share: frames on a UNIX stream socket, their size limit, their
// attributes, and descriptors that travel with them. Private to host/.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <sys/types.h>
#include <sys/un.h>

#include "libubus.h"

inline constexpr char WIRE_DEFAULT_SOCKET[] = "/var/run/ubus/ubus.sock";

/// Largest padded length of a message's blob, in bytes.
inline constexpr size_t WIRE_MAX_BLOB = 1048576;

/// First bytes of every message; the blob's own length stands in `root`.
struct wire_head {
    ubus_msghdr hdr;
    uint32_t root;
} __attribute__((packed));

/// An attribute is null when it is absent or malformed.
using wire_attrs = std::array<blob_attr *, UBUS_ATTR_MAX>;

wire_attrs wire_parse(blob_attr *msg);

/// Header in network byte order from values in host order, and back.
ubus_msghdr wire_header(uint8_t type, uint16_t seq, uint32_t peer);
ubus_msghdr wire_to_host(ubus_msghdr hdr);

/// Bytes of the message on the wire, header included.
size_t wire_size(const blob_attr *msg);

/// Writes the message from byte `offset` on; `hdr` in network byte order. `fd` (-1: none) goes with
/// the bytes written. Returns the count, 0 when the socket takes nothing now, -1 when it is broken.
ssize_t wire_send(int sock, const ubus_msghdr &hdr, const blob_attr *msg, size_t offset, int fd);

/// Reads up to `len` bytes. A descriptor that came along replaces `*fd`, which is closed first.
/// Returns the count, 0 at the end of the stream, -1 with errno.
ssize_t wire_recv(int sock, void *data, size_t len, int *fd);

void wire_close(int *fd);

/// Fills in the address of a socket file. False when the path does not fit.
bool wire_address(sockaddr_un *address, const char *path);

/// A message under construction.
struct wire_buf {
    blob_buf b{};

    wire_buf() { blob_buf_init(&b, 0); }
    ~wire_buf() { blob_buf_free(&b); }
    wire_buf(const wire_buf &) = delete;
    wire_buf &operator=(const wire_buf &) = delete;
    blob_attr *msg() { return b.head; }
};

/// The members of `msg` (null: none) as the DATA attribute.
void wire_put_data(blob_buf *b, const blob_attr *msg);

struct wire_free {
    void operator()(void *memory) const { free(memory); }
};
using wire_blob = std::unique_ptr<blob_attr, wire_free>;

// Whole messages over the context's socket, and the buffer they are received into.
#include <cerrno>
#include <cstdlib>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "libubus_internal.h"

// Smaller messages that must follow a large one before its buffer is given back.
constexpr int REDUCE_AFTER = 16;

static void wait_ready(int fd, short events)
{
    pollfd p = {fd, events, 0};
    while (poll(&p, 1, -1) < 0 && errno == EINTR)
        ;
}

int ubus_io_send(ubus_context *ctx, uint8_t type, uint16_t seq, uint32_t peer, blob_attr *msg,
                 int fd)
{
    const ubus_msghdr hdr = wire_header(type, seq, peer);
    const size_t total = wire_size(msg);
    size_t sent = 0;
    while (sent < total && ctx->sock.fd >= 0) {
        const ssize_t n = wire_send(ctx->sock.fd, hdr, msg, sent, sent ? -1 : fd);
        if (n < 0)
            break;
        if (n == 0)
            wait_ready(ctx->sock.fd, POLLOUT);
        sent += (size_t)n;
    }
    wire_close(&fd);
    if (sent == total)
        return 0;
    ctx->sock.eof = true;
    return -1;
}

/// Makes room for a message of `len` bytes, in whole chunks.
static bool reserve(ubus_context *ctx, size_t len)
{
    const size_t want = (len + UBUS_MSG_CHUNK_SIZE - 1) / UBUS_MSG_CHUNK_SIZE * UBUS_MSG_CHUNK_SIZE;
    if (ctx->msgbuf.data && want == ctx->msgbuf_data_len) {
        ctx->msgbuf_reduction_counter = REDUCE_AFTER;
        return true;
    }
    if (ctx->msgbuf.data && want < ctx->msgbuf_data_len && ctx->msgbuf_reduction_counter-- > 0)
        return true;
    auto *grown = (blob_attr *)realloc(ctx->msgbuf.data, want);
    if (!grown)
        return false;
    ctx->msgbuf.data = grown;
    ctx->msgbuf_data_len = (uint32_t)want;
    ctx->msgbuf_reduction_counter = REDUCE_AFTER;
    return true;
}

/// Reads exactly `len` bytes; `started` false allows to find none. 1 read, 0 none, -1 gone.
static int read_exactly(ubus_context *ctx, void *data, size_t len, bool started, int *fd)
{
    size_t got = 0;
    while (got < len) {
        const ssize_t n = wire_recv(ctx->sock.fd, (char *)data + got, len - got, fd);
        if (n > 0) {
            got += (size_t)n;
            continue;
        }
        if (n == 0 || (errno != EAGAIN && errno != EWOULDBLOCK)) {
            ctx->sock.eof = true;
            return -1;
        }
        if (!started && got == 0)
            return 0;
        wait_ready(ctx->sock.fd, POLLIN);
    }
    return 1;
}

/// The stream cannot be followed any further. The hang-up takes the socket out of the loop.
static bool stream_broken(ubus_context *ctx, int *fd)
{
    wire_close(fd);
    ctx->sock.eof = true;
    shutdown(ctx->sock.fd, SHUT_RDWR);
    return false;
}

/// Reads past a message that is longer than the bus allows.
static bool skip(ubus_context *ctx, size_t len)
{
    char scrap[4096];
    int fd = -1;
    while (len) {
        const size_t n = len < sizeof(scrap) ? len : sizeof(scrap);
        if (read_exactly(ctx, scrap, n, true, &fd) < 0)
            break;
        len -= n;
    }
    wire_close(&fd);
    return len == 0;
}

static bool read_message(ubus_context *ctx, bool wait, int *fd)
{
    wire_head head;
    for (;;) {
        *fd = -1;
        if (ctx->sock.fd < 0 || read_exactly(ctx, &head, sizeof(head), wait, fd) <= 0) {
            wire_close(fd);
            return false;
        }
        const auto *root = (const blob_attr *)&head.root;
        const size_t len = blob_raw_len(root);
        if (head.hdr.version != 0 || len < sizeof(blob_attr))
            return stream_broken(ctx, fd);
        if (blob_pad_len(root) <= WIRE_MAX_BLOB)
            break;
        wire_close(fd);
        if (!skip(ctx, len - sizeof(blob_attr)))
            return false;
    }
    const size_t len = blob_raw_len((const blob_attr *)&head.root);
    if (!reserve(ctx, len))
        return stream_broken(ctx, fd);
    ctx->msgbuf.hdr = wire_to_host(head.hdr);
    ctx->msgbuf.data->id_len = head.root;
    if (read_exactly(ctx, ctx->msgbuf.data->data, len - sizeof(blob_attr), true, fd) > 0)
        return true;
    wire_close(fd);
    return false;
}

bool ubus_io_read(ubus_context *ctx, int *fd)
{
    return read_message(ctx, false, fd);
}

bool ubus_io_read_wait(ubus_context *ctx, int *fd)
{
    return read_message(ctx, true, fd);
}

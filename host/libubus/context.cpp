// Life of a connection: connecting, the receive loop and its order, the loss. Messages for
// the context's objects that come in during a synchronous wait or a running handler are held back;
// replies are not, so that the wait can end.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "libubus_internal.h"

// A message held back; its blob follows.
struct held_message {
    list_head list;
    ubus_msghdr hdr;
    blob_attr *blob() { return (blob_attr *)(this + 1); }
};

const char *ubus_strerror(int error)
{
    static const char *const TEXT[] = {
        "Success",
        "Invalid command",
        "Invalid argument",
        "Method not found",
        "Not found",
        "No response",
        "Permission denied",
        "Request timed out",
        "Operation not supported",
        "Unknown error",
        "Connection failed",
        "Out of memory",
        "Parsing message data failed",
        "System error",
    };
    static_assert(sizeof(TEXT) / sizeof(TEXT[0]) == __UBUS_STATUS_LAST);
    static char unknown[32];
    if (error >= 0 && error < __UBUS_STATUS_LAST)
        return TEXT[error];
    snprintf(unknown, sizeof(unknown), "Unknown error: %d", error);
    return unknown;
}

static void hold_back(ubus_context *ctx, const ubus_msgbuf &msg)
{
    const size_t len = blob_raw_len(msg.data);
    auto *held = (held_message *)malloc(sizeof(held_message) + blob_pad_len(msg.data));
    if (!held)
        return;
    held->hdr = msg.hdr;
    memcpy(held->blob(), msg.data, len);
    list_add_tail(&held->list, &ctx->pending);
}

void ubus_process_pending(ubus_context *ctx)
{
    while (!ctx->stack_depth && !list_empty(&ctx->pending)) {
        auto *held = list_first_entry(&ctx->pending, held_message, list);
        list_del(&held->list);
        ubus_object_received(ctx, held->hdr, held->blob(), -1);
        free(held);
    }
}

static void pending_timer_cb(uloop_timeout *t)
{
    ubus_process_pending(container_of(t, ubus_context, pending_timer));
}

/// Everything but replies.
static void handle_message(ubus_context *ctx, const ubus_msgbuf &msg, int fd)
{
    switch (msg.hdr.type) {
    case UBUS_MSG_INVOKE:
    case UBUS_MSG_NOTIFY:
    case UBUS_MSG_UNSUBSCRIBE:
        if (!ctx->stack_depth) {
            ubus_object_received(ctx, msg.hdr, msg.data, fd);
            return;
        }
        hold_back(ctx, msg);
        break;
    case UBUS_MSG_MONITOR:
        if (ctx->monitor_cb)
            ctx->monitor_cb(ctx, msg.hdr.seq, msg.data);
        break;
    }
    wire_close(&fd);
}

void ubus_receive(ubus_context *ctx)
{
    ctx->cancel_poll = false;
    while (!ctx->cancel_poll) {
        ubus_process_pending(ctx);
        int fd = -1;
        if (!ubus_io_read(ctx, &fd))
            return;
        const ubus_msgbuf msg = ctx->msgbuf;
        if (msg.hdr.type == UBUS_MSG_STATUS || msg.hdr.type == UBUS_MSG_DATA) {
            // Left where it is, as on a router: a data callback that waits for messages itself
            // finds its own message overwritten.
            ubus_reply_received(ctx, msg.hdr, msg.data, fd);
            continue;
        }
        // Handlers may wait for messages themselves: they must not overwrite this one.
        const uint32_t len = ctx->msgbuf_data_len;
        ctx->msgbuf.data = nullptr;
        handle_message(ctx, msg, fd);
        free(ctx->msgbuf.data);
        ctx->msgbuf.data = msg.data;
        ctx->msgbuf_data_len = len;
    }
}

void ubus_connection_gone(ubus_context *ctx)
{
    ctx->sock.eof = true;
    ubus_flush_requests(ctx);
    if (ctx->connection_lost)
        ctx->connection_lost(ctx);
}

static void sock_cb(uloop_fd *u, unsigned)
{
    auto *ctx = container_of(u, ubus_context, sock);
    ubus_receive(ctx);
    if (ctx->sock.eof)
        ubus_connection_gone(ctx);
}

/// A hang-up has taken the socket out of the loop already, so that an idle program stays in its
/// loop, deaf; only a loss that a synchronous call notices ends it.
static void default_connection_lost(ubus_context *ctx)
{
    if (ctx->sock.registered)
        uloop_end();
}

void ubus_add_uloop(ubus_context *ctx)
{
    (void)uloop_fd_add(&ctx->sock, ULOOP_BLOCKING | ULOOP_READ);
}

void ubus_handle_event(ubus_context *ctx)
{
    ctx->sock.cb(&ctx->sock, ULOOP_READ);
}

static void close_socket(ubus_context *ctx)
{
    if (ctx->sock.fd < 0)
        return;
    (void)uloop_fd_delete(&ctx->sock);
    close(ctx->sock.fd);
    ctx->sock.fd = -1;
}

static int open_socket(const char *path)
{
    sockaddr_un address;
    if (!wire_address(&address, path))
        return -1;
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return -1;
    if (connect(fd, (const sockaddr *)&address, sizeof(address)) == 0)
        return fd;
    close(fd);
    return -1;
}

static bool read_hello(ubus_context *ctx)
{
    int fd = -1;
    if (!ubus_io_read_wait(ctx, &fd))
        return false;
    wire_close(&fd);
    ctx->local_id = cpu_to_be32(ctx->msgbuf.hdr.peer);
    return ctx->msgbuf.hdr.type == UBUS_MSG_HELLO;
}

int ubus_reconnect(ubus_context *ctx, const char *path)
{
    close_socket(ctx);
    ctx->sock.eof = false;
    ctx->sock.error = false;
    ctx->sock.fd = open_socket(path ? path : WIRE_DEFAULT_SOCKET);
    if (ctx->sock.fd < 0 || !read_hello(ctx)) {
        close_socket(ctx);
        ctx->sock.eof = true;
        return UBUS_STATUS_CONNECTION_FAILED;
    }
    (void)fcntl(ctx->sock.fd, F_SETFL, fcntl(ctx->sock.fd, F_GETFL) | O_NONBLOCK);
    return ubus_republish(ctx);
}

static int compare_ids(const void *a, const void *b, void *)
{
    const uint32_t x = *(const uint32_t *)a, y = *(const uint32_t *)b;
    return x < y ? -1 : x > y;
}

int ubus_connect_ctx(ubus_context *ctx, const char *path)
{
    memset(ctx, 0, sizeof(*ctx));
    if (uloop_init() < 0)
        return -1;
    INIT_LIST_HEAD(&ctx->requests);
    INIT_LIST_HEAD(&ctx->pending);
    INIT_LIST_HEAD(&ctx->auto_subscribers);
    avl_init(&ctx->objects, compare_ids, false, nullptr);
    ctx->sock.fd = -1;
    ctx->sock.cb = sock_cb;
    ctx->pending_timer.cb = pending_timer_cb;
    ctx->connection_lost = default_connection_lost;
    if (ubus_reconnect(ctx, path) == 0)
        return 0;
    free(ctx->msgbuf.data);
    ctx->msgbuf.data = nullptr;
    return -1;
}

ubus_context *ubus_connect(const char *path)
{
    auto *ctx = (ubus_context *)calloc(1, sizeof(ubus_context));
    if (ctx && ubus_connect_ctx(ctx, path) == 0)
        return ctx;
    free(ctx);
    return nullptr;
}

void ubus_shutdown(ubus_context *ctx)
{
    if (!ctx || !ctx->pending.next)
        return;
    close_socket(ctx);
    (void)uloop_timeout_cancel(&ctx->pending_timer);
    while (!list_empty(&ctx->pending)) {
        auto *held = list_first_entry(&ctx->pending, held_message, list);
        list_del(&held->list);
        free(held);
    }
    free(ctx->msgbuf.data);
    ctx->msgbuf.data = nullptr;
}

void ubus_free(ubus_context *ctx)
{
    ubus_shutdown(ctx);
    free(ctx);
}

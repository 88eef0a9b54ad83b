// Outgoing calls: started, then waited for or left to the loop. Look-ups and the like are calls to
// the broker itself and go the same way.
//
//   start ──► [complete_async: in ctx->requests] ──STATUS, loss, time-out──► finished: complete_cb
//                     │ DATA: data_cb                ▲
//                     └──── abort: forgotten         └ while a data_cb runs: after it
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <poll.h>
#include <sys/socket.h>

#include "libubus_internal.h"

// Data that came while the request's data callback was running; its blob follows.
struct queued_data {
    list_head list;
    int type;
    blob_attr *blob() { return (blob_attr *)(this + 1); }
};

int ubus_request_start(ubus_context *ctx, ubus_request *req, uint8_t type, uint32_t peer,
                       blob_attr *msg, int fd)
{
    memset(req, 0, sizeof(*req));
    INIT_LIST_HEAD(&req->list);
    INIT_LIST_HEAD(&req->pending);
    req->ctx = ctx;
    req->peer = peer;
    req->seq = ++ctx->request_seq;
    req->fd = -1;
    if (blob_pad_len(msg) > WIRE_MAX_BLOB) {
        wire_close(&fd);
        return UBUS_STATUS_INVALID_ARGUMENT;
    }
    return ubus_io_send(ctx, type, req->seq, peer, msg, fd) < 0 ? UBUS_STATUS_INVALID_ARGUMENT : 0;
}

static void drop_queued_data(ubus_request *req)
{
    while (!list_empty(&req->pending)) {
        auto *data = list_first_entry(&req->pending, queued_data, list);
        list_del(&data->list);
        free(data);
    }
}

static void call_complete_cb(ubus_request *req)
{
    const ubus_complete_handler_t cb = req->complete_cb;
    req->complete_cb = nullptr;
    if (cb)
        cb(req, req->status_code);
}

void ubus_request_finish(ubus_request *req, int status)
{
    list_del_init(&req->list);
    req->status_msg = true;
    req->status_code = status;
    if (!req->blocked)
        call_complete_cb(req);
}

void ubus_abort_request(ubus_context *, ubus_request *req)
{
    if (!req->list.next || (list_empty(&req->list) && !req->blocked))
        return;
    req->cancelled = true;
    drop_queued_data(req);
    list_del_init(&req->list);
}

void ubus_complete_request_async(ubus_context *ctx, ubus_request *req)
{
    if (list_empty(&req->list))
        list_add(&req->list, &ctx->requests);
}

void ubus_flush_requests(ubus_context *ctx)
{
    // What the callbacks start anew is not part of this round.
    LIST_HEAD(flushed);
    list_splice_init(&ctx->requests, &flushed);
    while (!list_empty(&flushed))
        ubus_request_finish(list_first_entry(&flushed, ubus_request, list), UBUS_STATUS_TIMEOUT);
}

static int64_t now_ms()
{
    timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return (int64_t)t.tv_sec * 1000 + t.tv_nsec / 1000000;
}

/// Polls the bus socket alone until the request has ended.
static void wait_for_end(ubus_context *ctx, ubus_request *req, int timeout)
{
    const int64_t deadline = now_ms() + timeout;
    while (!req->status_msg && !req->cancelled) {
        if (ctx->sock.eof) {
            ubus_request_finish(req, UBUS_STATUS_CONNECTION_FAILED);
            ubus_connection_gone(ctx);
            return;
        }
        const int64_t left = timeout ? deadline - now_ms() : -1;
        if (timeout && left <= 0) {
            ubus_request_finish(req, UBUS_STATUS_TIMEOUT);
            return;
        }
        pollfd p = {ctx->sock.fd, POLLIN, 0};
        if (poll(&p, 1, (int)left) > 0)
            ubus_receive(ctx);
    }
}

static void wait_over_cb(ubus_request *req, int)
{
    req->ctx->cancel_poll = true;
}

int ubus_complete_request(ubus_context *ctx, ubus_request *req, int timeout)
{
    const ubus_complete_handler_t complete_cb = req->complete_cb;
    const bool outer_cancel_poll = ctx->cancel_poll;
    req->ctx = ctx;
    req->complete_cb = wait_over_cb;
    ubus_complete_request_async(ctx, req);
    ctx->stack_depth++;
    wait_for_end(ctx, req, timeout);
    ctx->stack_depth--;
    ctx->cancel_poll = outer_cancel_poll;
    req->complete_cb = nullptr;
    const int status = req->status_msg ? req->status_code : UBUS_STATUS_NO_DATA;
    if (complete_cb)
        complete_cb(req, status);
    if (ctx->stack_depth || list_empty(&ctx->pending))
        return status;
    if (ctx->sock.registered)
        uloop_timeout_set(&ctx->pending_timer, 1);
    else
        ubus_process_pending(ctx);
    return status;
}

int ubus_request_run(ubus_context *ctx, uint8_t type, blob_attr *msg, ubus_data_handler_t raw_cb,
                     void *priv)
{
    ubus_request req;
    const int status = ubus_request_start(ctx, &req, type, 0, msg);
    if (status)
        return status;
    req.raw_data_cb = raw_cb;
    req.priv = priv;
    return ubus_complete_request(ctx, &req, 0);
}

// Replies.

static ubus_request *find_request(ubus_context *ctx, uint32_t peer, uint16_t seq)
{
    ubus_request *req;
    list_for_each_entry(req, &ctx->requests, list)
    {
        if (req->seq != seq)
            continue;
        if (req->peer == peer)
            return req;
        if (req->notify && ubus_notify_expects(container_of(req, ubus_notify_request, req), peer))
            return req;
    }
    return nullptr;
}

static void deliver(ubus_request *req, int type, blob_attr *msg)
{
    if (req->raw_data_cb)
        req->raw_data_cb(req, type, msg);
    if (!req->data_cb && !req->notify)
        return; // nor may the message be looked at: the callback may have made a call of its own
    blob_attr *data = wire_parse(msg)[UBUS_ATTR_DATA];
    if (!data || req->cancelled)
        return;
    if (req->data_cb)
        req->data_cb(req, type, data);
    if (!req->notify)
        return;
    auto *notify = container_of(req, ubus_notify_request, req);
    if (notify->data_cb)
        notify->data_cb(notify, type, data);
}

static void queue_data(ubus_request *req, int type, const blob_attr *msg)
{
    auto *data = (queued_data *)malloc(sizeof(queued_data) + blob_pad_len(msg));
    if (!data)
        return;
    data->type = type;
    memcpy(data->blob(), msg, blob_raw_len(msg));
    // At the front: results that come in during a callback come out in reverse order, as programs
    // see it from the router's bus library too.
    list_add(&data->list, &req->pending);
}

static void data_received(ubus_request *req, int type, blob_attr *msg)
{
    if (req->blocked) {
        queue_data(req, type, msg);
        return;
    }
    req->blocked = true;
    deliver(req, type, msg);
    while (!list_empty(&req->pending)) {
        auto *data = list_first_entry(&req->pending, queued_data, list);
        list_del(&data->list);
        deliver(req, data->type, data->blob());
        free(data);
    }
    req->blocked = false;
    if (req->status_msg && !req->cancelled)
        call_complete_cb(req);
}

static void status_received(ubus_request *req, uint32_t peer, blob_attr *msg, int fd)
{
    const wire_attrs attrs = wire_parse(msg);
    if (fd >= 0 && req->fd_cb)
        req->fd_cb(req, fd);
    else
        wire_close(&fd);
    if (req->notify) {
        ubus_notify_status(container_of(req, ubus_notify_request, req), peer, attrs);
        return;
    }
    blob_attr *status = attrs[UBUS_ATTR_STATUS];
    ubus_request_finish(req, status ? (int)blob_get_u32(status) : UBUS_STATUS_UNKNOWN_ERROR);
}

void ubus_reply_received(ubus_context *ctx, const ubus_msghdr &hdr, blob_attr *msg, int fd)
{
    ubus_request *req = find_request(ctx, hdr.peer, hdr.seq);
    if (req && hdr.type == UBUS_MSG_STATUS) {
        status_received(req, hdr.peer, msg, fd);
        return;
    }
    wire_close(&fd);
    if (req)
        data_received(req, hdr.type, msg);
}

// Calls.

int ubus_invoke_async_fd(ubus_context *ctx, uint32_t obj, const char *method, blob_attr *msg,
                         ubus_request *req, int fd)
{
    wire_buf b;
    blob_put_int32(&b.b, UBUS_ATTR_OBJID, obj);
    blob_put_string(&b.b, UBUS_ATTR_METHOD, method);
    wire_put_data(&b.b, msg);
    return ubus_request_start(ctx, req, UBUS_MSG_INVOKE, obj, b.msg(), fd);
}

int ubus_invoke_async(ubus_context *ctx, uint32_t obj, const char *method, blob_attr *msg,
                      ubus_request *req)
{
    return ubus_invoke_async_fd(ctx, obj, method, msg, req, -1);
}

int ubus_invoke_fd(ubus_context *ctx, uint32_t obj, const char *method, blob_attr *msg,
                   ubus_data_handler_t cb, void *priv, int timeout, int fd)
{
    ubus_request req;
    const int status = ubus_invoke_async_fd(ctx, obj, method, msg, &req, fd);
    if (status)
        return status;
    req.data_cb = cb;
    req.priv = priv;
    return ubus_complete_request(ctx, &req, timeout);
}

int ubus_invoke(ubus_context *ctx, uint32_t obj, const char *method, blob_attr *msg,
                ubus_data_handler_t cb, void *priv, int timeout)
{
    return ubus_invoke_fd(ctx, obj, method, msg, cb, priv, timeout, -1);
}

// Look-ups.

struct lookup {
    ubus_lookup_handler_t cb;
    void *priv;
};

static void lookup_data_cb(ubus_request *req, int, blob_attr *msg)
{
    const auto *lookup_of = (const lookup *)req->priv;
    const wire_attrs attrs = wire_parse(msg);
    if (!attrs[UBUS_ATTR_OBJID] || !attrs[UBUS_ATTR_OBJPATH] || !attrs[UBUS_ATTR_OBJTYPE])
        return;
    ubus_object_data obj{};
    obj.id = blob_get_u32(attrs[UBUS_ATTR_OBJID]);
    obj.type_id = blob_get_u32(attrs[UBUS_ATTR_OBJTYPE]);
    obj.path = blob_get_string(attrs[UBUS_ATTR_OBJPATH]);
    obj.signature = attrs[UBUS_ATTR_SIGNATURE];
    lookup_of->cb(req->ctx, &obj, lookup_of->priv);
}

int ubus_lookup(ubus_context *ctx, const char *path, ubus_lookup_handler_t cb, void *priv)
{
    wire_buf b;
    if (path)
        blob_put_string(&b.b, UBUS_ATTR_OBJPATH, path);
    lookup wanted = {cb, priv};
    return ubus_request_run(ctx, UBUS_MSG_LOOKUP, b.msg(), cb ? lookup_data_cb : nullptr, &wanted);
}

static void store_id_cb(ubus_context *, ubus_object_data *obj, void *priv)
{
    *(uint32_t *)priv = obj->id;
}

int ubus_lookup_id(ubus_context *ctx, const char *path, uint32_t *id)
{
    return ubus_lookup(ctx, path, store_id_cb, id);
}

int ubus_monitor_start(ubus_context *ctx)
{
    return ubus_invoke(ctx, UBUS_SYSTEM_OBJECT_MONITOR, "add", nullptr, nullptr, nullptr, 0);
}

int ubus_monitor_stop(ubus_context *ctx)
{
    return ubus_invoke(ctx, UBUS_SYSTEM_OBJECT_MONITOR, "remove", nullptr, nullptr, nullptr, 0);
}

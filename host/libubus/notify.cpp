// Notifications that wait for answers. The broker first names the subscribers, then their statuses
// come in one by one and are counted off.
#include "libubus_internal.h"

// Bit 0 of `pending`: the list of subscribers has not come yet; bit n: subscriber n has not
// answered.
constexpr uint32_t AWAITS_LIST = 1;

bool ubus_notify_expects(const ubus_notify_request *req, uint32_t peer)
{
    for (uint32_t i = 1; i <= UBUS_MAX_NOTIFY_PEERS; i++)
        if ((req->pending & (1u << i)) && req->id[i] == peer)
            return true;
    return false;
}

static void list_received(ubus_notify_request *req, const wire_attrs &attrs)
{
    req->pending &= ~AWAITS_LIST;
    blob_attr *cur;
    size_t rem;
    uint32_t count = 0;
    blob_for_each_attr(cur, attrs[UBUS_ATTR_SUBSCRIBERS], rem)
    {
        if (!blob_check_type(blob_data(cur), (unsigned)blob_len(cur), BLOB_ATTR_INT32))
            continue;
        if (count == UBUS_MAX_NOTIFY_PEERS)
            break;
        req->id[++count] = blob_get_u32(cur);
        req->pending |= 1u << count;
    }
}

static void answer_received(ubus_notify_request *req, uint32_t peer, int status)
{
    for (uint32_t i = 1; i <= UBUS_MAX_NOTIFY_PEERS; i++) {
        if (!(req->pending & (1u << i)) || req->id[i] != peer)
            continue;
        req->pending &= ~(1u << i);
        if (req->status_cb)
            req->status_cb(req, (int)i, status);
        return;
    }
}

void ubus_notify_status(ubus_notify_request *req, uint32_t peer, const wire_attrs &attrs)
{
    blob_attr *attr = attrs[UBUS_ATTR_STATUS];
    const int status = attr ? (int)blob_get_u32(attr) : UBUS_STATUS_UNKNOWN_ERROR;
    if (!(req->pending & AWAITS_LIST)) {
        answer_received(req, peer, status);
    } else if (status) {
        ubus_request_finish(&req->req, status);
        return;
    } else {
        list_received(req, attrs);
    }
    if (!req->pending && !req->req.cancelled)
        ubus_request_finish(&req->req, 0);
}

static void notify_complete_cb(ubus_request *req, int ret)
{
    auto *notify = container_of(req, ubus_notify_request, req);
    if (notify->complete_cb)
        notify->complete_cb(notify, 0, ret);
}

static int notify_start(ubus_context *ctx, ubus_object *obj, const char *type, blob_attr *msg,
                        ubus_request *req, bool reply)
{
    wire_buf b;
    blob_put_int32(&b.b, UBUS_ATTR_OBJID, obj->id);
    blob_put_string(&b.b, UBUS_ATTR_METHOD, type);
    wire_put_data(&b.b, msg);
    if (!reply)
        blob_put_int8(&b.b, UBUS_ATTR_NO_REPLY, 1);
    return ubus_request_start(ctx, req, UBUS_MSG_NOTIFY, obj->id, b.msg());
}

int ubus_notify_async(ubus_context *ctx, ubus_object *obj, const char *type, blob_attr *msg,
                      ubus_notify_request *req)
{
    *req = {};
    const int status = notify_start(ctx, obj, type, msg, &req->req, true);
    req->req.notify = true;
    req->req.complete_cb = notify_complete_cb;
    req->pending = AWAITS_LIST;
    return status;
}

int ubus_notify(ubus_context *ctx, ubus_object *obj, const char *type, blob_attr *msg, int timeout)
{
    ubus_notify_request req;
    if (timeout < 0) {
        (void)notify_start(ctx, obj, type, msg, &req.req, false);
        return 0;
    }
    // What could not be sent is found out by the wait: a dead connection, not a wrong argument.
    const int status = ubus_notify_async(ctx, obj, type, msg, &req);
    if (status && !ctx->sock.eof)
        return status;
    return ubus_complete_request(ctx, &req.req, timeout);
}

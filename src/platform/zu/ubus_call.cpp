// Each call is one heap record with its request and its timer; whichever ends first frees it.

#include "platform/zu/ubus_call.h"

#include <memory>
#include <new>

struct pending_call {
    ubus_request request;
    uloop_timeout timer;
    ubus_context *ctx;
    zu_ubus_call_done done;
    void *priv;
};

static void end_call(pending_call *call, int status)
{
    const std::unique_ptr<pending_call> owner(call);
    uloop_timeout_cancel(&call->timer);
    if (call->done)
        call->done(status, call->priv);
}

static void call_complete_cb(ubus_request *request, int status)
{
    end_call(container_of(request, pending_call, request), status);
}

static void call_timeout_cb(uloop_timeout *timer)
{
    pending_call *call = container_of(timer, pending_call, timer);
    ubus_abort_request(call->ctx, &call->request);
    end_call(call, UBUS_STATUS_TIMEOUT);
}

int zu_ubus_call_async(ubus_context *ctx, uint32_t id, const char *method, blob_attr *msg,
                       int timeout_ms, zu_ubus_call_done done, void *priv)
{
    std::unique_ptr<pending_call> call(new (std::nothrow) pending_call{});
    if (!call)
        return UBUS_STATUS_NO_MEMORY;
    const int status = ubus_invoke_async(ctx, id, method, msg, &call->request);
    if (status != 0)
        return status;
    call->ctx = ctx;
    call->done = done;
    call->priv = priv;
    call->request.complete_cb = call_complete_cb;
    call->timer.cb = call_timeout_cb;
    uloop_timeout_set(&call->timer, timeout_ms);
    ubus_complete_request_async(ctx, &call.release()->request);
    return 0;
}

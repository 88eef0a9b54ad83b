// Events: named broadcasts through the broker's event object. A handler is an anonymous object
// that the broker calls with the event's name as the method.
#include "libubus_internal.h"

static int event_cb(ubus_context *ctx, ubus_object *obj, ubus_request_data *, const char *method,
                    blob_attr *msg)
{
    auto *ev = container_of(obj, ubus_event_handler, obj);
    ev->cb(ctx, ev, method, msg);
    return 0;
}

static int publish_handler(ubus_context *ctx, ubus_event_handler *ev)
{
    static const ubus_method ANY = {nullptr, event_cb, 0, 0, nullptr, 0};
    if (!ev->obj.name != !ev->obj.type)
        return UBUS_STATUS_INVALID_ARGUMENT;
    ev->obj.methods = &ANY;
    ev->obj.n_methods = 1;
    return ubus_add_object(ctx, &ev->obj);
}

int ubus_register_event_handler(ubus_context *ctx, ubus_event_handler *ev, const char *pattern)
{
    if (!ev->obj.id) {
        const int status = publish_handler(ctx, ev);
        if (status)
            return status;
    }
    wire_buf args;
    blobmsg_add_u32(&args.b, "object", ev->obj.id);
    if (pattern)
        blobmsg_add_string(&args.b, "pattern", pattern);
    return ubus_invoke(ctx, UBUS_SYSTEM_OBJECT_EVENT, "register", args.msg(), nullptr, nullptr, 0);
}

int ubus_unregister_event_handler(ubus_context *ctx, ubus_event_handler *ev)
{
    return ubus_remove_object(ctx, &ev->obj);
}

int ubus_send_event(ubus_context *ctx, const char *id, blob_attr *data)
{
    wire_buf args;
    blobmsg_add_string(&args.b, "id", id);
    blobmsg_add_field(&args.b, BLOBMSG_TYPE_TABLE, "data", blob_data(data),
                      (unsigned)blob_len(data));
    return ubus_invoke(ctx, UBUS_SYSTEM_OBJECT_EVENT, "send", args.msg(), nullptr, nullptr, 0);
}

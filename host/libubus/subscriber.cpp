// Subscribers: anonymous objects that the broker calls when a watched object notifies. Those with
// new_obj_cb are attached to every fitting object, the present ones and those that come.
#include <vector>

#include "libubus_internal.h"

static int notification_cb(ubus_context *ctx, ubus_object *obj, ubus_request_data *req,
                           const char *method, blob_attr *msg)
{
    auto *sub = container_of(obj, ubus_subscriber, obj);
    return sub->cb ? sub->cb(ctx, obj, req, method, msg) : 0;
}

static const ubus_method NOTIFICATION = {nullptr, notification_cb, 0, 0, nullptr, 0};

ubus_subscriber *ubus_subscriber_of(ubus_object *obj)
{
    return obj->methods == &NOTIFICATION ? container_of(obj, ubus_subscriber, obj) : nullptr;
}

static int subscription_run(ubus_context *ctx, ubus_msg_type type, const ubus_subscriber *sub,
                            uint32_t target)
{
    wire_buf b;
    blob_put_int32(&b.b, UBUS_ATTR_OBJID, sub->obj.id);
    blob_put_int32(&b.b, UBUS_ATTR_TARGET, target);
    return ubus_request_run(ctx, (uint8_t)type, b.msg(), nullptr, nullptr);
}

int ubus_subscribe(ubus_context *ctx, ubus_subscriber *sub, uint32_t id)
{
    return subscription_run(ctx, UBUS_MSG_SUBSCRIBE, sub, id);
}

int ubus_unsubscribe(ubus_context *ctx, ubus_subscriber *sub, uint32_t id)
{
    return subscription_run(ctx, UBUS_MSG_UNSUBSCRIBE, sub, id);
}

// Automatic subscriptions.

static void object_added_cb(ubus_context *ctx, ubus_event_handler *, const char *, blob_attr *msg)
{
    enum { ID, PATH, COUNT };
    static const blobmsg_policy POLICY[COUNT] = {
        {"id", BLOBMSG_TYPE_INT32},
        {"path", BLOBMSG_TYPE_STRING},
    };
    blob_attr *tb[COUNT];
    (void)blobmsg_parse(POLICY, COUNT, tb, blob_data(msg), (unsigned)blob_len(msg));
    if (!tb[ID] || !tb[PATH])
        return;
    ubus_subscriber *sub, *next;
    list_for_each_entry_safe(sub, next, &ctx->auto_subscribers, list)
    {
        if (sub->new_obj_cb(ctx, sub, blobmsg_get_string(tb[PATH])))
            (void)ubus_subscribe(ctx, sub, blobmsg_get_u32(tb[ID]));
    }
}

struct wanted_objects {
    ubus_subscriber *sub;
    std::vector<uint32_t> ids;
};

static void present_object_cb(ubus_context *ctx, ubus_object_data *obj, void *priv)
{
    auto *wanted = (wanted_objects *)priv;
    if (wanted->sub->new_obj_cb(ctx, wanted->sub, obj->path))
        wanted->ids.push_back(obj->id);
}

static void subscribe_to_present(ubus_context *ctx, ubus_subscriber *sub)
{
    wanted_objects wanted = {sub, {}};
    (void)ubus_lookup(ctx, nullptr, present_object_cb, &wanted);
    for (uint32_t id : wanted.ids)
        (void)ubus_subscribe(ctx, sub, id);
}

static int watch_objects(ubus_context *ctx)
{
    ubus_event_handler *ev = &ctx->auto_subscribe_event_handler;
    ev->cb = object_added_cb;
    return ubus_register_event_handler(ctx, ev, "ubus.object.add");
}

void ubus_auto_subscribe_again(ubus_context *ctx)
{
    if (list_empty(&ctx->auto_subscribers) || watch_objects(ctx))
        return;
    ubus_subscriber *sub, *next;
    list_for_each_entry_safe(sub, next, &ctx->auto_subscribers, list)
    {
        subscribe_to_present(ctx, sub);
    }
}

int ubus_register_subscriber(ubus_context *ctx, ubus_subscriber *sub)
{
    INIT_LIST_HEAD(&sub->list);
    sub->obj.methods = &NOTIFICATION;
    sub->obj.n_methods = 1;
    const int status = ubus_add_object(ctx, &sub->obj);
    if (status || !sub->new_obj_cb)
        return status;
    if (!ctx->auto_subscribe_event_handler.obj.id) {
        const int watch = watch_objects(ctx);
        if (watch)
            return watch;
    }
    list_add(&sub->list, &ctx->auto_subscribers);
    subscribe_to_present(ctx, sub);
    return 0;
}

int ubus_unregister_subscriber(ubus_context *ctx, ubus_subscriber *sub)
{
    if (sub->list.next)
        list_del_init(&sub->list);
    return ubus_remove_object(ctx, &sub->obj);
}

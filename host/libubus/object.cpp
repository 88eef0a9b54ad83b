// Published objects: adding and removing them, and the calls that come in for them.
#include <cstring>
#include <vector>

#include "libubus_internal.h"

// Publishing.

struct published {
    uint32_t id;
    uint32_t type_id;
};

static void published_cb(ubus_request *req, int, blob_attr *msg)
{
    auto *result = (published *)req->priv;
    const wire_attrs attrs = wire_parse(msg);
    if (attrs[UBUS_ATTR_OBJID])
        result->id = blob_get_u32(attrs[UBUS_ATTR_OBJID]);
    if (attrs[UBUS_ATTR_OBJTYPE])
        result->type_id = blob_get_u32(attrs[UBUS_ATTR_OBJTYPE]);
}

static void put_method(blob_buf *b, const ubus_method *method)
{
    void *table = blobmsg_open_table(b, method->name);
    for (int i = 0; i < method->n_policy; i++) {
        if (method->mask && !(method->mask & (1ul << i)))
            continue;
        if (method->policy[i].name)
            blobmsg_add_u32(b, method->policy[i].name, method->policy[i].type);
    }
    blobmsg_close_table(b, table);
}

static void put_type(blob_buf *b, const ubus_object_type *type)
{
    if (type->id) {
        blob_put_int32(b, UBUS_ATTR_OBJTYPE, type->id);
        return;
    }
    void *signature = blob_nest_start(b, UBUS_ATTR_SIGNATURE);
    for (int i = 0; i < type->n_methods; i++)
        put_method(b, &type->methods[i]);
    blob_nest_end(b, signature);
}

int ubus_add_object(ubus_context *ctx, ubus_object *obj)
{
    wire_buf b;
    if (obj->name && obj->type) {
        blob_put_string(&b.b, UBUS_ATTR_OBJPATH, obj->name);
        put_type(&b.b, obj->type);
    }
    published result{};
    const int status = ubus_request_run(ctx, UBUS_MSG_ADD_OBJECT, b.msg(), published_cb, &result);
    if (status)
        return status;
    if (!result.id)
        return UBUS_STATUS_NO_DATA;
    obj->id = result.id;
    if (obj->type && result.type_id)
        obj->type->id = result.type_id;
    obj->avl.key = &obj->id;
    (void)avl_insert(&ctx->objects, &obj->avl);
    return 0;
}

static void forget(ubus_context *ctx, ubus_object *obj)
{
    avl_delete(&ctx->objects, &obj->avl);
    obj->id = 0;
}

int ubus_remove_object(ubus_context *ctx, ubus_object *obj)
{
    if (!obj->id)
        return UBUS_STATUS_NOT_FOUND;
    wire_buf b;
    blob_put_int32(&b.b, UBUS_ATTR_OBJID, obj->id);
    published result{};
    const int status =
        ubus_request_run(ctx, UBUS_MSG_REMOVE_OBJECT, b.msg(), published_cb, &result);
    // Whatever the broker says, the caller may free the object now.
    forget(ctx, obj);
    if (obj->type && result.type_id)
        obj->type->id = 0;
    return status;
}

static std::vector<ubus_object *> known_objects(ubus_context *ctx)
{
    std::vector<ubus_object *> objects;
    ubus_object *obj;
    avl_for_each_element(&ctx->objects, obj, avl)
    {
        objects.push_back(obj);
    }
    return objects;
}

int ubus_republish(ubus_context *ctx)
{
    const std::vector<ubus_object *> objects = known_objects(ctx);
    if (objects.empty())
        return 0;
    for (ubus_object *obj : objects)
        if (obj->type)
            obj->type->id = 0;
    int first_failure = 0;
    for (ubus_object *obj : objects) {
        const uint32_t old_id = obj->id;
        forget(ctx, obj);
        const int status = ubus_add_object(ctx, obj);
        if (status && !first_failure)
            first_failure = status;
        if (status && ctx->sock.eof) {
            // Lost again: the next connection publishes it.
            obj->id = old_id;
            (void)avl_insert(&ctx->objects, &obj->avl);
        }
    }
    ubus_auto_subscribe_again(ctx);
    return ctx->sock.eof ? (int)UBUS_STATUS_CONNECTION_FAILED : first_failure;
}

// Incoming calls.

static void send_status(ubus_context *ctx, ubus_request_data *req, int ret)
{
    wire_buf b;
    blob_put_int32(&b.b, UBUS_ATTR_STATUS, (uint32_t)ret);
    blob_put_int32(&b.b, UBUS_ATTR_OBJID, req->object);
    (void)ubus_io_send(ctx, UBUS_MSG_STATUS, req->seq, req->peer, b.msg(), req->fd);
    req->fd = -1;
}

static const ubus_method *find_method(const ubus_object *obj, const char *name)
{
    for (int i = 0; i < obj->n_methods; i++)
        if (!obj->methods[i].name || !strcmp(obj->methods[i].name, name))
            return &obj->methods[i];
    return nullptr;
}

static int call_method(ubus_context *ctx, ubus_object *obj, ubus_request_data *req,
                       const wire_attrs &attrs)
{
    if (!obj)
        return UBUS_STATUS_NOT_FOUND;
    if (!attrs[UBUS_ATTR_METHOD] || !attrs[UBUS_ATTR_DATA])
        return UBUS_STATUS_INVALID_ARGUMENT;
    const char *name = blob_get_string(attrs[UBUS_ATTR_METHOD]);
    const ubus_method *method = find_method(obj, name);
    if (!method)
        return UBUS_STATUS_METHOD_NOT_FOUND;
    req->acl.user = attrs[UBUS_ATTR_USER] ? blob_get_string(attrs[UBUS_ATTR_USER]) : nullptr;
    req->acl.group = attrs[UBUS_ATTR_GROUP] ? blob_get_string(attrs[UBUS_ATTR_GROUP]) : nullptr;
    req->acl.object = obj->name;
    return method->handler(ctx, obj, req, name, attrs[UBUS_ATTR_DATA]);
}

static void invoke_received(ubus_context *ctx, ubus_object *obj, const ubus_msghdr &hdr,
                            const wire_attrs &attrs, int fd)
{
    ubus_request_data req{};
    req.object = blob_get_u32(attrs[UBUS_ATTR_OBJID]);
    req.peer = hdr.peer;
    req.seq = hdr.seq;
    req.fd = -1;
    req.req_fd = fd;
    const int ret = call_method(ctx, obj, &req, attrs);
    wire_close(&req.req_fd);
    const bool silent = attrs[UBUS_ATTR_NO_REPLY] && blob_get_u8(attrs[UBUS_ATTR_NO_REPLY]);
    if (!req.deferred && !silent)
        send_status(ctx, &req, ret);
    else
        wire_close(&req.fd);
}

static void target_gone(ubus_context *ctx, ubus_object *obj, const wire_attrs &attrs)
{
    ubus_subscriber *sub = ubus_subscriber_of(obj);
    if (sub && sub->remove_cb && attrs[UBUS_ATTR_TARGET])
        sub->remove_cb(ctx, sub, blob_get_u32(attrs[UBUS_ATTR_TARGET]));
}

static void subscribers_changed(ubus_context *ctx, ubus_object *obj, const wire_attrs &attrs)
{
    if (!attrs[UBUS_ATTR_ACTIVE])
        return;
    obj->has_subscribers = blob_get_u8(attrs[UBUS_ATTR_ACTIVE]);
    if (obj->subscribe_cb)
        obj->subscribe_cb(ctx, obj);
}

void ubus_object_received(ubus_context *ctx, const ubus_msghdr &hdr, blob_attr *msg, int fd)
{
    const wire_attrs attrs = wire_parse(msg);
    if (!attrs[UBUS_ATTR_OBJID]) {
        wire_close(&fd);
        return;
    }
    const uint32_t id = blob_get_u32(attrs[UBUS_ATTR_OBJID]);
    avl_node *node = avl_find(&ctx->objects, &id);
    ubus_object *obj = node ? container_of(node, ubus_object, avl) : nullptr;
    ctx->stack_depth++;
    if (hdr.type == UBUS_MSG_INVOKE) {
        invoke_received(ctx, obj, hdr, attrs, fd);
    } else {
        wire_close(&fd);
        if (obj && hdr.type == UBUS_MSG_UNSUBSCRIBE)
            target_gone(ctx, obj, attrs);
        else if (obj)
            subscribers_changed(ctx, obj, attrs);
    }
    ctx->stack_depth--;
}

int ubus_send_reply(ubus_context *ctx, ubus_request_data *req, blob_attr *msg)
{
    wire_buf b;
    blob_put_int32(&b.b, UBUS_ATTR_OBJID, req->object);
    wire_put_data(&b.b, msg);
    const int sent = ubus_io_send(ctx, UBUS_MSG_DATA, req->seq, req->peer, b.msg());
    return sent < 0 ? UBUS_STATUS_NO_DATA : 0;
}

void ubus_defer_request(ubus_context *, ubus_request_data *req, ubus_request_data *new_req)
{
    *new_req = *req;
    new_req->req_fd = -1;
    req->fd = -1;
    req->deferred = true;
}

void ubus_complete_deferred_request(ubus_context *ctx, ubus_request_data *req, int ret)
{
    send_status(ctx, req, ret);
}

void ubus_request_set_fd(ubus_context *, ubus_request_data *req, int fd)
{
    wire_close(&req->fd);
    req->fd = fd;
}

int ubus_request_get_caller_fd(ubus_request_data *req)
{
    const int fd = req->req_fd;
    req->req_fd = -1;
    return fd;
}

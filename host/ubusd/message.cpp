// What each type of message asks the broker to do. Calls and their replies are passed on; the
// broker keeps no record of them, so an owner's death leaves its callers without any answer.
#include <cstring>

#include "broker.h"

void message_reply(broker_client *client, const ubus_msghdr &request, ubus_msg_type type,
                   const blob_attr *msg)
{
    client_post(client, type, request.seq, request.peer, msg);
}

void message_reply_status(broker_client *client, const ubus_msghdr &request, int status)
{
    wire_buf b;
    blob_put_int32(&b.b, UBUS_ATTR_STATUS, (uint32_t)status);
    message_reply(client, request, UBUS_MSG_STATUS, b.msg());
}

static int handle_unknown(broker_client *, broker_request &)
{
    return UBUS_STATUS_INVALID_COMMAND;
}

static int handle_ping(broker_client *client, broker_request &req)
{
    message_reply(client, req.hdr, UBUS_MSG_DATA, req.msg);
    return UBUS_STATUS_OK;
}

/// Replies come from objects' owners; anything not in order is dropped without a word.
static int handle_reply(broker_client *client, broker_request &req)
{
    const bool is_status = req.hdr.type == UBUS_MSG_STATUS;
    blob_attr *id = req.attrs[UBUS_ATTR_OBJID];
    if (!id || !req.attrs[is_status ? UBUS_ATTR_STATUS : UBUS_ATTR_DATA])
        return BROKER_NO_STATUS;
    const broker_object *obj = object_find(blob_get_u32(id));
    broker_client *caller = client_find(req.hdr.peer);
    if (!obj || obj->owner != client || !caller)
        return BROKER_NO_STATUS;
    ubus_msghdr hdr = req.hdr;
    hdr.peer = obj->id;
    client_send(caller, hdr, req.msg, is_status ? req.fd : -1);
    return BROKER_NO_STATUS;
}

static int invoke_system(broker_client *client, uint32_t object, const std::string &method,
                         blob_attr *data)
{
    switch (object) {
    case UBUS_SYSTEM_OBJECT_EVENT:
        return event_invoke(client, method, data);
    case UBUS_SYSTEM_OBJECT_ACL:
        return UBUS_STATUS_INVALID_COMMAND;
    case UBUS_SYSTEM_OBJECT_MONITOR:
        return monitor_invoke(client, method);
    }
    return UBUS_STATUS_NOT_FOUND;
}

static void forward_invoke(const broker_client *caller, const broker_object *obj,
                           const broker_request &req)
{
    wire_buf b;
    blob_put_int32(&b.b, UBUS_ATTR_OBJID, obj->id);
    blob_put_string(&b.b, UBUS_ATTR_METHOD, blob_get_string(req.attrs[UBUS_ATTR_METHOD]));
    blob_put_string(&b.b, UBUS_ATTR_USER, caller->user.c_str());
    blob_put_string(&b.b, UBUS_ATTR_GROUP, caller->group.c_str());
    if (req.attrs[UBUS_ATTR_DATA])
        wire_put_data(&b.b, req.attrs[UBUS_ATTR_DATA]);
    client_post(obj->owner, UBUS_MSG_INVOKE, req.hdr.seq, caller->id, b.msg(), req.fd);
}

static int handle_invoke(broker_client *client, broker_request &req)
{
    if (!req.attrs[UBUS_ATTR_OBJID] || !req.attrs[UBUS_ATTR_METHOD])
        return UBUS_STATUS_INVALID_ARGUMENT;
    const uint32_t id = blob_get_u32(req.attrs[UBUS_ATTR_OBJID]);
    if (id < UBUS_SYSTEM_OBJECT_MAX)
        return invoke_system(client, id, blob_get_string(req.attrs[UBUS_ATTR_METHOD]),
                             req.attrs[UBUS_ATTR_DATA]);
    const broker_object *obj = object_find(id);
    if (!obj)
        return UBUS_STATUS_NOT_FOUND;
    if (obj->path &&
        !acl_allows_method(client, *obj->path, blob_get_string(req.attrs[UBUS_ATTR_METHOD])))
        return UBUS_STATUS_PERMISSION_DENIED;
    forward_invoke(client, obj, req);
    return BROKER_NO_STATUS;
}

using message_handler = int (*)(broker_client *, broker_request &);

constexpr message_handler HANDLERS[__UBUS_MSG_LAST] = {
    handle_unknown,      // UBUS_MSG_HELLO
    handle_reply,        // UBUS_MSG_STATUS
    handle_reply,        // UBUS_MSG_DATA
    handle_ping,         // UBUS_MSG_PING
    lookup_handle,       // UBUS_MSG_LOOKUP
    handle_invoke,       // UBUS_MSG_INVOKE
    object_add,          // UBUS_MSG_ADD_OBJECT
    object_remove,       // UBUS_MSG_REMOVE_OBJECT
    subscription_add,    // UBUS_MSG_SUBSCRIBE
    subscription_remove, // UBUS_MSG_UNSUBSCRIBE
    subscription_notify, // UBUS_MSG_NOTIFY
    handle_unknown,      // UBUS_MSG_MONITOR
};

void message_handle(broker_client *client, const ubus_msghdr &hdr, blob_attr *msg, int fd)
{
    monitor_copy(client, hdr, msg, false);
    broker_request req = {hdr, msg, wire_parse(msg), fd};
    const message_handler handler =
        hdr.type < __UBUS_MSG_LAST ? HANDLERS[hdr.type] : handle_unknown;
    const int status = handler(client, req);
    if (status != BROKER_NO_STATUS)
        message_reply_status(client, hdr, status);
}

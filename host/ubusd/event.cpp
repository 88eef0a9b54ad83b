// Events: objects listen for names, everybody but the sender's own objects gets them.
#include <cstring>

#include "broker.h"

struct listener {
    broker_object *obj;
    std::string pattern;
    bool prefix; // the pattern ended with `*`
};

static std::list<listener> listeners; // newest first

static bool matches(const listener &l, const std::string &id)
{
    return l.prefix ? id.starts_with(l.pattern) : id == l.pattern;
}

void event_forget(const broker_object *obj)
{
    listeners.remove_if([obj](const listener &l) { return l.obj == obj; });
}

void event_send(const broker_client *sender, const char *id, const void *data, size_t len)
{
    static uint64_t stamp;
    static uint16_t seq;
    stamp++;
    for (const listener &l : listeners) {
        // However many of its patterns fit, an object gets an event once.
        if (l.obj->owner == sender || l.obj->event_stamp == stamp || !matches(l, id))
            continue;
        l.obj->event_stamp = stamp;
        wire_buf b;
        blob_put_int32(&b.b, UBUS_ATTR_OBJID, l.obj->id);
        blob_put_string(&b.b, UBUS_ATTR_METHOD, id);
        blob_put(&b.b, UBUS_ATTR_DATA, data, (unsigned)len);
        client_post(l.obj->owner, UBUS_MSG_INVOKE, ++seq, 0, b.msg());
    }
}

static int handle_register(const broker_client *client, blob_attr *object, blob_attr *pattern)
{
    if (!object || !pattern)
        return UBUS_STATUS_INVALID_ARGUMENT;
    const uint32_t id = blobmsg_get_u32(object);
    if (id < UBUS_SYSTEM_OBJECT_MAX)
        return UBUS_STATUS_PERMISSION_DENIED;
    broker_object *obj = object_find(id);
    if (!obj)
        return UBUS_STATUS_NOT_FOUND;
    listener l = {obj, blobmsg_get_string(pattern), false};
    if (obj->owner != client || l.pattern.empty() ||
        !acl_allows(client, BROKER_ACL_LISTEN, l.pattern))
        return UBUS_STATUS_PERMISSION_DENIED;
    if (l.pattern.back() == '*') {
        l.pattern.pop_back();
        l.prefix = true;
    }
    listeners.push_front(std::move(l));
    return UBUS_STATUS_OK;
}

static int handle_send(const broker_client *client, blob_attr *id, blob_attr *data)
{
    if (!id || !data)
        return UBUS_STATUS_INVALID_ARGUMENT;
    if (!strncmp(blobmsg_get_string(id), "ubus.", 5) ||
        !acl_allows(client, BROKER_ACL_SEND, blobmsg_get_string(id)))
        return UBUS_STATUS_PERMISSION_DENIED;
    event_send(client, blobmsg_get_string(id), blobmsg_data(data), blobmsg_len(data));
    return UBUS_STATUS_OK;
}

int event_invoke(broker_client *client, const std::string &method, blob_attr *data)
{
    enum { OBJECT, PATTERN, ID, DATA, COUNT };
    static const blobmsg_policy POLICY[COUNT] = {
        {"object", BLOBMSG_TYPE_INT32},
        {"pattern", BLOBMSG_TYPE_STRING},
        {"id", BLOBMSG_TYPE_STRING},
        {"data", BLOBMSG_TYPE_TABLE},
    };
    blob_attr *tb[COUNT] = {};
    if (data)
        (void)blobmsg_parse(POLICY, COUNT, tb, blob_data(data), (unsigned)blob_len(data));
    if (method == "register")
        return handle_register(client, tb[OBJECT], tb[PATTERN]);
    if (method == "send")
        return handle_send(client, tb[ID], tb[DATA]);
    return UBUS_STATUS_INVALID_COMMAND;
}

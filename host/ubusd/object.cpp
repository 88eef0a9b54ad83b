// Objects and their types.
#include <unordered_map>

#include "broker.h"

static std::unordered_map<uint32_t, std::weak_ptr<broker_type>> types; // outlives the objects
static std::unordered_map<uint32_t, std::unique_ptr<broker_object>> objects;

broker_object *object_find(uint32_t id)
{
    const auto found = objects.find(id);
    return found == objects.end() ? nullptr : found->second.get();
}

// A type lives as long as objects have it.
broker_type::~broker_type()
{
    types.erase(id);
}

/// Null when a method is malformed.
static std::shared_ptr<broker_type> type_new(blob_attr *signature)
{
    std::vector<uint8_t> methods;
    blob_attr *cur;
    size_t rem;
    blob_for_each_attr(cur, signature, rem)
    {
        if (!blobmsg_check_attr(cur, true))
            return nullptr;
        const auto *bytes = (const uint8_t *)cur;
        methods.insert(methods.end(), bytes, bytes + blob_pad_len(cur));
    }
    auto type = std::make_shared<broker_type>();
    do {
        type->id = id_draw();
    } while (types.contains(type->id));
    type->signature = std::move(methods);
    types[type->id] = type;
    return type;
}

static std::shared_ptr<broker_type> type_of_request(const broker_request &req)
{
    if (blob_attr *id = req.attrs[UBUS_ATTR_OBJTYPE]) {
        const auto found = types.find(blob_get_u32(id));
        return found == types.end() ? nullptr : found->second.lock();
    }
    blob_attr *signature = req.attrs[UBUS_ATTR_SIGNATURE];
    return signature ? type_new(signature) : nullptr;
}

static void send_object_event(const char *event, const broker_object *obj)
{
    if (!obj->path)
        return;
    wire_buf b;
    blobmsg_add_u32(&b.b, "id", obj->id);
    blobmsg_add_string(&b.b, "path", obj->path->c_str());
    event_send(nullptr, event, blob_data(b.msg()), blob_len(b.msg()));
}

static broker_object *object_new(broker_client *client)
{
    auto obj = std::make_unique<broker_object>();
    do {
        obj->id = id_draw();
    } while (objects.contains(obj->id));
    obj->owner = client;
    client->objects.push_back(obj.get());
    return (objects[obj->id] = std::move(obj)).get();
}

int object_add(broker_client *client, broker_request &req)
{
    blob_attr *path = req.attrs[UBUS_ATTR_OBJPATH];
    if (path && (lookup_path_taken(blob_get_string(path)) ||
                 !acl_allows(client, BROKER_ACL_PUBLISH, blob_get_string(path))))
        return UBUS_STATUS_INVALID_ARGUMENT;
    broker_object *obj = object_new(client);
    obj->type = type_of_request(req);
    if (path) {
        obj->path = std::make_unique<std::string>(blob_get_string(path));
        lookup_path_added(obj);
    }
    // Before the reply: a publisher that listens itself sees its own object come first.
    send_object_event("ubus.object.add", obj);
    wire_buf b;
    blob_put_int32(&b.b, UBUS_ATTR_OBJID, obj->id);
    if (req.attrs[UBUS_ATTR_SIGNATURE] && obj->type)
        blob_put_int32(&b.b, UBUS_ATTR_OBJTYPE, obj->type->id);
    message_reply(client, req.hdr, UBUS_MSG_DATA, b.msg());
    return UBUS_STATUS_OK;
}

static void object_free(broker_object *obj)
{
    subscription_forget(obj);
    event_forget(obj);
    if (obj->path)
        lookup_path_removed(obj);
    send_object_event("ubus.object.remove", obj);
    std::erase(obj->owner->objects, obj);
    objects.erase(obj->id);
}

int object_remove(broker_client *client, broker_request &req)
{
    if (!req.attrs[UBUS_ATTR_OBJID])
        return UBUS_STATUS_INVALID_ARGUMENT;
    broker_object *obj = object_find(blob_get_u32(req.attrs[UBUS_ATTR_OBJID]));
    if (!obj)
        return UBUS_STATUS_NOT_FOUND;
    if (obj->owner != client)
        return UBUS_STATUS_PERMISSION_DENIED;
    wire_buf b;
    blob_put_int32(&b.b, UBUS_ATTR_OBJID, obj->id);
    if (obj->type && obj->type.use_count() == 1)
        blob_put_int32(&b.b, UBUS_ATTR_OBJTYPE, obj->type->id);
    message_reply(client, req.hdr, UBUS_MSG_DATA, b.msg());
    object_free(obj);
    return UBUS_STATUS_OK;
}

void object_remove_all(broker_client *client)
{
    while (!client->objects.empty())
        object_free(client->objects.back());
}

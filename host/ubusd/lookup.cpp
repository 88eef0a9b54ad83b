// The objects with a path, and the answers to those who look for them.
#include <map>

#include "broker.h"

static std::map<std::string, broker_object *> paths; // in byte order

void lookup_path_added(broker_object *obj)
{
    paths[*obj->path] = obj;
}

void lookup_path_removed(const broker_object *obj)
{
    paths.erase(*obj->path);
}

bool lookup_path_taken(const std::string &path)
{
    return paths.contains(path);
}

/// The methods of an object that the client may call.
static std::vector<uint8_t> visible_methods(const broker_client *client, const broker_object *obj)
{
    if (client->trusted)
        return obj->type->signature;
    std::vector<uint8_t> visible;
    const uint8_t *at = obj->type->signature.data();
    const uint8_t *end = at + obj->type->signature.size();
    while (at < end) {
        const auto *method = (const blob_attr *)at;
        at += blob_pad_len(method);
        if (acl_allows_method(client, *obj->path, blobmsg_name(method)))
            visible.insert(visible.end(), (const uint8_t *)method, at);
    }
    return visible;
}

/// An object without a type is there but not told about; nor is one of whose methods the client may
/// call none.
static void tell(broker_client *client, const ubus_msghdr &request, const broker_object *obj)
{
    if (!obj->type)
        return;
    const std::vector<uint8_t> methods = visible_methods(client, obj);
    if (methods.empty() && !obj->type->signature.empty())
        return;
    wire_buf b;
    blob_put_string(&b.b, UBUS_ATTR_OBJPATH, obj->path->c_str());
    blob_put_int32(&b.b, UBUS_ATTR_OBJID, obj->id);
    blob_put_int32(&b.b, UBUS_ATTR_OBJTYPE, obj->type->id);
    blob_put(&b.b, UBUS_ATTR_SIGNATURE, methods.data(), (unsigned)methods.size());
    message_reply(client, request, UBUS_MSG_DATA, b.msg());
}

/// False when the client must read first. A listing goes on after the path that was told last,
/// whatever has come and gone meanwhile.
static bool list_all(broker_client *client, broker_lookup &lookup)
{
    auto it = lookup.begun ? paths.upper_bound(lookup.last_path) : paths.begin();
    for (; it != paths.end(); ++it) {
        if (!client->queue.empty())
            return false;
        lookup.begun = true;
        lookup.last_path = it->first;
        tell(client, lookup.hdr, it->second);
    }
    message_reply_status(client, lookup.hdr, UBUS_STATUS_OK);
    return true;
}

void lookup_resume(broker_client *client)
{
    while (!client->lookups.empty() && list_all(client, client->lookups.front()))
        client->lookups.pop_front();
}

static int list_prefix(broker_client *client, const ubus_msghdr &request, const std::string &prefix)
{
    int status = UBUS_STATUS_NOT_FOUND;
    for (auto it = paths.lower_bound(prefix); it != paths.end(); ++it) {
        if (!it->first.starts_with(prefix))
            break;
        tell(client, request, it->second);
        status = UBUS_STATUS_OK;
    }
    return status;
}

int lookup_handle(broker_client *client, broker_request &req)
{
    if (!req.attrs[UBUS_ATTR_OBJPATH]) {
        client->lookups.push_back({req.hdr, false, {}});
        if (client->lookups.size() == 1)
            lookup_resume(client);
        return BROKER_NO_STATUS;
    }
    std::string path = blob_get_string(req.attrs[UBUS_ATTR_OBJPATH]);
    if (path.empty())
        return UBUS_STATUS_INVALID_ARGUMENT;
    if (path.back() == '*') {
        path.pop_back();
        return list_prefix(client, req.hdr, path);
    }
    const auto found = paths.find(path);
    if (found == paths.end())
        return UBUS_STATUS_NOT_FOUND;
    tell(client, req.hdr, found->second);
    return UBUS_STATUS_OK;
}

// Who is told what an object notifies. The owner of an object learns when its first subscriber
// comes and its last one goes; a subscriber learns when its target has gone.
#include <algorithm>

#include "broker.h"

static void tell_owner(broker_object *target)
{
    wire_buf b;
    blob_put_int32(&b.b, UBUS_ATTR_OBJID, target->id);
    blob_put_int8(&b.b, UBUS_ATTR_ACTIVE, !target->subscribers.empty());
    client_post(target->owner, UBUS_MSG_NOTIFY, ++target->seq, 0, b.msg());
}

static void tell_subscriber(broker_object *subscriber, uint32_t target)
{
    wire_buf b;
    blob_put_int32(&b.b, UBUS_ATTR_OBJID, subscriber->id);
    blob_put_int32(&b.b, UBUS_ATTR_TARGET, target);
    client_post(subscriber->owner, UBUS_MSG_UNSUBSCRIBE, ++subscriber->seq, 0, b.msg());
}

static void erase_one(std::list<broker_object *> &list, const broker_object *obj)
{
    const auto found = std::find(list.begin(), list.end(), obj);
    if (found != list.end())
        list.erase(found);
}

static void end_subscription(broker_object *subscriber, broker_object *target)
{
    erase_one(target->subscribers, subscriber);
    erase_one(subscriber->targets, target);
    if (target->subscribers.empty())
        tell_owner(target);
}

/// The subscriber and the target that a request names. 0 or the status to refuse with.
static int find_both(const broker_client *client, const broker_request &req,
                     broker_object **subscriber, broker_object **target)
{
    if (!req.attrs[UBUS_ATTR_OBJID] || !req.attrs[UBUS_ATTR_TARGET])
        return UBUS_STATUS_INVALID_ARGUMENT;
    *subscriber = object_find(blob_get_u32(req.attrs[UBUS_ATTR_OBJID]));
    *target = object_find(blob_get_u32(req.attrs[UBUS_ATTR_TARGET]));
    if (!*subscriber)
        return UBUS_STATUS_NOT_FOUND;
    if ((*subscriber)->owner != client)
        return UBUS_STATUS_INVALID_ARGUMENT;
    return *target ? UBUS_STATUS_OK : UBUS_STATUS_NOT_FOUND;
}

int subscription_add(broker_client *client, broker_request &req)
{
    broker_object *subscriber, *target;
    if (const int refused = find_both(client, req, &subscriber, &target))
        return refused;
    if (target->path && !acl_allows(client, BROKER_ACL_SUBSCRIBE, *target->path))
        return UBUS_STATUS_NOT_FOUND;
    if (target->owner == client)
        return UBUS_STATUS_INVALID_ARGUMENT;
    target->subscribers.push_front(subscriber);
    subscriber->targets.push_front(target);
    if (target->subscribers.size() == 1)
        tell_owner(target);
    return UBUS_STATUS_OK;
}

int subscription_remove(broker_client *client, broker_request &req)
{
    broker_object *subscriber, *target;
    if (const int refused = find_both(client, req, &subscriber, &target))
        return refused;
    if (std::find(target->subscribers.begin(), target->subscribers.end(), subscriber) ==
        target->subscribers.end())
        return UBUS_STATUS_NOT_FOUND;
    end_subscription(subscriber, target);
    return UBUS_STATUS_OK;
}

void subscription_forget(broker_object *obj)
{
    while (!obj->targets.empty())
        end_subscription(obj, obj->targets.front());
    const std::list<broker_object *> subscribers = std::move(obj->subscribers);
    obj->subscribers.clear();
    if (!subscribers.empty())
        tell_owner(obj);
    for (broker_object *subscriber : subscribers) {
        erase_one(subscriber->targets, obj);
        tell_subscriber(subscriber, obj->id);
    }
}

// Notifications.

static void reply_subscribers(broker_client *client, const ubus_msghdr &request,
                              const broker_object *obj)
{
    wire_buf b;
    blob_put_int32(&b.b, UBUS_ATTR_OBJID, obj->id);
    void *list = blob_nest_start(&b.b, UBUS_ATTR_SUBSCRIBERS);
    for (const broker_object *subscriber : obj->subscribers)
        blob_put_int32(&b.b, 0, subscriber->id);
    blob_nest_end(&b.b, list);
    blob_put_int32(&b.b, UBUS_ATTR_STATUS, UBUS_STATUS_OK);
    message_reply(client, request, UBUS_MSG_STATUS, b.msg());
}

static void notify_one(const broker_client *notifier, const broker_object *subscriber,
                       const broker_request &req, bool no_reply)
{
    wire_buf b;
    if (no_reply)
        blob_put_int8(&b.b, UBUS_ATTR_NO_REPLY, 1);
    blob_put_int32(&b.b, UBUS_ATTR_OBJID, subscriber->id);
    blob_put_string(&b.b, UBUS_ATTR_METHOD, blob_get_string(req.attrs[UBUS_ATTR_METHOD]));
    blob_put_string(&b.b, UBUS_ATTR_USER, notifier->user.c_str());
    blob_put_string(&b.b, UBUS_ATTR_GROUP, notifier->group.c_str());
    if (req.attrs[UBUS_ATTR_DATA])
        wire_put_data(&b.b, req.attrs[UBUS_ATTR_DATA]);
    client_post(subscriber->owner, UBUS_MSG_INVOKE, req.hdr.seq, notifier->id, b.msg());
}

int subscription_notify(broker_client *client, broker_request &req)
{
    if (!req.attrs[UBUS_ATTR_OBJID] || !req.attrs[UBUS_ATTR_METHOD])
        return UBUS_STATUS_INVALID_ARGUMENT;
    const broker_object *obj = object_find(blob_get_u32(req.attrs[UBUS_ATTR_OBJID]));
    if (!obj)
        return UBUS_STATUS_NOT_FOUND;
    if (obj->owner != client)
        return UBUS_STATUS_PERMISSION_DENIED;
    blob_attr *attr = req.attrs[UBUS_ATTR_NO_REPLY];
    const bool no_reply = attr && blob_get_u8(attr);
    if (!no_reply)
        reply_subscribers(client, req.hdr, obj);
    for (const broker_object *subscriber : obj->subscribers)
        notify_one(client, subscriber, req, no_reply);
    return BROKER_NO_STATUS;
}

// Life of a followed interface: subscription, status call, notifications, removal. What a status
// answer means is iface_status.cpp's.
//
// Notifications tell of changes at once; one that goes astray would leave an interface down, or up,
// for good. So every interface is asked for its status again each half minute, whether the last
// call was answered or not.
//
// The bus library keeps pointers to registered subscribers, also while the connection is down. An
// entry that cannot be unregistered then waits in a list of its own until the bus is back.
#include "wired/netifd/iface.h"

#include <cstdlib>
#include <cstring>
#include <new>
#include <optional>

#include "platform/zu/log.h"
#include "wired/netifd/iface_internal.h"

/// Bounds a status call that no enumeration watches over; longer than an enumeration's own limit,
/// which ends the calls it made and says so in its own words.
constexpr int STATUS_TIMEOUT_MS = 6000;
/// From the end of one status call to the next one, which stays open as long.
constexpr int ASK_AGAIN_MS = 30000;

static LIST_HEAD(gRetired);

static bool unregister(iface_entry *entry)
{
    // The id is 0 exactly when the library does not know the subscriber.
    if (entry->subscriber.obj.id != 0)
        (void)ubus_unregister_subscriber(entry->ctx, &entry->subscriber);
    return entry->subscriber.obj.id == 0;
}

static void release(iface_entry *entry)
{
    free(entry->obj_path);
    delete entry;
}

static void drop_call(iface_entry *entry)
{
    uloop_timeout_cancel(&entry->status_timer);
    if (entry->asking)
        ubus_abort_request(entry->ctx, &entry->request);
    entry->asking = false;
}

/// For an entry that is in no list any more.
static void destroy(iface_entry *entry)
{
    entry->on_change = nullptr;
    drop_call(entry);
    if (unregister(entry))
        release(entry);
    else
        list_add_tail(&entry->link, &gRetired);
}

static int iface_list_notify_cb(ubus_context *, ubus_object *obj, ubus_request_data *, const char *,
                                blob_attr *msg)
{
    if (!obj || !msg) {
        log_error("%s is NULL", obj ? "msg" : "obj");
        return UBUS_STATUS_INVALID_ARGUMENT;
    }
    auto *entry = container_of(container_of(obj, ubus_subscriber, obj), iface_entry, subscriber);
    (void)iface_list_parse_status(entry, msg);
    return UBUS_STATUS_OK;
}

/// A call that is repeated says once what is wrong with the answer, and in one line what is new.
static std::optional<zu_log_repetition> quiet_if_repeated(const iface_entry *entry)
{
    return entry->repeated ? std::optional<zu_log_repetition>(std::in_place) : std::nullopt;
}

static void say_what_was_missed(const iface_entry *entry)
{
    if (entry->repeated && entry->up != entry->up_when_asked)
        log_notice("Interface '%s' is %s, its notification did not come", entry->obj_path,
                   entry->up ? "up" : "down");
}

static void get_iface_status_data_cb(ubus_request *req, int, blob_attr *msg)
{
    if (!req || !msg) {
        log_error("%s is NULL", req ? "msg" : "req");
        return;
    }
    auto *entry = container_of(req, iface_entry, request);
    const auto quiet = quiet_if_repeated(entry);
    entry->got_data = true;
    entry->answered = iface_list_parse_status(entry, msg);
}

static void get_iface_status_complete_cb(ubus_request *req, int)
{
    if (!req) {
        log_error("%s is NULL", "req");
        return;
    }
    auto *entry = container_of(req, iface_entry, request);
    entry->asking = false;
    uloop_timeout_set(&entry->status_timer, ASK_AGAIN_MS);
    entry->parsed = true;
    if (!entry->got_data) {
        const auto quiet = quiet_if_repeated(entry);
        log_error("Interface '%s' failed to generate status data", entry->obj_path);
        iface_list_clear_facts(entry);
    }
    say_what_was_missed(entry);
    if (entry->on_status)
        entry->on_status(entry);
}

/// Opens a call that the timer ends after `limit_ms`, whether it could be opened or not.
static bool ask(iface_entry *entry, uint32_t id, int limit_ms)
{
    drop_call(entry);
    entry->got_data = false;
    entry->answered = false;
    entry->up_when_asked = entry->up;
    uloop_timeout_set(&entry->status_timer, limit_ms);
    if (ubus_invoke_async_fd(entry->ctx, id, "status", nullptr, &entry->request, -1) !=
        UBUS_STATUS_OK) {
        log_error("Failed to invoke status method for interface");
        return false;
    }
    entry->asking = true;
    entry->request.data_cb = get_iface_status_data_cb;
    entry->request.complete_cb = get_iface_status_complete_cb;
    ubus_complete_request_async(entry->ctx, &entry->request);
    return true;
}

bool iface_list_call_status(ubus_context *ctx, iface_entry *entry, uint32_t id)
{
    if (!ctx || !entry) {
        log_error("%s is NULL", ctx ? "iface" : "ctx");
        return false;
    }
    entry->parsed = false;
    entry->repeated = false;
    return ask(entry, id, STATUS_TIMEOUT_MS);
}

void iface_list_ask_again(iface_entry *entry)
{
    const auto quiet = quiet_if_repeated(entry); // of a bus that is away, too
    entry->parsed = true;
    entry->repeated = true;
    (void)ask(entry, entry->id, ASK_AGAIN_MS);
}

static void status_timer_cb(uloop_timeout *timer)
{
    auto *entry = container_of(timer, iface_entry, status_timer);
    if (!entry->parsed) // of the calls that follow nothing more is said
        log_error("Interface '%s' failed to respond to status, aborting ubus invoke",
                  entry->obj_path);
    iface_list_ask_again(entry);
}

static bool follow(iface_entry *entry)
{
    const char *path = entry->obj_path;
    if (ubus_register_subscriber(entry->ctx, &entry->subscriber) != UBUS_STATUS_OK) {
        log_error("Unable to register object to get notifications from interface '%s'", path);
        return false;
    }
    if (ubus_subscribe(entry->ctx, &entry->subscriber, entry->id) != UBUS_STATUS_OK) {
        log_error("Unable to subscribe to notifications from interface '%s'", path);
        return false;
    }
    if (!iface_list_call_status(entry->ctx, entry, entry->id)) {
        log_error("Failed to invoke status method for interface '%s'", path);
        return false;
    }
    return true;
}

iface_entry *iface_list_new_iface(ubus_context *ctx, const char *obj_path, uint32_t id)
{
    if (!ctx || !obj_path) {
        log_error("%s is NULL", ctx ? "obj_path" : "ctx");
        return nullptr;
    }
    auto *entry = new (std::nothrow) iface_entry{};
    char *path = strdup(obj_path);
    if (!entry || !path) {
        log_error("Failed to allocate memory for a new iface listing");
        delete entry;
        free(path);
        return nullptr;
    }
    entry->obj_path = path;
    entry->ctx = ctx;
    entry->id = id;
    entry->subscriber.cb = iface_list_notify_cb;
    entry->status_timer.cb = status_timer_cb;
    if (follow(entry))
        return entry;
    destroy(entry);
    return nullptr;
}

iface_entry *iface_list_find(list_head *list, const char *obj_path)
{
    iface_entry *entry;
    list_for_each_entry(entry, list, link)
    {
        if (strcmp(entry->obj_path, obj_path) == 0)
            return entry;
    }
    return nullptr;
}

void iface_list_free_iface(list_head *list, const char *obj_path)
{
    iface_entry *entry = iface_list_find(list, obj_path);
    if (!entry)
        return;
    list_del(&entry->link);
    destroy(entry);
}

void iface_list_free_all(list_head *list)
{
    if (!list->next) // never set up
        return;
    iface_entry *entry;
    iface_entry *next;
    list_for_each_entry_safe(entry, next, list, link)
    {
        list_del(&entry->link);
        destroy(entry);
    }
}

void iface_list_free_retired()
{
    iface_entry *entry;
    iface_entry *next;
    list_for_each_entry_safe(entry, next, &gRetired, link)
    {
        if (!unregister(entry))
            return;
        list_del(&entry->link);
        release(entry);
    }
}

struct lookup_request {
    std::vector<bus_object> found;
    bool (*wanted)(const char *path);
};

static void lookup_objects_cb(ubus_context *, ubus_object_data *obj, void *priv)
{
    if (!obj) {
        log_error("%s is NULL", "obj");
        return;
    }
    auto *request = static_cast<lookup_request *>(priv);
    if (obj->path && request->wanted(obj->path))
        request->found.push_back({obj->path, obj->id});
}

std::vector<bus_object> bus_lookup_objects(ubus_context *ctx, bool (*wanted)(const char *path))
{
    // Collected first and handled by the caller: calls made from inside a look-up reorder it.
    lookup_request request{{}, wanted};
    if (ctx)
        (void)ubus_lookup(ctx, nullptr, lookup_objects_cb, &request);
    return request.found;
}

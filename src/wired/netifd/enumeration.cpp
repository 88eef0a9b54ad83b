// Looks the interfaces up on the bus, asks each of them, and asks again whoever does not answer.
#include "wired/netifd/enumeration.h"

#include "platform/zu/log.h"
#include "state/state.h"

constexpr int ENUMERATE_MS = 5000;

static void (*gEnded)();

static void enumerate_timeout_cb(uloop_timeout *);

void iface_enumeration_tell_end(void (*ended)())
{
    gEnded = ended;
}

static void end(iface_enumeration *enumeration)
{
    uloop_timeout_cancel(&enumeration->enumerate_timer);
    enumeration->enumerate_timer.cb = nullptr;
    if (gEnded)
        gEnded();
}

/// Ends an enumeration when every interface has answered and is named.
static void weigh(iface_enumeration *enumeration)
{
    // While the first step still waits there is nothing to end.
    if (!enumeration->enumerate_timer.pending ||
        enumeration->enumerate_timer.cb != enumerate_timeout_cb)
        return;
    iface_entry *entry;
    list_for_each_entry(entry, &enumeration->list, link)
    {
        if (!entry->parsed || (entry->up && entry->device[0] == '\0'))
            return;
    }
    end(enumeration);
}

static void weigh_cb(iface_entry *entry)
{
    weigh(entry->enumeration);
}

static void enumerate_timeout_cb(uloop_timeout *timer)
{
    auto *enumeration = container_of(timer, iface_enumeration, enumerate_timer);
    iface_entry *entry;
    list_for_each_entry(entry, &enumeration->list, link)
    {
        if (entry->parsed)
            continue;
        log_error("%s '%s' failed to respond to status, aborting ubus invoke",
                  enumeration->kind->noun, entry->obj_path);
        iface_list_ask_again(entry);
    }
    end(enumeration);
}

static void refresh(const iface_kind *kind, ubus_context *ctx, iface_entry *entry)
{
    uint32_t id = 0;
    if (ubus_lookup_id(ctx, entry->obj_path, &id) != UBUS_STATUS_OK) {
        kind->log_lookup_failure(entry->obj_path);
        return;
    }
    if (!iface_list_call_status(ctx, entry, id))
        log_error("Failed to invoke status method for interface '%s'", entry->obj_path);
}

static void search_bus(iface_enumeration *enumeration, ubus_context *ctx)
{
    const iface_kind *kind = enumeration->kind;
    for (const bus_object &object : bus_lookup_objects(ctx, kind->wanted)) {
        iface_entry *known = iface_list_find(&enumeration->list, object.path.c_str());
        if (known && known->id == object.id)
            refresh(kind, ctx, known);
        else
            iface_enumeration_add(enumeration, kind, ctx, object.path.c_str(), object.id);
    }
}

static void wait_to_enumerate_cb(uloop_timeout *timer)
{
    auto *enumeration = container_of(timer, iface_enumeration, enumerate_timer);
    const iface_kind *kind = enumeration->kind;
    ubus_context *ctx = gUbus_ctx;
    if (!ctx) {
        log_error("%s is NULL", "ctx");
    } else if (kind->is_known()) {
        iface_entry *entry;
        list_for_each_entry(entry, &enumeration->list, link) refresh(kind, ctx, entry);
    } else {
        search_bus(enumeration, ctx);
    }
    timer->cb = enumerate_timeout_cb;
    uloop_timeout_set(timer, ENUMERATE_MS);
    // Answers that came in while later interfaces were still being asked.
    if (kind->ends_when_answered && !list_empty(&enumeration->list))
        weigh(enumeration);
}

bool iface_enumeration_start(iface_enumeration *enumeration, const iface_kind *kind)
{
    uloop_timeout *timer = &enumeration->enumerate_timer;
    if (timer->pending) {
        log_debug("There is an active enumerate/refresh timer, no need to refresh the info");
        return false;
    }
    enumeration->kind = kind;
    timer->cb = wait_to_enumerate_cb;
    uloop_timeout_set(timer, ENUMERATE_MS);
    return true;
}

void iface_enumeration_add(iface_enumeration *enumeration, const iface_kind *kind,
                           ubus_context *ctx, const char *path, uint32_t id)
{
    if (!ctx || !path) {
        log_error("%s is NULL", ctx ? "obj_path" : "ctx");
        return;
    }
    list_head *list = &enumeration->list;
    const iface_entry *known = iface_list_find(list, path);
    if (known && known->id == id)
        return;
    // A path is on the bus once: an entry with another id is an object that is gone.
    iface_list_free_iface(list, path);
    iface_entry *entry = iface_list_new_iface(ctx, path, id);
    if (!entry) {
        log_error("%s", kind->add_failure);
        return;
    }
    entry->enumeration = enumeration;
    entry->on_status = kind->ends_when_answered ? weigh_cb : nullptr;
    entry->on_change = kind->on_change;
    list_add_tail(&entry->link, list);
}

void iface_enumeration_reset(iface_enumeration *enumeration)
{
    uloop_timeout_cancel(&enumeration->enumerate_timer);
    iface_list_free_all(&enumeration->list);
}

// Finds the wired bridges through netifd and chooses the one that leads out.
//
//   init_bridge_info ─ 5 s ─► ask every bridge for its status ─ all answered, or 5 s ─► over
//
// While it runs the internet test waits. Bridges that come and go later are told by the bus.
#include "wired/bridges.h"

#include <cstdio>
#include <cstring>

#include "core/state.h"
#include "platform/zu/log.h"
#include "wired/netifd_iface.h"

constexpr int ENUMERATE_MS = 5000;
constexpr char WIRED_PATH_PREFIX[] = "network.interface.wired";

static void enumerate_bridges_timeout_cb(uloop_timeout *);

bool bridges_is_interface_path(const char *path)
{
    return strncmp(path, WIRED_PATH_PREFIX, sizeof WIRED_PATH_PREFIX - 1) == 0;
}

iface_entry *find_bridge_uplink()
{
    iface_entry *bridge;
    list_for_each_entry(bridge, &gTarn_net_state.bridges.list, link)
    {
        if (!bridge->up)
            continue;
        if (bridge->device[0] == '\0' || !bridge->has_default_route) {
            log_info("Not setting bridge (name: '%s', default_route: %s) as wired upstream link",
                     bridge->device, bridge->has_default_route ? "TRUE" : "FALSE");
            continue;
        }
        auto &name = gTarn_net_state.upstream.wired_uplink_bridge;
        snprintf(name, sizeof name, "%s", bridge->device);
        log_debug("Bridge '%s' set as wired upstream link", name);
        return bridge;
    }
    return nullptr;
}

/// Ends the enumeration when every bridge has answered and is named.
static void end_enumeration_if_answered()
{
    iface_entry *bridge;
    list_for_each_entry(bridge, &gTarn_net_state.bridges.list, link)
    {
        if (!bridge->parsed || (bridge->up && bridge->device[0] == '\0'))
            return;
    }
    uloop_timeout_cancel(&gTarn_net_state.bridges.enumerate_timer);
    gTarn_net_state.bridges.enumerate_timer.cb = nullptr;
}

static void bridge_status_cb(iface_entry *)
{
    // While the first step still waits there is nothing to end.
    if (gTarn_net_state.bridges.enumerate_timer.cb == enumerate_bridges_timeout_cb)
        end_enumeration_if_answered();
}

void enumerate_bridges_add_new(ubus_context *ctx, const char *path, uint32_t id)
{
    if (ctx == nullptr || path == nullptr) {
        log_error("%s is NULL", ctx == nullptr ? "ctx" : "obj_path");
        return;
    }
    list_head *list = &gTarn_net_state.bridges.list;
    const iface_entry *known = iface_list_find(list, path);
    if (known != nullptr && known->id == id)
        return;
    // A path is on the bus once: an entry with another id is an object that is gone.
    iface_list_free_iface(list, path);
    iface_entry *bridge = iface_list_new_iface(ctx, path, id);
    if (bridge == nullptr) {
        log_error("Unable to add wired bridge to list");
        return;
    }
    bridge->on_status = bridge_status_cb;
    list_add_tail(&bridge->link, list);
}

static void refresh(ubus_context *ctx, iface_entry *bridge)
{
    uint32_t id = 0;
    if (ubus_lookup_id(ctx, bridge->obj_path, &id) != UBUS_STATUS_OK) {
        log_warning("Could not lookup package ID for interface %s", bridge->obj_path);
        return;
    }
    if (!iface_list_call_status(ctx, bridge, id)) {
        log_error("Failed to invoke status method for interface '%s'", bridge->obj_path);
    }
}

static void enumerate_object(ubus_context *ctx, const bus_object &object)
{
    iface_entry *known = iface_list_find(&gTarn_net_state.bridges.list, object.path.c_str());
    if (known != nullptr && known->id == object.id)
        refresh(ctx, known);
    else
        enumerate_bridges_add_new(ctx, object.path.c_str(), object.id);
}

static void enumerate_bridges_timeout_cb(uloop_timeout *)
{
    iface_entry *bridge;
    list_for_each_entry(bridge, &gTarn_net_state.bridges.list, link)
    {
        if (bridge->parsed)
            continue;
        log_error("Interface '%s' failed to respond to status, aborting ubus invoke",
                  bridge->obj_path);
        iface_list_abort_status(bridge);
    }
}

static void wait_to_enumerate_bridges_cb(uloop_timeout *timer)
{
    ubus_context *ctx = gUbus_ctx;
    if (ctx == nullptr) {
        log_error("%s is NULL", "ctx");
    } else if (find_bridge_uplink() != nullptr) {
        iface_entry *bridge;
        list_for_each_entry(bridge, &gTarn_net_state.bridges.list, link) refresh(ctx, bridge);
    } else {
        for (const bus_object &object : bus_lookup_objects(ctx, bridges_is_interface_path))
            enumerate_object(ctx, object);
    }
    timer->cb = enumerate_bridges_timeout_cb;
    uloop_timeout_set(timer, ENUMERATE_MS);
    // Answers that came in while later bridges were still being asked.
    if (!list_empty(&gTarn_net_state.bridges.list))
        end_enumeration_if_answered();
}

void init_bridge_info()
{
    uloop_timeout *timer = &gTarn_net_state.bridges.enumerate_timer;
    if (timer->pending) {
        log_debug("There is an active enumerate/refresh timer, no need to refresh the info");
        return;
    }
    timer->cb = wait_to_enumerate_bridges_cb;
    uloop_timeout_set(timer, ENUMERATE_MS);
}

void bridges_reset()
{
    uloop_timeout_cancel(&gTarn_net_state.bridges.enumerate_timer);
    iface_list_free_all(&gTarn_net_state.bridges.list);
}

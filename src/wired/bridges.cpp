// Follows the wired bridges through netifd and chooses the one that leads out.
#include "wired/bridges.h"

#include <cstdio>
#include <cstring>

#include "platform/zu/log.h"
#include "state/owned.h"
#include "wired/netifd/enumeration.h"

constexpr char WIRED_PATH_PREFIX[] = "network.interface.wired";

bool bridges_is_interface_path(const char *path)
{
    return strncmp(path, WIRED_PATH_PREFIX, sizeof WIRED_PATH_PREFIX - 1) == 0;
}

void uplink_bridge_set(const char *device)
{
    upstream_record &upstream = gTarn_net_state.upstream;
    auto &name = upstream.wired_uplink_bridge;
    // A push may name the new one at once: what names it follows the next passed cycle in any case,
    // also back to the old one.
    if (strcmp(name, device) != 0)
        upstream.served_bridge[0] = '\0';
    snprintf(name, sizeof name, "%s", device);
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
        uplink_bridge_set(bridge->device);
        log_debug("Bridge '%s' set as wired upstream link", bridge->device);
        return bridge;
    }
    return nullptr;
}

static bool uplink_is_known()
{
    return find_bridge_uplink() != nullptr;
}

/// Another one may lead out now.
static void bridge_change_cb(iface_entry *)
{
    (void)find_bridge_uplink();
}

static void log_lookup_failure(const char *path)
{
    log_warning("Could not lookup package ID for interface %s", path);
}

constexpr iface_kind WIRED = {
    .wanted = bridges_is_interface_path,
    .is_known = uplink_is_known,
    .ends_when_answered = true,
    .on_change = bridge_change_cb,
    .noun = "Interface",
    .add_failure = "Unable to add wired bridge to list",
    .log_lookup_failure = log_lookup_failure,
};

void enumerate_bridges_add_new(ubus_context *ctx, const char *path, uint32_t id)
{
    iface_enumeration_add(&gTarn_net_state.bridges, &WIRED, ctx, path, id);
}

void enumerate_bridges_remove(const char *path)
{
    iface_list_free_iface(&gTarn_net_state.bridges.list, path);
    (void)find_bridge_uplink();
}

void bridges_forget_all()
{
    iface_list_free_all(&gTarn_net_state.bridges.list);
}

void init_bridge_info()
{
    (void)iface_enumeration_start(&gTarn_net_state.bridges, &WIRED);
}

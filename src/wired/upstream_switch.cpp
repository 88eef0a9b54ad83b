// Makes the node follow the upstream: the order of what a switch does. What the upstream is has
// been decided in upstream.cpp; what the single steps do is in upstream_steps.cpp.
#include <cstdio>
#include <cstring>

#include "mesh/mesh.h"
#include "platform/zu/blobmsg_util.h"
#include "platform/zu/event.h"
#include "platform/zu/log.h"
#include "state/owned.h"
#include "wifi/wifi.h"
#include "wifi/write/dns.h"
#include "wired/bridges.h"
#include "wired/forwarding.h"
#include "wired/upstream.h"
#include "wired/upstream_internal.h"

/// Bytes of the bridge's name that uplink_set() fills, its end included.
constexpr size_t UPLINK_SET_SIZE = 12;

void upstream_send_gateway_mode(uint32_t next)
{
    blob_buffer event;
    blob_buf_init(&event, 0);
    blobmsg_add_string(&event, "current", upstream_state_name(next));
    blobmsg_add_string(&event, "previous",
                       upstream_state_name(gTarn_net_state.inet_test.upstream_state));
    (void)_zu_send_event("netconfigd.gateway_mode", event.head);
}

void upstream_send_inet_test(bool success)
{
    blob_buffer event;
    blob_buf_init(&event, 0);
    blobmsg_add_u8(&event, "success", success);
    blobmsg_add_string(&event, "message",
                       success ? "internet test passed" : "internet test failed");
    (void)_zu_send_event("network.inet_test", event.head);
}

bool upstream_enter_wan_from_none()
{
    log_debug("Setting upstream state to %s", upstream_state_name(TARN_NET_UPSTREAM_WAN_STATE));
    upstream_send_gateway_mode(TARN_NET_UPSTREAM_WAN_STATE);
    upstream_send_inet_test(true);
    (void)upstream_make(UPSTREAM_GW_MODE, TARN_NET_UPSTREAM_WAN_STATE);
    mesh_clear_gateway_info();
    return update_uplink_interface(TARN_NET_UPSTREAM_WAN_STATE);
}

static void note_served_bridge()
{
    upstream_record &upstream = gTarn_net_state.upstream;
    memcpy(upstream.served_bridge, upstream.wired_uplink_bridge, sizeof upstream.served_bridge);
}

bool upstream_follow_bridge()
{
    const upstream_record &upstream = gTarn_net_state.upstream;
    const inet_test_state &test = gTarn_net_state.inet_test;
    if (test.upstream_state != TARN_NET_UPSTREAM_WAN_STATE ||
        strcmp(upstream.served_bridge, upstream.wired_uplink_bridge) == 0 ||
        strcmp(test.passed_iface, upstream.wired_uplink_bridge) != 0)
        return false;
    log_debug("What named '%s' follows to '%s'", upstream.served_bridge,
              upstream.wired_uplink_bridge);
    note_served_bridge();
    (void)upstream_make(UPSTREAM_DHCP, test.upstream_state);
    (void)upstream_make(UPSTREAM_PORTAL, test.upstream_state);
    return true;
}

/// Puts what follows from the state into force, forwarding apart.
static void apply_state(uint32_t state)
{
    note_served_bridge();
    (void)upstream_make(UPSTREAM_ROUTES, state);
    (void)upstream_make(UPSTREAM_DHCP, state);
    (void)upstream_make(UPSTREAM_FIREWALL, state);
    (void)upstream_make(UPSTREAM_PORTAL, state);
    if (!run_reload_config())
        log_warning("Unable to reload udsplash ifaces and firewall rules");
    wifid_stop_orphand();
}

/// Moves forwarding to the new uplink interface. True when it has been committed.
static bool switch_forwarding(uint32_t state)
{
    const inet_test_state &test = gTarn_net_state.inet_test;
    upstream_record &upstream = gTarn_net_state.upstream;
    // What an earlier switch left unmade may have been to lead to this very interface.
    const bool leads_there =
        !upstream.forwarding_ended && (upstream.unmade & UPSTREAM_FORWARDING) == 0;
    upstream_forget(UPSTREAM_FORWARDING); // to an interface of that switch
    if (leads_there &&
        strncmp(test.uplink_iface, test.passed_iface, sizeof test.uplink_iface) == 0) {
        log_debug("system_inet_interface did not change");
        return false;
    }
    memcpy(upstream.forwarding_to, test.passed_iface, sizeof upstream.forwarding_to);
    return upstream_make(UPSTREAM_FORWARDING, state);
}

bool update_uplink_interface(uint32_t state)
{
    inet_test_state &test = gTarn_net_state.inet_test;
    if (state == TARN_NET_UPSTREAM_WAN_STATE && !upstream_knows_wired_bridge()) {
        log_warning("inet test success, but uplink iface not fully enumerated");
        return true;
    }
    log_debug("old iface: '%s', new iface: '%s'", test.uplink_iface, test.passed_iface);
    const uint32_t previous = test.upstream_state;
    upstream_set_state(state);
    // One that an earlier life of this daemon left behind; else it is ended on leaving LONELY.
    if (previous == TARN_NET_UPSTREAM_NONE && state != TARN_NET_LONELY_ORPHAN_STATE &&
        lonely_is_running())
        (void)upstream_make(UPSTREAM_STOP_LONELY, state);
    if (state != previous)
        apply_state(state);
    else
        (void)upstream_follow_bridge();
    wifid_apply_bridges();
    const bool switched = switch_forwarding(state);
    wifid_apply_bridges();
    if (!run_reload_config())
        log_error("Unable to reload DHCP servers");
    // False also when only the state changed: the callers then log a failure, and that is meant.
    return switched;
}

// ---- another wired uplink, as netifd reports it

static void commit_or_repeat(const char *package, upstream_step step, const char *failure)
{
    if (ng_uci_commit(package) == 0)
        return;
    log_warning("%s", failure);
    upstream_take_back(step);
}

void uplink_set(const char *name)
{
    log_debug("setting uplink interface to %s", name ? name : "none");
    if (upstream_knows_wired_bridge())
        (void)change_dns_interface(ng_uci_del_list, gTarn_net_state.upstream.wired_uplink_bridge);
    char bridge[UPLINK_SET_SIZE] = "";
    if (name) {
        snprintf(bridge, sizeof bridge, "br-%s", name);
        (void)change_dns_interface(ng_uci_add_list, bridge);
    }
    uplink_bridge_set(bridge);
    wifid_apply_bridges();
    const bool forwarding =
        set_firewall_forwarding_rules(gTarn_net_state.inet_test.uplink_iface,
                                      gTarn_net_state.inet_test.upstream_state) == 0;
    commit_or_repeat("dhcp", UPSTREAM_DHCP, "Unable to commit DHCP server rules");
    commit_or_repeat("firewall", UPSTREAM_FORWARDING, "Failed to commit firewall config to UCI");
    if (!forwarding)
        upstream_take_back(UPSTREAM_FORWARDING);
    if (!run_reload_config())
        log_warning("Unable to reload DHCP servers and firewall rules");
}

// Makes the node follow the upstream: routing rules, DHCP, captive portal, firewall, gateway mode,
// events. What the upstream is has been decided in upstream.cpp.
#include <cstdio>
#include <cstring>
#include <iterator>

#include "core/state.h"
#include "mesh/mesh.h"
#include "netlink/rtnl.h"
#include "platform/zu/blobmsg_util.h"
#include "platform/zu/event.h"
#include "platform/zu/led.h"
#include "platform/zu/log.h"
#include "platform/zu/ng_uci.h"
#include "platform/zu/shell.h"
#include "wifi/wifi.h"
#include "wired/forwarding.h"
#include "wired/upstream.h"
#include "wired/upstream_internal.h"

/// Routing: what the node itself sends while it has no wire, and everything while it has.
constexpr int RULE_PRIORITY = 500;
constexpr int TABLE_WIRED = 10;
constexpr int TABLE_MESH = 20;
constexpr int WIRED_BRIDGE_NAMES = 10;
constexpr char DNS_INTERFACES[] = "dhcp.lan_dns.interface";
constexpr char MESH_BRIDGE[] = "br-mesh_rp";

static const char *const gState_names[] = {
    "TARN_NET_UPSTREAM_NONE",
    "TARN_NET_UPSTREAM_WAN_STATE",
    "TARN_NET_UPSTREAM_MESH_STATE",
    "TARN_NET_LONELY_ORPHAN_STATE",
};

const char *upstream_state_name(uint32_t state)
{
    return state < std::size(gState_names) ? gState_names[state] : "State out of range";
}

void upstream_set_state(uint32_t state)
{
    uint32_t &current = gTarn_net_state.inet_test.upstream_state;
    if (current == state)
        return;
    log_debug("Update upstream state from %s to %s", upstream_state_name(current),
              upstream_state_name(state));
    current = state;
}

bool upstream_knows_wired_bridge()
{
    return gTarn_net_state.upstream.wired_uplink_bridge[0] != '\0';
}

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

void upstream_set_gw_mode(uint32_t state)
{
    const bool server = state == TARN_NET_UPSTREAM_WAN_STATE;
    log_info("Set batctl mode to %s", server ? "server" : "client");
    // Left a gateway in the mesh's eyes, a repeater would draw other nodes to itself.
    gTarn_net_state.upstream.gw_mode_unset =
        !shell_run(server ? "batctl gw_mode server" : "batctl gw_mode client").ran;
}

bool run_reload_config()
{
    return shell_run("reload_config").ran;
}

bool upstream_enter_wan_from_none()
{
    log_debug("Setting upstream state to %s", upstream_state_name(TARN_NET_UPSTREAM_WAN_STATE));
    upstream_send_gateway_mode(TARN_NET_UPSTREAM_WAN_STATE);
    upstream_send_inet_test(true);
    upstream_set_gw_mode(TARN_NET_UPSTREAM_WAN_STATE);
    mesh_clear_gateway_info();
    return update_uplink_interface(TARN_NET_UPSTREAM_WAN_STATE);
}

static void delete_routing_rules()
{
    (void)ng_rtnl_iface_rule_del("lo", 0, 0, 0, TABLE_MESH, RULE_PRIORITY);
    (void)ng_rtnl_iface_rule_del(nullptr, 0, 0, 0, TABLE_WIRED, RULE_PRIORITY);
}

static void change_dns_interface(ng_uci_action action, const char *iface)
{
    ng_uci_save_action_ctx(ng_uci_change_context(), action, iface, "%s", DNS_INTERFACES);
}

static void set_dhcp_ignore(bool own_setting)
{
    uci_context *ctx = ng_uci_change_context();
    for (int ssid = 1; ssid <= WIFI_SSIDS; ssid++) {
        if (!ng_uci_exists("dhcp.ssid%d", ssid))
            continue; // a relay serves it
        const bool bridged = wifi_live_settings()->ssids[ssid - 1].bridge_to_lan;
        ng_uci_save_action_int_ctx(ctx, uci_set_string, own_setting ? bridged : 1,
                                   "dhcp.ssid%d.ignore", ssid);
    }
    ng_uci_save_action_int_ctx(ctx, uci_set_string, own_setting ? 0 : 1, "dhcp.mesh_gw.ignore");
}

/// False when the routing rule could not be set.
static bool serve_as_gateway()
{
    update_led_flag("gateway", true);
    const int rule = ng_rtnl_iface_rule_add(nullptr, 0, 0, 0, TABLE_WIRED, RULE_PRIORITY);
    set_dhcp_ignore(true);
    return rule == 0;
}

static bool serve_as_repeater(uint32_t state)
{
    if (state == TARN_NET_UPSTREAM_MESH_STATE)
        update_led_flag("repeater", true);
    const int rule = ng_rtnl_iface_rule_add("lo", 0, 0, 0, TABLE_MESH, RULE_PRIORITY);
    set_dhcp_ignore(false);
    change_dns_interface(ng_uci_del_list, "lo");
    return rule == 0;
}

static void remove_dns_interfaces()
{
    change_dns_interface(ng_uci_del_list, MESH_BRIDGE);
    for (int i = 0; i < WIRED_BRIDGE_NAMES; i++) {
        char bridge[16];
        snprintf(bridge, sizeof bridge, "br-wired%d", i);
        change_dns_interface(ng_uci_del_list, bridge);
    }
}

/// A commit that fails is logged as `failure`.
static bool commit(const char *package, const char *failure)
{
    if (ng_uci_commit(package) == 0)
        return true;
    log_warning("%s", failure);
    return false;
}

static bool apply_portal(uint32_t state)
{
    set_udsplash_logout_firewall(state, wifi_live_settings());
    const bool firewall = commit("firewall", "Failed to commit firewall config to UCI");
    const bool portal = set_udsplash_ifaces(state, true, wifi_live_settings());
    const bool reloaded = run_reload_config();
    if (!reloaded)
        log_warning("Unable to reload udsplash ifaces and firewall rules");
    wifid_stop_orphand();
    return firewall && portal && reloaded;
}

void upstream_apply_state()
{
    const uint32_t state = gTarn_net_state.inet_test.upstream_state;
    const bool wan = state == TARN_NET_UPSTREAM_WAN_STATE;
    delete_routing_rules();
    remove_dns_interfaces();
    const bool routed = wan ? serve_as_gateway() : serve_as_repeater(state);
    change_dns_interface(ng_uci_add_list,
                         wan ? gTarn_net_state.upstream.wired_uplink_bridge : MESH_BRIDGE);
    ng_uci_renew_change_context();
    const bool served = commit("dhcp", "Unable to commit DHCP server rules");
    const bool portal = apply_portal(state);
    gTarn_net_state.upstream.incomplete = !routed || !served || !portal;
}

void upstream_make_up()
{
    if (gTarn_net_state.upstream.gw_mode_unset)
        upstream_set_gw_mode(gTarn_net_state.inet_test.upstream_state);
    if (gTarn_net_state.upstream.incomplete)
        upstream_apply_state();
}

/// Moves forwarding to the new uplink interface. True when it has been committed.
static bool switch_forwarding(uint32_t state)
{
    inet_test_state &test = gTarn_net_state.inet_test;
    if (strncmp(test.uplink_iface, test.passed_iface, sizeof test.uplink_iface) == 0) {
        log_debug("system_inet_interface did not change");
        return false;
    }
    if (set_firewall_forwarding_rules(test.passed_iface, state) != 0) {
        log_error("Failed to set forwarding rules");
        return false;
    }
    if (firewall_commit_forwarding_rules())
        return true;
    log_debug("Revert firewall forwarding rules");
    firewall_revert_forwarding_rules();
    return false;
}

bool update_uplink_interface(uint32_t state)
{
    inet_test_state &test = gTarn_net_state.inet_test;
    if (state == TARN_NET_UPSTREAM_WAN_STATE && !upstream_knows_wired_bridge()) {
        log_warning("inet test success, but uplink iface not fully enumerated");
        return true;
    }
    log_debug("old iface: '%s', new iface: '%s'", test.uplink_iface, test.passed_iface);
    const bool changed = state != test.upstream_state;
    upstream_set_state(state);
    if (changed || gTarn_net_state.upstream.incomplete)
        upstream_apply_state();
    wifid_apply_bridges();
    const bool switched = switch_forwarding(state);
    wifid_apply_bridges();
    if (switched)
        memcpy(test.uplink_iface, test.passed_iface, sizeof test.uplink_iface);
    if (!run_reload_config()) {
        log_error("Unable to reload DHCP servers");
        gTarn_net_state.upstream.incomplete = true;
    }
    // False also when only the state changed: the callers then log a failure, and that is meant.
    return switched;
}

// The steps of a switch, each by itself, and the repetition of those that failed.
//
//   made ── fails ──► unmade, said once ── 1 s, 2 s, 4 s ... 60 s, each time for the state then ──┐
//     ▲                  ▲ │ └─── succeeds ─────┴──────────────────────────── fails, not said again
//     ──────────────────────┘
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "mesh/mesh.h"
#include "netlink/rtnl.h"
#include "platform/zu/file.h"
#include "platform/zu/led.h"
#include "platform/zu/log.h"
#include "platform/zu/ng_uci.h"
#include "platform/zu/shell.h"
#include "state/owned.h"
#include "wifi/override.h"
#include "wifi/wifi.h"
#include "wifi/write/dns.h"
#include "wifi/write/portal.h"
#include "wired/forwarding.h"
#include "wired/upstream.h"
#include "wired/upstream_internal.h"

constexpr int FIRST_REPETITION_MS = 1000;
constexpr int LAST_REPETITION_MS = 60000;
/// Routing: what the node itself sends while it has no wire, and everything while it has.
constexpr int RULE_PRIORITY = 500;
constexpr int TABLE_WIRED = 10;
constexpr int TABLE_MESH = 20;
constexpr int WIRED_BRIDGE_NAMES = 10;
constexpr char MESH_BRIDGE[] = "br-mesh_rp";

static bool commit(const char *package, const char *failure)
{
    if (ng_uci_commit(package) == 0)
        return true;
    log_warning("%s", failure);
    return false;
}

static bool succeeded(const char *command, const shell_result &result)
{
    if (!result.ran)
        log_warning("Unable to run %s: %d (%s)", command, result.error, strerror(result.error));
    else if (result.exit_status != 0)
        log_warning("%s exited with rc %d", command, result.exit_status);
    return result.ran && result.exit_status == 0;
}

static bool run_command(const char *command)
{
    return succeeded(command, shell_run_bound(command));
}

// ---- the steps; false on failure (logged)

static bool make_stop_lonely(uint32_t)
{
    if (!lonely_stop())
        return false;
    wifi_restore_config_enabled_interfaces(true);
    return true;
}

static bool make_override(uint32_t)
{
    return wifi_radio_override_delete();
}

/// The kernel's number of bat0, 0 without one. From sysfs: asked for the index of a name that it
/// does not know, the kernel would look for a module.
static int32_t mesh_index()
{
    int index = 0;
    (void)file_read_int("/sys/class/net/bat0/ifindex", &index);
    return index;
}

static bool make_gw_mode(uint32_t state)
{
    gTarn_net_state.upstream.gw_mode_of = mesh_index();
    const char *mode = state == TARN_NET_UPSTREAM_WAN_STATE ? "server" : "client";
    log_info("Set batctl mode to %s", mode);
    // Left a gateway in the mesh's eyes, a repeater would draw other nodes to itself.
    char command[32];
    snprintf(command, sizeof command, "batctl gw_mode %s", mode);
    return run_command(command);
}

static bool make_routes(uint32_t state)
{
    (void)ng_rtnl_iface_rule_del("lo", 0, 0, 0, TABLE_MESH, RULE_PRIORITY);
    (void)ng_rtnl_iface_rule_del(nullptr, 0, 0, 0, TABLE_WIRED, RULE_PRIORITY);
    if (state == TARN_NET_UPSTREAM_WAN_STATE) {
        update_led_flag("gateway", true);
        return ng_rtnl_iface_rule_add(nullptr, 0, 0, 0, TABLE_WIRED, RULE_PRIORITY) == 0;
    }
    if (state == TARN_NET_UPSTREAM_MESH_STATE)
        update_led_flag("repeater", true);
    return ng_rtnl_iface_rule_add("lo", 0, 0, 0, TABLE_MESH, RULE_PRIORITY) == 0;
}

static bool remove_dns_interfaces()
{
    bool good = change_dns_interface(ng_uci_del_list, MESH_BRIDGE);
    for (int i = 0; i < WIRED_BRIDGE_NAMES; i++) {
        char bridge[16];
        snprintf(bridge, sizeof bridge, "br-wired%d", i);
        good &= change_dns_interface(ng_uci_del_list, bridge);
    }
    return good;
}

static bool set_dhcp_ignore(bool own_setting)
{
    bool good = true;
    for (int ssid = 1; ssid <= WIFI_SSIDS; ssid++) {
        if (!ng_uci_exists("dhcp.ssid%d", ssid))
            continue; // a relay serves it
        const bool bridged = wifi_live_settings()->ssids[ssid - 1].bridge_to_lan;
        good &= ng_uci_put(ng_uci_name("dhcp.ssid%d.ignore", ssid), own_setting ? bridged : 1);
    }
    return ng_uci_put("dhcp.mesh_gw.ignore", own_setting ? 0 : 1) && good;
}

static bool make_dhcp(uint32_t state)
{
    constexpr char FAILURE[] = "Unable to commit DHCP server rules";
    const bool wan = state == TARN_NET_UPSTREAM_WAN_STATE;
    if (ng_uci_check_readable("dhcp") == NG_UCI_UNREADABLE) {
        log_warning("%s", FAILURE);
        return false;
    }
    bool good = remove_dns_interfaces();
    good &= set_dhcp_ignore(wan);
    if (!wan)
        good &= change_dns_interface(ng_uci_del_list, "lo");
    good &= change_dns_interface(ng_uci_add_list,
                                 wan ? gTarn_net_state.upstream.wired_uplink_bridge : MESH_BRIDGE);
    ng_uci_renew_change_context();
    return commit("dhcp", FAILURE) && good;
}

static bool make_firewall(uint32_t state)
{
    const bool set = set_udsplash_logout_firewall(state, wifi_live_settings());
    return commit("firewall", "Failed to commit firewall config to UCI") && set;
}

static bool make_portal(uint32_t state)
{
    return set_udsplash_ifaces(state, true, wifi_live_settings());
}

static bool make_forwarding(uint32_t state)
{
    const auto &to = gTarn_net_state.upstream.forwarding_to;
    // The first one: the start's reset may have met a lock, and an earlier life's rules are still
    // on.
    if (gTarn_net_state.inet_test.uplink_iface[0] == '\0')
        firewall_reset_forwarding_rules();
    if (set_firewall_forwarding_rules(to, state) != 0) {
        log_error("Failed to set forwarding rules");
        return false;
    }
    if (!firewall_commit_forwarding_rules()) {
        log_debug("Revert firewall forwarding rules");
        firewall_revert_forwarding_rules();
        return false;
    }
    memcpy(gTarn_net_state.inet_test.uplink_iface, to, sizeof to);
    wifid_apply_bridges();
    return true;
}

static bool make_reload(uint32_t)
{
    bool &hangs = gTarn_net_state.upstream.reload_hangs;
    // A switch asks several times; the loop is held up for one that hangs at its repetitions only.
    if (hangs)
        return false;
    const shell_result result = shell_run(RELOAD_SERVICES);
    hangs = !result.ran && result.error == ETIMEDOUT;
    return succeeded(RELOAD_SERVICES, result);
}

/// In the order in which they are repeated.
constexpr struct {
    upstream_step step;
    bool (*make)(uint32_t state);
    bool is_configuration; ///< made of the wireless settings; "reload_config" has to follow
} STEPS[] = {
    {UPSTREAM_STOP_LONELY, make_stop_lonely, false},
    {UPSTREAM_OVERRIDE, make_override, false},
    {UPSTREAM_GW_MODE, make_gw_mode, false},
    {UPSTREAM_ROUTES, make_routes, false},
    {UPSTREAM_DHCP, make_dhcp, true},
    {UPSTREAM_FIREWALL, make_firewall, true},
    {UPSTREAM_PORTAL, make_portal, true},
    {UPSTREAM_FORWARDING, make_forwarding, true},
    {UPSTREAM_RELOAD, make_reload, false},
};

// ---- repetition

static void make_up_cb(uloop_timeout *);

static void arm(int delay_ms)
{
    upstream_record &upstream = gTarn_net_state.upstream;
    upstream.make_up_delay_ms = delay_ms;
    upstream.make_up_timer.cb = make_up_cb;
    uloop_timeout_set(&upstream.make_up_timer, delay_ms);
}

/// Where forwarding leads, unless it is to lead somewhere else anyway.
static void keep_forwarding()
{
    upstream_record &upstream = gTarn_net_state.upstream;
    if ((upstream.unmade & UPSTREAM_FORWARDING) == 0)
        memcpy(upstream.forwarding_to, gTarn_net_state.inet_test.uplink_iface,
               sizeof upstream.forwarding_to);
}

static void make_later(upstream_step step)
{
    upstream_record &upstream = gTarn_net_state.upstream;
    if ((upstream.unmade & step) == 0)
        arm(FIRST_REPETITION_MS);
    upstream.unmade |= step;
}

void upstream_take_back(upstream_step step)
{
    if (gTarn_net_state.inet_test.upstream_state == TARN_NET_UPSTREAM_NONE)
        return; // nothing follows from that
    if (step == UPSTREAM_FORWARDING)
        keep_forwarding();
    make_later(step);
}

void upstream_forget(upstream_step step)
{
    gTarn_net_state.upstream.unmade &= ~static_cast<uint32_t>(step);
}

bool upstream_make(upstream_step step, uint32_t state)
{
    const auto *row = std::find_if(std::begin(STEPS), std::end(STEPS),
                                   [step](const auto &s) { return s.step == step; });
    const bool made = row->make(state);
    // What was made of wireless settings that could not be read yet is made again.
    if (made && (!row->is_configuration || wifi_settings_are_read()))
        upstream_forget(step);
    else
        make_later(step);
    return made;
}

void upstream_follow_mesh()
{
    const upstream_record &upstream = gTarn_net_state.upstream;
    const uint32_t state = gTarn_net_state.inet_test.upstream_state;
    const int32_t index = mesh_index();
    if (index != 0 && index != upstream.gw_mode_of && state != TARN_NET_UPSTREAM_NONE)
        (void)upstream_make(UPSTREAM_GW_MODE, state);
}

void upstream_reapply_forwarding()
{
    const inet_test_state &test = gTarn_net_state.inet_test;
    if (test.upstream_state == TARN_NET_UPSTREAM_NONE) {
        (void)set_firewall_forwarding_rules(test.uplink_iface,
                                            test.upstream_state); // which says so
        return;                                                   // a repetition could but fail
    }
    keep_forwarding();
    (void)upstream_make(UPSTREAM_FORWARDING, test.upstream_state);
}

bool run_reload_config()
{
    return upstream_make(UPSTREAM_RELOAD, gTarn_net_state.inet_test.upstream_state);
}

static bool repeat(upstream_step step)
{
    const zu_log_repetition said;
    return upstream_make(step, gTarn_net_state.inet_test.upstream_state);
}

static void make_up_cb(uloop_timeout *)
{
    upstream_record &upstream = gTarn_net_state.upstream;
    upstream.reload_hangs = false;
    const bool reload_is_due = (upstream.unmade & UPSTREAM_RELOAD) != 0; // its row is the last one
    bool reload = false;
    for (const auto &row : STEPS) {
        if (row.is_configuration && !wifi_settings_are_read())
            continue;
        if ((upstream.unmade & row.step) != 0 && repeat(row.step))
            reload |= row.is_configuration;
    }
    if (reload && !reload_is_due)
        (void)run_reload_config();
    if (upstream.unmade != 0)
        arm(std::min(2 * upstream.make_up_delay_ms, LAST_REPETITION_MS));
    else
        log_notice("What failed of the upstream's switch has been made up for");
}

// Decides, at the end of each internet-test cycle, how the node reaches the internet.
//
//   from        at the end of a cycle            and                        to
//   ─────────── ──────────────────────────────── ────────────────────────── ─────────────────────
//   NONE        (a wired connection succeeds:    —                          WAN
//               inside its transfer's callback)
//   any         passed                           result or interface is     result
//                                                another one
//   other than  passed over the wire             no wired bridge known      stays; the bridges are
//   WAN                                                                     enumerated anew
//   MESH        passed through the mesh, no      eth0 or eth1 had link for  MESH, with the wired
//               wired bridge known               tolerance passed cycles    bridge now known
//   LONELY      a mesh success, or a radio       the lonely service does    MESH
//               override in force                not run, or hangs
//   NONE, WAN   failures ≥ tolerance             a radio has its mesh on    MESH
//   NONE, WAN   failures ≥ 30                    all pre-configured         MESH
//   NONE, WAN   failures ≥ tolerance             neither                    stays
//   MESH        failures ≥ tolerance             —                          LONELY
//   LONELY      failures ≥ tolerance             result is LONELY           stays
//
// In the MESH state a failed cycle counts as passed while power negotiation runs or delayed
// settings wait, for a grace period after the first failure (mesh_ready), and then, for a longer
// one (mesh_up), while batman-adv sees any neighbour.
#include "wired/upstream.h"

#include <cstdio>
#include <cstring>

#include "mesh/mesh.h"
#include "netlink/batman.h"
#include "netlink/rtnl.h"
#include "platform/zu/led.h"
#include "platform/zu/log.h"
#include "platform/zu/ng_uci.h"
#include "state/owned.h"
#include "wifi/override.h"
#include "wifi/wifi.h"
#include "wired/bridges.h"
#include "wired/inet_probe.h"
#include "wired/upstream_internal.h"
#include "wired/wired_event.h"

constexpr int MESH_READY_MS = 150000;
constexpr int MESH_UP_MS = 600000;
constexpr int PRE_CONFIG_FAILURE_TOLERANCE = 30;
constexpr int LONELY_LIMIT_S = 600;

bool inet_test_run_additional_mesh_tests()
{
    if (bat_check_neighbors() > 0)
        return true;
    log_warning("No neighbors found on bat0, failing inet test");
    return false;
}

static void mesh_ready_cb(uloop_timeout *)
{
    gTarn_net_state.upstream.mesh_ready = true;
}

static void mesh_up_cb(uloop_timeout *)
{
    gTarn_net_state.upstream.mesh_up = true;
    bat_nlsock_close();
}

/// Starts a grace period unless it runs; a radio override doubles it.
static void start_grace(uloop_timeout *timer, uloop_timeout_handler cb, int period_ms)
{
    if (timer->pending)
        return;
    timer->cb = cb;
    uloop_timeout_set(timer, wifi_radio_override_active() ? 2 * period_ms : period_ms);
}

static void end_mesh_grace(bool over)
{
    upstream_record &upstream = gTarn_net_state.upstream;
    uloop_timeout_cancel(&upstream.mesh_ready_timer);
    uloop_timeout_cancel(&upstream.mesh_up_timer);
    upstream.mesh_ready = over;
    upstream.mesh_up = over;
    bat_nlsock_close();
}

void upstream_cancel_neighbor_check()
{
    // Neighbours are asked about in the second period only; the first one runs on.
    if (gTarn_net_state.upstream.mesh_up_timer.pending)
        end_mesh_grace(true);
}

void upstream_reset()
{
    uloop_timeout_cancel(&gTarn_net_state.upstream.make_up_timer);
    end_mesh_grace(false);
}

/// Whether a cycle in the MESH state counts as passed.
static bool mesh_cycle_passed()
{
    upstream_record &upstream = gTarn_net_state.upstream;
    if (gTarn_net_state.inet_test.test_passed != 0 || !wifi_lldp_negotiation_complete() ||
        wifi_delayed_settings_pending())
        return true;
    if (!upstream.mesh_ready) {
        start_grace(&upstream.mesh_ready_timer, mesh_ready_cb, MESH_READY_MS);
        return true;
    }
    if (upstream.mesh_up)
        return false;
    start_grace(&upstream.mesh_up_timer, mesh_up_cb, MESH_UP_MS);
    return inet_test_run_additional_mesh_tests();
}

/// Whether the lonely service's scan has to end first. One that hangs does not keep the node from a
/// mesh that has carried it all the time.
static bool waits_for_lonely()
{
    int32_t &passes = gTarn_net_state.upstream.lonely_passes;
    const bool runs = lonely_is_running();
    passes = runs && gTarn_net_state.inet_test.test_passed != 0 ? passes + 1 : 0;
    if (static_cast<int64_t>(passes - 1) * inet_test_settings().test_interval < LONELY_LIMIT_S)
        return runs;
    log_warning("The lonely scan does not end, ending it");
    return false;
}

/// What a cycle in the LONELY state, not over the wire, comes to.
static uint32_t lonely_cycle_result(uint32_t result)
{
    inet_test_state &test = gTarn_net_state.inet_test;
    if (wifi_radio_override_active())
        inet_test_count_passed();
    if (waits_for_lonely()) {
        // What it joins for its scan is not an upstream yet: nothing of the cycle moves the state.
        log_warning("Lonely is running, assume inet failure");
        memcpy(test.passed_iface, test.uplink_iface, sizeof test.passed_iface);
        return TARN_NET_LONELY_ORPHAN_STATE;
    }
    return test.test_passed != 0 ? TARN_NET_UPSTREAM_MESH_STATE : result;
}

static void count_link(const char *port, int32_t *count)
{
    *count = ng_rtnl_iface_link_get_up(port, false) ? *count + 1 : 0;
}

/// A repeater that gets a cable: with link for long enough, that port's bridge is the wired uplink.
/// The state becomes WAN only for the switch that follows; the next wired test decides.
static void look_for_cable()
{
    if (upstream_knows_wired_bridge())
        return;
    upstream_record &upstream = gTarn_net_state.upstream;
    count_link("eth0", &upstream.wc_eth0_up_count);
    count_link("eth1", &upstream.wc_eth1_up_count);
    const char *bridge = nullptr;
    if (upstream.wc_eth0_up_count >= inet_test_settings().failure_tolerance)
        bridge = "br-wired0";
    else if (upstream.wc_eth1_up_count >= inet_test_settings().failure_tolerance)
        bridge = "br-wired1";
    if (!bridge)
        return;
    uplink_bridge_set(bridge);
    upstream_set_state(TARN_NET_UPSTREAM_WAN_STATE);
}

static void show_passed_cycle(uint32_t result)
{
    update_led_flag("dhcp_inet_fail", false);
    update_led_flag("network_fail", false);
    if (result == TARN_NET_UPSTREAM_MESH_STATE) {
        update_led_flag("gateway", false);
        update_led_flag("repeater", true);
        return;
    }
    update_led_flag("gateway", result == TARN_NET_UPSTREAM_WAN_STATE);
    update_led_flag("repeater", false);
    update_led_flag("low_mesh_speed", false);
}

static void switch_upstream(uint32_t result, bool from_lonely)
{
    log_debug("Setting upstream state to %s", upstream_state_name(result));
    upstream_send_gateway_mode(result);
    upstream_send_inet_test(true);
    end_mesh_grace(false);
    if (from_lonely)
        (void)upstream_make(UPSTREAM_STOP_LONELY, result);
    (void)upstream_make(UPSTREAM_GW_MODE, result);
    mesh_clear_gateway_info();
    if (!update_uplink_interface(result))
        log_error("Failed to update the uplink interface");
}

/// A wired success before it is known which bridge that is: a switch would end half way. The next
/// cycle after the enumeration makes it.
static bool wait_for_bridge(uint32_t result)
{
    if (result != TARN_NET_UPSTREAM_WAN_STATE ||
        gTarn_net_state.inet_test.upstream_state == TARN_NET_UPSTREAM_WAN_STATE ||
        upstream_knows_wired_bridge())
        return false;
    log_warning("inet test success, but uplink iface not fully enumerated");
    init_bridge_info();
    return true;
}

/// The cycle's interface is the one that forwarding leads to, or will as soon as that step is made.
static bool is_uplink(const char *iface)
{
    const upstream_record &upstream = gTarn_net_state.upstream;
    return strncmp(gTarn_net_state.inet_test.uplink_iface, iface, 16) == 0 ||
           ((upstream.unmade & UPSTREAM_FORWARDING) != 0 &&
            strncmp(upstream.forwarding_to, iface, 16) == 0);
}

static void follow_passed_cycle(uint32_t result)
{
    inet_test_state &test = gTarn_net_state.inet_test;
    log_debug("Test passed");
    test.test_failures = 0;
    if (wait_for_bridge(result))
        return;
    show_passed_cycle(result);
    const bool from_lonely = test.upstream_state == TARN_NET_LONELY_ORPHAN_STATE;
    if (result == TARN_NET_UPSTREAM_MESH_STATE)
        look_for_cable(); // which may change the state
    if (result != test.upstream_state || !is_uplink(test.passed_iface)) {
        switch_upstream(result, from_lonely);
    } else if (upstream_follow_bridge()) {
        wifid_apply_bridges();
        (void)run_reload_config();
    }
}

struct mesh_prospect {
    bool available;      ///< a radio has its mesh on
    bool pre_configured; ///< no radio looked at has been configured by the cloud yet
};

static mesh_prospect look_at_radios()
{
    mesh_prospect mesh{false, true};
    const int radios = wifi_radio_count();
    for (int radio = 0; radio < radios && !mesh.available; radio++) {
        if (wifi_radio_band_type(radio) == WIFI_BAND_SCANNING)
            continue;
        if (!ng_uci_exists("wireless.mesh%d.pre_config", radio))
            mesh.pre_configured = false;
        mesh.available = wifi_live_settings()->radios[radio].mesh_enable;
    }
    return mesh;
}

/// Whether a node without a wired uplink any more may try the mesh.
static bool may_fall_back_to_mesh()
{
    const mesh_prospect mesh = look_at_radios();
    if (!mesh.pre_configured)
        return mesh.available;
    log_notice("Before configuration, giving longer failure tolerance before swapping to mesh");
    inet_test_raise_tolerance(PRE_CONFIG_FAILURE_TOLERANCE);
    return gTarn_net_state.inet_test.test_failures >= PRE_CONFIG_FAILURE_TOLERANCE;
}

static void enter_lonely()
{
    log_notice("Mesh state has failed falling back into lonely mode");
    upstream_send_inet_test(false);
    end_mesh_grace(false);
    lonely_start();
    gTarn_net_state.upstream.lonely_passes = 0;
    wifi_radio_override_clear();
    (void)upstream_make(UPSTREAM_OVERRIDE, TARN_NET_LONELY_ORPHAN_STATE);
    upstream_forget(UPSTREAM_STOP_LONELY);
}

/// Where too many failed cycles lead; false to stay. What leaving the state needs is done.
static bool choose_fall_back(uint32_t result, uint32_t *next)
{
    switch (gTarn_net_state.inet_test.upstream_state) {
    case TARN_NET_UPSTREAM_NONE:
    case TARN_NET_UPSTREAM_WAN_STATE:
        if (!may_fall_back_to_mesh())
            return false;
        log_notice("WAN state has failed falling back to mesh");
        *next = TARN_NET_UPSTREAM_MESH_STATE;
        (void)upstream_make(UPSTREAM_GW_MODE, *next);
        return true;
    case TARN_NET_UPSTREAM_MESH_STATE:
        enter_lonely();
        *next = TARN_NET_LONELY_ORPHAN_STATE;
        return true;
    case TARN_NET_LONELY_ORPHAN_STATE:
        *next = result;
        return result != TARN_NET_LONELY_ORPHAN_STATE;
    default:
        log_error("gTarn_net_state.inet_test.upstream_state is in an invalid state.");
        *next = result;
        return true;
    }
}

static void fall_back(uint32_t result)
{
    log_notice("Connection is not available. Update uplink interface");
    update_led_flag("network_fail", true);
    update_led_flag("dhcp_inet_fail", upstream_knows_wired_bridge());
    uint32_t next;
    if (!choose_fall_back(result, &next))
        return;
    log_debug("Setting upstream state to %s", upstream_state_name(next));
    mesh_clear_gateway_info();
    update_led_flag("low_mesh_speed", false);
    if (update_uplink_interface(next))
        gTarn_net_state.inet_test.test_failures = 0;
    else
        log_error("Failed to update the uplink interface");
}

void complete_inet_test(uint32_t result)
{
    inet_test_state &test = gTarn_net_state.inet_test;
    if (!test.dispatch_complete)
        return;
    abort_inet_test();
    const bool passed_over_wire = test.test_passed != 0 && result == TARN_NET_UPSTREAM_WAN_STATE;
    if (test.upstream_state == TARN_NET_UPSTREAM_MESH_STATE && mesh_cycle_passed())
        inet_test_count_passed();
    if (result != TARN_NET_UPSTREAM_WAN_STATE &&
        test.upstream_state == TARN_NET_LONELY_ORPHAN_STATE)
        result = lonely_cycle_result(result);
    if (test.test_passed != 0) {
        follow_passed_cycle(result);
    } else {
        log_debug("Test failed");
        test.test_failures++;
    }
    log_debug("gTarn_net_state.inet_test.test_failures: %d, gOnline_settings.failure_tolerance: %d",
              test.test_failures, inet_test_settings().failure_tolerance);
    if (test.test_failures >= inet_test_settings().failure_tolerance)
        fall_back(result);
    upstream_follow_mesh();
    wired_event_weigh_cycle(passed_over_wire);
}

// Firewall forwarding from the SSIDs and the mesh to the wired uplink.
#include "wired/forwarding.h"

#include <cstring>

#include "platform/zu/log.h"
#include "platform/zu/ng_uci.h"
#include "state/owned.h"
#include "wifi/wifi.h"
#include "wired/upstream.h"

bool firewall_set_forwarding_rule(const char *iface, const char *source, bool enable)
{
    if (!iface || !source) {
        log_error("%s is NULL", iface ? "source_iface" : "iface_name");
        return false;
    }
    if (!strstr(iface, "wired")) // the mesh and other uplinks have no sections
        return true;
    if (strncmp(iface, "br-", 3) == 0)
        iface += 3;
    if (!ng_uci_exists("firewall.%swan_%s", source, iface)) {
        log_error("Failed to enable firewall forwarding rule from %s to %s, UCI section doesn't "
                  "exist",
                  source, iface);
        return false;
    }
    if (ng_uci_put(ng_uci_name("firewall.%swan_%s.enabled", source, iface), enable ? 1 : 0))
        return true;
    log_error("Failed to %s firewall forwarding rule from %s to %s", enable ? "enable" : "disable",
              source, iface);
    return false;
}

static bool is_forwarded(const wifi_ssid_settings &ssid)
{
    return !ssid.bridge_to_lan && !wifi_vlan_tag_is_valid(ssid.vlan_tag);
}

static bool set_ssid_rule(const char *iface, int ssid, bool enable)
{
    const char source[] = {'s', 's', 'i', 'd', static_cast<char>('0' + ssid), '\0'};
    return firewall_set_forwarding_rule(iface, source, enable);
}

bool firewall_set_ssid_forwarding_rule(const char *iface, int ssid, bool enable)
{
    if (!iface) {
        log_error("%s is NULL", "iface_name");
        return false;
    }
    if (ssid < 1 || ssid > WIFI_SSIDS) {
        log_error("ssid%i is out of range ssid%i thru ssid%i", ssid, 1, WIFI_SSIDS);
        return false;
    }
    if (enable && !is_forwarded(wifi_live_settings()->ssids[ssid - 1]))
        return true;
    return set_ssid_rule(iface, ssid, enable);
}

bool set_ssid_forwarding(const wifi_settings *settings)
{
    // Not by the state: on the mesh forwarding leads to the wire until the mesh has been reached.
    if (gTarn_net_state.upstream.forwarding_ended)
        return true;
    bool set = true;
    for (int ssid = 1; ssid <= WIFI_SSIDS; ssid++)
        set &= set_ssid_rule(gTarn_net_state.inet_test.uplink_iface, ssid,
                             is_forwarded(settings->ssids[ssid - 1]));
    return set;
}

void firewall_reset_forwarding_rules()
{
    for (const char *iface : {"wired0", "wired1"}) {
        for (int ssid = 1; ssid <= WIFI_SSIDS + 1; ssid++) {
            const bool disabled = ssid <= WIFI_SSIDS
                                      ? firewall_set_ssid_forwarding_rule(iface, ssid, false)
                                      : firewall_set_forwarding_rule(iface, "mesh", false);
            if (!disabled)
                log_warning("Failed to disable forwarding rule, if this is during startup, "
                            "disregard the error");
        }
    }
}

bool firewall_commit_forwarding_rules()
{
    ng_uci_renew_change_context();
    if (ng_uci_commit("firewall") != 0) {
        log_error("Failed to commit firewall config to UCI");
        return false;
    }
    if (!run_reload_config())
        log_notice("Failed to reload firewall config");
    return true;
}

bool firewall_revert_forwarding_rules()
{
    ng_uci_renew_change_context();
    log_debug("Reverting firewall forwarding rules");
    if (ng_uci_revert("firewall") == 0)
        return true;
    log_notice("Failed to revert new firewall config");
    return false;
}

/// The captive portal's LAN rule of an uplink "br-wired0" has the source "wired0".
static bool set_portal_source(const char *iface, int ssid)
{
    const char *dash = strchr(iface, '-');
    return !dash || ng_uci_put(ng_uci_name("firewall.ssid%d_lan_cp.src", ssid), dash + 1);
}

static bool move_forwarding(const char *from, const char *to)
{
    for (int ssid = 1; ssid <= WIFI_SSIDS; ssid++) {
        if (!firewall_set_ssid_forwarding_rule(from, ssid, false) ||
            !firewall_set_ssid_forwarding_rule(to, ssid, true) || !set_portal_source(to, ssid))
            return false;
    }
    return firewall_set_forwarding_rule(from, "mesh", false) &&
           firewall_set_forwarding_rule(to, "mesh", true);
}

static bool end_forwarding(const char *from)
{
    for (int ssid = 1; ssid <= WIFI_SSIDS; ssid++) {
        if (!firewall_set_ssid_forwarding_rule(from, ssid, false))
            return false;
    }
    return firewall_set_forwarding_rule(from, "mesh", false);
}

int set_firewall_forwarding_rules(const char *iface, uint32_t state)
{
    if (!iface) {
        log_error("%s is NULL", "new_upstream_iface_name");
        return -1;
    }
    const inet_test_state &test = gTarn_net_state.inet_test;
    const char *current = test.uplink_iface;
    gTarn_net_state.upstream.forwarding_ended = state == TARN_NET_LONELY_ORPHAN_STATE;
    log_debug("Set forwarding to %s:%s", iface, upstream_state_name(state));
    bool done;
    switch (state) {
    case TARN_NET_UPSTREAM_WAN_STATE:
    case TARN_NET_UPSTREAM_MESH_STATE:
        done = move_forwarding(current, iface);
        break;
    case TARN_NET_LONELY_ORPHAN_STATE:
        log_debug("Configure lonely mode");
        done = end_forwarding(current);
        break;
    default:
        log_error("The new upstream state is an unknown state (%u), previous state: %s (%u)", state,
                  upstream_state_name(test.upstream_state), test.upstream_state);
        return -1;
    }
    if (done)
        return 0;
    log_error("Failed to setup firewall rules");
    firewall_revert_forwarding_rules();
    return -1;
}

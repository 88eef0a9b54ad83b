// The captive portal ("udsplash") and the traffic shaper ("udshape"): which interfaces carry an
// SSID's clients and which one leads out. With a gateway's upstream (NONE, WAN) the portal stands
// on this node, else on the node that is the gateway.
#include "wifi/write/portal.h"

#include <cstdio>
#include <cstring>
#include <string>

#include "platform/zu/log.h"
#include "platform/zu/ng_uci.h"
#include "platform/zu/platform_data.h"
#include "state/state.h"
#include "wifi/wifi.h"
#include "wifi/wifi_internal.h"

static bool portal_is_here(uint32_t state)
{
    return state == TARN_NET_UPSTREAM_NONE || state == TARN_NET_UPSTREAM_WAN_STATE;
}

static bool set_logout_rule(const char *name, int ssid, bool enabled)
{
    return ng_uci_put(ng_uci_name("firewall.ssid%d_%s.enabled", ssid, name), enabled ? 1 : 0);
}

bool set_udsplash_logout_firewall(uint32_t state, const wifi_settings *settings)
{
    if (!settings) {
        log_error("%s is NULL", "wifi_settings");
        return false;
    }
    // Taken for switched off, a portal that cannot be read now would let everybody through.
    if (ng_uci_check_readable("udsplash") == NG_UCI_UNREADABLE)
        return false;
    bool good = true;
    for (int ssid = 1; ssid <= WIFI_SSIDS; ssid++) {
        good &= set_logout_rule("cp", ssid, false);
        good &= set_logout_rule("lan_cp", ssid, false);
        int enabled = 0;
        (void)ng_uci_get_int(&enabled, "udsplash.ssid%d.enable", ssid);
        const bool bridged = settings->ssids[ssid - 1].bridge_to_lan;
        if (enabled != 0 && portal_is_here(state))
            good &= set_logout_rule(bridged ? "lan_cp" : "cp", ssid, true);
    }
    return good;
}

static bool change_access_iface(ng_uci_action action, const char *iface, int ssid)
{
    return ng_uci_save_action_ctx(ng_uci_change_context(), action, iface,
                                  "udsplash.ssid%d.accessif", ssid) == 0;
}

static bool set_access_iface(const char *iface, int ssid, bool carries_clients)
{
    return change_access_iface(ng_uci_del_list, iface, ssid) &&
           (!carries_clients || change_access_iface(ng_uci_add_list, iface, ssid));
}

static bool set_access_ifaces(bool here, int ssid)
{
    bool good = true;
    for (const wifi_mesh_class of : WIFI_MESH_CLASSES)
        good &= set_access_iface(wifi_mesh_iface(of, ssid).c_str(), ssid, here);
    char iface[16];
    for (int radio = wifi_radio_count() - 1; radio >= 0; radio--) {
        snprintf(iface, sizeof iface, "ap%d_%d", radio, ssid);
        const char *band = platform_wireless_get_radio_band_name(radio);
        good &= set_access_iface(iface, ssid, here && band && strcmp(band, "scanning") != 0);
    }
    return good;
}

/// The port behind the wired uplink bridge.
static std::string wired_gateway_iface()
{
    int port;
    if (sscanf(node_state().upstream.wired_uplink_bridge, "br-wired%i", &port) != 1) {
        log_debug("Couldn't figure out uplink, default to eth0 for udshape gatewayif");
        port = 0;
    }
    return "eth" + std::to_string(port);
}

static bool set_shaper(uint32_t state, const wifi_ssid_settings &settings, int ssid)
{
    const std::string access_ifaces = ng_uci_name("udshape.ssid%d.accessif", ssid);
    const std::string gateway_ifaces = ng_uci_name("udshape.ssid%d.gatewayif", ssid);
    bool good = true;
    if (!portal_is_here(state) && !upstream_knows_wired_bridge()) {
        good &= ng_uci_remove(access_ifaces, "eth0");
        good &= ng_uci_remove(access_ifaces, "eth1");
    }
    const std::string gateway =
        portal_is_here(state) ? wired_gateway_iface() : wifi_ssid_mesh_iface(settings, ssid);
    good &= ng_uci_clear(gateway_ifaces);
    log_info("Setting udshape gatewayif to '%s'", gateway.c_str());
    good &= ng_uci_add(gateway_ifaces, gateway);
    good &= ng_uci_remove(access_ifaces, gateway);
    return good;
}

static bool commit(const char *package)
{
    if (ng_uci_commit(package) == 0)
        return true;
    log_error("Failed to commit %s config to UCI", package);
    return false;
}

bool set_udsplash_ifaces(uint32_t state, bool with_commit, const wifi_settings *settings)
{
    if (!settings) {
        log_error("%s is NULL", "wifi_settings");
        return false;
    }
    bool good = true;
    for (int ssid = 1; ssid <= WIFI_SSIDS; ssid++) {
        good &= set_access_ifaces(portal_is_here(state), ssid);
        good &= set_shaper(state, settings->ssids[ssid - 1], ssid);
    }
    if (!with_commit)
        return good;
    ng_uci_renew_change_context();
    good &= commit("udsplash");
    good &= commit("udshape");
    return good;
}

// The captive portal ("udsplash") and the traffic shaper ("udshape"): which interfaces carry an
// SSID's clients and which one leads out. With a gateway's upstream (NONE, WAN) the portal stands
// on this node, else on the node that is the gateway.
#include <cstdio>
#include <cstring>
#include <string>

#include "core/state.h"
#include "platform/zu/log.h"
#include "platform/zu/ng_uci.h"
#include "platform/zu/platform_data.h"
#include "wifi/wifi.h"
#include "wired/forwarding.h"
#include "wired/upstream.h"
#include "wired/upstream_internal.h"

/// An SSID crosses the mesh on one of three interfaces, by its class: bat0.1s, bat0.2s, bat0.3s.
constexpr int MESH_CLASSES = 3;

static bool portal_is_here(uint32_t state)
{
    return state == TARN_NET_UPSTREAM_NONE || state == TARN_NET_UPSTREAM_WAN_STATE;
}

static void enable_logout_rule(const wifi_ssid_settings &settings, int ssid)
{
    ng_uci_save_action_int_ctx(ng_uci_change_context(), uci_set_string, 1,
                               settings.bridge_to_lan ? "firewall.ssid%d_lan_cp.enabled"
                                                      : "firewall.ssid%d_cp.enabled",
                               ssid);
}

void set_udsplash_logout_firewall(uint32_t state, const wifi_settings *settings)
{
    if (settings == nullptr) {
        log_error("%s is NULL", "wifi_settings");
        return;
    }
    uci_context *ctx = ng_uci_change_context();
    for (int ssid = 1; ssid <= WIFI_SSIDS; ssid++) {
        ng_uci_save_action_int_ctx(ctx, uci_set_string, 0, "firewall.ssid%d_cp.enabled", ssid);
        ng_uci_save_action_int_ctx(ctx, uci_set_string, 0, "firewall.ssid%d_lan_cp.enabled", ssid);
        int enabled = 0;
        (void)ng_uci_get_int(&enabled, "udsplash.ssid%d.enable", ssid);
        if (enabled != 0 && portal_is_here(state))
            enable_logout_rule(settings->ssids[ssid - 1], ssid);
    }
}

static void change_access_iface(ng_uci_action action, const char *iface, int ssid)
{
    ng_uci_save_action_ctx(ng_uci_change_context(), action, iface, "udsplash.ssid%d.accessif",
                           ssid);
}

static void set_access_ifaces(bool here, int ssid)
{
    char iface[16];
    for (int mesh_class = 1; mesh_class <= MESH_CLASSES; mesh_class++) {
        snprintf(iface, sizeof iface, "bat0.%d%d", mesh_class, ssid);
        change_access_iface(ng_uci_del_list, iface, ssid);
        if (here)
            change_access_iface(ng_uci_add_list, iface, ssid);
    }
    for (int radio = wifi_radio_count() - 1; radio >= 0; radio--) {
        snprintf(iface, sizeof iface, "ap%d_%d", radio, ssid);
        change_access_iface(ng_uci_del_list, iface, ssid);
        const char *band = platform_wireless_get_radio_band_name(radio);
        if (here && band != nullptr && strcmp(band, "scanning") != 0)
            change_access_iface(ng_uci_add_list, iface, ssid);
    }
}

/// The port behind the wired uplink bridge.
static std::string wired_gateway_iface()
{
    int port;
    if (sscanf(gTarn_net_state.upstream.wired_uplink_bridge, "br-wired%i", &port) != 1) {
        log_debug("Couldn't figure out uplink, default to eth0 for udshape gatewayif");
        port = 0;
    }
    return "eth" + std::to_string(port);
}

static void set_shaper(uint32_t state, const wifi_ssid_settings &settings, int ssid)
{
    uci_context *ctx = ng_uci_change_context();
    constexpr char ACCESS[] = "udshape.ssid%d.accessif";
    constexpr char GATEWAY[] = "udshape.ssid%d.gatewayif";
    if (!portal_is_here(state) && !upstream_knows_wired_bridge()) {
        ng_uci_save_action_ctx(ctx, ng_uci_del_list, "eth0", ACCESS, ssid);
        ng_uci_save_action_ctx(ctx, ng_uci_del_list, "eth1", ACCESS, ssid);
    }
    const std::string gateway =
        portal_is_here(state) ? wired_gateway_iface() : wifi_ssid_mesh_iface(settings, ssid);
    ng_uci_save_action_ctx(ctx, ng_uci_delete_option, nullptr, GATEWAY, ssid);
    log_info("Setting udshape gatewayif to '%s'", gateway.c_str());
    ng_uci_save_action_ctx(ctx, ng_uci_add_list, gateway.c_str(), GATEWAY, ssid);
    ng_uci_save_action_ctx(ctx, ng_uci_del_list, gateway.c_str(), ACCESS, ssid);
}

bool set_udsplash_ifaces(uint32_t state, bool commit, const wifi_settings *settings)
{
    if (settings == nullptr) {
        log_error("%s is NULL", "wifi_settings");
        return false;
    }
    for (int ssid = 1; ssid <= WIFI_SSIDS; ssid++) {
        set_access_ifaces(portal_is_here(state), ssid);
        set_shaper(state, settings->ssids[ssid - 1], ssid);
    }
    if (!commit)
        return true;
    ng_uci_renew_change_context();
    const bool portal = ng_uci_commit("udsplash") == 0;
    if (!portal)
        log_error("Failed to commit udsplash config to UCI");
    const bool shaper = ng_uci_commit("udshape") == 0;
    if (!shaper)
        log_error("Failed to commit udshape config to UCI");
    return portal && shaper;
}

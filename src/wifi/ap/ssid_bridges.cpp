// Which bridge an SSID belongs to, and putting its mesh interface there. Again each minute: netifd
// makes bridges when radios start, and anew, as it does bat0, when they or the network restart, and
// tells nobody.

#include <cstdio>
#include <net/if.h>
#include <unistd.h>

#include "netlink/rtnl.h"
#include "platform/zu/log.h"
#include "state/state.h"
#include "wifi/wifi.h"
#include "wifi/wifi_internal.h"

constexpr const char *BATMAN_IFACE = "bat0";
constexpr int LOOK_AGAIN_MS = 60000;

static uloop_timeout gLook_timer;

static wifi_mesh_class class_of(const wifi_ssid_settings &settings)
{
    if (settings.bridge_to_lan)
        return WIFI_MESH_LAN;
    return wifi_vlan_tag_is_valid(settings.vlan_tag) ? WIFI_MESH_VLAN : WIFI_MESH_PLAIN;
}

static int batman_vid(wifi_mesh_class of, int ssid)
{
    return 10 * of + ssid;
}

/// Looked up in sysfs: asked for the index of a name that it does not know, the kernel would start
/// modprobe for it, which takes tens of milliseconds each time.
static bool iface_exists(const char *name)
{
    char path[80];
    snprintf(path, sizeof(path), "/sys/class/net/%s", name);
    return access(path, F_OK) == 0;
}

static bool is_port_of(const char *bridge, const char *port)
{
    char path[80];
    snprintf(path, sizeof(path), "/sys/class/net/%s/brif/%s", bridge, port);
    return access(path, F_OK) == 0;
}

static bool is_port(const char *name)
{
    char path[80];
    snprintf(path, sizeof(path), "/sys/class/net/%s/master", name);
    return access(path, F_OK) == 0;
}

/// True when bat0's VLAN interface is there, up and, if need be, made so just now.
static bool bring_up_batman_vlan(const char *name, int vid)
{
    if (!iface_exists(name) &&
        ng_rtnl_iface_create_vlan(BATMAN_IFACE, static_cast<uint16_t>(vid)) != 0)
        return false;
    return ng_rtnl_iface_link_get_up(name, true) || ng_rtnl_iface_set_up(name, true) == 0;
}

static void enslave_batman_vlan(int ssid, wifi_mesh_class of, const char *bridge)
{
    const std::string name = wifi_mesh_iface(of, ssid);
    const char *port = name.c_str();
    if (!iface_exists(BATMAN_IFACE) || !iface_exists(bridge)) {
        log_debug("Skipping %s for bridge %s, an interface does not exist", port, bridge);
        return;
    }
    if (is_port_of(bridge, port) && ng_rtnl_iface_link_get_up(port, true))
        return;
    if (bring_up_batman_vlan(port, batman_vid(of, ssid)) && !is_port_of(bridge, port))
        (void)ng_rtnl_bridge_enslave(bridge, port); // logged there
}

static void release_batman_vlan(int ssid, wifi_mesh_class of)
{
    const std::string name = wifi_mesh_iface(of, ssid);
    const char *port = name.c_str();
    if (!iface_exists(port)) {
        log_debug("Skipping %s, it does not exist", port);
        return;
    }
    if (is_port(port))
        (void)ng_rtnl_bridge_release(port); // logged there
}

static void apply_bridge_of_ssid(int ssid, const wifi_ssid_settings &settings)
{
    char bridge[IFNAMSIZ];
    if (determine_dest_ssid_bridge(ssid, bridge) != 0)
        return;
    const wifi_mesh_class wanted = class_of(settings);
    for (const wifi_mesh_class of : WIFI_MESH_CLASSES)
        if (of != wanted)
            release_batman_vlan(ssid, of);
    enslave_batman_vlan(ssid, wanted, bridge);
}

bool wifi_vlan_tag_is_valid(int vlan_tag)
{
    return vlan_tag >= 1 && vlan_tag <= 4095;
}

std::string wifi_mesh_iface(wifi_mesh_class of, int ssid)
{
    return std::string(BATMAN_IFACE) + "." + std::to_string(batman_vid(of, ssid));
}

std::string wifi_ssid_mesh_iface(const wifi_ssid_settings &settings, int ssid)
{
    return wifi_mesh_iface(class_of(settings), ssid);
}

void wifi_dest_ssid_bridge(const wifi_ssid_settings &settings, int ssid, char *bridge)
{
    const char *uplink = node_state().upstream.wired_uplink_bridge;
    const bool wired = node_state().inet_test.upstream_state == TARN_NET_UPSTREAM_WAN_STATE;
    if (settings.bridge_to_lan && wired && uplink[0])
        snprintf(bridge, IFNAMSIZ, "%s", uplink);
    else if (wifi_vlan_tag_is_valid(settings.vlan_tag))
        snprintf(bridge, IFNAMSIZ, "br-ssid%d_vlan", ssid);
    else
        snprintf(bridge, IFNAMSIZ, "br-ssid%d", ssid);
}

int determine_dest_ssid_bridge(int ssid, char *bridge)
{
    if (ssid < 1 || ssid > WIFI_SSIDS)
        return -1;
    wifi_dest_ssid_bridge(wifi_live_settings()->ssids[ssid - 1], ssid, bridge);
    return 0;
}

static void look_again_cb(uloop_timeout *)
{
    const zu_log_repetition said;
    wifid_apply_bridges();
}

void wifid_apply_bridges()
{
    gLook_timer.cb = look_again_cb;
    uloop_timeout_set(&gLook_timer, LOOK_AGAIN_MS);
    const wifi_settings *settings = wifi_live_settings();
    for (int ssid = 1; ssid <= WIFI_SSIDS; ssid++)
        if (settings->ssids[ssid - 1].enable)
            apply_bridge_of_ssid(ssid, settings->ssids[ssid - 1]);
    wifi_hapd_bridges_applied();
}

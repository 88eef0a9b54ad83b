// Direct stage, networks: addresses, DHCP, forwarding and captive portal of the mesh gateway and of
// every SSID.
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <unistd.h>

#include "platform/zu/file.h"
#include "platform/zu/log.h"
#include "platform/zu/ng_uci.h"
#include "state/upstream_state.h"
#include "wifi/wifi.h"
#include "wifi/write/address_plan.h"
#include "wifi/write/fields_uci.h"
#include "wifi/write/write_internal.h"

constexpr int WIRED_UPLINKS = 2;
static const char *const PLANNED_NETMASK = "255.255.252.0";
constexpr int PLANNED_BITS = 22;

/// What both wired uplinks translate the addresses of.
static void add_masquerade(const std::string &address, int bits)
{
    const std::string network = address + "/" + std::to_string(bits);
    for (int uplink = 0; uplink < WIRED_UPLINKS; uplink++)
        ng_uci_add(numbered("firewall.wired", uplink, ".masq_src"), network);
}

static void write_mesh_gateway(const wifi_write &w)
{
    const std::string address = wifi_plan_address(w.address_base);
    ng_uci_put("network.mesh_gw.ipaddr", address.c_str());
    for (int uplink = 0; uplink < WIRED_UPLINKS; uplink++)
        ng_uci_clear(numbered("firewall.wired", uplink, ".masq_src"));
    add_masquerade(address, PLANNED_BITS);
}

// ---- DHCP

/// True when the SSID's DHCP section is there to be written to: a relay takes its place.
static bool has_dhcp_section(int ssid)
{
    return ng_uci_exists("dhcp.ssid%d", ssid);
}

static void make_dhcp_section(const wifi_ssid_settings &settings, int ssid)
{
    if (settings.dhcp.relay[0])
        return;
    const std::string section = numbered("dhcp.ssid", ssid);
    if (!has_dhcp_section(ssid)) {
        ng_uci_put(section, "dhcp");
        ng_uci_put(section + ".interface", numbered("ssid", ssid).c_str());
        ng_uci_put(section + ".dhcpv6", "server");
        ng_uci_put(section + ".ra", "server");
    }
    ng_uci_clear(numbered("dhcp.relay_ssid", ssid));
}

static void write_dhcp_role(const wifi_write &w, int ssid)
{
    if (!has_dhcp_section(ssid))
        return;
    const wifi_ssid_settings &settings = w.settings->ssids[ssid - 1];
    const std::string section = numbered("dhcp.ssid", ssid);
    const bool gateway = w.upstream_state == TARN_NET_UPSTREAM_WAN_STATE;
    const char *role = wifi_vlan_tag_is_valid(settings.vlan_tag) ? "relay" : "server";
    ng_uci_put(section + ".ignore", gateway ? settings.bridge_to_lan : 1);
    ng_uci_put(section + ".dhcpv6", role);
    ng_uci_put(section + ".ra", role);
}

static void write_planned_leases(int ssid)
{
    if (!has_dhcp_section(ssid))
        return;
    const std::string section = numbered("dhcp.ssid", ssid);
    ng_uci_put(section + ".start", 20);
    ng_uci_put(section + ".limit", 1000);
    ng_uci_put(section + ".leasetime", "5m");
}

static void write_planned_addresses(const wifi_write &w, int ssid)
{
    const std::string network = numbered("network.ssid", ssid);
    const std::string address = wifi_plan_address(wifi_plan_ssid(w.address_base, ssid));
    ng_uci_put(network + ".ipaddr", address.c_str());
    ng_uci_put(network + ".netmask", PLANNED_NETMASK);
    write_planned_leases(ssid);
    add_masquerade(address, PLANNED_BITS);
    if (ssid != 1) // once is enough: the option is the uplinks', not the SSID's
        return;
    for (int uplink = 0; uplink < WIRED_UPLINKS; uplink++)
        ng_uci_clear(numbered("igmpproxy.wired", uplink, ".altnet"));
}

/// The text if it is an IPv4 address, else none: dnsmasq and the firewall would stumble over it.
static const char *address_of(const char *text, const char *what, int ssid)
{
    if (wifi_is_ipv4(text))
        return text;
    if (text[0])
        log_error("Not writing the %s of ssid %d: '%s' is no IPv4 address", what, ssid, text);
    return "";
}

static void write_relay(const wifi_dhcp_settings &dhcp, const char *gateway, int ssid)
{
    const std::string section = numbered("dhcp.relay_ssid", ssid);
    ng_uci_clear(section);
    ng_uci_put(section, "relay");
    ng_uci_put(section + ".local_addr", gateway);
    ng_uci_put(section + ".server_addr", address_of(dhcp.relay, "relay", ssid));
    ng_uci_put(section + ".interface", numbered("ssid", ssid).c_str());
    ng_uci_clear(numbered("dhcp.ssid", ssid));
}

static void write_custom_addresses(const wifi_settings &settings, int ssid)
{
    const wifi_dhcp_settings &dhcp = settings.ssids[ssid - 1].dhcp;
    const std::string network = numbered("network.ssid", ssid);
    const char *gateway = address_of(dhcp.gateway_ip, "gateway_ip", ssid);
    const char *netmask = address_of(dhcp.netmask, "netmask", ssid);
    ng_uci_put(network + ".ipaddr", gateway);
    ng_uci_put(network + ".netmask", netmask);
    if (has_dhcp_section(ssid))
        fields_write(wifi_dhcp_part(settings, ssid), "dhcp.ssid%d");
    if (dhcp.relay[0])
        write_relay(dhcp, gateway, ssid);
    // Without a bit in it the mask would have the uplinks translate everybody's addresses.
    const int bits = wifi_netmask_bits(netmask);
    if (gateway[0] && bits > 0)
        add_masquerade(gateway, bits);
}

static void write_addresses(const wifi_write &w, int ssid)
{
    const wifi_ssid_settings &settings = w.settings->ssids[ssid - 1];
    const wifi_part part = wifi_ssid_part(*w.settings, ssid, -1);
    for (const char *section : {"network.ssid%d", "network.ssid%d_vlan", "firewall.tarn"})
        fields_write(part, section);
    fields_write(wifi_dhcp_part(*w.settings, ssid), "network.ssid%d");
    make_dhcp_section(settings, ssid);
    write_dhcp_role(w, ssid);
    if (settings.dhcp.enable)
        write_custom_addresses(*w.settings, ssid);
    else
        write_planned_addresses(w, ssid);
}

// ---- captive portal

static std::string portal_hosts(int ssid)
{
    return numbered("/tmp/cp-hosts", ssid);
}

/// The names a client logs out by. A link that somebody has put in the file's place goes first.
static void write_portal_hosts(int ssid, const char *address)
{
    const std::string path = portal_hosts(ssid);
    (void)unlink(path.c_str());
    if (!address[0])
        return;
    if (_file_write_string_fmt(path.c_str(), false, "%s logout\n", address) != 0 ||
        _file_write_string_fmt(path.c_str(), true, "%s nimbracp\n", address) != 0)
        log_warning("Failed to write %s: %s", path.c_str(), strerror(errno));
}

static char gPortal_addresses[WIFI_SSIDS][sizeof(wifi_dhcp_settings::gateway_ip)];

static void write_portal(int ssid)
{
    std::string address;
    (void)ng_uci_get_string(address, "network.ssid%d.ipaddr", ssid); // as written just now
    for (const char *rule : {"_cp", "_lan_cp"})
        ng_uci_put(numbered("firewall.ssid", ssid, rule) + ".src_dip", address.c_str());
    snprintf(gPortal_addresses[ssid - 1], sizeof gPortal_addresses[0], "%s", address.c_str());
}

void wifi_write_portal_hosts()
{
    for (int ssid = 1; ssid <= WIFI_SSIDS; ssid++)
        write_portal_hosts(ssid, gPortal_addresses[ssid - 1]);
}

void wifi_restore_portal_hosts()
{
    std::string address;
    for (int ssid = 1; ssid <= WIFI_SSIDS; ssid++)
        if (access(portal_hosts(ssid).c_str(), F_OK) != 0 &&
            ng_uci_get_string(address, "network.ssid%d.ipaddr", ssid) == 0)
            write_portal_hosts(ssid, address.c_str());
}

// ---- firewall

static void write_smtp_redirect(const wifi_write &w, int ssid)
{
    const std::string section = numbered("firewall.ssid", ssid, "smtp");
    if (!w.settings->ssids[ssid - 1].smtp_redir[0]) {
        ng_uci_clear(section);
        return;
    }
    ng_uci_put(section, "redirect");
    ng_uci_put(section + ".src", numbered("ssid", ssid).c_str());
    fields_write(wifi_ssid_part(*w.settings, ssid, -1), "firewall.ssid%dsmtp");
    ng_uci_put(section + ".dest_port", 25);
    ng_uci_put(section + ".proto", "tcp");
    ng_uci_put(section + ".target", "DNAT");
}

static void write_lan_block(const wifi_ssid_settings &settings, int ssid)
{
    for (int uplink = 0; uplink < WIRED_UPLINKS; uplink++) {
        const std::string section = numbered("firewall.ssid", ssid) + numbered("wired", uplink);
        if (!settings.lan_block) {
            ng_uci_clear(section);
            continue;
        }
        ng_uci_put(section, "forwarding");
        ng_uci_put(section + ".src", numbered("ssid", ssid).c_str());
        // Replaces the source and leaves the destination out, as deployed nodes have it: what they
        // have configured must not change.
        ng_uci_put(section + ".src", numbered("wired", uplink).c_str());
    }
}

// ---- all

static void write_rebind_protection(const wifi_settings &settings)
{
    const bool all = std::all_of(std::begin(settings.ssids), std::end(settings.ssids),
                                 [](const wifi_ssid_settings &s) { return s.rebind_protection; });
    ng_uci_put("dhcp.lan_dns.rebind_protection", all);
}

void wifi_write_networks(const wifi_write &w)
{
    write_mesh_gateway(w);
    write_rebind_protection(*w.settings);
    for (int ssid = 1; ssid <= WIFI_SSIDS; ssid++) {
        write_addresses(w, ssid);
        write_portal(ssid);
        wifi_write_dns(w, ssid);
        write_smtp_redirect(w, ssid);
        write_lan_block(w.settings->ssids[ssid - 1], ssid);
        wifi_write_ap_mgr_per_ssid_config(w, ssid);
        wifi_write_acl_list_config(w, ssid);
    }
}

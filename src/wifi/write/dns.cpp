// DNS of an SSID: the node's common instance, or one of the SSID's own when its queries are
// intercepted or it has name servers of its own.
#include "wifi/write/dns.h"

#include "platform/zu/ng_uci.h"
#include "wifi/write/fields_uci.h"
#include "wifi/write/write_internal.h"

static const std::string LAN_NOTINTERFACE = "dhcp.lan_dns.notinterface";

bool change_dns_interface(ng_uci_action action, const char *iface)
{
    return ng_uci_save_action_ctx(ng_uci_change_context(), action, iface,
                                  "dhcp.lan_dns.interface") == 0;
}

static std::string ssid_bridge(int ssid)
{
    return numbered("br-ssid", ssid);
}

static std::string vlan_bridge(int ssid)
{
    return numbered("br-ssid", ssid, "_vlan");
}

/// With a relay the SSID has no DHCP section of its own.
static void put_instance(const wifi_ssid_settings &settings, int ssid, const std::string &instance)
{
    if (!settings.dhcp.relay[0])
        ng_uci_put(numbered("dhcp.ssid", ssid, ".instance"), instance.c_str());
}

static void use_common_instance(const wifi_ssid_settings &settings, int ssid)
{
    ng_uci_clear(numbered("dhcp.ssid", ssid, "_dns"));
    for (const std::string &bridge : {ssid_bridge(ssid), vlan_bridge(ssid)}) {
        (void)change_dns_interface(ng_uci_del_list, bridge.c_str());
        ng_uci_remove(LAN_NOTINTERFACE, bridge);
        if (!settings.dhcp.relay[0])
            (void)change_dns_interface(ng_uci_add_list, bridge.c_str());
    }
    put_instance(settings, ssid, "lan_dns");
}

struct fixed_option {
    const char *name;
    int value;
};

constexpr fixed_option INSTANCE_OPTIONS[] = {
    {".localise_queries", 1}, {".rebind_localhost", 1}, {".readethers", 0}, {".nonwildcard", 0},
    {".bindinterface", 1},    {".expandhosts", 1},      {".boguspriv", 0},
};

static void write_servers(const wifi_ssid_settings &settings, const std::string &instance)
{
    const std::string servers = instance + ".server";
    ng_uci_clear(servers);
    if (!settings.dns_servers[0][0])
        ng_uci_add(servers, "127.0.0.1");
    for (const char *server : settings.dns_servers) {
        if (!server[0])
            break;
        ng_uci_add(servers, server);
    }
}

/// Interfaces whose queries other instances answer.
static void write_other_interfaces(const std::string &list, int ssid)
{
    std::string lan_bridge;
    if (ng_uci_get_string(lan_bridge, "tarn_net.wired.lan_bridge") == 0)
        ng_uci_add(list, lan_bridge);
    for (const char *name : {"br-mesh_gw", "br-mesh_rp", "lo"})
        ng_uci_add(list, name);
    for (int other = 1; other <= WIFI_SSIDS; other++) {
        if (other == ssid)
            continue;
        ng_uci_add(list, ssid_bridge(other));
        // Not vlan_bridge(other): what deployed nodes have configured must not change.
        ng_uci_add(list, vlan_bridge(ssid));
    }
}

static void write_listening(const wifi_ssid_settings &settings, const std::string &instance,
                            int ssid)
{
    if (settings.bridge_to_lan) {
        ng_uci_clear(instance + ".interface");
        ng_uci_clear(instance + ".notinterface");
        ng_uci_put(instance + ".port", 1100 + ssid);
        return;
    }
    ng_uci_add(instance + ".interface", numbered("ssid", ssid));
    ng_uci_add(instance + ".interface", vlan_bridge(ssid));
    write_other_interfaces(instance + ".notinterface", ssid);
    ng_uci_clear(instance + ".port");
}

static void write_own_instance(const wifi_ssid_settings &settings, int ssid)
{
    const std::string instance = numbered("dhcp.ssid", ssid, "_dns");
    const std::string number = std::to_string(ssid);
    ng_uci_put(instance, "dnsmasq");
    for (const fixed_option &option : INSTANCE_OPTIONS)
        ng_uci_put(instance + option.name, option.value);
    ng_uci_put(instance + ".domain", ("ssid" + number).c_str());
    ng_uci_clear(instance + ".local");
    ng_uci_put(instance + ".leasefile", ("/tmp/dhcp_ssid" + number + ".leases").c_str());
    ng_uci_put(instance + ".resolvfile", ("/tmp/resolv.conf.ssid" + number).c_str());
    write_servers(settings, instance);
    write_listening(settings, instance, ssid);
}

void wifi_write_dns(const wifi_write &w, int ssid)
{
    const wifi_ssid_settings &settings = w.settings->ssids[ssid - 1];
    if (!settings.dns_intercept && !settings.dns_servers[0][0]) {
        use_common_instance(settings, ssid);
        return;
    }
    for (const std::string &bridge : {ssid_bridge(ssid), vlan_bridge(ssid)}) {
        (void)change_dns_interface(ng_uci_del_list, bridge.c_str());
        ng_uci_add(LAN_NOTINTERFACE, bridge);
    }
    put_instance(settings, ssid, numbered("ssid", ssid, "_dns"));
    write_own_instance(settings, ssid);
    fields_write(wifi_ssid_part(*w.settings, ssid, -1), "dhcp.ssid%d_dns");
}

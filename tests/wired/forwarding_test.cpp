// Forwarding rules and the captive portal's interfaces, at their edges.
#include "wifi/write/portal.h"
#include "wired/forwarding.h"
#include "wired/node_fixture.h"

namespace {

struct Forwarding : node_fixture {
    std::string enabled() const
    {
        (void)ng_uci_commit("firewall");
        return run("uci -q show firewall | sed -n \"s/^firewall\\.\\(.*wan_wired.\\)\\.enabled="
                   "'1'/\\1/p\" | paste -sd ' '")
            .output;
    }
};

} // namespace

TEST_F(Forwarding, OnlyWiredUplinksHaveRules)
{
    const std::string before = read_file("/etc/config/firewall");
    for (const char *iface : {"", "br-mesh_rp", "orph_conn0", "x"}) {
        EXPECT_TRUE(firewall_set_forwarding_rule(iface, "ssid1", true)) << iface;
        EXPECT_TRUE(firewall_set_ssid_forwarding_rule(iface, 4, true)) << iface;
    }
    (void)ng_uci_commit("firewall");
    EXPECT_EQ(read_file("/etc/config/firewall"), before);
    EXPECT_FALSE(firewall_set_forwarding_rule(nullptr, "ssid1", true));
    EXPECT_FALSE(firewall_set_forwarding_rule("wired0", nullptr, true));
    EXPECT_FALSE(firewall_set_forwarding_rule("br-wired7", "ssid1", true)) << "no such section";
    EXPECT_FALSE(firewall_set_forwarding_rule("wired0", "ssid9", true));
    EXPECT_FALSE(firewall_set_ssid_forwarding_rule("wired0", 0, true));
    EXPECT_FALSE(firewall_set_ssid_forwarding_rule("wired0", 5, true));
    EXPECT_TRUE(logged("ssid5 is out of range ssid1 thru ssid4"));
    (void)ng_uci_commit("firewall");
    EXPECT_EQ(read_file("/etc/config/firewall"), before);
}

TEST_F(Forwarding, SsidsThatAreNotRoutedAreNeverEnabledButAlwaysDisabled)
{
    run("for s in 1 2 3 4; do uci set firewall.ssid${s}wan_wired0.enabled=0; done; "
        "uci set firewall.meshwan_wired0.enabled=0; uci commit firewall");
    const struct {
        int vlan;
        bool bridged;
        const char *enabled;
    } cases[] = {
        {-1, false, "ssid1wan_wired0\n"},
        {0, false, "ssid1wan_wired0\n"},
        {1, false, "\n"},
        {4095, false, "\n"},
        {4096, false, "ssid1wan_wired0\n"},
        {-1, true, "\n"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::Message() << c.vlan << (c.bridged ? " bridged" : ""));
        gWifi_live_settings.ssids[0].vlan_tag = c.vlan;
        gWifi_live_settings.ssids[0].bridge_to_lan = c.bridged;
        EXPECT_TRUE(firewall_set_ssid_forwarding_rule("br-wired0", 1, true));
        EXPECT_EQ(enabled(), c.enabled);
        EXPECT_TRUE(firewall_set_ssid_forwarding_rule("br-wired0", 1, false));
        EXPECT_EQ(enabled(), "\n");
        run("uci set firewall.ssid1wan_wired0.enabled=0; uci commit firewall");
    }
}

TEST_F(Forwarding, WhatLeadsOutCarriesNoClients)
{
    const struct {
        uint32_t state;
        const char *bridge, *gateway, *access;
    } cases[] = {
        {WAN, "br-wired1", "eth1", "eth0 bat0.11"},
        {WAN, "", "eth0", "eth1 bat0.11"},
        {NONE, "br-lan", "eth0", "eth1 bat0.11"},
        {MESH, "br-wired1", "bat0.11", "eth0 eth1"},
        {LONELY, "", "bat0.11", ""},
    };
    gWifi_live_settings.ssids[0].bridge_to_lan = false;
    gWifi_live_settings.ssids[0].vlan_tag = -1;
    for (const auto &c : cases) {
        run("uci -q delete udshape.ssid1.accessif; for i in eth0 eth1 bat0.11; do "
            "uci add_list udshape.ssid1.accessif=$i; done; uci commit udshape");
        ng_uci_renew_change_context(); // as in a callback of its own
        stand_in(c.state, "", c.bridge);
        set_udsplash_ifaces(c.state, true, wifi_live_settings());
        EXPECT_EQ(uci("udshape.ssid1.gatewayif"), c.gateway) << c.state << c.bridge;
        EXPECT_EQ(uci("udshape.ssid1.accessif"), c.access) << c.state << c.bridge;
    }
}

TEST_F(Forwarding, ScanningRadioCarriesNoClients)
{
    for (int times = 0; times < 2; times++)
        set_udsplash_ifaces(TARN_NET_UPSTREAM_WAN_STATE, true, wifi_live_settings());
    EXPECT_EQ(uci("udsplash.ssid2.accessif"), "bat0.12 bat0.22 bat0.32 ap1_2 ap0_2");
    set_udsplash_ifaces(TARN_NET_UPSTREAM_MESH_STATE, true, wifi_live_settings());
    EXPECT_EQ(uci("udsplash.ssid2.accessif"), "");
}

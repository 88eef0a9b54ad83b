// What the node does when its upstream changes, as whole lists: commands with what stood committed
// when they ran, events, UCI values, kernel rules, LED flags. And what it does when that fails.
#include "wired/node_fixture.h"
#include "wired/wired.h"
#include "wired/wired_internal.h"

#include <malloc.h>

namespace {

constexpr uint32_t NONE = TARN_NET_UPSTREAM_NONE;
constexpr uint32_t WAN = TARN_NET_UPSTREAM_WAN_STATE;
constexpr uint32_t MESH = TARN_NET_UPSTREAM_MESH_STATE;

using lines = std::vector<std::string>;

struct UpstreamActions : node_fixture {
    void SetUp() override
    {
        node_fixture::SetUp();
        for (wifi_radio_settings &radio : gWifi_live_settings.radios)
            radio.mesh_enable = true;
        for (wifi_ssid_settings &ssid : gWifi_live_settings.ssids) {
            ssid.bridge_to_lan = false;
            ssid.vlan_tag = -1;
        }
        gWifi_live_settings.ssids[2].vlan_tag = 100;
        gWifi_live_settings.ssids[3].bridge_to_lan = true;
    }
    lines leds() const
    {
        lines on;
        for (const char *flag : {"gateway", "repeater", "network_fail", "dhcp_inet_fail"})
            if (led(flag) == "1")
                on.emplace_back(flag);
        return on;
    }
};

} // namespace

TEST_F(UpstreamActions, FirstWiredSuccess)
{
    stand_in(NONE, "", "br-wired0");
    end_cycle(WAN, "br-wired0");
    const std::string gateway = "reload_config [from all lookup 10] dns [lo br-wired0] forward ";
    const std::string forwards = "[ssid1wan_wired0 ssid2wan_wired0 meshwan_wired0]";
    EXPECT_EQ(commands(),
              (lines{"batctl gw_mode server", gateway + "[]", "/etc/init.d/orphand stop",
                     gateway + forwards, gateway + forwards}));
    EXPECT_EQ(sent_events(),
              (lines{"netconfigd.gateway_mode {\"current\":\"TARN_NET_UPSTREAM_WAN_STATE\","
                     "\"previous\":\"TARN_NET_UPSTREAM_NONE\"}",
                     "network.inet_test {\"success\":true,\"message\":\"internet test passed\"}"}));
    EXPECT_EQ(leds(), lines{"gateway"});
    const struct {
        const char *option, *value;
    } values[] = {
        {"dhcp.ssid1.ignore", "0"},
        {"dhcp.ssid4.ignore", "1"}, // bridged to the LAN
        {"dhcp.mesh_gw.ignore", "0"},
        {"firewall.ssid1_lan_cp.src", "wired0"},
        {"firewall.ssid2_cp.enabled", "1"}, // the one SSID with a portal
        {"firewall.ssid1_cp.enabled", "0"},
        {"udsplash.ssid1.accessif", "bat0.11 bat0.21 bat0.31 ap1_1 ap0_1"},
        {"udshape.ssid1.gatewayif", "eth0"},
    };
    for (const auto &v : values)
        EXPECT_EQ(uci(v.option), v.value) << v.option;
    EXPECT_EQ(run("uci changes").output, "");
}

TEST_F(UpstreamActions, WireToMeshToLonelyAndBack)
{
    stand_in(NONE, "", "br-wired1");
    end_cycle(WAN, "br-wired1");
    (void)commands();
    (void)sent_events();
    const std::string forwards = "[ssid1wan_wired1 ssid2wan_wired1 meshwan_wired1]";
    const std::string repeater =
        "reload_config [from all iif lo lookup 20] dns [br-mesh_rp] forward ";

    fail_cycles(3);
    EXPECT_EQ(commands(), (lines{"batctl gw_mode client", repeater + forwards,
                                 "/etc/init.d/orphand stop", repeater + forwards}));
    EXPECT_EQ(sent_events(), lines{});
    // The next passed cycle ends "gateway".
    EXPECT_EQ(leds(), (lines{"gateway", "repeater", "network_fail", "dhcp_inet_fail"}));
    EXPECT_EQ(uci("udshape.ssid1.gatewayif"), "bat0.11");
    EXPECT_EQ(uci("udshape.ssid3.gatewayif"), "bat0.23");
    EXPECT_EQ(uci("udshape.ssid4.gatewayif"), "bat0.34");
    EXPECT_EQ(uci("udsplash.ssid1.accessif"), "");
    EXPECT_EQ(uci("dhcp.ssid1.ignore") + uci("dhcp.mesh_gw.ignore"), "11");

    // The first success through the mesh moves forwarding away from the wire.
    end_cycle(MESH, "br-mesh_rp");
    EXPECT_EQ(commands(), (lines{"batctl gw_mode client", repeater + "[]", repeater + "[]"}));
    EXPECT_EQ(sent_events(),
              (lines{"netconfigd.gateway_mode {\"current\":\"TARN_NET_UPSTREAM_MESH_STATE\","
                     "\"previous\":\"TARN_NET_UPSTREAM_MESH_STATE\"}",
                     "network.inet_test {\"success\":true,\"message\":\"internet test passed\"}"}));
    EXPECT_EQ(leds(), lines{"repeater"});
    EXPECT_STREQ(test().uplink_iface, "br-mesh_rp");

    snprintf(gWifi_live_settings.radio_override, 8, "1.2");
    run("uci set tarn_net.local.radio_override=1.2; uci commit tarn_net");
    upstream().mesh_ready = upstream().mesh_up = true;
    fail_cycles(3);
    EXPECT_EQ(commands(), (lines{repeater + "[]", "/etc/init.d/orphand stop", repeater + "[]"}));
    EXPECT_EQ(sent_events(), lines{"network.inet_test {\"success\":false,\"message\":\"internet "
                                   "test failed\"}"});
    EXPECT_EQ(uci("tarn_net.local.radio_override"), "");
    EXPECT_FALSE(wifi_radio_override_active());
    EXPECT_TRUE(gTarn_net_state.mesh.lonely_timer.pending);
    EXPECT_NEAR(uloop_timeout_remaining64(&gTarn_net_state.mesh.lonely_timer), 500000, 5000);

    end_cycle(MESH, "br-mesh_rp");
    lines climbed = commands();
    ASSERT_GE(climbed.size(), 2u);
    EXPECT_EQ(climbed.front(), "/etc/init.d/lonely stop");
    EXPECT_FALSE(gTarn_net_state.mesh.lonely_timer.pending);
    EXPECT_EQ(test().upstream_state, MESH);
}

TEST_F(UpstreamActions, FirewallThatCannotBeCommittedIsTriedAgainByTheNextCycle)
{
    stand_in(MESH, "br-mesh_rp", "br-wired0");
    ASSERT_EQ(
        run("mount --bind /etc/config /etc/config && mount -o remount,bind,ro /etc/config").status,
        0);
    end_cycle(WAN, "br-wired0");
    EXPECT_EQ(test().upstream_state, WAN) << "the state stands, whatever failed";
    EXPECT_STREQ(test().uplink_iface, "br-mesh_rp");
    EXPECT_TRUE(logged("Failed to commit firewall config to UCI"));
    EXPECT_TRUE(logged("Failed to update the uplink interface"));
    EXPECT_EQ(run("ip rule show priority 500").output, "500:\tfrom all lookup 10\n");
    ASSERT_EQ(run("umount /etc/config").status, 0);
    (void)commands();
    end_cycle(WAN, "br-wired0");
    EXPECT_STREQ(test().uplink_iface, "br-wired0");
    EXPECT_EQ(uci("firewall.ssid1wan_wired0.enabled"), "1");
    EXPECT_EQ(commands().back(), "reload_config [from all lookup 10] dns [lo br-wired0] forward "
                                 "[ssid1wan_wired0 ssid2wan_wired0 meshwan_wired0]");
}

TEST_F(UpstreamActions, ReloadThatCannotBeCommittedStagesNothing)
{
    stand_in(WAN, "br-wired0", "br-wired0");
    gWired_taken_down = 1;
    ASSERT_EQ(
        run("mount --bind /etc/config /etc/config && mount -o remount,bind,ro /etc/config").status,
        0);
    EXPECT_EQ(wired_reload_config(nullptr, nullptr, nullptr), 0);
    gWired_taken_down = -1;
    ASSERT_EQ(run("umount /etc/config").status, 0);
    EXPECT_TRUE(logged("Failed to commit firewall config to UCI"));
    EXPECT_EQ(run("uci changes firewall").output, "");
}

TEST_F(UpstreamActions, ForwardingIsAllOrNothing)
{
    stand_in(MESH, "br-mesh_rp", "br-wired1");
    run("uci delete firewall.ssid4wan_wired1; uci set firewall.ssid1wan_wired1.enabled=0; "
        "uci commit firewall");
    gWifi_live_settings.ssids[3].bridge_to_lan = false;
    end_cycle(WAN, "br-wired1");
    EXPECT_TRUE(logged("Failed to setup firewall rules"));
    EXPECT_EQ(uci("firewall.ssid1wan_wired1.enabled"), "0");
    EXPECT_EQ(run("uci changes firewall").output, "");
    EXPECT_STREQ(test().uplink_iface, "br-mesh_rp");
}

TEST_F(UpstreamActions, FullDiskForUncommittedChanges)
{
    stand_in(NONE, "", "br-wired0");
    run("mkdir -p /tmp/.uci; mount -t tmpfs -o size=4k tmpfs /tmp/.uci; "
        "dd if=/dev/zero of=/tmp/.uci/full bs=4k count=1");
    end_cycle(WAN, "br-wired0");
    EXPECT_EQ(test().upstream_state, WAN);
    run("umount /tmp/.uci");
    end_cycle(WAN, "br-wired0");
    EXPECT_STREQ(test().uplink_iface, "br-wired0");
    EXPECT_EQ(uci("firewall.ssid1wan_wired0.enabled"), "1");
}

TEST_F(UpstreamActions, FlappingLeavesNothingBehind)
{
    debug_set_level(0);
    stand_in(NONE, "", "br-wired0");
    const auto flap = [&](int times) {
        for (int i = 0; i < times; i++) {
            end_cycle(WAN, "br-wired0");
            end_cycle(MESH, "br-mesh_rp");
        }
    };
    flap(3);
    const std::string dhcp = read_text("/etc/config/dhcp");
    const std::string portal = read_text("/etc/config/udsplash") + read_text("/etc/config/udshape");
    const auto files = open_files();
    flap(1);
    const size_t memory = mallinfo2().uordblks;
    flap(12);
    EXPECT_LE(mallinfo2().uordblks, memory + 256);
    EXPECT_EQ(run("ip rule show priority 500").output, "500:\tfrom all iif lo lookup 20\n");
    EXPECT_EQ(read_text("/etc/config/dhcp"), dhcp);
    EXPECT_EQ(read_text("/etc/config/udsplash") + read_text("/etc/config/udshape"), portal);
    EXPECT_EQ(open_files(), files);
    EXPECT_EQ(run("uci changes; ls -A /tmp/.uci | while read f; do cat /tmp/.uci/$f; done").output,
              "");
}

// What the node does when its upstream changes, as whole lists: commands with what stood committed
// when they ran, events, UCI values, kernel rules, LED flags. And what it does when that fails.
#include <algorithm>
#include <climits>
#include <fcntl.h>
#include <malloc.h>
#include <poll.h>
#include <sys/file.h>
#include <thread>

#include "mesh/gateway_facts.h"
#include "platform/zu/led.h"
#include "support/fake_interface.h"
#include "wifi/override.h"
#include "wired/bridges.h"
#include "wired/node_fixture.h"
#include "wired/upstream_internal.h"
#include "wired/wired.h"
#include "wired/wired_event.h"

namespace {

using lines = std::vector<std::string>;

constexpr char GATEWAY_FACTS[] = "gwm|02:00:00:00:00:01 gwq|255 tr|x p|1.5 tp|2.00-MB/s";

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

TEST_F(UpstreamActions, WhatNamesTheBridgeMovesWithIt)
{
    run("for b in br-wired0 br-wired1 br-ssid4; do ip link add $b type bridge; done; "
        "ip link add bat0 type veth; ip link add bat0.34 type veth");
    gWifi_live_settings.ssids[3].enable = true;
    const auto lan_bridge = [] {
        std::error_code error;
        return std::filesystem::read_symlink("/sys/class/net/bat0.34/master", error).filename();
    };
    stand_in(NONE, "", "br-wired0");
    end_cycle(WAN, "br-wired0");
    EXPECT_EQ(lan_bridge(), "br-wired0");
    // To the other one and back before a cycle has passed over it; a push has looked meanwhile.
    uplink_bridge_set("br-wired1");
    wifid_apply_bridges();
    EXPECT_EQ(lan_bridge(), "br-wired1");
    uplink_bridge_set("br-wired0");
    end_cycle(WAN, "br-wired0");
    EXPECT_EQ(lan_bridge(), "br-wired0");
    const std::string gateway = "reload_config [from all lookup 10] dns [lo br-wired1] forward ";
    const std::string forwards = "[ssid1wan_wired1 ssid2wan_wired1 meshwan_wired1]";
    snprintf(upstream().wired_uplink_bridge, 16, "br-wired1");
    (void)commands();
    end_cycle(WAN, "br-wired0"); // the cycle was under way
    EXPECT_EQ(commands(), lines{});
    end_cycle(WAN, "br-wired1");
    EXPECT_EQ(commands(), (lines{"batctl gw_mode server", gateway + forwards, gateway + forwards}));
    EXPECT_EQ(uci("udshape.ssid1.gatewayif") + " " + uci("firewall.ssid1_lan_cp.src"),
              "eth1 wired1");
    EXPECT_EQ(lan_bridge(), "br-wired1");
    // There and back before a cycle has passed over it.
    uplink_set("wired0");
    EXPECT_EQ(lan_bridge(), "br-wired0");
    snprintf(upstream().wired_uplink_bridge, 16, "br-wired1");
    (void)commands();
    end_cycle(WAN, "br-wired1");
    EXPECT_EQ(commands(), lines{gateway + forwards});
    EXPECT_EQ(lan_bridge(), "br-wired1");
    end_cycle(WAN, "br-wired1");
    EXPECT_EQ(commands(), lines{});
    // Commits that meet a lock.
    const int rivals[] = {open("/etc/config/dhcp", O_RDWR), open("/etc/config/firewall", O_RDWR)};
    for (const int rival : rivals)
        flock(rival, LOCK_SH);
    uplink_set("wired0");
    EXPECT_EQ(upstream().unmade, UPSTREAM_DHCP | UPSTREAM_FORWARDING);
    for (const int rival : rivals)
        close(rival);
    uloop_clock_virtual(true);
    uloop_clock_run_ms(1100);
    EXPECT_EQ(upstream().unmade, 0u);
    EXPECT_NE(uci("dhcp.lan_dns.interface").find("br-wired0"), std::string::npos);
    EXPECT_EQ(run("uci changes").output, "");
    // netifd makes the mesh anew and takes ports out.
    end_cycle(WAN, "br-wired0");
    run("ip link set bat0.34 nomaster; ip link del bat0; ip link add bat0 type veth");
    (void)commands();
    end_cycle(WAN, "br-wired0");
    end_cycle(WAN, "br-wired0");
    EXPECT_EQ(commands(), lines{"batctl gw_mode server"});
    EXPECT_EQ(lan_bridge(), "");
    uloop_clock_run_ms(60000);
    EXPECT_EQ(lan_bridge(), "br-wired0");
    // What the wired settings' reload finds elsewhere; and without a wire.
    run("ip link set bat0.34 nomaster");
    gWired_taken_down = 0;
    EXPECT_EQ(wired_reload_config(nullptr, nullptr, nullptr), 0);
    gWired_taken_down = -1;
    EXPECT_EQ(lan_bridge(), "br-wired0");
    fail_cycles(3);
    EXPECT_EQ(lan_bridge(), "br-ssid4");
    run("for i in br-wired0 br-wired1 br-ssid4 bat0 bat0.34; do ip link del $i; done");
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
    uloop_clock_virtual(true); // which stands still
    fail_cycles(3);
    EXPECT_EQ(uloop_timeout_remaining64(&gTarn_net_state.mesh.lonely_timer), 500000);
    uloop_clock_virtual(false);
    EXPECT_EQ(commands(), (lines{repeater + "[]", "/etc/init.d/orphand stop", repeater + "[]"}));
    EXPECT_EQ(sent_events(), lines{"network.inet_test {\"success\":false,\"message\":\"internet "
                                   "test failed\"}"});
    EXPECT_EQ(uci("tarn_net.local.radio_override"), "");
    EXPECT_FALSE(wifi_radio_override_active());
    EXPECT_TRUE(gTarn_net_state.mesh.lonely_timer.pending);

    run("uci set wireless.ap0_1.config_enable=1; uci set wireless.ap0_1.enable=0; "
        "uci commit wireless; mkdir -p /var/sim/exit/etc/init.d");
    end_cycle(MESH, "br-mesh_rp");
    EXPECT_EQ(uci("wireless.ap0_1.enable"), "1") << "what the scan switched off";
    lines climbed = commands();
    ASSERT_GE(climbed.size(), 2u);
    EXPECT_EQ(climbed.front(), "/etc/init.d/lonely stop");
    EXPECT_FALSE(gTarn_net_state.mesh.lonely_timer.pending);
    EXPECT_EQ(test().upstream_state, MESH);

    // A scan that does not stop is stopped again, unless it is wanted meanwhile.
    stand_in(LONELY, "br-mesh_rp", "br-wired1");
    write_file("/var/sim/exit/etc/init.d/lonely", "1\n");
    end_cycle(MESH, "br-mesh_rp");
    EXPECT_EQ(upstream().unmade, UPSTREAM_STOP_LONELY);
    upstream().mesh_ready = upstream().mesh_up = true;
    fail_cycles(3);
    EXPECT_EQ(test().upstream_state, LONELY);
    EXPECT_EQ(upstream().unmade, 0u);
}

TEST_F(UpstreamActions, NoSuccessBetweenWireAndWire)
{
    stand_in(NONE, "", "br-wired1");
    end_cycle(WAN, "br-wired1");
    const std::string dns = uci("dhcp.lan_dns.interface").substr(sizeof "lo");
    const auto rules = [] {
        return run("uci show firewall | grep -E \"_lan_cp.src|wan_wired1.enabled\"").output;
    };
    const std::string before = rules();
    for (uint32_t state : {MESH, LONELY, WAN}) {
        (void)mesh_gateway_facts_parse(&gTarn_net_state.mesh.gateway, GATEWAY_FACTS);
        update_led_flag("low_mesh_speed", true);
        upstream().mesh_ready = upstream().mesh_up = true;
        if (state != WAN) {
            fail_cycles(3);
        } else { // the cable is plugged in again
            uplink_set("wired1");
            EXPECT_NE(rules(), before) << "a lonely node forwards nothing";
            EXPECT_EQ(leds(), (lines{"gateway", "repeater", "network_fail", "dhcp_inet_fail"}));
            end_cycle(WAN, "br-wired1");
        }
        EXPECT_EQ(test().upstream_state, state);
        EXPECT_EQ(gTarn_net_state.mesh.gateway.mac, nullptr) << "they are of another upstream";
        EXPECT_EQ(led("low_mesh_speed"), "0");
        const std::string others = dns.substr(0, dns.rfind(' '));
        EXPECT_EQ(uci("dhcp.lan_dns.interface"), state != WAN ? others + " br-mesh_rp" : dns);
        test().test_failures = 0;
    }
    EXPECT_EQ(rules(), before);
    EXPECT_EQ(leds(), lines{"gateway"});
    EXPECT_EQ(run("ip rule show priority 500").output, "500:\tfrom all lookup 10\n");
    EXPECT_STREQ(test().uplink_iface, "br-wired1");

    // Forwarding met a lock, and the wire is lost once more before that is made up for.
    stand_in(LONELY, "br-wired1", "br-wired1");
    uplink_set("wired1");
    const int rival = open("/etc/config/firewall", O_RDWR);
    flock(rival, LOCK_SH);
    end_cycle(WAN, "br-wired1");
    close(rival);
    EXPECT_NE(rules(), before);
    fail_cycles(3);
    end_cycle(WAN, "br-wired1");
    EXPECT_EQ(rules(), before);
}

TEST_F(UpstreamActions, WhatFailsOfASwitchIsSaidOnceAndItAloneIsRepeated)
{
    const struct {
        const char *what;
        const char *locked; ///< this package is, or:
        const char *spoil, *mend;
        uint32_t unmade;
        const char *tried; ///< command of each try; null: none gets that far
        lines made;        ///< commands when it succeeds
    } rows[] = {
        {"forwarding cannot be committed",
         "firewall",
         ":",
         ":",
         UPSTREAM_FIREWALL | UPSTREAM_FORWARDING,
         nullptr,
         {"reload_config", "reload_config"}},
        {"DHCP is locked", "dhcp", ":", ":", UPSTREAM_DHCP, nullptr, {"reload_config"}},
        {"a change cannot be made, the commit can",
         nullptr,
         "uci delete dhcp.mesh_gw; uci commit dhcp",
         "uci set dhcp.mesh_gw=dhcp; uci commit dhcp",
         UPSTREAM_DHCP,
         nullptr,
         {"reload_config"}},
        {"the shaper is locked", "udshape", ":", ":", UPSTREAM_PORTAL, nullptr, {"reload_config"}},
        {"the portal does not parse",
         nullptr,
         "echo \"config x 'y\" >>/etc/config/udsplash",
         "cp /tmp/config/udsplash /etc/config",
         UPSTREAM_FIREWALL | UPSTREAM_PORTAL,
         nullptr,
         {"reload_config"}},
        {"reload_config fails",
         nullptr,
         "mkdir -p /var/sim/exit; echo 1 >/var/sim/exit/reload_config",
         "rm -r /var/sim/exit",
         UPSTREAM_RELOAD,
         "reload_config",
         {"reload_config"}},
        {"batctl fails",
         nullptr,
         "mkdir -p /var/sim/exit; echo 1 >/var/sim/exit/batctl",
         "rm -r /var/sim/exit",
         UPSTREAM_GW_MODE,
         "batctl gw_mode server",
         {"batctl gw_mode server"}},
    };
    const auto names = [] { // without what stood committed
        lines all = commands();
        for (std::string &line : all)
            line.erase(std::min(line.find(" ["), line.size()));
        return all;
    };
    const auto faults_said = [this] { return logged(" ERROR: ") + logged(" WARNING: "); };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.what);
        TearDown();
        SetUp();
        debug_set_level(ZU_LOG_INFO);
        stand_in(MESH, "br-mesh_rp", "br-wired0");
        run(row.spoil);
        const int rival =
            row.locked ? open((std::string("/etc/config/") + row.locked).c_str(), O_RDWR) : -1;
        flock(rival, LOCK_SH); // who commits waits, who reads does not
        end_cycle(WAN, "br-wired0");
        EXPECT_EQ(test().upstream_state, WAN) << "the state stands, whatever failed";
        EXPECT_EQ(upstream().unmade, row.unmade);
        EXPECT_EQ(run("ip rule show priority 500").output, "500:\tfrom all lookup 10\n");
        const int said = faults_said();
        EXPECT_GT(said, 0);
        (void)names();
        for (int i = 0; i < 3; i++)
            end_cycle(WAN, "br-wired0");
        EXPECT_EQ(names(), lines{}) << "a passed cycle does not repeat the switch";
        uloop_clock_virtual(true);
        uloop_clock_run_ms(250000); // 1, 3, 7, 15, 31, 63, 123, 183 and 243 s after it
        EXPECT_EQ(names(), row.tried ? lines(9, row.tried) : lines{});
        EXPECT_EQ(faults_said(), said);
        run(row.mend);
        close(rival);
        uloop_clock_run_ms(60000);
        EXPECT_EQ(upstream().unmade, 0u);
        EXPECT_EQ(names(), row.made);
        uloop_clock_run_ms(100000);
        EXPECT_EQ(names(), lines{});
        EXPECT_STREQ(test().uplink_iface, "br-wired0");
        for (const auto &[option, value] :
             {std::pair{"firewall.ssid1wan_wired0.enabled", "1"},
              {"firewall.ssid2_cp.enabled", "1"},
              {"dhcp.mesh_gw.ignore", "0"},
              {"dhcp.ssid1.ignore", "0"},
              {"udsplash.ssid1.accessif", "bat0.11 bat0.21 bat0.31 ap1_1 ap0_1"},
              {"udshape.ssid1.gatewayif", "eth0"}})
            EXPECT_EQ(uci(option), value) << option;
        EXPECT_NE((uci("dhcp.lan_dns.interface") + " ").find(" br-wired0 "), std::string::npos);
    }
}

TEST_F(UpstreamActions, ReloadThatCannotBeCommittedStagesNothingAndIsRepeated)
{
    run("uci set firewall.ssid1wan_wired0.enabled=0; uci commit firewall");
    stand_in(WAN, "br-wired0", "br-wired0");
    gWired_taken_down = 1;
    ASSERT_EQ(
        run("mount --bind /etc/config /etc/config && mount -o remount,bind,ro /etc/config").status,
        0);
    EXPECT_EQ(wired_reload_config(nullptr, nullptr, nullptr), 0);
    ASSERT_EQ(run("umount /etc/config").status, 0);
    EXPECT_TRUE(logged("Failed to commit firewall config to UCI"));
    EXPECT_EQ(run("uci changes firewall").output, "");
    uloop_clock_virtual(true);
    uloop_clock_run_ms(1100);
    EXPECT_EQ(uci("firewall.ssid1wan_wired0.enabled"), "1");

    stand_in(NONE, "", "br-wired0");
    EXPECT_EQ(wired_reload_config(nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(upstream().unmade, 0u) << "what cannot succeed is not repeated";
    gWired_taken_down = -1;
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
    upstream_take_back(UPSTREAM_FORWARDING); // as what meets a lock meanwhile does
    EXPECT_STREQ(upstream().forwarding_to, "br-wired1");
    fail_cycles(3);
    EXPECT_EQ(test().upstream_state, MESH);
    EXPECT_EQ(upstream().unmade, 0u) << "nothing is to be moved any more";
    stand_in(WAN, "br-wired1", "br-wired1");
    uplink_set("wired1");
    EXPECT_EQ(upstream().unmade, UPSTREAM_FORWARDING) << "said, and made when it can be";
}

TEST_F(UpstreamActions, PortThatYieldedIsBroughtUpWhenTheOtherOneFailsUntilThatIsDone)
{
    gUbus_ctx = daemon;
    stand_in(WAN, "br-wired0", "br-wired0");
    const json_message plugged(R"({"interface":"wired1","action":"ifup"})");
    EXPECT_EQ(wired_event(daemon, nullptr, nullptr, nullptr, plugged.head), 0);
    const auto asked = [this] { return logged("bringing wired0 up again"); };
    fail_cycles(2);
    end_cycle(WAN, "br-wired1");
    fail_cycles(2);
    EXPECT_EQ(asked(), 0) << "in a row, that is";
    fail_cycles(1);
    EXPECT_EQ(asked(), 1);
    gUbus_ctx = nullptr;
    for (int i = 0; i < 3; i++) // the bus is away, and the mesh is no reason to leave the port down
        end_cycle(MESH, "br-mesh_rp");
    EXPECT_EQ(asked(), 2);
    gUbus_ctx = daemon;
    ubus_context *other = ubus_connect(socket_path.c_str());
    {
        fake_interface netifd(other, "network.interface", "{}");
        std::thread answering([&] {
            pollfd bus = {other->sock.fd, POLLIN, 0};
            while (netifd.called.size() < 2 && poll(&bus, 1, 10000) > 0)
                ubus_handle_event(other);
        });
        for (int i = 0; i < 6; i++)
            end_cycle(MESH, "br-mesh_rp");
        answering.join();
        EXPECT_EQ(netifd.called,
                  (lines{R"(down {"interface":"wired0"})", R"(up {"interface":"wired0"})"}));
    }
    EXPECT_EQ(asked(), 3) << "it has been done";
    ubus_free(other);
    gUbus_ctx = nullptr;
    gWired_taken_down = -1;
}

TEST_F(UpstreamActions, WhatWasMadeOfSettingsThatWereNotReadYetIsMadeAgain)
{
    const int rival = open("/etc/config/wireless", O_RDWR);
    ASSERT_EQ(flock(rival, LOCK_EX), 0);
    ng_uci_renew_change_context();
    (void)wifi_reload_config(true);
    stand_in(NONE, "", "br-wired0");
    end_cycle(WAN, "br-wired0");
    EXPECT_EQ(upstream().unmade,
              UPSTREAM_DHCP | UPSTREAM_FIREWALL | UPSTREAM_PORTAL | UPSTREAM_FORWARDING);
    close(rival);
    uloop_clock_virtual(true);
    uloop_clock_run_ms(4000);
    EXPECT_EQ(upstream().unmade, 0u);
}

TEST_F(UpstreamActions, EarlierLifesLeftoversEndWhenTheStateIsKnown)
{
    run("/etc/init.d/lonely start; uci set firewall.ssid1wan_wired1.enabled=1; uci commit "
        "firewall");
    stand_in(NONE, "", "br-wired0");
    end_cycle(WAN, "br-wired0");
    const lines ran = commands();
    EXPECT_EQ(std::count(ran.begin(), ran.end(), "/etc/init.d/lonely stop"), 1);
    EXPECT_EQ(uci("firewall.ssid1wan_wired1.enabled"), "0");

    // An override whose deletion meets a lock is deleted later.
    run("uci set tarn_net.local.radio_override=1.2; uci commit tarn_net");
    stand_in(MESH, "br-mesh_rp", "br-wired0");
    upstream().mesh_ready = upstream().mesh_up = true;
    const int rival = open("/etc/config/tarn_net", O_RDWR);
    ASSERT_EQ(flock(rival, LOCK_EX), 0);
    fail_cycles(3);
    EXPECT_EQ(upstream().unmade, UPSTREAM_OVERRIDE);
    close(rival);
    uloop_clock_virtual(true);
    uloop_clock_run_ms(1100);
    EXPECT_EQ(uci("tarn_net.local.radio_override"), "");
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
    const std::string dhcp = read_file("/etc/config/dhcp");
    const std::string portal = read_file("/etc/config/udsplash") + read_file("/etc/config/udshape");
    const auto files = open_files();
    flap(1);
    // The allocator keeps some of what was freed; a leak costs memory every time.
    long growth = LONG_MAX;
    for (int round = 0; round < 4; round++) {
        const auto memory = static_cast<long>(mallinfo2().uordblks);
        flap(3);
        growth = std::min(growth, static_cast<long>(mallinfo2().uordblks) - memory);
    }
    EXPECT_LE(growth, 0);
    EXPECT_EQ(run("ip rule show priority 500").output, "500:\tfrom all iif lo lookup 20\n");
    EXPECT_EQ(read_file("/etc/config/dhcp"), dhcp);
    EXPECT_EQ(read_file("/etc/config/udsplash") + read_file("/etc/config/udshape"), portal);
    EXPECT_EQ(open_files(), files);
    EXPECT_EQ(run("uci changes; ls -A /tmp/.uci | while read f; do cat /tmp/.uci/$f; done").output,
              "");
}

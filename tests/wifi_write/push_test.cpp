// A push as one change: what is written, what is not, and what stands in its way.
#include <fcntl.h>
#include <memory>
#include <sys/file.h>
#include <sys/inotify.h>

#include "support/file_calls.h"
#include "wifi/settings/fields.h"
#include "writer_fixture.h"

namespace {

/// Counts what happens to the configuration's files.
class config_watch {
public:
    config_watch() : fd_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC))
    {
        EXPECT_GE(inotify_add_watch(fd_, "/etc/config",
                                    IN_CREATE | IN_DELETE | IN_MODIFY | IN_MOVE | IN_ATTRIB),
                  0);
        (void)inotify_add_watch(fd_, "/tmp/.uci", IN_CREATE | IN_DELETE | IN_MODIFY | IN_MOVE);
    }
    ~config_watch() { close(fd_); }
    config_watch(const config_watch &) = delete;
    config_watch &operator=(const config_watch &) = delete;

    /// The names of files that others were renamed to, each with a blank; "?" for another event
    /// than of a file made anew beside it.
    std::string renamed()
    {
        std::string names;
        alignas(inotify_event) char buffer[65536];
        for (ssize_t got; (got = read(fd_, buffer, sizeof buffer)) > 0;)
            for (char *at = buffer; at < buffer + got;) {
                const auto *event = reinterpret_cast<inotify_event *>(at);
                if (event->mask & IN_MOVED_TO)
                    names += std::string(event->name) + " ";
                else if (event->name[0] != '.')
                    names += std::string("?") + event->name + " ";
                at += sizeof(inotify_event) + event->len;
            }
        return names;
    }

private:
    int fd_;
};

using Pushed = writer_fixture;

} // namespace

TEST_F(Pushed, AgainWritesNothing)
{
    for (const char *name : {"home", "office", "guest_portal", "mesh_repeater", "limits"}) {
        gFile_calls = {};
        ASSERT_EQ(push(json_message(example(name)).head), 0) << name;
        EXPECT_GT(gFile_calls.fsyncs, 0) << name;
        confirm(true);
        (void)ubus_wifi_end_delayed_wireless(nullptr, nullptr, nullptr, nullptr, nullptr);
        ASSERT_EQ(push(json_message(example(name)).head), 0)
            << name; // after the uplink test's changes
        run("rm -f /var/log/journal");
        config_watch watch;
        gFile_calls = {};
        ASSERT_EQ(push(json_message(example(name)).head), 0) << name;
        EXPECT_EQ(watch.renamed(), "") << name;
        EXPECT_EQ(gFile_calls.renames, 0) << name;
        EXPECT_EQ(gFile_calls.fsyncs, 0) << name;
        EXPECT_EQ(journal("reload_config"), 0) << name;
    }
}

TEST_F(Pushed, WritesOnlyPackagesThatChangeEachOnceAndReloadsOnce)
{
    ASSERT_EQ(push(json_message(example("home")).head), 0);
    run("rm -f /var/log/journal");
    config_watch watch;
    ASSERT_EQ(push(R"({"scanning_period":77})"), 0);
    EXPECT_EQ(watch.renamed(), "u80211d ");
    ASSERT_EQ(push(R"({"ssids":[{"index":1,"lan_block":true}]})"), 0);
    EXPECT_EQ(watch.renamed(), "firewall ");
    EXPECT_EQ(journal("reload_config"), 2);
    all_packages_quiet();
}

TEST_F(Pushed, WhileAnotherProcessHoldsALockIsRefusedAndChangesNothing)
{
    ASSERT_EQ(push(json_message(example("home")).head), 0);
    const std::string before = everything(), configured = run("uci export").output;
    const int fd = open("/etc/config/tarn_net", O_RDWR);
    ASSERT_EQ(flock(fd, LOCK_EX), 0);
    EXPECT_EQ(push(json_message(example("office")).head), 2);
    close(fd);
    EXPECT_EQ(logged("/etc/config/tarn_net is locked by another process"), 1);
    EXPECT_EQ(everything(), before);
    EXPECT_EQ(run("uci export").output, configured);
    EXPECT_EQ(push(json_message(example("office")).head), 0);
}

TEST_F(Pushed, WhatTheDeviceDoesNotHaveIsPassedOver)
{
    run("cd /etc/config; rm u80211d prequestd igmpproxy evlog ap_mgr udsplash udshape fw_core "
        "tarn_net");
    restart();
    for (int i = 0; i < 2; i++) {
        ASSERT_EQ(push(json_message(example("home")).head), 0);
        EXPECT_EQ(logged("NOTICE: There is no package"), 8) << "each is said once";
    }
    EXPECT_EQ(logged("ERROR"), 0);
    EXPECT_EQ(uci("wireless.ap0_1.ssid"), "Maple Street 12");
    EXPECT_EQ(uci("tarn_net.local.outdoor"), "0") << "our own is made";
    const std::string before = everything();
    restart();
    EXPECT_EQ(everything(), before);
    run("uci -q delete tarn_net.local; uci commit tarn_net");
    restart();
    ASSERT_EQ(push(R"({"lonely_friend":true})"), 0);
    EXPECT_EQ(uci("tarn_net.local.override_reason"), "lonely");
}

TEST_F(Pushed, FilesInTmpAreNotLedAstrayByLinks)
{
    run("rm -f /tmp/cp-hosts*; "
        "mkdir -p /tmp/there; echo precious >/tmp/there/file; ln -s /tmp/there/file "
        "/tmp/cp-hosts1; "
        "ln /tmp/there/file /tmp/cp-hosts2; ln -s /tmp/there/new /tmp/cp-hosts3; "
        "for i in $(seq 0 50); do ln -s /tmp/there/file /tmp/wifi-delayed-$(($(cut -d. -f1 "
        "/proc/uptime) + i)); done");
    ASSERT_EQ(push(R"({"delayed_settings":true,"radios":[{"band":"5GHz","enable":true,
        "channel":48,"mesh_enable":true}]})"),
              0);
    EXPECT_EQ(read_file("/tmp/there/file"), "precious\n");
    EXPECT_NE(access("/tmp/there/new", F_OK), 0);
    EXPECT_EQ(read_file("/tmp/cp-hosts1"), "10.255.108.1 logout\n10.255.108.1 nimbracp\n");
    EXPECT_EQ(read_file("/tmp/cp-hosts2"), "10.255.104.1 logout\n10.255.104.1 nimbracp\n");
    EXPECT_EQ(
        atoi(run("find /tmp -maxdepth 1 -name 'wifi-delayed-*' -type f | wc -l").output.c_str()),
        1);
    run("rm -rf /tmp/there");
}

TEST_F(Pushed, FollowsVlansRelaysAndTheUpstream)
{
    const struct {
        int vlan;
        const char *role;
    } vlans[] = {{1, "relay"}, {4095, "relay"}, {0, "server"}, {4096, "server"}, {-1, "server"}};
    for (const auto &v : vlans) {
        ASSERT_EQ(push(R"({"ssids":[{"index":2,"vlan_tag":)" + std::to_string(v.vlan) + "}]}"), 0);
        EXPECT_EQ(uci("dhcp.ssid2.dhcpv6"), v.role) << v.vlan;
        EXPECT_EQ(uci("dhcp.ssid2.ra"), v.role) << v.vlan;
    }
    EXPECT_EQ(uci("dhcp.ssid1.ignore"), "1");
    gTarn_net_state.inet_test.upstream_state = TARN_NET_UPSTREAM_WAN_STATE;
    ASSERT_EQ(push(R"({"ssids":[{"index":1,"bridge_to_lan":false},
        {"index":2,"bridge_to_lan":true}]})"),
              0);
    EXPECT_EQ(uci("dhcp.ssid1.ignore"), "0");
    EXPECT_EQ(uci("dhcp.ssid2.ignore"), "1");

    const std::string relay = R"({"ssids":[{"index":3,"dhcp":{"enable":true,"gateway_ip":"10.9.8.1",
        "netmask":"255.255.255.0","relay":"10.0.0.67","start":5,"num_leases":6,"lease_length":"7h"}}]})";
    for (int i = 0; i < 2; i++) { // the second finds the section gone
        ASSERT_EQ(push(relay), 0);
        EXPECT_EQ(uci("dhcp.ssid3"), "");
        EXPECT_EQ(uci("dhcp.relay_ssid3.server_addr"), "10.0.0.67");
        EXPECT_NE(uci("firewall.wired1.masq_src").find("10.9.8.1/24"), std::string::npos);
        EXPECT_EQ(uci("dhcp.lan_dns.interface"),
                  "lo br-mesh_gw br-ssid1 br-ssid1_vlan br-ssid2 br-ssid2_vlan br-ssid4 "
                  "br-ssid4_vlan");
        EXPECT_EQ(logged("ERROR"), 0);
    }
    ASSERT_EQ(push(R"({"ssids":[{"index":3,"dhcp":{"enable":false}}]})"), 0);
    EXPECT_EQ(uci("dhcp.relay_ssid3"), "");
    EXPECT_EQ(uci("dhcp.ssid3.limit"), "1000");
    EXPECT_EQ(uci("dhcp.ssid3.instance"), "lan_dns");
}

TEST_F(Pushed, MakesAndUnmakesOptionsInTurn)
{
    // Each document follows the one before; an option that is not there is "".
    const struct {
        const char *params;
        std::vector<std::pair<const char *, const char *>> options;
    } turns[] = {
        {R"({"delayed_settings":false,"ssids":[{"index":1,"dns_intercept":true}]})",
         {{"dhcp.ssid1_dns.server", "127.0.0.1"},
          {"dhcp.ssid1_dns.interface", "ssid1 br-ssid1_vlan"},
          {"dhcp.ssid1_dns.notinterface",
           "br-office br-wired1 br-mesh_gw br-mesh_rp lo br-ssid2 br-ssid3 br-ssid4 br-ssid1_vlan"},
          {"dhcp.ssid1_dns.port", ""},
          {"dhcp.ssid1.instance", "ssid1_dns"},
          {"dhcp.lan_dns.interface", "lo br-mesh_gw br-ssid2 br-ssid2_vlan br-ssid3 br-ssid3_vlan "
                                     "br-ssid4 br-ssid4_vlan"},
          {"dhcp.lan_dns.notinterface", "br-ssid1 br-ssid1_vlan"}}},
        {R"({"ssids":[{"index":1,"bridge_to_lan":true}]})",
         {{"dhcp.ssid1_dns.interface", ""},
          {"dhcp.ssid1_dns.notinterface", ""},
          {"dhcp.ssid1_dns.port", "1101"}}},
        {R"({"ssids":[{"index":1,"bridge_to_lan":false}]})",
         {{"dhcp.ssid1_dns.interface", "ssid1 br-ssid1_vlan"}, {"dhcp.ssid1_dns.port", ""}}},
        {R"({"ssids":[{"index":1,"bridge_to_lan":false,"dns_intercept":false}]})",
         {{"dhcp.ssid1_dns", ""},
          {"dhcp.ssid1.instance", "lan_dns"},
          {"dhcp.lan_dns.interface", "lo br-mesh_gw br-ssid1 br-ssid1_vlan br-ssid2 br-ssid2_vlan "
                                     "br-ssid3 br-ssid3_vlan br-ssid4 br-ssid4_vlan"},
          {"dhcp.lan_dns.notinterface", ""}}},
        {R"({"radios":[{"band":"2.4GHz","disable_lower_rates":1}],"ssids":[{"index":2,"enc":"wpa3",
            "roaming_domain":"4f57","roaming_key":"k","lan_block":true,"smtp_redirect":"10.0.0.25",
            "access_control_list":["02:00:00:00:00:01","02:00:00:00:00:02","02:00:00:00:00:03"]}]})",
         {{"wireless.radio0.basic_rate", "24000"},
          {"wireless.mesh0.mesh_basic_rates", "24000"},
          {"wireless.ap0_2.mcast_rate", "24000"},
          {"wireless.ap1_2.mcast_rate", ""},
          {"wireless.ap0_2.ieee80211w_mgmt_cipher", "BIP-GMAC-256"},
          {"wireless.ap0_2.ft_over_ds", "0"},
          {"wireless.ap0_2.ft_auth_bridge", "br-ssid2"},
          {"wireless.ap0_2.macfilter", "allow"},
          {"firewall.ssid2wired1.src", "wired1"},
          {"firewall.ssid2wired1.dest", ""},
          {"firewall.ssid2smtp.dest_ip", "10.0.0.25"}}},
        {R"({"ssids":[{"index":2,"enable":false,"access_control_list":["02:00:00:00:00:03",
            "02:00:00:00:00:04","02:00:00:00:00:02"]}]})",
         {{"wireless.ap0_2.maclist", "02:00:00:00:00:02 02:00:00:00:00:03 02:00:00:00:00:04"},
          {"wireless.ap1_2.maclist", "02:00:00:00:00:02 02:00:00:00:00:03 02:00:00:00:00:04"}}},
        {R"({"ssids":[{"index":2,"access_control_list":[]}]})",
         {{"wireless.ap0_2.macfilter", ""}, {"wireless.ap0_2.maclist", ""}}},
        {R"({"radios":[{"band":"2.4GHz","disable_lower_rates":3}],"ssids":[{"index":2,"enable":true,
            "enc":"psk2","roaming_domain":"","roaming_key":"","lan_block":false,"smtp_redirect":"",
            "access_control_list":[]}]})",
         {{"wireless.radio0.supported_rates", ""},
          {"wireless.radio0.basic_rate", ""},
          {"wireless.mesh0.mesh_basic_rates", ""},
          {"wireless.ap0_2.mcast_rate", ""},
          {"wireless.ap0_2.ieee80211w_mgmt_cipher", ""},
          {"wireless.ap0_2.ft_over_ds", "1"},
          {"wireless.ap0_2.ieee80211r", "0"},
          {"wireless.ap0_2.ft_auth_bridge", ""},
          {"wireless.ap0_2.r0kh", ""},
          {"wireless.ap0_2.r1kh", ""},
          {"wireless.ap0_2.macfilter", ""},
          {"wireless.ap0_2.maclist", ""},
          {"firewall.ssid2wired1", ""},
          {"firewall.ssid2smtp", ""}}},
        {R"({"save_orphans":[],"radios":[{"band":"5GHz","mode":"VHT160"},
            {"band":"2.4GHz","enable":false,"txpower":3,"mesh_enable":true}]})",
         {{"wireless.mesh1.config_enable", "1"},
          {"wireless.mesh1.enable", "0"},
          {"wireless.orphan1.enable", "1"},
          {"wireless.radio0.enable", "0"},
          {"wireless.ap0_2.config_enable", "0"},
          {"wireless.mesh0.config_enable", "0"},
          {"wireless.mesh0.enable", "0"},
          {"network.mesh0", ""},
          {"wireless.radio0.txpower", "17"}, // off, it gets nothing more
          {"wireless.orphan0.enable", "0"},
          {"prequestd.prequestd.interface", "ap1_1"}}},
        {R"({"node_id":-1})",
         {{"network.mesh_gw.ipaddr", "10.72.204.1"},
          {"network.ssid1.ipaddr", "10.72.200.1"},
          {"firewall.ssid1_cp.src_dip", "10.72.200.1"},
          {"fw_core.local.node_id", "-1"},
          {"wireless.orphan1.enable", "0"}}},
    };
    run("uci set tarn_net.wired=wired; uci set tarn_net.wired.lan_bridge=br-wired1; "
        "uci set dhcp.ssid1_dns=dnsmasq; uci add_list dhcp.ssid1_dns.notinterface=br-office; "
        "uci commit");
    run("mkdir -p /var/sim/exit/etc/init.d; echo 3 >/var/sim/exit/etc/init.d/orphand");
    (void)ng_uci_renew_change_context();
    for (const auto &turn : turns) {
        ASSERT_EQ(push(turn.params), 0) << turn.params;
        for (const auto &[name, value] : turn.options)
            EXPECT_EQ(uci(name), value) << name << " after " << turn.params;
    }
    EXPECT_EQ(journal("/etc/init.d/orphand start"), 1);
    EXPECT_EQ(logged("WARNING: orphand exited with rc 3"), 1);
    EXPECT_EQ(journal("/etc/init.d/orphand stop"), 1);
    EXPECT_EQ(logged("WARNING: Disabling mesh1 due to DFS radio channel"), 2);
    EXPECT_EQ(logged("NOTICE: No valid ACL for ssid 1"), 8) << "counted from 0";
    EXPECT_EQ(logged("ERROR"), 0);
}

TEST_F(Pushed, OnAPlatformWithoutDfsScanningOrAddress)
{
    const std::string platform = read_file("/etc/tarn/platform.json");
    write_file("/etc/tarn/platform.json", R"({"wireless":{"num_radios":2,"dfs_support":false,
        "scanning_support":false,"wifi_radios":[{"band":"2.4GHz"},{"band":"5GHz"}]}})");
    platform_detect();
    EXPECT_EQ(push(R"({"delayed_settings":false,"node_id":-1,"regulatory":{"dfs":{"enable":true,
        "channels":[52]}},"radios":[{"band":"5GHz","channel":52,"mode":"VHT160"}]})"),
              0);
    write_file("/etc/tarn/platform.json", platform);
    EXPECT_EQ(uci("wireless.mesh1.enable"), "1");
    EXPECT_EQ(uci("wireless.radio1.dfs_enable"), "0");
    EXPECT_EQ(uci("u80211d.global.scan_ap_force"), "1");
    EXPECT_EQ(uci("network.mesh_gw.ipaddr"), "10.252.252.1");
    EXPECT_EQ(logged("Platform data has no management mac member"), 1);
}

TEST_F(Pushed, ForwardingToTheWireFollowsVlanAndBridging)
{
    strcpy(gTarn_net_state.inet_test.uplink_iface, "br-wired1");
    constexpr uint32_t WAN = TARN_NET_UPSTREAM_WAN_STATE, MESH = TARN_NET_UPSTREAM_MESH_STATE;
    const struct {
        uint32_t state;
        bool ended;
        const char *member, *enabled;
    } cases[] = {{WAN, false, R"("vlan_tag":30)", "0"},
                 {WAN, false, R"("vlan_tag":-1)", "1"},
                 {MESH, false, R"("bridge_to_lan":true)", "0"}, // not reached yet
                 {MESH, false, R"("bridge_to_lan":false)", "1"},
                 {WAN, false, R"("vlan_tag":30)", "0"},
                 {TARN_NET_LONELY_ORPHAN_STATE, true, R"("vlan_tag":-1)", "0"}};
    for (const auto &c : cases) {
        gTarn_net_state.inet_test.upstream_state = c.state;
        gTarn_net_state.upstream.forwarding_ended = c.ended;
        ASSERT_EQ(push(std::string(R"({"ssids":[{"index":3,)") + c.member + "}]}"), 0);
        EXPECT_EQ(uci("firewall.ssid3wan_wired1.enabled"), c.enabled) << c.member;
    }
}

TEST_F(Pushed, AddressesOfAnSsidAreWrittenFromAddressesOnly)
{
    const struct {
        const char *gateway, *netmask, *ipaddr, *masquerade;
        int refused;
    } cases[] = {
        {"10.9.8.1", "255.255.255.0", "10.9.8.1", " 10.9.8.1/24", 0},
        {"10.9.8.1", "0.0.0.0", "10.9.8.1", "", 0},
        {"10.9.8.1", "24", "10.9.8.1", "", 1},
        {"300.9.8.1", "255.255.255.0", "", "", 1},
        {"", "", "", "", 0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.gateway);
        log.clear();
        ASSERT_EQ(push(std::string(R"({"ssids":[{"index":4,"dhcp":{"enable":true,"gateway_ip":")") +
                       c.gateway + R"(","netmask":")" + c.netmask + "\"}}]}"),
                  0);
        EXPECT_EQ(uci("network.ssid4.ipaddr"), c.ipaddr);
        EXPECT_EQ(uci("firewall.ssid4_cp.src_dip"), c.ipaddr);
        EXPECT_EQ(access("/tmp/cp-hosts4", F_OK), *c.ipaddr ? 0 : -1);
        const std::string masquerade = uci("firewall.wired1.masq_src");
        EXPECT_EQ(std::count(masquerade.begin(), masquerade.end(), '/'), *c.masquerade ? 5 : 4);
        EXPECT_NE(masquerade.find(c.masquerade), std::string::npos);
        EXPECT_EQ(logged("is no IPv4 address"), c.refused);
        EXPECT_STREQ(wifi_live_settings()->ssids[3].dhcp.gateway_ip, c.gateway) << "as pushed";
    }
}

TEST_F(Pushed, LeavesAnSsidThatNoDocumentConfiguredOnItsRadiosAlone)
{
    run("for i in ap0_1 ap0_2; do uci set wireless.$i.auth_port=7; done; uci commit wireless");
    (void)ng_uci_renew_change_context();
    ASSERT_EQ(push(R"({"ssids":[{"index":1,"radius_port":1}]})"), 0);
    EXPECT_EQ(uci("wireless.ap0_1.auth_port") + " " + uci("wireless.ap0_2.auth_port"), "1 7");
    EXPECT_EQ(uci("prequestd.prequestd.interface"), "ap0_1 ap1_1");
}

/// Sets what rows say is written as it is; nothing but the rows knows these settings.
static void set_all(std::span<const wifi_field> rows, void *part)
{
    for (const wifi_field &row : rows)
        if (row.option && row.stage != FOREIGN)
            field_store(row, static_cast<char *>(part), {"1"});
}

TEST_F(Pushed, SaysInAnOptionWhatTheRowsSayIsWritten)
{
    auto settings = std::make_unique<wifi_settings>(*wifi_live_settings());
    wifi_ssid_settings &ssid = settings->ssids[0];
    set_all(NODE_FIELDS, settings.get());
    set_all(SSID_FIELDS, &ssid);
    set_all(DHCP_FIELDS, &ssid.dhcp);
    ssid.dhcp.relay[0] = '\0'; // or it has no leases of its own
    ssid.configured = true;
    for (wifi_radio_settings &radio : settings->radios)
        set_all(RADIO_FIELDS, &radio);
    ASSERT_EQ(wifid_write_config(settings.get()), 0);
    const std::string kept = run("uci show tarn_net").output;
    const auto expect_none = [&kept](const std::string &section, std::span<const wifi_field> rows) {
        for (const wifi_field &row : rows) {
            const bool is_kept = kept.find(section + "." + row.name + "=") != kept.npos;
            EXPECT_FALSE(is_kept && row.option && row.use == PLAIN) << row.name;
        }
    };
    expect_none("tarn_net.settings", NODE_FIELDS);
    expect_none("tarn_net.settings_ssid1", SSID_FIELDS);
    expect_none("tarn_net.settings_ssid1", DHCP_FIELDS);
    expect_none("tarn_net.settings_radio1", RADIO_FIELDS);
}

TEST_F(Pushed, MovesTheMeshInterfacesOfItsSsids)
{
    run("ip link add br-ssid1 type bridge; ip link add br-ssid1_vlan type bridge; "
        "ip link add bat0 type veth; ip link add bat0.11 type veth; ip link add bat0.21 type veth");
    for (const char *vlan : {"-1", "40"}) {
        ASSERT_EQ(
            push(std::string(R"({"ssids":[{"index":1,"enable":true,"vlan_tag":)") + vlan + "}]}"),
            0);
        EXPECT_EQ(*vlan == '-' ? "bat0.11 in br-ssid1\n" : "bat0.21 in br-ssid1_vlan\n",
                  run("cd /sys/class/net; for i in bat0.?1; do [ ! -e $i/master ] || "
                      "echo $i in $(basename $(readlink $i/master)); done")
                      .output);
    }
    run("for i in br-ssid1 br-ssid1_vlan bat0 bat0.11 bat0.21; do ip link del $i; done");
}

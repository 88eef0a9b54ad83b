// A push as one change: what is written, what is not, and what stands in its way.
#include "writer_fixture.h"

#include <chrono>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/inotify.h>

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

using pushed = writer_fixture;

} // namespace

TEST_F(pushed, AgainWritesNothing)
{
    for (const char *name : {"home", "office", "guest_portal", "mesh_repeater", "limits"}) {
        ASSERT_EQ(0, push(message(example(name)).head)) << name;
        confirm(true);
        (void)ubus_wifi_end_delayed_wireless(nullptr, nullptr, nullptr, nullptr, nullptr);
        ASSERT_EQ(0, push(message(example(name)).head)) << name; // after the uplink test's changes
        run("rm -f /var/log/journal");
        config_watch watch;
        ASSERT_EQ(0, push(message(example(name)).head)) << name;
        EXPECT_EQ("", watch.renamed()) << name;
        EXPECT_EQ(0, journal("reload_config")) << name;
    }
}

TEST_F(pushed, WritesOnlyPackagesThatChangeEachOnceAndReloadsOnce)
{
    ASSERT_EQ(0, push(message(example("home")).head));
    run("rm -f /var/log/journal");
    config_watch watch;
    ASSERT_EQ(0, push(R"({"scanning_period":77})"));
    EXPECT_EQ("u80211d ", watch.renamed());
    ASSERT_EQ(0, push(R"({"ssids":[{"index":1,"lan_block":true}]})"));
    EXPECT_EQ("firewall ", watch.renamed());
    EXPECT_EQ(2, journal("reload_config"));
    all_packages_quiet();
}

TEST_F(pushed, WhileAnotherProcessHoldsALockIsRefusedSoonAndChangesNothing)
{
    ASSERT_EQ(0, push(message(example("home")).head));
    const std::string before = everything(), configured = run("uci export").output;
    const int fd = open("/etc/config/tarn_net", O_RDWR);
    ASSERT_EQ(0, flock(fd, LOCK_EX));
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(2, push(message(example("office")).head));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(150));
    close(fd);
    EXPECT_EQ(1, logged("/etc/config/tarn_net is locked by another process"));
    EXPECT_EQ(before, everything());
    EXPECT_EQ(configured, run("uci export").output);
    EXPECT_EQ(0, push(message(example("office")).head));
}

TEST_F(pushed, FilesInTmpAreNotLedAstrayByLinks)
{
    run("mkdir -p /tmp/there; echo precious >/tmp/there/file; ln -s /tmp/there/file "
        "/tmp/cp-hosts1; "
        "ln /tmp/there/file /tmp/cp-hosts2; ln -s /tmp/there/new /tmp/cp-hosts3; "
        "for i in $(seq 0 50); do ln -s /tmp/there/file /tmp/wifi-delayed-$(($(cut -d. -f1 "
        "/proc/uptime) + i)); done");
    ASSERT_EQ(0, push(R"({"delayed_settings":true,"radios":[{"band":"5GHz","enable":true,
        "channel":48,"mesh_enable":true}]})"));
    EXPECT_EQ("precious\n", read_file("/tmp/there/file"));
    EXPECT_NE(0, access("/tmp/there/new", F_OK));
    EXPECT_EQ("10.255.108.1 logout\n10.255.108.1 nimbracp\n", read_file("/tmp/cp-hosts1"));
    EXPECT_EQ("10.255.104.1 logout\n10.255.104.1 nimbracp\n", read_file("/tmp/cp-hosts2"));
    EXPECT_EQ(
        1,
        atoi(run("find /tmp -maxdepth 1 -name 'wifi-delayed-*' -type f | wc -l").output.c_str()));
    run("rm -rf /tmp/there");
}

TEST_F(pushed, FollowsVlansRelaysAndTheUpstream)
{
    const struct {
        int vlan;
        const char *role;
    } vlans[] = {{1, "relay"}, {4095, "relay"}, {0, "server"}, {4096, "server"}, {-1, "server"}};
    for (const auto &v : vlans) {
        ASSERT_EQ(0, push(R"({"ssids":[{"index":2,"vlan_tag":)" + std::to_string(v.vlan) + "}]}"));
        EXPECT_EQ(v.role, uci("dhcp.ssid2.dhcpv6")) << v.vlan;
        EXPECT_EQ(v.role, uci("dhcp.ssid2.ra")) << v.vlan;
    }
    EXPECT_EQ("1", uci("dhcp.ssid1.ignore"));
    gTarn_net_state.inet_test.upstream_state = TARN_NET_UPSTREAM_WAN_STATE;
    ASSERT_EQ(0, push(R"({"ssids":[{"index":1,"bridge_to_lan":false},
        {"index":2,"bridge_to_lan":true}]})"));
    EXPECT_EQ("0", uci("dhcp.ssid1.ignore"));
    EXPECT_EQ("1", uci("dhcp.ssid2.ignore"));

    const std::string relay = R"({"ssids":[{"index":3,"dhcp":{"enable":true,"gateway_ip":"10.9.8.1",
        "netmask":"255.255.255.0","relay":"10.0.0.67","start":5,"num_leases":6,"lease_length":"7h"}}]})";
    for (int i = 0; i < 2; i++) { // the second finds the section gone
        ASSERT_EQ(0, push(relay));
        EXPECT_EQ("", uci("dhcp.ssid3"));
        EXPECT_EQ("10.0.0.67", uci("dhcp.relay_ssid3.server_addr"));
        EXPECT_NE(std::string::npos, uci("firewall.wired1.masq_src").find("10.9.8.1/24"));
        EXPECT_EQ(0, logged("ERROR"));
    }
    ASSERT_EQ(0, push(R"({"ssids":[{"index":3,"dhcp":{"enable":false}}]})"));
    EXPECT_EQ("", uci("dhcp.relay_ssid3"));
    EXPECT_EQ("1000", uci("dhcp.ssid3.limit"));
    EXPECT_EQ("lan_dns", uci("dhcp.ssid3.instance"));
}

TEST_F(pushed, KeepsEverythingOffUntilPowerIsNegotiated)
{
    const std::string document = R"({"delayed_settings":false,"radios":[{"band":"2.4GHz",
        "enable":true,"channel":6,"mesh_enable":true},{"band":"5GHz","enable":true,"channel":52,
        "mode":"VHT80","mesh_enable":true}],"ssids":[{"index":1,"enable":true},{"index":2,
        "enable":false},{"index":3,"enable":true},{"index":4,"enable":true}]})";
    const std::vector<std::string> interfaces = {"ap0_1", "ap0_2", "ap0_3", "ap0_4", "ap1_1",
                                                 "ap1_2", "ap1_3", "ap1_4", "mesh0", "mesh1"};
    const auto options = [&](const char *option) {
        std::string all;
        for (const std::string &name : interfaces)
            all += uci("wireless." + name + "." + option);
        return all;
    };
    run("echo 0 >/sys/class/gpio/dc_detect/value; "
        "echo \"wireless._lldp='state'\nwireless._lldp.negotiation_complete='0'\" "
        ">/var/state/wireless");
    ASSERT_EQ(0, push(document));
    EXPECT_EQ("1011101111", options("config_enable"));
    EXPECT_EQ("0000000000", options("enable"));
    wifi_restore_config_enabled_interfaces(true);
    (void)ng_uci_renew_change_context();
    EXPECT_EQ("0000000000", options("enable")) << "too early";

    run("echo \"wireless._lldp.negotiation_complete='1'\" >>/var/state/wireless");
    wifi_restore_config_enabled_interfaces(true);
    (void)ng_uci_renew_change_context();
    EXPECT_EQ("1011101110", options("enable")) << "all but the mesh on a DFS channel";
    EXPECT_EQ("1011101111", options("config_enable"));

    run("echo 1 >/sys/class/gpio/dc_detect/value; "
        "echo \"wireless._lldp.negotiation_complete='0'\" >>/var/state/wireless");
    ASSERT_EQ(0, push(document));
    EXPECT_EQ("1011101110", options("enable")) << "power enough without negotiation";
    EXPECT_EQ(0, logged("ERROR"));
}

// The daemon on the bus: what it publishes, which neighbours it follows, what it does for a port.
#include <fcntl.h>
#include <filesystem>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include "core/daemon_fixture.h"

namespace {

struct Daemon : daemon_fixture {
    static std::string status(const char *device, const char *address)
    {
        return std::string(R"({"up":true,"device":")") + device +
               R"(","route":[{"target":"0.0.0.0","mask":0,"nexthop":"10.0.0.1","source":")" +
               address + R"(/24"}]})";
    }
};

} // namespace

TEST_F(Daemon, PublishesItsMethodsInOrder)
{
    EXPECT_EQ(run("ubus -v list 'qnet.*' | sed 's/ @.*//'").output,
              "'qnet.wifi'\n"
              "\t\"parse_config\":{\"params\":\"Table\"}\n"
              "\t\"reload_config\":{\"package\":\"String\"}\n"
              "\t\"set_debug_level\":{\"level\":\"Integer\"}\n"
              "\t\"gen_checkin\":{\"checkin_type\":\"String\",\"verbose\":\"Boolean\"}\n"
              "\t\"health_check\":{}\n"
              "\t\"dump_state\":{\"include_secrets\":\"Boolean\"}\n"
              "\t\"end_delayed_wireless\":{}\n"
              "\t\"ap_scan_now\":{\"checkin_after_scan\":\"Boolean\"}\n"
              "\t\"ap_survey_now\":{}\n"
              "\t\"force_wifi_restart\":{}\n"
              "'qnet.wired'\n"
              "\t\"parse_config\":{\"params\":\"Table\"}\n"
              "\t\"reload_config\":{\"package\":\"String\"}\n"
              "\t\"set_debug_level\":{\"level\":\"Integer\"}\n"
              "\t\"gen_checkin\":{\"checkin_type\":\"String\",\"verbose\":\"Boolean\"}\n"
              "\t\"health_check\":{}\n"
              "\t\"dump_state\":{\"include_secrets\":\"Boolean\"}\n"
              "\t\"wired_event\":{\"interface\":\"String\",\"action\":\"String\"}\n"
              "\t\"debug\":{\"enable\":\"Integer\"}\n");
}

TEST_F(Daemon, OnlyTheFirstStartWithoutArgumentsTouchesTheNode)
{
    run("uci set firewall.meshwan_wired0.enabled=1; uci commit firewall");
    const auto traces = [] {
        return run("uci export firewall; cat /var/log/journal; ls /tmp /var/run").output;
    };
    const std::string before = traces();
    const struct {
        const char *arguments;
        int status;
        const char *says;
    } cases[] = {
        {"--version 2>/dev/null", 0, "tarn_net 0."},
        {"--help 2>/dev/null", 0, "usage: tarn_net "},
        {"--help now >/dev/null", 2, "usage: tarn_net "},
        {"-d >/dev/null", 2, "usage: tarn_net "},
        {"'' >/dev/null", 2, "usage: tarn_net "},
        {">/dev/null", 1, "tarn_net: another one runs"},
    };
    for (const auto &c : cases) {
        const outcome ended = run("timeout 5 tarn_net " + std::string(c.arguments));
        EXPECT_EQ(ended.status, c.status) << c.arguments;
        EXPECT_EQ(ended.output.find(c.says), 0u) << c.arguments << ": " << ended.output;
    }
    EXPECT_EQ(traces(), before);
    EXPECT_EQ(run("sed 's/.* \\[\\([0-9]*\\)\\] .*/\\1/' /tmp/debug_tarn_net.log | sort -u").output,
              std::to_string(tarn_net->pid()) + "\n");
    // Its end makes room for the next one, however it ended.
    tarn_net->end(SIGKILL);
    start_daemon();
    EXPECT_EQ(uci("firewall.meshwan_wired0.enabled"), "0") << "it has no upstream yet";
}

TEST_F(Daemon, WhatItOpensStaysItsOwnAndWhatItWritesIsNobodyElsesToChange)
{
    tarn_net->end(SIGTERM);
    run("mkdir -p /tmp/bin; printf '#!/bin/sh\\nls -l /proc/$$/fd >>/tmp/inherited\\n' "
        ">/tmp/bin/reload_config; chmod +x /tmp/bin/reload_config; touch /tmp/started");
    run("uci set tarn_net.debug.debug_level=many; uci commit tarn_net"); // it says so
    const int system_log = socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK, 0);
    const sockaddr_un address = {AF_UNIX, "/dev/log"};
    ASSERT_EQ(bind(system_log, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    const std::string path = getenv("PATH");
    setenv("PATH", ("/tmp/bin:" + path).c_str(), 1);
    const mode_t mask = umask(0); // a careless starter's
    start_daemon();
    umask(mask);
    setenv("PATH", path.c_str(), 1);
    EXPECT_EQ(call("qnet.wired", "parse_config", R"({"params":{"igmp_proxy":true}})").status, 0);

    const std::string process = "/proc/" + std::to_string(tarn_net->pid());
    int closing = 0;
    for (const auto &open : std::filesystem::directory_iterator(process + "/fdinfo")) {
        const int fd = std::stoi(open.path().filename());
        const std::string text = read_file(open.path());
        const long flags = std::stol(text.substr(text.find("flags:") + 6), nullptr, 8);
        EXPECT_TRUE(fd <= 2 || (flags & O_CLOEXEC)) << fd;
        closing += fd > 2;
    }
    EXPECT_GE(closing, 5) << "lock, log, bus, loop and timer at least";
    const std::string inherited = read_file("/tmp/inherited");
    EXPECT_NE(inherited.find(" 1 -> /tmp/inherited"), std::string::npos) << inherited;
    EXPECT_EQ(inherited.find("socket:"), std::string::npos) << inherited;
    char line[1024] = "";
    EXPECT_GT(recv(system_log, line, sizeof line - 1, 0), 0);
    EXPECT_NE(std::string(line).find("is not a log level"), std::string::npos) << line;
    close(system_log);
    unlink(address.sun_path);
    EXPECT_EQ(
        run("find /tmp /var/ /etc /run/ -newer /tmp/started -perm /022 ! -type l ! -type d").output,
        "");
}

TEST_F(Daemon, NegotiationThatEndedUnheardSwitchesTheRadiosOn)
{
    run("uci set wireless.ap0_1.enable=0; uci commit wireless");
    fake_interface lldp(daemon, "qnet.lldp", "{}");
    run_until([] { return uci("wireless.ap0_1.enable") == "1"; });
    run("uci set wireless.ap0_1.enable=0; uci commit wireless"); // and one that is heard of
    ubus_notify(daemon, &lldp, "lldp_negotiation_complete", json_message("{}").head, -1);
    run_until([] { return uci("wireless.ap0_1.enable") == "1"; });
}

TEST_F(Daemon, ForcedRestartForgetsWhatTheRadiosWereSetUpWith)
{
    const auto state = [] { return run("uci -P /var/state -q show wireless._phy1").output; };
    run("uci -P /var/state set wireless._phy1=phy; uci -P /var/state set wireless._phy1.md5=1; "
        "uci -P /var/state set wireless._phy1.md5_mesh1=2; uci -P /var/state set "
        "wireless._phy1.x=3");
    EXPECT_EQ(call("qnet.wifi", "force_wifi_restart").status, 9) << "nobody restarts them";
    EXPECT_EQ(logged("ERROR: Failed to lookup UBUS ID for 'service'"), 1);
    EXPECT_EQ(state(), "wireless._phy1=phy\nwireless._phy1.x='3'\n");
    fake_interface service(daemon, "service", "{}");
    service.methods_[0].name = "event";
    EXPECT_EQ(call("qnet.wifi", "force_wifi_restart").status, 0);
    run_until([&] { return !service.called.empty(); });
    EXPECT_EQ(service.called[0], R"(event {"type":"config.change","data":{"package":"wireless"}})");
}

TEST_F(Daemon, FollowsInterfacesThatComeAndGo)
{
    const struct {
        const char *path;
        bool followed;
    } paths[] = {
        {"network.interface.wired0", true},     {"network.interface.wired_x", true},
        {"network.interface.mesh_rp", true},    {"network.interface.mesh_rp2", false},
        {"network.interface.orph_conn7", true}, {"network.interface.lan", false},
        {"network.interface", false},
    };
    std::vector<std::unique_ptr<fake_interface>> objects;
    for (int round = 0; round < 2; round++) { // the second time with new ids
        for (const auto &p : paths)
            objects.push_back(
                std::make_unique<fake_interface>(daemon, p.path, status("br-x", "10.0.0.7")));
        run_until([&] { return objects[4]->asked == 1; });
        settle();
        for (size_t i = 0; i < objects.size(); i++) {
            EXPECT_EQ(follows(paths[i].path), paths[i].followed ? 1 : 0) << paths[i].path;
            EXPECT_EQ(objects[i]->asked, paths[i].followed ? 1 : 0) << paths[i].path;
        }
        objects[0]->notify(R"({"up":false,"device":"br-y"})");
        run_until(
            [&] { return state_holds(R"("device":"br-y","up":false,"default_route":false)"); });
        objects.clear();
        run_until([&] { return state_holds(R"("wired":[],"mesh":[])"); });
    }
}

TEST_F(Daemon, InterfaceThatVanishesTakesItsQuestionWithIt)
{
    auto wired = std::make_unique<fake_interface>(daemon, "network.interface.wired0", "{}");
    wired->answers = false;
    run_until([&] { return wired->asked == 1; });
    wired.reset();
    run_until([&] { return follows("network.interface.wired0") == 0; });
    wired = std::make_unique<fake_interface>(daemon, "network.interface.wired0",
                                             status("br-wired0", "10.0.0.7"));
    run_until([&] { return state_holds("\"address\":\"10.0.0.7\""); });
    EXPECT_EQ(follows("network.interface.wired0"), 1);
    EXPECT_TRUE(state_holds(R"("wired_uplink_bridge":"br-wired0")"));
}

TEST_F(Daemon, CablePluggedIntoTheOtherPort)
{
    fake_interface manager(daemon, "network.interface", "{}");
    event_log beats(stranger, "network.linkbeat");
    for (const char *refused :
         {R"({"interface":"wired0","action":"ifdown"})",
          R"({"interface":"wired00","action":"ifup"})", R"({"interface":"wired7","action":"ifup"})",
          R"({"interface":"wired;","action":"ifup"})"})
        EXPECT_EQ(call("qnet.wired", "wired_event", refused).status, 0) << refused;
    EXPECT_EQ(call("qnet.wired", "wired_event", R"({"interface":"wired0"})").status, 2);
    EXPECT_EQ(manager.called, std::vector<std::string>{});
    EXPECT_TRUE(state_holds(R"("wired_uplink_bridge":"")"));
    const std::string ports[] = {"wired0", "wired1"};
    for (int port = 0; port < 2; port++) {
        manager.called.clear();
        EXPECT_EQ(call("qnet.wired", "wired_event",
                       R"({"interface":")" + ports[port] + R"(","action":"ifup"})")
                      .status,
                  0);
        EXPECT_EQ(manager.called,
                  std::vector<std::string>{R"(down {"interface":")" + ports[1 - port] + "\"}"});
        EXPECT_TRUE(state_holds(R"("wired_uplink_bridge":"br-)" + ports[port] + "\""));
    }
    settle();
    EXPECT_FALSE(state_holds("\"make_up\"")) << "without an upstream there is nothing to repeat";
    ASSERT_EQ(beats.all.size(), 2u);
    EXPECT_EQ(beats.all[1].document, R"({"interface":"wired1","found":true})");
    const std::string dns = " " + uci("dhcp.lan_dns.interface") + " ";
    EXPECT_NE(dns.find(" br-wired1 "), std::string::npos) << dns;
    EXPECT_EQ(dns.find(" br-wired0 "), std::string::npos) << dns;
    EXPECT_EQ(call("qnet.wired", "reload_config").status, 0);
}

TEST_F(Daemon, NetifdThatHangsHoldsAPortUpForHalfASecond)
{
    fake_interface manager(stranger, "network.interface", "{}");
    manager.methods_[2].handler = [](ubus_context *ctx, ubus_object *, ubus_request_data *req,
                                     const char *, blob_attr *) {
        ubus_request_data deferred;
        ubus_defer_request(ctx, req, &deferred);
        return 0;
    };
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(call("qnet.wired", "wired_event", R"({"interface":"wired0","action":"ifup"})").status,
              0);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(450));
    EXPECT_EQ(logged("failed to bring wired1 down"), 1);
}

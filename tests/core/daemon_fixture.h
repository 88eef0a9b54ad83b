// The daemon itself as a child on a simulated root; this process plays its neighbours on the bus.
#pragma once

#include <algorithm>
#include <map>
#include <set>

#include "support/bus_fixture.h"
#include "support/fake_interface.h"
#include "support/node.h"
#include "support/program.h"
#include "support/run.h"
#include "support/temporary_directory.h"

struct daemon_fixture : bus_fixture {
    std::optional<program> tarn_net;

    daemon_fixture() { socket_path = "/var/run/ubus/ubus.sock"; }
    void SetUp() override
    {
        begin_anew();
        run("mkdir -p /var/run/ubus; rm -f /var/run/ubus/ubus.sock /tmp/debug_tarn_net.log*; "
            "uci set tarn_net.debug.debug_level=5; uci commit tarn_net");
        bus_fixture::SetUp();
        start_daemon();
    }
    void TearDown() override
    {
        tarn_net.reset();
        bus_fixture::TearDown();
    }
    void start_daemon()
    {
        tarn_net.emplace(std::vector<std::string>{"tarn_net"});
        wait_for_daemon(0);
    }
    /// After `connections` of the past: everything stands again and the daemon is in its loop.
    void wait_for_daemon(int connections)
    {
        run_until([&] { return has_connected() > connections; });
        run_until([&] {
            uint32_t id;
            return ubus_lookup_id(stranger, "qnet.wifi", &id) == 0;
        });
        EXPECT_EQ(call("qnet.wifi", "set_debug_level", R"({"level":5})").status, 0);
    }
    static int has_connected() { return logged("Connected to UBUS"); }
    /// Lets go of the connections of this process and makes new ones.
    void reconnect()
    {
        for (ubus_context **ctx : {&stranger, &daemon}) {
            ubus_free(*ctx);
            *ctx = nullptr;
            run_until([&] { return (*ctx = ubus_connect(socket_path.c_str())) != nullptr; });
            ubus_add_uloop(*ctx);
        }
    }

    static std::string log() { return read_file("/tmp/debug_tarn_net.log"); }
    static int logged(const std::string &text) { return occurrences(log(), text); }
    std::string state() { return call("qnet.wired", "dump_state").document; }
    bool state_holds(const std::string &text) { return state().find(text) != std::string::npos; }
    int follows(const std::string &path)
    {
        return occurrences(state(), "\"path\":\"" + path + "\"");
    }
    int open_files() const
    {
        return std::stoi(run("ls /proc/" + std::to_string(tarn_net->pid()) + "/fd | wc -l").output);
    }
};

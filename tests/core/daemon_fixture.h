// The daemon itself as a child on a simulated root; this process plays its neighbours on the bus.
#pragma once

#include <algorithm>
#include <map>
#include <set>

#include "sim/programs.h"
#include "support/bus_fixture.h"

/// An object of netifd: answers "status" with what it is told to, or never.
struct fake_interface : ubus_object {
    std::string path, status;
    bool answers = true;
    int asked = 0;
    ubus_context *bus;
    ubus_method methods_[3] = {};
    ubus_object_type type_ = {};
    std::vector<std::string> called;

    fake_interface(ubus_context *ctx, const std::string &object_path, const std::string &json)
        : ubus_object{}, path(object_path), status(json), bus(ctx)
    {
        for (int i = 0; i < 3; i++)
            methods_[i] = {.name = (const char *[]){"status", "up", "down"}[i],
                           .handler = call,
                           .mask = 0,
                           .tags = 0,
                           .policy = nullptr,
                           .n_policy = 0};
        type_ = {path.c_str(), 0, methods_, 3};
        name = path.c_str();
        type = &type_;
        methods = methods_;
        n_methods = 3;
        EXPECT_EQ(ubus_add_object(bus, this), 0) << path;
    }
    ~fake_interface() { leave(); }
    fake_interface(const fake_interface &) = delete;
    fake_interface &operator=(const fake_interface &) = delete;
    void leave()
    {
        if (id != 0)
            ubus_remove_object(bus, this);
    }
    void notify(const std::string &json)
    {
        ubus_notify(bus, this, "interface.update", json_message(json).head, -1);
    }

private:
    static int call(ubus_context *ctx, ubus_object *self, ubus_request_data *req,
                    const char *method, blob_attr *msg)
    {
        auto *iface = static_cast<fake_interface *>(self);
        iface->called.push_back(std::string(method) + " " + zu_blobmsg_json(msg, true).get());
        if (strcmp(method, "status") != 0)
            return 0;
        iface->asked++;
        if (!iface->answers) {
            ubus_request_data deferred;
            ubus_defer_request(ctx, req, &deferred);
            return 0;
        }
        ubus_send_reply(ctx, req, json_message(iface->status).head);
        return 0;
    }
};

struct daemon_fixture : bus_fixture {
    std::optional<program> tarn_net;

    daemon_fixture() { socket_path = "/var/run/ubus/ubus.sock"; }
    void SetUp() override
    {
        run("mkdir -p /var/run/ubus; rm -rf /var/run/ubus/ubus.sock /tmp/.uci "
            "/tmp/debug_tarn_net.log*; "
            "[ -d /tmp/config ] || cp -R /etc/config /tmp/config; cp /tmp/config/* /etc/config/; "
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
    void broker_start()
    {
        broker = fork();
        if (broker == 0) {
            execl(UBUSD_PROGRAM, "ubusd", "-s", socket_path.c_str(), nullptr);
            _exit(127);
        }
        run_until([&] { return access(socket_path.c_str(), F_OK) == 0; });
    }
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

    static std::string log() { return read_text("/tmp/debug_tarn_net.log"); }
    static int logged(const std::string &text)
    {
        int found = 0;
        const std::string all = log();
        for (size_t at = 0; (at = all.find(text, at)) != std::string::npos; at++)
            found++;
        return found;
    }
    std::string state() { return call("qnet.wired", "dump_state").document; }
    bool state_holds(const std::string &text) { return state().find(text) != std::string::npos; }
    int follows(const std::string &path)
    {
        int found = 0;
        const std::string all = state();
        const std::string needle = "\"path\":\"" + path + "\"";
        for (size_t at = 0; (at = all.find(needle, at)) != std::string::npos; at++)
            found++;
        return found;
    }
    int open_files() const
    {
        return std::stoi(run("ls /proc/" + std::to_string(tarn_net->pid()) + "/fd | wc -l").output);
    }
};

// A broker of its own, and two connections to it on one loop: the daemon's and that of another
// program.
#pragma once

#include <chrono>
#include <csignal>
#include <functional>
#include <gtest/gtest.h>
#include <libubus.h>
#include <optional>
#include <sys/wait.h>
#include <vector>

#include "platform/zu/event.h"
#include "support/json_message.h"
#include "support/temporary_directory.h"

/// What a call came back with; no document: "".
struct answer {
    int status;
    std::string document;
};

struct received_event {
    std::string type, document;
};

struct bus_fixture : testing::Test {
    temporary_directory directory;
    std::string socket_path = directory / "ubus.sock";
    pid_t broker = -1;
    ubus_context *daemon = nullptr;
    ubus_context *stranger = nullptr;

    void SetUp() override
    {
        uloop_init();
        broker_start();
        daemon = connect();
        stranger = connect();
        zu_event_set_context(daemon);
    }
    void TearDown() override
    {
        zu_event_set_context(nullptr);
        for (ubus_context *ctx : {stranger, daemon})
            if (ctx)
                ubus_free(ctx);
        broker_stop();
        uloop_done();
    }
    void broker_start()
    {
        broker = fork();
        if (broker == 0) {
            execl(UBUSD_PROGRAM, "ubusd", "-s", socket_path.c_str(), nullptr);
            _exit(127);
        }
        run_until([&] { return access(socket_path.c_str(), F_OK) == 0; });
    }
    void broker_stop()
    {
        if (broker > 0) {
            kill(broker, SIGTERM);
            waitpid(broker, nullptr, 0);
        }
        broker = -1;
    }

    /// Runs the loop until `done`, at most 10 s.
    static void run_until(const std::function<bool()> &done)
    {
        const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (!done()) {
            if (std::chrono::steady_clock::now() > limit) {
                ADD_FAILURE() << "nothing happened for 10 s";
                return;
            }
            uloop_run_timeout(5);
        }
    }
    /// Runs the loop until everything sent so far has been handled: a call goes to the broker and
    /// back on both connections, and what was queued before it arrives before it.
    void settle()
    {
        uint32_t id;
        for (int i = 0; i < 2; i++)
            for (ubus_context *ctx : {daemon, stranger}) {
                (void)ubus_lookup_id(ctx, "no.such.object", &id);
                for (int round = 0; round < 5; round++)
                    uloop_run_timeout(2);
            }
    }

    answer call(const char *object, const char *method, blob_attr *message)
    {
        struct waiting : ubus_request {
            std::optional<int> status;
            std::string document;
        } request = {};
        uint32_t id = 0;
        const int found = ubus_lookup_id(stranger, object, &id);
        EXPECT_EQ(found, 0) << object;
        EXPECT_EQ(ubus_invoke_async(stranger, id, method, message, &request), 0);
        request.data_cb = [](ubus_request *req, int, blob_attr *data) {
            static_cast<waiting *>(req)->document += zu_blobmsg_json(data, true).get();
        };
        request.complete_cb = [](ubus_request *req, int status) {
            static_cast<waiting *>(req)->status = status;
        };
        ubus_complete_request_async(stranger, &request);
        run_until([&] { return request.status.has_value(); });
        if (!request.status)
            ubus_abort_request(stranger, &request);
        return {request.status.value_or(-1), request.document};
    }
    answer call(const char *object, const char *method, const std::string &json = "{}")
    {
        return call(object, method, json_message(json).head);
    }
    void send_event(const char *type, const std::string &json)
    {
        EXPECT_EQ(ubus_send_event(stranger, type, json_message(json).head), 0);
    }

private:
    ubus_context *connect()
    {
        ubus_context *ctx = nullptr;
        run_until([&] { return (ctx = ubus_connect(socket_path.c_str())) != nullptr; });
        if (ctx)
            ubus_add_uloop(ctx);
        return ctx;
    }
};

/// Remembers the events that the other program hears.
struct event_log : ubus_event_handler {
    std::vector<received_event> all;

    explicit event_log(ubus_context *ctx, const char *pattern) : ubus_event_handler{}
    {
        cb = [](ubus_context *, ubus_event_handler *self, const char *type, blob_attr *message) {
            static_cast<event_log *>(self)->all.push_back(
                {type, zu_blobmsg_json(message, true).get()});
        };
        EXPECT_EQ(ubus_register_event_handler(ctx, this, pattern), 0);
    }
};

// A curl context on the loop, transfers that remember what they reported, and loopback listeners.
#pragma once

#include "platform/zu/uloop_curl.h"
#include "support/open_descriptors.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <chrono>
#include <memory>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

/// A TCP socket on 127.0.0.1; connections complete without being accepted.
struct listener {
    int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    uint16_t port = 0;

    explicit listener(int backlog = 1024)
    {
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        EXPECT_EQ(bind(fd, reinterpret_cast<sockaddr *>(&address), size), 0);
        if (backlog >= 0) {
            EXPECT_EQ(listen(fd, backlog), 0);
        }
        getsockname(fd, reinterpret_cast<sockaddr *>(&address), &size);
        port = ntohs(address.sin_port);
    }
    ~listener() { close(fd); }
    listener(const listener &) = delete;
    listener &operator=(const listener &) = delete;

    std::string url(const char *scheme = "http://") const
    {
        return scheme + ("127.0.0.1:" + std::to_string(port));
    }
};

struct transfer : uloop_curl_easy {
    int reports = 0;
    void (*then)(transfer *) = nullptr; ///< what its callback does besides counting
    void *priv = nullptr;

    transfer() : uloop_curl_easy{}
    {
        cb = [](uloop_curl_easy *ended) {
            auto *self = static_cast<transfer *>(ended);
            self->reports++;
            if (self->then)
                self->then(self);
        };
    }
    ~transfer() { uloop_curl_easy_destroy(this); }
    transfer(const transfer &) = delete;
    transfer &operator=(const transfer &) = delete;

    void start(uloop_curl_context &on, const std::string &url, long connect_timeout_ms = 1500)
    {
        ASSERT_EQ(uloop_curl_easy_create(&on, this), 0);
        curl_easy_setopt(easy, CURLOPT_URL, url.c_str());
        curl_easy_setopt(easy, CURLOPT_CONNECTTIMEOUT_MS, connect_timeout_ms);
        curl_easy_setopt(easy, CURLOPT_CONNECT_ONLY, 1L);
        curl_easy_setopt(easy, CURLOPT_SSL_VERIFYPEER, 0L); // the sandbox has no certificates
        ASSERT_EQ(uloop_curl_easy_start(this), 0);
        EXPECT_EQ(reports, 0);
    }
};

struct curl_fixture : testing::Test {
    uloop_curl_context context = {};

    void SetUp() override
    {
        uloop_init();
        ASSERT_EQ(uloop_curl_init(&context), 0);
    }
    void TearDown() override
    {
        uloop_curl_cleanup(&context);
        uloop_done();
    }

    /// Runs the loop until `done`; gives the milliseconds it took, and fails after 10 s.
    template <typename Predicate>
    static long run_until(Predicate done)
    {
        using clock = std::chrono::steady_clock;
        const auto start = clock::now();
        long elapsed = 0;
        while (!done()) {
            uloop_run_timeout(20);
            elapsed =
                std::chrono::duration_cast<std::chrono::milliseconds>(clock::now() - start).count();
            if (elapsed > 10000) {
                ADD_FAILURE() << "nothing happened for 10 s";
                break;
            }
        }
        return elapsed;
    }
    static void run_for(int ms)
    {
        bool over = false;
        struct timer : uloop_timeout {
            bool *over;
        } timer = {};
        timer.over = &over;
        timer.cb = [](uloop_timeout *t) { *static_cast<struct timer *>(t)->over = true; };
        uloop_timeout_set(&timer, ms);
        run_until([&] { return over; });
    }
    static CURLcode run(transfer &t)
    {
        run_until([&] { return t.reports > 0; });
        return t.result;
    }
};

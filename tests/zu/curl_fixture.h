// A curl context on the loop, transfers that remember what they reported, and loopback listeners.
#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <memory>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

#include "platform/zu/uloop_curl.h"
#include "support/eventually.h"
#include "support/open_descriptors.h"

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

    void start(uloop_curl_context &on, const std::string &url, long connect_timeout_ms = 9000)
    {
        ASSERT_EQ(uloop_curl_easy_create(&on, this), 0);
        curl_easy_setopt(easy, CURLOPT_URL, url.c_str());
        curl_easy_setopt(easy, CURLOPT_CONNECTTIMEOUT_MS, connect_timeout_ms);
        curl_easy_setopt(easy, CURLOPT_CONNECT_ONLY, 1L);
        curl_easy_setopt(easy, CURLOPT_SSL_VERIFYPEER, 0L); // the sandbox has no certificates
        const int before = reports;
        ASSERT_EQ(uloop_curl_easy_start(this), 0);
        EXPECT_EQ(reports, before);
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

    /// Runs the loop until `done`; fails when that does not come.
    template <typename Predicate>
    static void run_until(Predicate done)
    {
        EXPECT_TRUE(eventually([&] {
            uloop_run_timeout(20);
            return done();
        }));
    }
    static void run_for(int ms)
    {
        uloop_timeout timer = {};
        timer.cb = [](uloop_timeout *) {};
        uloop_timeout_set(&timer, ms);
        run_until([&] { return !timer.pending; });
    }
    static CURLcode run(transfer &t)
    {
        run_until([&] { return t.reports > 0; });
        return t.result;
    }
};

// What the loop's tests share: a fresh loop on a virtual clock, records with a function in them,
// and a log of what ran.
#pragma once

#include <libubox/uloop.h>
#include <libubox_host/clock.h>

#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>

struct timer : uloop_timeout {
    std::function<void()> run;
    explicit timer(std::function<void()> f) : uloop_timeout{}, run(std::move(f))
    {
        cb = [](uloop_timeout *t) { static_cast<timer *>(t)->run(); };
    }
    ~timer() { uloop_timeout_cancel(this); }
};

struct watch : uloop_fd {
    std::function<void(unsigned events)> run;
    watch(int descriptor, std::function<void(unsigned)> f) : uloop_fd{}, run(std::move(f))
    {
        fd = descriptor;
        cb = [](uloop_fd *u, unsigned events) { static_cast<watch *>(u)->run(events); };
    }
    ~watch() { (void)uloop_fd_delete(this); }
};

struct loop : testing::Test {
    std::string log;

    loop()
    {
        uloop_clock_virtual(true);
        EXPECT_EQ(uloop_init(), 0);
    }
    ~loop() override
    {
        uloop_done();
        uloop_clock_settle_ms(0);
        uloop_clock_virtual(false);
    }
    /// A timer that writes one word to the log.
    timer logging(const char *word)
    {
        return timer([this, word] { log += std::string(word) + " "; });
    }
};

/// Two connected descriptors, closed with their owner.
struct fd_pair {
    int ours = -1;
    int theirs = -1;
    ~fd_pair()
    {
        close_ours();
        close_theirs();
    }
    void close_ours() { close_one(ours); }
    void close_theirs() { close_one(theirs); }
    void send(const char *text) const
    {
        EXPECT_EQ(write(theirs, text, strlen(text)), static_cast<ssize_t>(strlen(text)));
    }

private:
    static void close_one(int &fd)
    {
        if (fd >= 0)
            close(fd);
        fd = -1;
    }
};

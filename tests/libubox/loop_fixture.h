// What the loop's tests share: a fresh loop on a virtual clock, records with a function in them,
// and a log of what ran.
#pragma once

#include <csignal>
#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <libubox/uloop.h>
#include <libubox_host/clock.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

/// A record of the loop whose callback is a function.
template <typename Record, typename... Told>
struct acting : Record {
    std::function<void(Told...)> run;
    explicit acting(std::function<void(Told...)> f) : Record{}, run(std::move(f))
    {
        this->cb = [](Record *r, Told... told) { static_cast<acting *>(r)->run(told...); };
    }
};

struct timer : acting<uloop_timeout> {
    using acting::acting;
    ~timer() { uloop_timeout_cancel(this); }
};

struct watch : acting<uloop_fd, unsigned> {
    watch(int descriptor, std::function<void(unsigned events)> f) : acting(std::move(f))
    {
        fd = descriptor;
    }
    ~watch() { (void)uloop_fd_delete(this); }
};

struct Loop : testing::Test {
    std::string log;

    Loop()
    {
        for (int signo : {SIGINT, SIGTERM})
            signal(signo,
                   SIG_DFL); // a shell starts what it puts into the background deaf to SIGINT
        uloop_clock_virtual(true);
        EXPECT_EQ(uloop_init(), 0);
    }
    ~Loop() override
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

enum kind { SOCKETS, PIPE_TO_US, PIPE_FROM_US };

/// Two connected descriptors, closed with their owner.
struct fd_pair {
    int ours = -1;
    int theirs = -1;

    explicit fd_pair(kind k = SOCKETS)
    {
        int fds[2];
        EXPECT_EQ(k == SOCKETS ? socketpair(AF_UNIX, SOCK_STREAM, 0, fds) : pipe(fds), 0);
        ours = fds[k == PIPE_FROM_US ? 1 : 0];
        theirs = fds[k == PIPE_FROM_US ? 0 : 1];
    }
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

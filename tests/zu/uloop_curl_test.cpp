// Transfers on the event loop: outcomes, many at once, and everything a callback may do.
#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include "zu/curl_fixture.h"

/// The kernel has no room for another watched descriptor.
static bool no_room_to_watch;

extern "C" int epoll_ctl(int epoll, int operation, int fd, epoll_event *event) noexcept
{
    if (no_room_to_watch && operation == EPOLL_CTL_ADD) {
        errno = ENOSPC;
        return -1;
    }
    return static_cast<int>(syscall(SYS_epoll_ctl, epoll, operation, fd, event));
}

namespace {

struct UloopCurl : curl_fixture {};

TEST_F(UloopCurl, ATransferReportsHowItEnded)
{
    const listener open;
    const listener closed(-1); // bound only: connections are refused
    const struct {
        std::string url;
        CURLcode result;
    } cases[] = {
        {open.url(), CURLE_OK},
        {open.url(""), CURLE_OK}, // an address without a scheme is http
        {closed.url(), CURLE_COULDNT_CONNECT},
        {open.url("https://"), CURLE_OPERATION_TIMEDOUT}, // connected, but no handshake comes
        {"http://", CURLE_URL_MALFORMAT},
        {"", CURLE_URL_MALFORMAT},
        {"file:///etc/passwd", CURLE_UNSUPPORTED_PROTOCOL},
        {open.url("ftp://"), CURLE_UNSUPPORTED_PROTOCOL},
    };
    for (const char *proxy : {"http_proxy", "all_proxy"}) // must not be asked
        setenv(proxy, closed.url().c_str(), 1);
    for (const auto &c : cases) {
        transfer t;
        t.start(context, c.url, c.result == CURLE_OPERATION_TIMEDOUT ? 300 : 9000);
        EXPECT_EQ(run(t), c.result) << c.url;
        run_for(5);
        EXPECT_EQ(t.reports, 1) << c.url;
    }
    unsetenv("http_proxy");
    unsetenv("all_proxy");
}

TEST_F(UloopCurl, ASocketThatCannotBeWatchedEndsItsOwnTransferOnly)
{
    const listener silent;
    transfer watched, unwatched, later;
    watched.start(context, silent.url("https://"), 400);
    run_for(50);
    no_room_to_watch = true;
    unwatched.start(context, silent.url("https://"), 5000);
    EXPECT_EQ(run(unwatched), CURLE_COULDNT_CONNECT);
    no_room_to_watch = false;
    later.start(context, silent.url());
    EXPECT_EQ(run(later), CURLE_OK);
    EXPECT_EQ(run(watched), CURLE_OPERATION_TIMEDOUT);
}

TEST_F(UloopCurl, SocketsAreNotInherited)
{
    const listener silent;
    transfer t;
    t.start(context, silent.url("https://"));
    run_for(50);
    int connected = 0;
    for (const auto &entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        const int fd = std::stoi(entry.path().filename());
        sockaddr_in peer = {};
        socklen_t size = sizeof peer;
        if (getpeername(fd, reinterpret_cast<sockaddr *>(&peer), &size) != 0 ||
            peer.sin_family != AF_INET)
            continue;
        connected++;
        EXPECT_TRUE(fcntl(fd, F_GETFD) & FD_CLOEXEC);
    }
    EXPECT_EQ(connected, 1);
}

TEST_F(UloopCurl, AnAbortReports42BeforeItReturnsAndOnce)
{
    const listener silent;
    const long before = open_descriptors();
    transfer fresh, connected, idle;
    fresh.start(context, silent.url("https://"));
    uloop_curl_easy_abort(&fresh);
    EXPECT_EQ(fresh.reports, 1);
    EXPECT_EQ(static_cast<int>(fresh.result), 42);

    connected.start(context, silent.url("https://"));
    run_for(20);
    uloop_curl_easy_abort(&connected);
    uloop_curl_easy_abort(&connected);
    EXPECT_EQ(connected.reports, 1);
    EXPECT_EQ(static_cast<int>(connected.result), 42);

    ASSERT_EQ(uloop_curl_easy_create(&context, &idle), 0);
    uloop_curl_easy_abort(&idle);
    EXPECT_EQ(idle.reports, 0);
    run_for(20);
    EXPECT_EQ(fresh.reports + connected.reports, 2);
    EXPECT_EQ(open_descriptors(), before);
}

TEST_F(UloopCurl, ADestroyedTransferNeverReportsAndItsRecordServesOneAtATime)
{
    const listener open;
    transfer t;
    t.start(context, open.url());
    uloop_curl_easy_destroy(&t);
    EXPECT_EQ(t.easy, nullptr);
    run_for(20);
    EXPECT_EQ(t.reports, 0);
    EXPECT_EQ(uloop_curl_easy_start(&t), -1);
    t.start(context, open.url());
    EXPECT_EQ(uloop_curl_easy_create(&context, &t), -1);
    EXPECT_EQ(uloop_curl_easy_start(&t), -1);
    EXPECT_EQ(run(t), CURLE_OK);
}

/// Transfers whose callbacks all do the same.
struct crowd {
    uloop_curl_context *context;
    std::string url;
    void (*act)(crowd &, transfer *);
    std::vector<std::unique_ptr<transfer>> all = {};
    int reports = 0, successes = 0;

    void start(int count)
    {
        for (int i = 0; i < count; i++) {
            all.push_back(std::make_unique<transfer>());
            all.back()->priv = this;
            all.back()->then = [](transfer *self) {
                auto &mine = *static_cast<crowd *>(self->priv);
                mine.reports++;
                mine.successes += self->result == CURLE_OK;
                mine.act(mine, self);
            };
            all.back()->start(*context, url);
        }
    }
};

TEST_F(UloopCurl, ACallbackMayDoWhatItLikes)
{
    const listener open;
    const struct {
        const char *what;
        void (*act)(crowd &, transfer *);
        int reports, successes;
    } cases[] = {
        {"abort all others and destroy itself",
         [](crowd &c, transfer *self) {
             for (auto &other : c.all)
                 uloop_curl_easy_abort(other.get());
             uloop_curl_easy_destroy(self);
         },
         32, 1},
        {"free all others and then itself",
         [](crowd &c, transfer *self) {
             for (auto &other : c.all)
                 if (other.get() != self)
                     other.reset();
             c.all.clear();
         },
         1, 1},
        {"start itself again",
         [](crowd &c, transfer *self) {
             uloop_curl_easy_destroy(self);
             if (c.reports <= 5)
                 self->start(*c.context, c.url);
         },
         37, 37},
        {"clean the context up and make it anew",
         [](crowd &c, transfer *) {
             if (c.reports > 1)
                 return;
             uloop_curl_cleanup(c.context);
             *c.context = {};
             ASSERT_EQ(uloop_curl_init(c.context), 0);
         },
         32, 1},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        crowd mine = {&context, open.url(), c.act};
        mine.start(32);
        run_until([&] { return mine.reports >= c.reports; });
        run_for(20);
        EXPECT_EQ(mine.reports, c.reports);
        EXPECT_EQ(mine.successes, c.successes);
        transfer again;
        again.start(context, open.url());
        EXPECT_EQ(run(again), CURLE_OK);
    }
}

TEST_F(UloopCurl, CleaningUpAbortsAndAdmitsNothingNew)
{
    const listener silent;
    const long before = open_descriptors();
    {
        transfer t;
        t.priv = &context;
        t.then = [](transfer *self) {
            uloop_curl_easy_destroy(self);
            EXPECT_EQ(uloop_curl_easy_create(static_cast<uloop_curl_context *>(self->priv), self),
                      0);
            EXPECT_EQ(uloop_curl_easy_start(self), -1);
        };
        t.start(context, silent.url("https://"));
        run_for(20);
        // Making a context in use ready again cleans it up first.
        ASSERT_EQ(uloop_curl_init(&context), 0);
        EXPECT_EQ(t.reports, 1);
        EXPECT_NE(context.multi, nullptr);
    }
    EXPECT_EQ(open_descriptors(), before);
    uloop_curl_cleanup(&context);
    EXPECT_LT(open_descriptors(), before); // the multi handle's own
    uloop_curl_cleanup(&context);
    const auto *bytes = reinterpret_cast<const unsigned char *>(&context);
    EXPECT_TRUE(std::all_of(bytes, bytes + sizeof context, [](auto b) { return b == 0; }));
}

} // namespace

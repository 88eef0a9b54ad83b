// Transfers on the event loop: outcomes, many at once, and everything a callback may do.
#include "zu/curl_fixture.h"

#include <fcntl.h>
#include <sys/stat.h>

namespace {

struct uloop_curl : curl_fixture {};

TEST_F(uloop_curl, a_transfer_reports_how_it_ended)
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
        t.start(context, c.url, 300);
        EXPECT_EQ(run(t), c.result) << c.url;
        run_for(5);
        EXPECT_EQ(t.reports, 1) << c.url;
    }
    unsetenv("http_proxy");
    unsetenv("all_proxy");
}

TEST_F(uloop_curl, an_unanswered_connection_times_out)
{
    // A full accept queue drops what comes further.
    const listener full(0);
    std::vector<std::unique_ptr<transfer>> filling;
    for (int i = 0; i < 4; i++) {
        filling.push_back(std::make_unique<transfer>());
        filling.back()->start(context, full.url(), 5000);
    }
    run_for(50);
    transfer t;
    t.start(context, full.url(), 200);
    const long elapsed = run_until([&] { return t.reports > 0; });
    EXPECT_EQ(t.result, CURLE_OPERATION_TIMEDOUT);
    EXPECT_GE(elapsed, 195);
    EXPECT_LT(elapsed, 600);
}

TEST_F(uloop_curl, cycles_of_256_leave_no_descriptor_behind)
{
    const listener open;
    const long before = open_descriptors();
    for (int cycle = 0; cycle < 3; cycle++) {
        std::vector<transfer> all(256);
        for (transfer &t : all)
            t.start(context, open.url());
        run_until([&] {
            return std::all_of(all.begin(), all.end(), [](auto &t) { return t.reports > 0; });
        });
        for (const transfer &t : all) {
            EXPECT_EQ(t.result, CURLE_OK);
            EXPECT_EQ(t.reports, 1);
        }
        EXPECT_EQ(open_descriptors(), before);
    }
}

TEST_F(uloop_curl, sockets_are_not_inherited)
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

TEST_F(uloop_curl, an_abort_reports_42_before_it_returns_and_once)
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

TEST_F(uloop_curl, a_destroyed_transfer_never_reports_and_its_record_serves_one_at_a_time)
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

TEST_F(uloop_curl, a_callback_may_abort_all_others)
{
    const listener open;
    std::vector<transfer> all(64);
    for (transfer &t : all) {
        t.priv = &all;
        t.then = [](transfer *self) {
            for (transfer &other : *static_cast<std::vector<transfer> *>(self->priv))
                uloop_curl_easy_abort(&other);
            uloop_curl_easy_destroy(self);
        };
        t.start(context, open.url());
    }
    run_until([&] { return all[0].reports > 0; });
    run_for(20);
    int succeeded = 0;
    for (const transfer &t : all) {
        EXPECT_EQ(t.reports, 1);
        EXPECT_EQ(t.easy, nullptr);
        succeeded += t.result == CURLE_OK;
        EXPECT_TRUE(t.result == CURLE_OK || t.result == CURLE_ABORTED_BY_CALLBACK);
    }
    EXPECT_EQ(succeeded, 1);
}

TEST_F(uloop_curl, a_callback_may_destroy_itself_and_all_others)
{
    const listener open;
    std::vector<std::unique_ptr<transfer>> all(64);
    for (auto &t : all) {
        t = std::make_unique<transfer>();
        t->priv = &all;
        t->then = [](transfer *self) {
            // Frees the records too, the running one's last.
            auto &everybody = *static_cast<std::vector<std::unique_ptr<transfer>> *>(self->priv);
            for (auto &other : everybody)
                if (other.get() != self)
                    other.reset();
            everybody.clear();
        };
        t->start(context, open.url());
    }
    run_until([&] { return all.empty(); });
    run_for(20);
}

TEST_F(uloop_curl, a_callback_may_start_itself_and_others_again)
{
    const listener open;
    struct chain {
        uloop_curl_context *context;
        std::string url;
        transfer other;
    } chain = {&context, open.url(), {}};
    transfer t;
    t.priv = &chain;
    t.then = [](transfer *self) {
        auto *c = static_cast<struct chain *>(self->priv);
        uloop_curl_easy_destroy(self);
        if (self->reports == 1)
            c->other.start(*c->context, c->url);
        if (self->reports < 5)
            self->start(*c->context, c->url);
    };
    t.start(context, open.url());
    run_until([&] { return t.reports == 5 && chain.other.reports == 1; });
    EXPECT_EQ(t.result, CURLE_OK);
    EXPECT_EQ(chain.other.result, CURLE_OK);
}

TEST_F(uloop_curl, a_context_is_cleaned_up_and_made_anew_even_from_a_callback)
{
    const listener open;
    std::vector<transfer> all(16);
    for (transfer &t : all)
        t.start(context, open.url());
    all[3].priv = &context;
    all[3].then = [](transfer *self) {
        auto *owner = static_cast<uloop_curl_context *>(self->priv);
        uloop_curl_cleanup(owner);
        memset(static_cast<void *>(owner), 0, sizeof *owner);
        ASSERT_EQ(uloop_curl_init(owner), 0);
    };
    run_until([&] { return all[3].reports > 0; });
    for (const transfer &t : all)
        EXPECT_EQ(t.reports, 1);
    transfer again;
    again.start(context, open.url());
    EXPECT_EQ(run(again), CURLE_OK);
}

TEST_F(uloop_curl, cleaning_up_aborts_and_admits_nothing_new)
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

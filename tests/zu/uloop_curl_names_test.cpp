// Name resolution beside the loop: a name server that is silent must not hold anybody up. Rewrites
// the sandbox's resolver configuration.
#include "support/temporary_directory.h"
#include "zu/curl_fixture.h"

namespace {

/// A UDP socket at 127.0.0.1:53 that never answers.
struct silent_name_server {
    int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);

    silent_name_server()
    {
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_port = htons(53);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    }
    ~silent_name_server() { close(fd); }
};

struct UloopCurlNames : curl_fixture {
    void SetUp() override
    {
        write_file("/etc/resolv.conf", "nameserver 127.0.0.1\noptions timeout:3 attempts:1\n");
        write_file("/etc/nsswitch.conf", "hosts: files dns\n");
        write_file("/etc/hosts", "127.0.0.1 localhost known.test\n");
        curl_fixture::SetUp();
    }
};

TEST_F(UloopCurlNames, KnownAndUnknownNames)
{
    const listener open;
    transfer known, unknown;
    known.start(context, "http://known.test:" + std::to_string(open.port));
    EXPECT_EQ(run(known), CURLE_OK);
    unknown.start(context, "http://unknown.test/"); // nobody listens at the name server's port
    EXPECT_EQ(run(unknown), CURLE_COULDNT_RESOLVE_HOST);
}

TEST_F(UloopCurlNames, ASilentNameServerDelaysNobody)
{
    const silent_name_server server;
    const listener open;
    struct heartbeat : uloop_timeout {
        int beats;
    } heart = {};
    heart.cb = [](uloop_timeout *t) {
        static_cast<heartbeat *>(t)->beats++;
        uloop_timeout_set(t, 1);
    };
    uloop_timeout_set(&heart, 1);

    transfer slow, aborted, other;
    aborted.start(context, "http://aborted.test/");
    slow.start(context, "http://slow.test/", 1000);
    other.start(context, open.url());
    EXPECT_EQ(run(other), CURLE_OK);
    uloop_curl_easy_abort(&aborted);
    EXPECT_EQ(static_cast<int>(aborted.result), 42);
    EXPECT_EQ(run(slow), CURLE_OPERATION_TIMEDOUT); // before the three seconds of the resolver
    EXPECT_GT(heart.beats, 10) << "the loop stood still meanwhile";
    uloop_timeout_cancel(&heart);
}

} // namespace

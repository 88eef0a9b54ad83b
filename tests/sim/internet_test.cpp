// The simulated internet as a transfer meets it: what can be reached, and how each fault looks.
#include "programs.h"

#include <gtest/gtest.h>

#include <curl/curl.h>

#include <csignal>
#include <cstdlib>

namespace {

class Internet : public testing::Test {
protected:
    static void SetUpTestSuite()
    {
        run("for host in 43 44 53 80 81; do ip address add 203.0.113.$host/32 dev lo; done");
        write_text("/etc/resolv.conf", "nameserver 203.0.113.53\n");
    }

    void SetUp() override
    {
        certificates_ = std::string(getenv("TARN_BUILD")) + "/sim/certificates";
        if (read_text(certificates_ + "/ca.pem").empty())
            GTEST_SKIP() << "no certificates: the openssl tool was missing at build time";
        write_text("/var/sim/internet", "on\n");
        internet_ =
            std::make_unique<program>(std::vector<std::string>{"sim_internet", certificates_});
        ASSERT_TRUE(eventually([] { return connect("http://203.0.113.80") == CURLE_OK; }));
    }

    void switch_to(const std::string &mode)
    {
        write_text("/var/sim/internet", mode + "\n");
        internet_->end(SIGHUP);
    }

    static CURLcode connect(const char *url, long limit_ms = 9000)
    {
        CURL *easy = curl_easy_init();
        curl_easy_setopt(easy, CURLOPT_URL, url);
        curl_easy_setopt(easy, CURLOPT_CONNECT_ONLY, 1L);
        curl_easy_setopt(easy, CURLOPT_CONNECTTIMEOUT_MS, limit_ms);
        CURLcode result = curl_easy_perform(easy);
        curl_easy_cleanup(easy);
        return result;
    }

    std::string certificates_;
    std::unique_ptr<program> internet_;
};

} // namespace

TEST_F(Internet, EveryKindOfTarget)
{
    const struct {
        const char *url;
        CURLcode expected;
    } targets[] = {
        {"http://portal.internet.test", CURLE_OK},
        {"https://check.internet.test", CURLE_OK},
        {"https://bad.internet.test", CURLE_PEER_FAILED_VERIFICATION},
        {"http://refused.internet.test", CURLE_COULDNT_CONNECT},
        {"http://gone.internet.test", CURLE_COULDNT_RESOLVE_HOST},
    };
    for (auto &target : targets)
        EXPECT_EQ(connect(target.url), target.expected) << target.url;
}

TEST_F(Internet, RefusesIsSlowAndComesBack)
{
    switch_to("refuse");
    EXPECT_TRUE(eventually([] { return connect("http://203.0.113.80") == CURLE_COULDNT_CONNECT; }));
    EXPECT_EQ(connect("https://check.internet.test"), CURLE_COULDNT_CONNECT);
    switch_to("slow 400");
    EXPECT_TRUE(eventually(
        [] { return connect("https://203.0.113.43", 200) == CURLE_OPERATION_TIMEDOUT; }));
    EXPECT_EQ(connect("http://portal.internet.test", 200), CURLE_OPERATION_TIMEDOUT);
    EXPECT_EQ(connect("https://check.internet.test"), CURLE_OK);
}

// Surveys: what becomes of the counters, and of a u80211d that does not answer.
#include "radio_fixture.h"

namespace {

using strings = std::vector<std::string>;

struct channel {
    const char *frequency;
    uint64_t active, busy, rx, tx;
    bool in_use;
};

struct Survey : radio_fixture {
    void counts(const std::vector<channel> &channels)
    {
        u80211d->replies["survey"] = [channels](blob_buf *reply) {
            for (const channel &each : channels) {
                void *table = blobmsg_open_table(reply, each.frequency);
                blobmsg_add_u64(reply, "active", each.active);
                blobmsg_add_u64(reply, "busy", each.busy);
                blobmsg_add_u64(reply, "rx", each.rx);
                blobmsg_add_u64(reply, "tx", each.tx);
                blobmsg_add_u8(reply, "in_use", each.in_use);
                blobmsg_close_table(reply, table);
            }
        };
    }
    void survey_now()
    {
        EXPECT_EQ(ubus_wifi_ap_survey_now(daemon, nullptr, nullptr, "ap_survey_now", nullptr), 0);
        settle();
    }
    /// "latest / previous" of the first radio: active, busy, rx, tx.
    static std::string samples()
    {
        const auto text = [](const survey_sample &sample) {
            return std::to_string(sample.active) + " " + std::to_string(sample.busy) + " " +
                   std::to_string(sample.rx) + " " + std::to_string(sample.tx);
        };
        return text(surveyed()->latest) + " / " + text(surveyed()->previous);
    }
};

TEST_F(Survey, SamplesOfTheChannelInUseFollowEachOther)
{
    const struct {
        std::vector<channel> answer;
        const char *samples;
    } cases[] = {
        {{{"2412", 9, 9, 9, 9, false}, {"2437", 100, 30, 20, 5, true}}, "100 30 20 5 / 0 0 0 0"},
        {{{"2437", 160, 40, 25, 6, true}}, "160 40 25 6 / 100 30 20 5"},
        {{{"2437", 170, 50, 26, 7, false}}, "160 40 25 6 / 100 30 20 5"},
        {{}, "160 40 25 6 / 100 30 20 5"},
        {{{"2437", 50, 10, 5, 1, true}}, "50 10 5 1 / 0 0 0 0"}, // the interface started anew
        {{{"2437", 1ull << 40, 11, 6, 2, true}}, "1099511627776 11 6 2 / 50 10 5 1"},
    };
    for (const auto &each : cases) {
        counts(each.answer);
        expire(&gSurvey_period_timer, 300000);
        settle();
        EXPECT_EQ(calls(),
                  (strings{R"(survey {"ifname":"ap0_1"})", R"(survey {"ifname":"ap1_1"})"}));
        EXPECT_EQ(samples(), each.samples);
        EXPECT_TRUE(gSurvey_period_timer.pending);
        EXPECT_EQ(surveyed()->data_generated, !each.answer.empty());
    }
    EXPECT_EQ(logged("Detected an interface restart, restart survey data collection"), 2);
    const std::string dump = dumped(wifi_dump_survey_state);
    EXPECT_TRUE(dump.starts_with(
        R"({"wifi_survey_state":{"survey_period_timeout_running":true,"survey_results":[)"
        R"({"survey_result_timeout_running":false,"ifname":"ap0_1","radio_idx":0,)"
        R"("data_generated":true,"survey_retry_count":0,"survey_data":{)"
        R"("latest_active":1099511627776,"latest_busy":11,"latest_rx":6,"latest_tx":2,)"
        R"("previous_active":50,"previous_busy":10,"previous_rx":5,"previous_tx":1}})"))
        << dump;
}

TEST_F(Survey, ABadChannelIsPassedOver)
{
    u80211d->replies["survey"] = [](blob_buf *reply) {
        (void)blobmsg_add_json_from_string(
            reply, R"({"2407":"busy","2412":{"active":1},"2417":{"in_use":1},"2422":{}})");
        void *table = blobmsg_open_table(reply, "2437");
        blobmsg_add_u64(reply, "active", 7);
        blobmsg_add_string(reply, "busy", "very");
        blobmsg_add_u8(reply, "in_use", true);
        blobmsg_close_table(reply, table);
    };
    survey_now();
    EXPECT_EQ(samples(), "7 0 0 0 / 0 0 0 0") << "a missing counter is 0";
    EXPECT_EQ(logged("Unable to parse a survey result for this frequency on iface 'ap0_1'"), 2);
    EXPECT_EQ(logged("Survey result for iface 'ap0_1' does not include the 'in_use' flag"), 2);
}

TEST_F(Survey, RenamingKeepsTheCountersAndWhatRunsIsNotAskedAgain)
{
    counts({{"2437", 100, 30, 20, 5, true}});
    survey_now();
    update_survey_list_by_radio_idx(0, "ap0_3");
    update_survey_list_by_radio_idx(0, nullptr);
    u80211d->behaves["survey"] = fake_peer::HANGS;
    (void)calls();
    survey_now();
    survey_now();
    EXPECT_EQ(calls(), (strings{R"(survey {"ifname":"ap0_3"})", R"(survey {"ifname":"ap1_1"})"}));
    EXPECT_EQ(samples(), "100 30 20 5 / 0 0 0 0");
    u80211d->answer_late("survey");
    settle();
    EXPECT_FALSE(surveyed()->timer.pending);
    u80211d->behaves["survey"] = fake_peer::FAILS;
    survey_now();
    EXPECT_FALSE(surveyed()->timer.pending);
    EXPECT_EQ(logged("u80211d returned with 'Unknown error'"), 2);

    u80211d->behaves["survey"] = fake_peer::HANGS;
    survey_now();
    wifi_init_survey_state();
    u80211d->answer_late("survey"); // to requests that were freed
    settle();
    EXPECT_TRUE(list_empty(&gSurvey_entries));
}

} // namespace

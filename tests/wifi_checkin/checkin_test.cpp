// The wireless section of the check-in in this process, with radios that no kernel has and a
// neighbourhood that u80211d tells of.
#include <fstream>

#include "platform/fw_core/fw_core.h"
#include "platform/zu/clock.h"
#include "support/fake_radios.h"
#include "support/occurrences.h"
#include "wifi/checkin_rows.h"
#include "wifi/radio/dfs.h"
#include "wifi_radio/radio_fixture.h"

namespace {

struct Checkin : radio_fixture {
    fake_radios node = fake_loaded_node(200);

    void SetUp() override
    {
        radio_fixture::SetUp();
        gFake_radios = &node;
        dfs_event_detected = false;
    }
    void TearDown() override
    {
        gFake_radios = nullptr;
        radio_fixture::TearDown();
    }
    static std::string section(const char *type = "normal", size_t *size = nullptr)
    {
        blob_buffer reply;
        blob_buf_init(&reply, 0);
        const json_message message(std::string(R"({"checkin_type":")") + type + "\"}");
        EXPECT_EQ(gen_checkin_wifi_section(nullptr, message.head, &reply), 0);
        if (size)
            *size = blob_pad_len(reply.head);
        return zu_blobmsg_json(reply.head, true).get();
    }
    /// Both what is there and what is not is as documented.
    static void expect_valid(const std::string &json)
    {
        std::ofstream("/tmp/checkin.json") << json;
        const auto done = run("'" VALID_CHECKIN "' /tmp/checkin.json");
        if (done.status == 77)
            puts("python3-jsonschema is not installed: the schema was not asked");
        else
            EXPECT_EQ(done.status, 0) << done.output;
    }
    /// The scan has found `count` access points, from -30 dBm on each a hundredth of a dB weaker.
    static void heard(int count)
    {
        blob_buf *results = &scanned()->results;
        blob_buf_init(results, 0);
        for (int i = 0; i < count; i++) {
            char bssid[18];
            snprintf(bssid, sizeof bssid, "02:5e:00:%02x:%02x:01", i >> 8 & 0xff, i & 0xff);
            void *table = blobmsg_open_table(results, nullptr);
            blobmsg_add_string(results, "band", "5GHz");
            blobmsg_add_u32(results, "channel_width", 20);
            blobmsg_close_array(results, blobmsg_open_array(results, "channels"));
            blobmsg_add_string(results, "ssid", std::string(128, 'n').c_str());
            blobmsg_add_string(results, "bssid", bssid);
            blobmsg_add_string(results, "encryption", "WPA2");
            blobmsg_add_double(results, "signal", -3000 - i);
            blobmsg_add_string(results, "wifi_mode", "a/n/ac");
            blobmsg_close_table(results, table);
        }
    }
};

TEST_F(Checkin, HoldsWhatIsKnownAndNothingElse)
{
    expect_valid(section());
    for (const char *part :
         {R"("channel":6,"frequency":2437,"width":20,"txpower":17)",
          R"("channel":36,"frequency":5180,"width":80)", R"("roles":["ap","mesh"])",
          R"("ssid_index":3,"signal":-)", R"("neighbors":[{"radio":1,"mac":"02:5e:10:03:e8:00")",
          R"("usable":[52,56])"})
        EXPECT_NE(section().find(part), std::string::npos) << part;
    EXPECT_EQ(occurrences(section(), "rx_bytes"), 200);
    for (const char *absent : {"utilization", "delayed", "override", "\"mesh\":{", "omitted\":2"})
        EXPECT_EQ(section().find(absent), std::string::npos) << absent;

    gFake_radios = nullptr; // and without a wireless kernel
    expect_valid(section());
    for (const char *absent : {"stations", "neighbors", "roles", "usable", "frequency"})
        EXPECT_EQ(section().find(absent), std::string::npos) << absent;
}

TEST_F(Checkin, UtilizationIsTheDifferenceOfTwoSamples)
{
    survey_entry *entry = surveyed();
    ASSERT_NE(entry, nullptr);
    const struct {
        survey_sample before, now;
        const char *shown;
        int age_s = 0;
    } cases[] = {
        {{1000, 100, 10, 50},
         {2000, 350, 60, 150},
         R"("busy":0.250000,"rx":0.050000,"tx":0.100000)"},
        {{0, 0, 0, 0}, {1000, 100, 10, 50}, nullptr},         // the first
        {{2000, 100, 10, 50}, {1000, 350, 60, 150}, nullptr}, // the counters went back
        {{1000, 500, 10, 50}, {2000, 400, 60, 150}, nullptr}, // one of them
        {{1000, 100, 10, 50}, {1000, 100, 10, 50}, nullptr},
        {{1000, 100, 10, 50}, {2000, 350, 60, 150}, nullptr, 700}, // two surveys unanswered
    };
    for (const auto &c : cases) {
        entry->previous = c.before;
        entry->latest = c.now;
        entry->sampled_s = zu_monotonic_s() - c.age_s;
        const std::string shown = section();
        EXPECT_EQ(shown.find("utilization") != std::string::npos, c.shown != nullptr);
        if (c.shown) {
            EXPECT_NE(shown.find(c.shown), std::string::npos) << shown.substr(0, 1000);
        }
    }
}

TEST_F(Checkin, FitsOnTheBusHoweverManyAreAround)
{
    heard(5000);
    size_t size = 0;
    const std::string full = section("normal", &size);
    EXPECT_LE(size, PACKAGE_REPLY_MAX - 64 * 1024);
    const int shown = occurrences(full, "\"bssid\":");
    EXPECT_GT(shown, 1000);
    EXPECT_NE(full.find("\"ap_list_omitted\":" + std::to_string(5000 - shown)), std::string::npos);
    EXPECT_NE(full.find("02:5e:00:00:00:01"), std::string::npos) << "the strongest";
    EXPECT_EQ(full.find("02:5e:00:13:87:01"), std::string::npos) << "the weakest";
    expect_valid(full);

    node = fake_loaded_node(20000);
    const std::string crowded = section("normal", &size);
    EXPECT_LE(size, PACKAGE_REPLY_MAX - 64 * 1024);
    EXPECT_NE(crowded.find("stations_omitted"), std::string::npos);
    expect_valid(crowded);
}

TEST_F(Checkin, AChannelThatRadarMadeARadioLeaveIsReportedOnce)
{
    const auto tune = [this](uint32_t mhz) {
        for (ng_nl80211_iface &iface : node.ifaces)
            if (iface.name.starts_with("ap1_") || iface.name == "mesh1")
                iface.frequency_mhz = mhz;
    };
    const std::string told = R"({"message":"Radio1 switched to chan = 52"})";
    (void)section();
    tune(5200);
    (void)section();
    EXPECT_EQ(sent("dfs.ch_switch"), "") << "moved by the operator";
    dfs_event_detected = true;
    tune(0);
    (void)section();
    EXPECT_TRUE(dfs_event_detected) << "on no channel yet";
    tune(5260);
    EXPECT_NE(section("status").find(R"("event_detected":true)"), std::string::npos);
    EXPECT_EQ(sent("dfs.ch_switch"), "") << "somebody only looked";
    EXPECT_NE(section().find(R"("event_detected":false)"), std::string::npos);
    EXPECT_EQ(sent("dfs.ch_switch"), told);
    EXPECT_EQ(logged("Detected DFS radar event channel change moving from channel 40 to 52"), 1);
    (void)section();
    EXPECT_EQ(sent("dfs.ch_switch"), "");
}

} // namespace

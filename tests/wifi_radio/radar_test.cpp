// What the daemon makes of the kernel's radar and channel switch events.
#include <fcntl.h>
#include <libubox_host/clock.h>
#include <sys/file.h>
#include <unistd.h>

#include "netlink/nl80211.h"
#include "radio_fixture.h"
#include "wifi/override.h"
#include "wifi/radio/dfs.h"

namespace {

struct Radar : radio_fixture {
    void SetUp() override
    {
        radio_fixture::SetUp();
        dfs_event_detected = false;
    }
    static void hear(uint8_t command, std::optional<uint32_t> mhz,
                     std::optional<uint32_t> event = {}, bool well_formed = true)
    {
        ng_nl80211_event heard{};
        heard.command = command;
        heard.well_formed = well_formed;
        heard.frequency_mhz = mhz;
        heard.radar_event = event;
        channel_switch_event_cb(&heard, nullptr);
    }
};

constexpr uint8_t RADAR = NG_NL80211_RADAR_DETECT;
constexpr uint8_t SWITCH = NG_NL80211_CH_SWITCH_NOTIFY;

/// One row an event, one after the other.
TEST_F(Radar, EventsOverrideAndCheckin)
{
    const std::string failed = R"({"success":false,"message":")";
    const struct {
        uint8_t command;
        std::optional<uint32_t> mhz, event;
        bool well_formed;
        std::string cac_result;
        const char *logs;
        int checkins;
    } rows[] = {
        {SWITCH, 5180, {}, true, "", "", 0}, // nobody saw radar: somebody wanted it
        {SWITCH, {}, {}, false, "", "", 0},
        {RADAR, 5260, 1, true, R"({"success":true,"message":"completed successfully"})", "", 0},
        {RADAR, 5260, 2, true, failed + "CAC aborted\"}", "", 0},
        {RADAR, 5260, 3, true, "", "", 0},
        {RADAR, 5260, 4, true, failed + "pre CAC expired\"}", "", 0},
        {RADAR, 5260, 5, true, "", "", 0},
        {RADAR, {}, 0, true, "", "DFS: Bad radar event", 0},
        {RADAR, 5260, {}, true, "", "DFS: Bad radar event", 0},
        {RADAR, 5260, 0, false, "", "DFS: failed to nla_parse radar event data", 0},
        {110, 5260, 0, true, "", "", 0},
        {RADAR, 5500, 0, true, failed + "radar detected during CAC\"}",
         "DFS: Radar detected on 5500 MHz, chan = 100", 0},
        {SWITCH, {}, {}, true, "", "DFS: Channel switch notification", 0},
        {SWITCH, 5180, {}, false, "", "DFS: failed to nla_parse channel switch data", 0},
        {SWITCH, 5180, {}, true, "", "DFS: Switched to 5180 MHz, chan = 36", 1},
        {RADAR, 5260, 1, true, R"({"success":true,"message":"completed successfully"})",
         "DFS: CAC finished on 5260 MHz, chan = 52", 1},
        {SWITCH, 5955, {}, true, "", "DFS: Switched to 5955 MHz, chan = 0", 1},
    };
    std::string last;
    for (const auto &row : rows) {
        log.clear();
        hear(row.command, row.mhz, row.event, row.well_formed);
        const int line = static_cast<int>(&row - rows);
        EXPECT_EQ(sent("dfs.cac_result"), row.cac_result) << "row " << line;
        EXPECT_TRUE(logged(row.logs)) << "row " << line;
        EXPECT_TRUE(*row.logs || logged(": ERROR: ") + logged(": NOTICE: ") == 0) << "row " << line;
        settle();
        const auto checkins = cloud->take_calls();
        EXPECT_EQ(checkins.size(), static_cast<size_t>(row.checkins)) << "row " << line;
        if (row.checkins == 0)
            continue;
        EXPECT_EQ(checkins[0], R"(checkin {"checkin_type":"normal","delayed":true})");
        EXPECT_EQ(uci("tarn_net.local.override_reason"), "dfs channel switch");
        EXPECT_EQ(uci("tarn_net.local.radio_override"), wifi_live_settings()->radio_override);
        EXPECT_NE(uci("tarn_net.local.radio_override"), last) << "each is a new one";
        last = uci("tarn_net.local.radio_override");
    }
    EXPECT_TRUE(dfs_event_detected);
    channel_switch_event_cb(nullptr, nullptr);
    wifi_radio_override_clear();
}

TEST_F(Radar, AnOverrideThatCannotBeCommittedIsTriedAgainAndCountsMeanwhile)
{
    constexpr char OPTION[] = "tarn_net.local.radio_override";
    uloop_clock_virtual(true);
    /// With another process's lock in the way; then the configuration is read anew.
    const auto while_locked = [](auto change) {
        const int rival = open("/etc/config/tarn_net", O_RDONLY | O_CLOEXEC);
        ASSERT_EQ(flock(rival, LOCK_EX), 0);
        change();
        uloop_clock_run_ms(10); // the callback ends
        close(rival);
        EXPECT_EQ(wifi_reload_config(false), 0);
    };
    while_locked([] { wifi_radio_override_record("dfs channel switch"); });
    EXPECT_EQ(uci(OPTION), "");
    const std::string nonce = wifi_live_settings()->radio_override;
    EXPECT_NE(nonce, "");
    uloop_clock_run_ms(31000);
    EXPECT_EQ(uci(OPTION), nonce);

    while_locked([] {
        wifi_radio_override_clear();
        EXPECT_FALSE(wifi_radio_override_delete());
    });
    EXPECT_TRUE(wifi_radio_override_delete());
    EXPECT_EQ(uci(OPTION) + wifi_live_settings()->radio_override, "");
    uloop_clock_virtual(false);
}

} // namespace

// nl80211 messages as records: captured ones and built ones.

#include <linux/nl80211.h>

#include "netlink/netlink_fixture.h"
#include "netlink/nl80211.h"
#include "netlink/nl80211_internal.h"

constexpr uint16_t FAMILY = scripted_kernel::FAMILY;

static nlmsghdr *header_of(bytes &message)
{
    return reinterpret_cast<nlmsghdr *>(message.data());
}

class Nl80211Message : public netlink_fixture {};

/// The numbers with blanks between.
template <typename... Number>
static std::string told(Number... numbers)
{
    std::string text;
    ((text += std::to_string(numbers) + " "), ...);
    return text;
}

TEST_F(Nl80211Message, CapturedInterfacesStationsAndSurveys)
{
    bytes data = read_hex_file("nl80211-interface.hex").at(0);
    ng_nl80211_iface iface;
    ASSERT_TRUE(nl80211_iface_read(header_of(data), &iface));
    EXPECT_EQ(iface.name, "wlan0");
    EXPECT_STREQ(ng_nl80211_iface_type_name(iface.type), "AP");
    EXPECT_EQ(iface.mac, (zu_mac{2, 0, 0, 0, 0, 0}));
    EXPECT_EQ(told(iface.ifindex, iface.wiphy, iface.frequency_mhz, iface.width_mhz,
                   iface.center_mhz, iface.txpower_mbm.value_or(0)),
              "2 0 5180 20 5180 2300 ");

    data = read_hex_file("nl80211-station.hex").at(0);
    ng_nl80211_station station;
    ASSERT_TRUE(nl80211_station_read(header_of(data), &station));
    EXPECT_EQ(station.mac, (zu_mac{2, 0, 0, 0, 2, 0}));
    EXPECT_EQ(told(station.signal_dbm.value_or(0), station.rx_rate_kbps, station.tx_rate_kbps,
                   station.rx_bytes, station.tx_bytes),
              "-20 13000 6000 604 547 ");

    std::vector<bytes> lines_of_surveys = read_hex_file("nl80211-survey.hex");
    EXPECT_EQ(lines_of_surveys.size(), 113u);
    for (bytes &line : lines_of_surveys) {
        ng_nl80211_survey survey = {};
        ASSERT_TRUE(nl80211_survey_read(header_of(line), &survey));
        EXPECT_EQ(told(survey.noise_dbm.value_or(0), survey.in_use), "-92 0 ");
        if (&line == &lines_of_surveys[0]) {
            EXPECT_EQ(told(survey.frequency_mhz, survey.active_ms, survey.busy_ms), "2412 64 8 ");
        }
    }
}

TEST_F(Nl80211Message, CapturedEvents)
{
    std::string told;
    for (const char *file : {"mlme-cac-radar-switch.hex", "mlme-cac-aborted.hex",
                             "mlme-nop-finished.hex", "mlme-pre-cac-expired.hex"}) {
        for (bytes &line : read_hex_file(file)) {
            ng_nl80211_event e;
            ASSERT_TRUE(nl80211_event_read(header_of(line), &e));
            EXPECT_TRUE(e.well_formed);
            auto number = [](const std::optional<uint32_t> &n) {
                return n ? std::to_string(*n) : std::string("-");
            };
            told += std::to_string(e.command) + " phy " + number(e.wiphy) + " if " +
                    number(e.ifindex) + " radar " + number(e.radar_event) + " " +
                    number(e.frequency_mhz) + "/" + std::to_string(e.width_mhz) + "/" +
                    std::to_string(e.center_mhz) + " count " + number(e.ch_switch_count) +
                    (e.ch_switch_block_tx ? " quiet\n" : "\n");
        }
    }
    // Channel 52 at 80 MHz: check finished, radar on both radios, to 149; then the other files.
    EXPECT_EQ(told, "94 phy 0 if 2 radar 1 5260/80/5290 count -\n"
                    "94 phy 1 if - radar 1 5260/80/5290 count -\n"
                    "60 phy 0 if 2 radar - -/0/0 count -\n"
                    "94 phy 0 if - radar 0 5260/80/5290 count -\n"
                    "94 phy 1 if - radar 0 5260/80/5290 count -\n"
                    "110 phy - if 2 radar - 5745/80/5775 count 5 quiet\n"
                    "88 phy - if 2 radar - 5745/80/5775 count -\n"
                    "60 phy 0 if 2 radar - -/0/0 count -\n"
                    "94 phy 0 if 2 radar 2 5500/80/5530 count -\n"
                    "94 phy 0 if 2 radar 1 5280/20/5280 count -\n"
                    "94 phy 1 if - radar 1 5280/20/5280 count -\n"
                    "94 phy 0 if - radar 0 5280/20/5280 count -\n"
                    "94 phy 1 if - radar 0 5280/20/5280 count -\n"
                    "94 phy 0 if - radar 3 5280/20/5280 count -\n"
                    "94 phy 1 if - radar 3 5280/20/5280 count -\n"
                    "94 phy 0 if 2 radar 1 5300/20/5300 count -\n"
                    "94 phy 1 if - radar 1 5300/20/5300 count -\n"
                    "94 phy 1 if - radar 4 5300/20/5300 count -\n"
                    "94 phy 0 if - radar 4 5300/20/5300 count -\n");
    // Frames and stations come in the same group, with attributes of any size.
    for (bytes &line : read_hex_file("mlme-stations.hex")) {
        ng_nl80211_event e;
        ASSERT_TRUE(nl80211_event_read(header_of(line), &e));
        EXPECT_TRUE(e.well_formed);
    }
}

TEST_F(Nl80211Message, AnEventWithAShortAttributeIsToldButNotBelieved)
{
    bytes data = generic_message(
        FAMILY, NL80211_CMD_RADAR_DETECT,
        join({attr_u32(NL80211_ATTR_RADAR_EVENT, 1), attr(NL80211_ATTR_WIPHY_FREQ, bytes(3))}));
    ng_nl80211_event e;
    ASSERT_TRUE(nl80211_event_read(header_of(data), &e));
    EXPECT_EQ(e.command, NG_NL80211_RADAR_DETECT);
    EXPECT_FALSE(e.well_formed);
    EXPECT_FALSE(e.radar_event);
    bytes headless = message(FAMILY, 0, bytes(3));
    EXPECT_FALSE(nl80211_event_read(header_of(headless), &e));
}

TEST_F(Nl80211Message, EntriesWithoutIdentityAreNoEntries)
{
    const bytes index = attr_u32(NL80211_ATTR_IFINDEX, 2),
                name = attr_text(NL80211_ATTR_IFNAME, "a");
    const bytes mac = attr(NL80211_ATTR_MAC, bytes(6, 1)), info = attr(NL80211_ATTR_STA_INFO, {});
    const bytes freq = attr_u32(NL80211_SURVEY_INFO_FREQUENCY, 2412);
    auto iface = [](const bytes &attributes, uint8_t command = NL80211_CMD_NEW_INTERFACE) {
        bytes data = generic_message(FAMILY, command, attributes);
        ng_nl80211_iface out = {};
        return nl80211_iface_read(header_of(data), &out);
    };
    EXPECT_TRUE(iface(join({index, name})));
    EXPECT_FALSE(iface(join({index, name}), NL80211_CMD_DEL_INTERFACE));
    EXPECT_FALSE(iface(index)); // a P2P device
    EXPECT_FALSE(iface(name));
    EXPECT_FALSE(iface(join({index, attr_text(NL80211_ATTR_IFNAME, "sixteen-chars-xx")})));
    EXPECT_FALSE(iface(join({index, name, attr(NL80211_ATTR_MAC, bytes(5))})));

    auto station = [](const bytes &attributes) {
        bytes data = generic_message(FAMILY, NL80211_CMD_NEW_STATION, attributes);
        ng_nl80211_station out = {};
        return nl80211_station_read(header_of(data), &out);
    };
    EXPECT_TRUE(station(join({mac, info})));
    EXPECT_FALSE(station(mac));
    EXPECT_FALSE(station(info));
    EXPECT_FALSE(
        station(join({mac, attr(NL80211_ATTR_STA_INFO, attr(NL80211_STA_INFO_TX_BYTES, {1}))})));

    auto survey = [](const bytes &nest) {
        bytes data = generic_message(FAMILY, NL80211_CMD_NEW_SURVEY_RESULTS,
                                     attr(NL80211_ATTR_SURVEY_INFO, nest));
        ng_nl80211_survey out = {};
        return nl80211_survey_read(header_of(data), &out) && out.in_use;
    };
    EXPECT_TRUE(survey(join({freq, attr(NL80211_SURVEY_INFO_IN_USE, {})})));
    EXPECT_FALSE(survey(attr(NL80211_SURVEY_INFO_IN_USE, {})));
    EXPECT_FALSE(survey(join({freq, attr(NL80211_SURVEY_INFO_TIME, bytes(4))})));
}

TEST_F(Nl80211Message, OldDriversCountIn32BitsAndRatesIn16)
{
    const bytes rate = attr_u16(NL80211_RATE_INFO_BITRATE, 60);
    const bytes both = join({rate, attr_u32(NL80211_RATE_INFO_BITRATE32, 70000)});
    bytes data = generic_message(
        FAMILY, NL80211_CMD_NEW_STATION,
        join({attr(NL80211_ATTR_MAC, bytes(6, 1)),
              attr(NL80211_ATTR_STA_INFO, join({attr_u32(NL80211_STA_INFO_RX_BYTES, 0xfffffffe),
                                                attr(NL80211_STA_INFO_TX_BITRATE, rate),
                                                attr(NL80211_STA_INFO_RX_BITRATE, both)}))}));
    ng_nl80211_station station;
    ASSERT_TRUE(nl80211_station_read(header_of(data), &station));
    EXPECT_EQ(station.rx_bytes, 0xfffffffeu);
    EXPECT_EQ(station.tx_bytes, 0u);
    EXPECT_EQ(station.tx_rate_kbps, 6000u);
    EXPECT_EQ(station.rx_rate_kbps, 7000000u) << "16 bits do not hold it";
    EXPECT_FALSE(station.signal_dbm);
}

static bytes channel(uint32_t mhz, const bytes &more = {})
{
    return attr(1, join({attr_u32(NL80211_FREQUENCY_ATTR_FREQ, mhz), more}));
}

static bytes dfs(uint32_t state, uint32_t ms)
{
    return join({attr(NL80211_FREQUENCY_ATTR_RADAR, {}),
                 attr_u32(NL80211_FREQUENCY_ATTR_DFS_STATE, state),
                 attr_u32(NL80211_FREQUENCY_ATTR_DFS_TIME, ms)});
}

static bytes wiphy(uint32_t index, const bytes &channels, const std::string &name = "phy0")
{
    bytes band = attr(1, attr(NL80211_BAND_ATTR_FREQS, channels));
    return generic_message(
        FAMILY, NL80211_CMD_NEW_WIPHY,
        join({attr_u32(NL80211_ATTR_WIPHY, index), attr_text(NL80211_ATTR_WIPHY_NAME, name),
              attr(NL80211_ATTR_WIPHY_BANDS, band)}));
}

TEST_F(Nl80211Message, ASplitRadioDescriptionIsPutTogether)
{
    std::vector<ng_nl80211_radio> radios;
    bytes pieces[] = {
        wiphy(0, channel(2412)),
        wiphy(1, channel(5180), "phy1"),
        wiphy(0, join({channel(5260, dfs(NL80211_DFS_AVAILABLE, 70000)), channel(5280)})),
        generic_message(FAMILY, NL80211_CMD_NEW_WIPHY, attr_u32(NL80211_ATTR_WIPHY, 0)),
        wiphy(1, channel(5845, attr(NL80211_FREQUENCY_ATTR_DISABLED, {})), "phy1"),
        wiphy(0, attr(1, attr(NL80211_FREQUENCY_ATTR_FREQ, bytes(2)))), // no frequency: skipped
    };
    for (bytes &piece : pieces)
        EXPECT_TRUE(nl80211_radio_merge(header_of(piece), &radios));
    ASSERT_EQ(radios.size(), 2u);
    EXPECT_EQ(radios[1].name, "phy1");
    EXPECT_TRUE(radios[1].channels.at(1).disabled);
    const auto &channels = radios[0].channels;
    ASSERT_EQ(channels.size(), 3u);
    EXPECT_EQ(channels[0].frequency_mhz, 2412u);
    EXPECT_FALSE(channels[0].radar);
    EXPECT_FALSE(channels[0].dfs_state);
    EXPECT_TRUE(channels[1].radar);
    EXPECT_EQ(channels[1].dfs_state, NG_NL80211_DFS_AVAILABLE);
    EXPECT_EQ(channels[1].dfs_state_ms, 70000u);

    bytes nameless = generic_message(FAMILY, NL80211_CMD_NEW_WIPHY, attr_text(2, "phy9"));
    EXPECT_FALSE(nl80211_radio_merge(header_of(nameless), &radios));
    EXPECT_EQ(radios.size(), 2u);
}

TEST_F(Nl80211Message, ChannelsAndFrequencies)
{
    const struct {
        int mhz, channel;
        const char *logged;
    } cases[] = {
        {2407, 0, nullptr},  {2412, 1, nullptr},  {2472, 13, nullptr},  {2484, 14, nullptr},
        {5180, 36, nullptr}, {5320, 64, nullptr}, {5500, 100, nullptr}, {5865, 173, nullptr},
        {2413, 0, "6"},      {2483, 0, "76"},     {5182, 0, "182"},     {5864, 0, "864"},
        {2406, 0, "2406"},   {2485, 0, "2485"},   {5175, 0, "5175"},    {5325, 0, "5325"},
        {5495, 0, "5495"},   {5870, 0, "5870"},   {5955, 0, "5955"},    {0, 0, "0"},
        {-5, 0, "-5"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(sys_freq2chan(c.mhz), c.channel) << c.mhz;
        lines expected;
        if (c.logged)
            expected.push_back(std::string("ERROR unhandled freq ") + c.logged + " : returning 0");
        EXPECT_EQ(log.take(), expected);
        if (c.channel) {
            EXPECT_EQ(sys_chan2freq(c.channel), c.mhz);
        }
    }
    for (int channel : {0, -1, 15, 35, 65, 99, 174, 0x7fffffff, -0x7fffffff})
        EXPECT_EQ(sys_chan2freq(channel), 0) << channel;
}

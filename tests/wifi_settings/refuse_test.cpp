// Every reason to refuse a document, in its words, with the lines of the sections around it.
#include "document.h"

namespace {

using lines = std::vector<std::string>;

struct refusal {
    const char *json;
    lines errors;
};

struct Refuse : testing::Test {
    void SetUp() override { ASSERT_TRUE(_parse_platform_data(PLATFORM)); }
    static void expect(const std::string &json, const lines &errors,
                       const wifi_settings &before = configured_node())
    {
        const parsed result(json, before);
        EXPECT_EQ(result.status, 2) << json;
        EXPECT_EQ(result.errors, errors) << json;
    }
};

constexpr char MALFORMED[] = "Unable to parse arguments";
constexpr char MESH[] = "Failed to parse mesh data";
constexpr char REGULATORY[] = "Failed to parse regulatory data";
constexpr char RADIOS[] = "Failed to parse radios data";
constexpr char SSIDS[] = "Failed to parse ssids data";
constexpr char NEIGHBORS[] = "Failed to parse neighbor list";

TEST_F(Refuse, SaysWhatIsWrongAndInWhichSection)
{
    const refusal cases[] = {
        {"{}", {MALFORMED}},
        {R"({"mesh":{}})", {"Unable to parse mesh arguments", MESH}},
        {R"({"mesh":{"batman":{}}})",
         {"Unable to parse batman arguments", "Unable to parse batman settings", MESH}},
        {R"({"regulatory":{}})", {MALFORMED, REGULATORY}},
        {R"({"regulatory":{"country":"USA"}})",
         {"Got incorrect length for country 'USA'", REGULATORY}},
        {R"({"regulatory":{"country":""}})", {"Got incorrect length for country ''", REGULATORY}},
        {R"({"regulatory":{"dfs":{}}})", {MALFORMED, "Failed to parse DFS", REGULATORY}},
        {R"({"radios":[{"band":"5GHz"},{}]})", {MALFORMED, RADIOS}},
        {R"({"radios":["5GHz"]})", {MALFORMED, RADIOS}},
        {R"({"radios":[{"channel":6}]})", {"Failed to find 'band' key in msg", RADIOS}},
        {R"({"radios":[{"band":5}]})", {"Failed to find 'band' key in msg", RADIOS}},
        {R"({"radios":[{"band":"5GHz_low"}]})", {"invalid radio index: -1", RADIOS}},
        {R"({"ssids":[{}]})", {MALFORMED, SSIDS}},
        {R"({"ssids":[null]})", {MALFORMED, SSIDS}},
        {R"({"ssids":[{"enable":true}]})", {"Failed to find 'index' key in msg", SSIDS}},
        {R"({"ssids":[{"index":0}]})", {"Invalid ssid index: -1", SSIDS}},
        {R"({"ssids":[{"index":1},{"index":5}]})", {"Invalid ssid index: 4", SSIDS}},
        {R"({"ssids":[{"index":-2147483648}]})", {"Invalid ssid index: 2147483647", SSIDS}},
        {R"({"ssids":[{"index":3,"bands":[{}]}]})",
         {MALFORMED, "Failed to parse band, ssid_idx = 2", SSIDS}},
        {R"({"ssids":[{"index":1,"bands":[7]}]})",
         {MALFORMED, "Failed to parse band, ssid_idx = 0", SSIDS}},
        {R"({"ssids":[{"index":4,"bands":[{"enable":true}]}]})",
         {"bands array object doesn't contain a 'band' member",
          "Failed to parse band, ssid_idx = 3", SSIDS}},
        {R"({"ssids":[{"index":1,"bands":[{"band":"60GHz"}]}]})",
         {"Invalid band: -1:60GHz", "Failed to parse band, ssid_idx = 0", SSIDS}},
        {R"({"ssids":[{"index":1,"bands":[{"band":"5GHz_high"}]}]})",
         {"Invalid band: 2:5GHz_high", "Failed to parse band, ssid_idx = 0", SSIDS}},
        {R"({"ssids":[{"index":2,"dhcp":{}}]})",
         {MALFORMED, "Failed to parse DHCP settings, ssid_idx = 1", SSIDS}},
        {R"({"ssids":[{"index":2,"dhcp":{"relay":"10.0.0.1"}}]})",
         {"Unable to get DHCP enable", "Failed to parse DHCP settings, ssid_idx = 1", SSIDS}},
        {R"({"neighbors":[5]})", {"Neighbor list element is not a table", NEIGHBORS}},
        {R"({"neighbors":[{"bssid":"02:00:00:00:00:01","ssid_index":1}]})",
         {"Failed to find 'nr' key in neighbor list element", NEIGHBORS}},
        {R"({"neighbors":[{"bssid":"nobody","ssid_index":1,"nr":"00"}]})",
         {"Got incorrect format for neighbor bssid 'nobody'", NEIGHBORS}},
        {R"({"neighbors":[{"bssid":"02:00:00:00:00:01","ssid_index":5,"nr":"00"}]})",
         {"Invalid ssid index or report of neighbor '02:00:00:00:00:01'", NEIGHBORS}},
        {R"({"neighbors":[{"bssid":"02:00:00:00:00:01","ssid_index":1,"nr":"000"}]})",
         {"Invalid ssid index or report of neighbor '02:00:00:00:00:01'", NEIGHBORS}},
        {R"({"orphan_connect":{}})", {"Unable to parse orphan_connect arguments"}},
        {R"({"orphan_connect":{"bssid":"b"}})", {"No radio for orphan_connect"}},
        {R"({"orphan_connect":{"radio":"6GHz","bssid":"b"}})",
         {"Invalid radio for orphan_connect"}},
        {R"({"orphan_connect":{"radio":"5GHz"}})", {"No bssid for orphan_connect"}},
    };
    for (const refusal &each : cases)
        expect(each.json, each.errors);
}

TEST_F(Refuse, ChannelsThatNoRadioMayHave)
{
    const auto is_taken = [](int channel) {
        return parsed(R"({"radios":[{"band":"2.4GHz","channel":)" + std::to_string(channel) + "}]}",
                      configured_node())
                   .status == 0;
    };
    std::string taken;
    for (int channel = -1; channel <= 260; channel++)
        if (is_taken(channel))
            taken += std::to_string(channel) + " ";
    EXPECT_EQ(taken,
              "1 2 3 4 5 6 7 8 9 10 11 12 13 14 36 38 40 42 44 46 48 50 52 54 56 58 60 62 64 "
              "100 102 104 106 108 110 112 114 116 118 120 122 124 126 128 130 132 134 136 "
              "138 140 142 144 149 151 153 155 157 159 161 165 169 173 ");
    expect(R"({"radios":[{"band":"5GHz","channel":-2147483612}]})",
           {"invalid channel: -2147483612", RADIOS}); // 36 in its low byte
    // A radio that has no channel yet, and gets none.
    expect(R"({"radios":[{"band":"5GHz","enable":true}]})", {"invalid channel: 0", RADIOS},
           wifi_settings{});
}

TEST_F(Refuse, RadiosThatThePlatformDoesNotHave)
{
    ASSERT_TRUE(_parse_platform_data(R"({"wireless": {"num_radios": 4, "wifi_radios":
        [{"band": "2.4GHz"}, {}, {"band": "5GHz_low"}, {"band": "5GHz_high"}]}})"));
    expect(R"({"radios":[{"band":"5GHz_high","channel":36}]})", {"invalid radio index: 3", RADIOS});
    EXPECT_EQ(parsed(R"({"radios":[{"band":"5GHz_low","channel":36}]})", configured_node()).status,
              0);
    ASSERT_TRUE(_parse_platform_data(R"({"wireless": {"num_radios": 1, "wifi_radios":
        [{"band": "2.4GHz"}, {"band": "5GHz"}]}})"));
    expect(R"({"radios":[{"band":"5GHz","channel":36}]})", {"invalid radio index: 1", RADIOS});
    ASSERT_TRUE(_parse_platform_data(R"({"wireless": {}})"));
    expect(R"({"radios":[{"band":"5GHz","channel":36}]})",
           {"Wireless platform data has no wifi_radios member", "invalid radio index: -1", RADIOS});
}

} // namespace

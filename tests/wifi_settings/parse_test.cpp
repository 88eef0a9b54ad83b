// What a document does to the record.
#include "document.h"
#include "wifi/wifi_internal.h"

namespace {

struct Parse : testing::Test {
    wifi_settings live = configured_node();

    void SetUp() override { ASSERT_TRUE(_parse_platform_data(PLATFORM)); }
    /// Parses a document that must be taken.
    parsed take(const std::string &json) const
    {
        parsed result(json, live);
        EXPECT_EQ(result.status, 0) << json << result.errors.size();
        return result;
    }
    wifi_ssid_settings take_ssid(const std::string &members) const
    {
        return take(R"({"ssids":[{"index":1,)" + members + "}]}")->ssids[0];
    }
};

std::string repeated(const std::string &element, int count)
{
    std::string list;
    for (int i = 0; i < count; i++)
        list += (i ? "," : "") + element;
    return "[" + list + "]";
}

TEST_F(Parse, WhatIsOmittedStays)
{
    memset(&live, 1, sizeof(live));
    live.radio_override[0] = '\0';
    wifi_settings expected = live;
    expected.enable = false;
    expected.ap_scan = false;      // by every document
    expected.save_orphans = false; // by a document without the key
    const parsed result = take(R"({"enable":false})");
    EXPECT_EQ(memcmp(result.settings.get(), &expected, sizeof(expected)), 0);

    // A key of another type is as one that is not there; the scanning radio has no settings.
    for (const char *odd :
         {R"({"enable":0,"node_id":true,"mesh":[],"ssids":{"a":1},"unknown":1,"radios":7})",
          R"({"ap_scan":true,"node_id":1.5,"scanning_period":5000000000,"antenna_type":"horn"})",
          R"({"regulatory":{"country":7,"dfs":false},"mesh":{"key":9},"presence_enable":null})",
          R"({"radios":[{"band":"scanning","channel":0,"enable":true,"mode":"HT20"}],"enable":1})"})
        EXPECT_EQ(take(odd)->enable, live.enable) << odd;
}

TEST_F(Parse, ScanningPeriodIsInSecondsAsThirtyTwoBitsHoldThem)
{
    EXPECT_EQ(take(R"({"scanning_period":30})")->scanning_period, 1800);
    EXPECT_EQ(take(R"({"scanning_period":71582789})")->scanning_period, 44);
}

TEST_F(Parse, ListsReplaceWhatWasThereAndStopWhenFull)
{
    memset(live.ssids[0].acl_list, 'x', sizeof(live.ssids[0].acl_list));
    memset(live.dfs_channels, 1, sizeof(live.dfs_channels));
    const std::string mac = "\"02:00:00:00:00:01\"";
    wifi_ssid_settings ssid =
        take_ssid(R"("access_control_list":["02:00:00:00:00:0a",5,"no mac","2:0:0:0:0:b trailing",)"
                  R"("2:0:0:0:0:b:7"],)"
                  R"("dns_servers":["10.0.0.1",true,"10.0.0.2"])");
    EXPECT_STREQ(ssid.acl_list[0], "02:00:00:00:00:0a");
    EXPECT_STREQ(ssid.acl_list[1], "2:0:0:0:0:b trail"); // what scans as six bytes is taken
    EXPECT_STREQ(ssid.acl_list[2], "2:0:0:0:0:b:7");
    EXPECT_STREQ(ssid.acl_list[3], "");
    EXPECT_STREQ(ssid.acl_list[WIFI_ACL_MAX - 1], "");
    EXPECT_STREQ(ssid.dns_servers[1], "10.0.0.2");
    EXPECT_STREQ(ssid.dns_servers[2], "");

    std::string acl = repeated(mac, 1024);
    acl.replace(acl.size() - 1, 1, ",\"02:00:00:00:00:02\"]");
    ssid = take_ssid("\"access_control_list\":" + acl + R"(,"dns_servers":["a","b","c","d","e"])");
    EXPECT_STREQ(ssid.acl_list[WIFI_ACL_MAX - 1], "02:00:00:00:00:01");
    EXPECT_STREQ(ssid.dns_servers[3], "d");
    EXPECT_FALSE(ssid.dns_intercept); // the members behind the lists
    EXPECT_EQ(ssid.bands[0].enable, 0u);
    EXPECT_STREQ(take_ssid(R"("access_control_list":[])").acl_list[0], "");

    parsed dfs = take(R"({"regulatory":{"dfs":{"channels":)" + repeated("\"x\",52", 65) + "}}}");
    EXPECT_EQ(dfs->dfs_channel_count, WIFI_DFS_CHANNELS_MAX);
    EXPECT_EQ(dfs->dfs_channels[63], 52);
    dfs = take(R"({"regulatory":{"dfs":{"channels":[100]}}})");
    EXPECT_EQ(dfs->dfs_channel_count, 1);
    EXPECT_EQ(dfs->dfs_channels[1], 0);
    live.dfs_channel_count = 3;
    EXPECT_EQ(take(R"({"regulatory":{"dfs":{"enable":true}}})")->dfs_channel_count, 3);
}

TEST_F(Parse, AnSsidIsConfiguredByItsElement)
{
    live.ssids[2].dhcp = {true, "10.0.0.1", "255.0.0.0", "10.0.0.9", 1, 2, "3h"};
    const parsed result = take(R"({"ssids":[
        {"index":3,"enable":true,"dhcp":{"enable":false,"gateway_ip":"1.1.1.1"},
         "bands":[{"band":"5GHz","enable":true,"ssid":"five"},{"band":"2.4GHz"}]},
        {"index":1,"dhcp":{"enable":true,"gateway_ip":"1.1.1.1","relay":"2.2.2.2","start":9}}]})");
    EXPECT_TRUE(result->ssids[0].configured && result->ssids[2].configured);
    EXPECT_FALSE(result->ssids[1].configured || result->ssids[3].configured);
    EXPECT_EQ(result->ssids[2].bands[WIFI_BAND_5GHZ].enable, 1u);
    EXPECT_STREQ(result->ssids[2].bands[WIFI_BAND_5GHZ].ssid, "five");
    // Switched off, only the relay is forgotten.
    EXPECT_FALSE(result->ssids[2].dhcp.enable);
    EXPECT_STREQ(result->ssids[2].dhcp.gateway_ip, "10.0.0.1");
    EXPECT_STREQ(result->ssids[2].dhcp.relay, "");
    EXPECT_EQ(result->ssids[2].dhcp.num_leases, 2);
    EXPECT_TRUE(result->ssids[0].dhcp.enable);
    EXPECT_STREQ(result->ssids[0].dhcp.relay, "2.2.2.2");
    EXPECT_EQ(result->ssids[0].dhcp.start, 9);
}

//  override in force   document                          outcome
TEST_F(Parse, ALocalOverrideHoldsUntilItsNonceComesBack)
{
    strcpy(live.radio_override, "12.34");
    strcpy(live.override_reason, "orphan_connect");
    strcpy(live.orphan_connect_bssid, "02:00:00:00:00:01");
    live.orphan_connect_radio = 1;
    for (const char *refused : {R"({"enable":true})", R"({"channel_change_nonce":"12.3"})",
                                R"({"channel_change_nonce":"","enable":true})"}) {
        const parsed result(refused, live);
        EXPECT_EQ(result.status, 2) << refused;
        EXPECT_EQ(result.errors, std::vector<std::string>{
                                     "Local radio settings override, ignoring configuration"});
    }
    const parsed acknowledged = take(R"({"channel_change_nonce":"12.34"})");
    EXPECT_STREQ(acknowledged->radio_override, "");
    EXPECT_STREQ(acknowledged->override_reason, "");
    EXPECT_STREQ(acknowledged->orphan_connect_bssid, "");
    EXPECT_EQ(acknowledged->orphan_connect_radio, 0);

    // false lets a document pass, and with it what orphan_connect would say.
    const parsed passed = take(R"({"lonely_friend":false,"orphan_connect":{"radio":"none"}})");
    EXPECT_EQ(passed.override_reason, "");
    EXPECT_STREQ(passed->radio_override, "12.34");
    EXPECT_FALSE(passed->ssids[0].configured);

    const parsed lonely = take(R"({"lonely_friend":true})");
    EXPECT_EQ(lonely.override_reason, "lonely");
    const parsed orphan =
        take(R"({"orphan_connect":{"radio":"scanning","bssid":"02:00:00:00:00:02"}})");
    EXPECT_EQ(orphan.override_reason, "orphan_connect");
    EXPECT_EQ(orphan->orphan_connect_radio, 2);
    EXPECT_STREQ(orphan->orphan_connect_bssid, "02:00:00:00:00:02");
    for (int i = 0; i < WIFI_SSIDS; i++)
        EXPECT_TRUE(lonely->ssids[i].configured && orphan->ssids[i].configured);
}

} // namespace

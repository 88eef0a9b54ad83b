// The settings as they are shown: whole documents compared, order included.
#include "document.h"
#include "wifi/settings/dump.h"

namespace {

std::string dump(const wifi_settings &settings, bool include_secrets)
{
    blob_buffer buf;
    blobmsg_buf_init(&buf);
    EXPECT_EQ(wifi_dump_settings(&buf, &settings, include_secrets), 0);
    const zu_text json(blobmsg_format_json_indent(buf.head, true, 0));
    return std::string(json.get()) + "\n";
}

std::string expected(const std::string &name)
{
    return read_file(std::string(TEST_DATA_DIR) + "/wifi_settings/" + name + ".json");
}

struct SettingsDump : testing::Test {
    void SetUp() override { ASSERT_TRUE(_parse_platform_data(PLATFORM)); }
};

TEST_F(SettingsDump, ShowsTheWholeRecordWithAndWithoutSecrets)
{
    const document office(example("office"), true);
    const parsed result(office.params(), wifi_settings{});
    ASSERT_EQ(result.status, 0);
    wifi_settings &settings = *result.settings;
    // What no document sets.
    settings.dpi_enable = true;
    settings.wired_client_ssid = 3;
    settings.disable_wired_client = true;
    settings.scanning_phy = 2;
    settings.recover_config_errors = true;
    settings.orphan_connect_radio = 1;
    settings.ssids[0].shaping_enable = true;
    strcpy(settings.radio_override, "12.34");
    strcpy(settings.override_reason, "lonely");
    strcpy(settings.orphan_connect_bssid, "02:00:00:00:00:01");
    EXPECT_EQ(dump(settings, true), expected("office_with_secrets"));
    EXPECT_EQ(dump(settings, false), expected("office"));
}

TEST_F(SettingsDump, LeavesOutWhatDoesNotApply)
{
    wifi_settings settings{};
    settings.dfs_channel_count = 2;
    settings.presence_interval = 5;
    settings.antenna_type = 7;
    strcpy(settings.ssids[0].key, "secret of a disabled network");
    EXPECT_EQ(dump(settings, true), expected("empty"));
    const wifi_settings unchanged = settings;
    for (const int type : {-1, 0, 3, INT32_MAX}) {
        settings.antenna_type = type;
        EXPECT_EQ(dump(settings, true), dump(unchanged, true)) << type;
    }

    // Lists end at their first empty entry; the scanning band is not shown.
    wifi_ssid_settings &ssid = settings.ssids[1];
    ssid.enable = true;
    strcpy(ssid.dns_servers[0], "10.0.0.1");
    strcpy(ssid.dns_servers[1], "192.168.100.100");
    strcpy(ssid.dns_servers[3], "unseen");
    strcpy(ssid.acl_list[0], "02:00:00:00:00:01");
    strcpy(ssid.acl_list[1], "02:00:00:00:00:02");
    strcpy(ssid.acl_list[2], "2:0:0:0:0:3");
    strcpy(ssid.acl_list[3], "02:00:00:00:00:04");
    strcpy(ssid.acl_list[5], "unseen");
    strcpy(ssid.bands[WIFI_BAND_SCANNING].ssid, "unseen");
    std::string shown = dump(settings, true);
    std::erase_if(shown, isspace);
    EXPECT_EQ(shown.find("unseen"), std::string::npos);
    EXPECT_NE(shown.find(R"("dns_servers":["10.0.0.1","192.168.100.100"],"acl_list":)"
                         R"(["02:00:00:00:00:01","02:00:00:00:00:02","2:0:0:0:0:3",)"
                         R"("02:00:00:00:00:04"],"bands":{},)"),
              std::string::npos)
        << shown;
}

TEST_F(SettingsDump, NeedsABuffer)
{
    EXPECT_LT(wifi_dump_settings(nullptr, &configured_node(), true), 0);
    EXPECT_LT(wifi_dump_settings_and_state(nullptr, true), 0);
}

} // namespace

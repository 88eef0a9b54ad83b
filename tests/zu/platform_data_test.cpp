// Platform data: what each question answers for whole, partial and broken documents.
#include <gtest/gtest.h>
#include <vector>

#include "platform/zu/log.h"
#include "platform/zu/platform_data.h"

namespace {

struct PlatformData : testing::Test {
    std::vector<std::string> errors;

    void SetUp() override
    {
        const auto listen = [](const char *message, void *priv) {
            static_cast<PlatformData *>(priv)->errors.push_back(message);
        };
        zu_log_set_error_listener(listen, this);
    }
    void TearDown() override { zu_log_set_error_listener(nullptr, nullptr); }

    std::string error()
    {
        const std::string last = errors.empty() ? "" : errors.back();
        errors.clear();
        return last;
    }
    void expect_empty()
    {
        errors.clear();
        EXPECT_EQ(platform_get_model(), nullptr);
        EXPECT_EQ(get_platform_ctl_variant(), nullptr);
        EXPECT_EQ(platform_get_management_mac(), nullptr);
        EXPECT_FALSE(platform_wireless_get_dfs_support());
        EXPECT_FALSE(platform_wireless_get_scanning_support());
        EXPECT_EQ(error(), "");
        EXPECT_EQ(platform_wireless_get_num_radios(), -1);
        EXPECT_EQ(error(), "Wireless platform data has no num_radios member");
        EXPECT_EQ(platform_wireless_get_radio_idx("5GHz"), -1);
        EXPECT_EQ(error(), "Wireless platform data has no wifi_radios member");
        EXPECT_EQ(platform_wireless_get_radio_band_name(0), nullptr);
        EXPECT_EQ(error(), "Wireless platform data has no wifi_radios member");
    }
};

constexpr const char *WHOLE = R"({"model": "AP-3", "ctl_variant": "outdoor", "later": [1],
    "management_mac": "02:00:00:12:34:56",
    "wireless": {"num_radios": 3, "dfs_support": true, "scanning_support": true,
        "wifi_radios": [{"band": "2.4GHz"}, {"band": "5GHz", "chains": 4}, {"band": "scanning"}]}})";

TEST_F(PlatformData, AWholeDocumentAnswersEveryQuestion)
{
    ASSERT_TRUE(_parse_platform_data(WHOLE));
    EXPECT_STREQ(platform_get_model(), "AP-3");
    EXPECT_STREQ(get_platform_ctl_variant(), "outdoor");
    EXPECT_STREQ(platform_get_management_mac(), "02:00:00:12:34:56");
    EXPECT_EQ(platform_wireless_get_num_radios(), 3);
    EXPECT_TRUE(platform_wireless_get_dfs_support());
    EXPECT_TRUE(platform_wireless_get_scanning_support());
    EXPECT_EQ(platform_wireless_get_radio_idx("5GHz"), 1);
    EXPECT_EQ(platform_wireless_get_radio_idx("5GHz_low"), -1);
    EXPECT_STREQ(platform_wireless_get_radio_band_name(2), "scanning");
    EXPECT_EQ(error(), "");
    for (const int index : {-1, 3}) {
        EXPECT_EQ(platform_wireless_get_radio_band_name(index), nullptr);
        EXPECT_EQ(error(), "Invalid radio index " + std::to_string(index));
    }
}

TEST_F(PlatformData, ABrokenDocumentLeavesNothingOfTheOneBefore)
{
    const std::string deep = std::string(100, '[') + std::string(100, ']');
    const std::string huge = "{\"model\": \"" + std::string(100000, 'x') + "\"}";
    for (const std::string &text :
         {std::string(), std::string("{"), std::string("[]"), std::string("null"),
          std::string("{\"model\": \"AP-3\"} trailing"), std::string("{'model': 'AP-3'}"),
          "{\"model\": \"AP-3\", \"wireless\": " + deep + "}", huge}) {
        ASSERT_TRUE(_parse_platform_data(WHOLE));
        EXPECT_FALSE(_parse_platform_data(text.c_str())) << text.substr(0, 60);
        EXPECT_NE(error(), "") << text.substr(0, 60);
        expect_empty();
    }
}

TEST_F(PlatformData, MembersOfTheWrongTypeAreAsMissing)
{
    for (const char *text :
         {"{}", R"({"wireless": {}})", R"({"wireless": []})",
          R"({"model": 1, "ctl_variant": null, "management_mac": {}, "wireless":
              {"num_radios": "3", "dfs_support": 1, "scanning_support": "true", "wifi_radios": {}}})",
          R"({"wireless": {"num_radios": -1}})", R"({"wireless": {"num_radios": 4294967299}})"}) {
        ASSERT_TRUE(_parse_platform_data(text)) << text;
        expect_empty();
    }
}

TEST_F(PlatformData, ARadioWithoutABandKeepsItsPlace)
{
    ASSERT_TRUE(_parse_platform_data(
        R"({"wireless": {"wifi_radios": [{}, 7, {"band": 5}, null, {"band": "5GHz"}]}})"));
    EXPECT_EQ(platform_wireless_get_radio_idx("5GHz"), 4);
    EXPECT_EQ(platform_wireless_get_radio_idx(""), -1);
    EXPECT_EQ(platform_wireless_get_radio_band_name(1), nullptr);
    EXPECT_EQ(error(), "Invalid radio index 1");
}

} // namespace

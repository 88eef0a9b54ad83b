// The list of neighbouring access points between the push that brings it, the verdict on that push,
// and what an access point is sent.
#include <cstdio>

extern "C" {
#include <libubox/uloop.h>
}

#include "support/json_message.h"
#include "wifi/wifi.h"
#include "wifi/wifi_internal.h"

namespace {

struct list_message : json_message {
    explicit list_message(const std::string &elements)
        : json_message("{\"list\":[" + elements + "]}")
    {
    }
    blob_attr *list() const { return static_cast<blob_attr *>(blob_data(head)); }
};

std::string element(const char *bssid, int ssid, const char *report)
{
    return std::string("{\"bssid\":\"") + bssid + "\",\"ssid_index\":" + std::to_string(ssid) +
           ",\"nr\":\"" + report + "\"}";
}

class Neighbors : public ::testing::Test {
protected:
    void SetUp() override
    {
        uloop_init();
        for (wifi_ssid_settings &ssid : gWifi_live_settings.ssids)
            snprintf(ssid.ssid, sizeof ssid.ssid, "net");
        push("", true);
    }
    void TearDown() override { uloop_done(); }
    static void push(const std::string &elements, bool success)
    {
        wifi_stage_neighbors(list_message(elements).list());
        parse_config_event_neighbors(success);
    }
    /// What the access point `bssid` of SSID 1 is told.
    static std::string told(const char *bssid)
    {
        blob_buffer message;
        blob_buf_init(&message, 0);
        void *list = blobmsg_open_array(&message, "list");
        wifi_neighbors_add_to(&message, 1, bssid);
        blobmsg_close_array(&message, list);
        return zu_blobmsg_json(message.head, true).get();
    }
};

constexpr char A[] = "02:00:00:00:00:0a";
constexpr char B[] = "02:00:00:00:00:0b";

TEST_F(Neighbors, AListCountsOnceItsPushIsConfirmed)
{
    const std::string both = element(A, 1, "0a0a") + "," + element(B, 1, "0b");
    wifi_stage_neighbors(list_message(both).list());
    EXPECT_EQ(told("none"), R"({"list":[]})");
    parse_config_event_neighbors(true);
    EXPECT_EQ(told("02:00:00:00:00:0A"), R"({"list":[["02:00:00:00:00:0b","net","0b"]]})")
        << "without itself, however it spells its address";

    push(element(A, 1, "ff"), false);
    parse_config_event_neighbors(true); // the verdict on a push without a list
    EXPECT_EQ(told(A), R"({"list":[["02:00:00:00:00:0b","net","0b"]]})");
    push(element(A, 2, "0a"), true);
    EXPECT_EQ(told(B), R"({"list":[]})") << "another SSID's";
    push(element(A, 1, "0a"), true);
    push("", true);
    EXPECT_EQ(told(B), R"({"list":[]})") << "an empty list empties it";
}

TEST_F(Neighbors, OneBadElementRefusesTheList)
{
    const std::string good = element(B, 1, "0b");
    const std::string long_report(1024, 'a');
    for (const std::string &bad :
         {element("02:00:00:00:00", 1, "0a"), element("02:00:00:00:00:0a\\n", 1, "0a"),
          element("02:00:00:00:00:0a ", 1, "0a"), element(A, 0, "0a"), element(A, 5, "0a"),
          element(A, 1, "0"), element(A, 1, "0g"), element(A, 1, ""),
          element(A, 1, long_report.c_str()), std::string(R"({"bssid":"02:00:00:00:00:0a"})"),
          std::string("{}"), std::string("\"02:00:00:00:00:0a\""), std::string("7")}) {
        const std::string shown = bad.substr(0, 80);
        EXPECT_EQ(wifi_check_neighbors(list_message(good + "," + bad).list()), -1) << shown;
        push(good + "," + bad, true);
        EXPECT_EQ(told(A), R"({"list":[]})") << shown;
    }
    EXPECT_EQ(wifi_check_neighbors(list_message(good).list()), 0);
}

} // namespace

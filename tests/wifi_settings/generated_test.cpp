// A thousand generated documents, each refused in the end, must leave no trace: neither in the live
// record, compared bit for bit, nor in UCI.
#include <json-c/json.h>
#include <json-c/json_pointer.h>
#include <sstream>

#include "document.h"
#include "platform/zu/ng_uci.h"
#include "support/run.h"
#include "wifi/settings/document.h"
#include "wifi/wifi_internal.h"

namespace {

struct json_putter {
    void operator()(json_object *object) const { json_object_put(object); }
};
using json_handle = std::unique_ptr<json_object, json_putter>;

/// Every table of the document below, with its rows.
const std::pair<const char *, const settings_level *> TABLES[] = {
    {"", &SETTINGS_TOP},
    {"/mesh", &SETTINGS_MESH},
    {"/mesh/batman", &SETTINGS_BATMAN},
    {"/regulatory", &SETTINGS_REGULATORY},
    {"/regulatory/dfs", &SETTINGS_DFS},
    {"/radios/1", &SETTINGS_RADIO},
    {"/ssids/0", &SETTINGS_SSID},
    {"/ssids/0/bands/1", &SETTINGS_BAND},
    {"/ssids/0/dhcp", &SETTINGS_DHCP},
    {"/neighbors/0", &SETTINGS_NEIGHBOR},
    {"/orphan_connect", &SETTINGS_ORPHAN_CONNECT},
};

/// Refused by its last part alone: everything before has been taken into the working record.
constexpr char DOCUMENT[] =
    R"({"enable":true,"node_id":99,"mesh":{"key":"m","batman":{"hop_penalty":
    1}},"regulatory":{"country":"SE","dfs":{"enable":true,"channels":[52]}},"radios":[{"band":"2.4GHz",
    "channel":1},{"band":"5GHz","channel":44}],"ssids":[{"index":1,"ssid":"changed","key":"k","bands":[
    {"band":"2.4GHz","ssid":"two"},{"band":"5GHz","ssid":"five"}],"dhcp":{"enable":true,"start":5},
    "access_control_list":["02:00:00:00:00:09"]}],"neighbors":[{"bssid":"02:00:00:00:00:08",
    "ssid_index":1,"nr":"00"}],"save_orphans":[],"orphan_connect":{"radio":"5GHz"}})";

/// Values of every type, at and past every limit.
std::vector<std::string> values()
{
    std::vector<std::string> list;
    std::istringstream plain(R"(null true false 0 -1 4 5 255 2147483647 -2147483648 2147483648 1e300
        "" "x" "\n\u001b" [] [[]] [{}] [null,1,"x"] {} {"a":{"b":[1]}})");
    for (std::string value; plain >> value;)
        list.push_back(value);
    for (const size_t length : {1, 2, 3, 15, 16, 31, 32, 33, 127, 128, 4096, 1000000})
        list.push_back("\"" + std::string(length, 'y') + "\"");
    std::string full;
    for (int i = 0; i < 1100; i++)
        full += (i ? ",\"" : "\"") + std::string("02:00:00:00:00:01\"");
    list.push_back("[" + full + "]");
    return list;
}

struct Generated : testing::Test {
    const std::string uci = everything_of_uci();
    wifi_settings before;
    const std::vector<std::string> all = values();

    void SetUp() override
    {
        ASSERT_TRUE(_parse_platform_data(PLATFORM));
        uloop_init();
        auto *bytes = reinterpret_cast<unsigned char *>(&gWifi_live_settings);
        for (size_t i = 0; i < sizeof(gWifi_live_settings); i++)
            bytes[i] = static_cast<unsigned char>(i % 127 + 1); // every byte tells itself
        gWifi_live_settings.radios[0].channel = gWifi_live_settings.radios[1].channel = 36;
        memcpy(&before, &gWifi_live_settings, sizeof(before));
    }
    void TearDown() override
    {
        gWifi_live_settings = {};
        uloop_done();
    }
    static std::string everything_of_uci()
    {
        return run("cat /etc/config/* /tmp/.uci/* 2>/dev/null; ls /etc/config /tmp/.uci").output;
    }
    void expect_refused(blob_attr *params, const std::string &what)
    {
        error_lines errors;
        ASSERT_EQ(wifid_parse_config(params), 2) << what;
        EXPECT_FALSE(errors.empty()) << what;
        ASSERT_EQ(memcmp(&before, &gWifi_live_settings, sizeof(before)), 0) << what;
    }
    void expect_no_trace_in_uci()
    {
        (void)ng_uci_flush();
        EXPECT_EQ(everything_of_uci(), uci);
    }
    /// The document with one key of one table replaced; empty when that cannot be.
    static std::string variant(const std::string &table, const char *key, const std::string &value)
    {
        json_object *root = json_tokener_parse(DOCUMENT);
        const int set =
            json_pointer_set(&root, (table + "/" + key).c_str(), json_tokener_parse(value.c_str()));
        const json_handle owned(root);
        return set == 0 ? json_object_to_json_string(root) : "";
    }
};

TEST_F(Generated, DocumentsLeaveNoTraceWhenRefused)
{
    expect_refused(document(DOCUMENT).params(), "the document itself");
    int documents = 0;
    for (const auto &[table, level] : TABLES)
        for (const settings_field &field : level->fields)
            for (const std::string &value : all) {
                const std::string json = variant(table, field.key, value);
                ASSERT_NE(json, "");
                if (strcmp(field.key, "lonely_friend") == 0 || // lets the faulty part pass
                    (strcmp(table, "/orphan_connect") == 0 && strcmp(field.key, "bssid") == 0) ||
                    (*table == '\0' && strcmp(field.key, "orphan_connect") == 0))
                    continue;
                expect_refused(document(json).params(), json.substr(0, 200));
                documents++;
            }
    EXPECT_GT(documents, 1000);
    expect_no_trace_in_uci();
}

TEST_F(Generated, ARefusedNeighbourListIsNotStaged)
{
    const auto push = [](const std::string &last) {
        return wifid_parse_config(document(R"({"channel_change_nonce":")" +
                                           std::string(gWifi_live_settings.radio_override) +
                                           R"(","neighbors":[{"bssid":")" + last +
                                           R"(","ssid_index":1,"nr":"aa"}],"lonely_friend":false})")
                                      .params());
    };
    gWifi_live_settings = {};
    EXPECT_EQ(push("02:00:00:00:00:01"), 0);
    const std::string refused = DOCUMENT;
    EXPECT_EQ(wifid_parse_config(document(refused).params()), 2); // lists ...:08
    parse_config_event_neighbors(true);
    blob_buffer list;
    blobmsg_buf_init(&list);
    wifi_neighbors_add_to(&list, 1, "nobody");
    const zu_text shown(blobmsg_format_json(list.head, true));
    EXPECT_NE(std::string(shown.get()).find("02:00:00:00:00:01"), std::string::npos) << shown.get();
    EXPECT_EQ(std::string(shown.get()).find("02:00:00:00:00:08"), std::string::npos);
}

} // namespace

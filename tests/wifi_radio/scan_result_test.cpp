// One BSS entry in, one scan-result record out, or the reason why not.
#include "bss.h"
#include "platform/zu/log.h"
#include "support/hex.h"
#include "wifi/radio/scan_result.h"

namespace {

std::string last_error;

struct error_text {
    error_text()
    {
        last_error.clear();
        zu_log_set_error_listener([](const char *line, void *) { last_error = line; }, nullptr);
    }
    ~error_text() { zu_log_set_error_listener(nullptr, nullptr); }
};

/// The record of an entry as JSON text; when it is dropped, the reason.
std::string record_of(blob_attr *bss)
{
    const error_text errors;
    blob_buffer record;
    if (wifi_scan_parse_copy_bss_result(bss, "scan", &record) != 0)
        return last_error;
    EXPECT_EQ(last_error, "");
    EXPECT_TRUE(zu_blobmsg_valid(record.head));
    return zu_blobmsg_json(record.head, true).get();
}

std::string record_of_json(const std::string &json)
{
    blob_buffer list;
    blob_buf_init(&list, 0);
    bss_message(json).add_to(&list);
    return record_of(static_cast<blob_attr *>(blob_data(list.head)));
}

/// A usual entry with other members; null takes one away.
std::string record_with(const std::string &members)
{
    return record_of_json(
        R"({"band":"5GHz","channel":36,"ssid":"Home","bssid":"02:00:00:00:00:01","crypto":1,)"
        R"("wpa_version":2,"auth_suites":"PSK","cipher":"CCMP","mbm":"-6500","wifi_modes":"a/n")" +
        members + "}");
}

TEST(ScanResult, LiteralBytes)
{
    const std::string hidden = "83000011 0004 62616e64 0000 3647487a 00000000" // band 6GHz
                               "8100002c 000b 68655f6368616e6e656c73 000000"   // he_channels
                               "8500000c 0000 0000 00000001 8500000c 0000 0000 00000005"
                               "8300000f 0002 6865 00000000 343000 00" // he 40
                               "8300000f 0004 73736964 0000 ff6100 00" // ssid
                               "8300000e 0005 6273736964 00 6200 0000" // bssid b
                               "86000016 000b 7770615f76657273696f6e 000000 0003 0000"
                               "8300000f 0003 6d626d 000000 2d3100 00" // mbm -1
                               "83000017 000a 776966695f6d6f646573 00000000 617800 00";
    const struct {
        std::string bytes, expected;
    } cases[] = {
        {"820000b8 0000 0000" + hidden,
         R"({"band":"6GHz","channel_width":40,"channels":[1,5],"ssid":"\\xffa","bssid":"b",)"
         R"("encryption":"WPA3","signal":-1.000000,"wifi_mode":"ax"})"},
        {"82000008 0000 0000", // an empty table
         "Unable to parse a scan result from interface 'scan'"},
        {"8300000a 0000 0000 6100 0000", // a string
         "Unable to parse a scan result from interface 'scan'"},
        {"82000010 0000 0000 83000008 00ff 6261", // a name longer than its member
         "Unable to parse a scan result from interface 'scan'"},
        {"82000018 0000 0000 83000010 0004 62616e64 0000 35474878", // a string without its end
         "Unable to parse a scan result from interface 'scan'"},
        {"82000010 0000 0000 830000ff 0004 6261", // a member longer than the table
         "Scan result for interface 'scan' does not include a bssid, skipping result"},
    };
    for (const auto &each : cases) {
        auto bytes = from_hex(each.bytes);
        EXPECT_EQ(record_of(reinterpret_cast<blob_attr *>(bytes.data())), each.expected)
            << each.bytes;
    }
}

TEST(ScanResult, WidthChannelsEncryptionAndSignal)
{
    constexpr const char *ALL_MODES = R"("ht":"40+","ht_channels":[36,40],"vht":"80",)"
                                      R"("vht_channels":[36,40,44,48])";
    const std::string all = ALL_MODES;
    const struct {
        std::string members;
        const char *holds;
    } cases[] = {
        {all + R"(,"he":"160","he_channels":[100,104])",
         R"("channel_width":160,"channels":[100,104])"},
        {R"("he":"80+80","he_channels":[36,149])", R"("channel_width":160,"channels":[36,149])"},
        {R"("he":"80MHz","he_channels":[])", R"("channel_width":80,"channels":[])"},
        {all + R"(,"he":"160")", R"("channel_width":80,"channels":[36,40,44,48])"},
        {R"("vht":"80+80","vht_channels":[36])", R"("channel_width":160,"channels":[36])"},
        {R"("ht":"40-","ht_channels":[40,36])", R"("channel_width":40,"channels":[40,36])"},
        {R"("ht":"20","ht_channels":[36])", R"("channel_width":20,"channels":[36])"},
        {R"("ht":"HT40","ht_channels":[36,40])", R"("channel_width":20,"channels":[36,40])"},
        {R"("ht":"40+")", R"("channel_width":20,"channels":[36])"},
        {R"("wpa_version":null)", R"("encryption":"WEP")"},
        {R"("wpa_version":"2")", R"("encryption":"WEP")"}, // of another type: not there
        {R"("wpa_version":null,"crypto":0)", R"("encryption":"NONE")"},
        {R"("wpa_version":null,"crypto":null)", R"("encryption":"NONE")"},
        {R"("wpa_version":0,"crypto":0)", R"("encryption":"WPA0")"},
        {R"("wpa_version":10)", R"("encryption":"WPA1")"},
        {R"("mbm":"-65.25")", R"("signal":-65.250000)"},
        {R"("ssid":"")", R"("ssid":"")"},
    };
    for (const auto &each : cases)
        EXPECT_NE(record_with("," + each.members).find(each.holds), std::string::npos)
            << each.members << " " << record_with("," + each.members);
}

/// Entries of which one member is bad are dropped, each with its own word.
TEST(ScanResult, ABadEntryIsDropped)
{
    const struct {
        std::string json;
        std::string expected;
    } cases[] = {
        {R"({"band":"5GHz"})",
         "Scan result for interface 'scan' does not include a bssid, skipping result"},
        {R"({"bssid":7})",
         "Scan result for interface 'scan' does not include a bssid, skipping result"},
        {R"({"bssid":"b"})",
         "Scan result for bssid 'b' from interface 'scan' does not have the 'band' attribute"},
        {R"({"bssid":"b","band":"5GHz"})",
         "scan result from bssid 'b' from interface 'scan' did not contain a base channel"},
        {R"({"bssid":"b","band":"5GHz","channel":"36"})",
         "scan result from bssid 'b' from interface 'scan' did not contain a base channel"},
        {R"({"bssid":"b","band":"5GHz","channel":36})",
         "Scan result for bssid 'b' from interface 'scan' does not have the 'ssid' attribute"},
        {R"({"bssid":"b","band":"5GHz","channel":36,"ssid":"s"})",
         "Scan result for bssid 'b' from interface 'scan' does not have the 'mbm' attribute"},
        {R"({"bssid":"b","band":"5GHz","channel":36,"ssid":"s","mbm":"-6500"})",
         "Scan result for bssid 'b' from interface 'scan' does not have the 'wifi_modes' "
         "attribute"},
        {R"({"bssid":"b","band":"5GHz","channel":36,"ssid":"s","mbm":"nan"})",
         "Failed to add 'signal' to scan result report for bssid 'b' from interface 'scan'"},
        {R"({"bssid":"b","band":"5GHz","channel":36,"ssid":"s","mbm":"loud"})",
         "Failed to add 'signal' to scan result report for bssid 'b' from interface 'scan'"},
        {R"({"bssid":"b","band":"5GHz","he":"wide","he_channels":[36]})",
         "Failed to recover HE channel width from scan result for bssid 'b' from interface 'scan'"},
        {R"({"bssid":"b","band":"5GHz","vht":"0","vht_channels":[36]})",
         "Failed to recover VHT channel width from scan result for bssid 'b' from interface "
         "'scan'"},
        {R"({"bssid":"b","band":"5GHz","ht":"20","ht_channels":[36,"40"]})",
         "Unable to copy source channels array into destination channels array"},
        {R"({"bssid":"b","band":"5GHz","ht":"20","ht_channels":[[36]]})",
         "Unable to copy source channels array into destination channels array"},
        {R"({"bssid":")" + std::string(1000, 'b') + R"("})",
         "Scan result from interface 'scan' has a 'bssid' of 1000 bytes, skipping result"},
    };
    for (const auto &each : cases) {
        EXPECT_EQ(record_of_json(each.json), each.expected) << each.json.substr(0, 100);
    }
}

TEST(ScanResult, TextsFromTheAirAreTextsThatJsonCarries)
{
    using namespace std::string_literals;
    const struct {
        std::string bytes, shown;
    } cases[] = {
        {"Caf\xc3\xa9 \xe2\x98\x95 \xf0\x9f\x93\xb6", "Caf\xc3\xa9 \xe2\x98\x95 \xf0\x9f\x93\xb6"},
        {"back\\slash \"quoted\"", "back\\slash \"quoted\""},
        {"a\nb\x7f\x01", R"(a\x0ab\x7f\x01)"},
        {"\0\0"s, R"(\x00\x00)"},
        {"Caf\xe9", R"(Caf\xe9)"},
        {"\\xe9", R"(\x5cxe9)"},
        {"\xc0\xaf \xe0\x80\xaf \xf0\x80\x80\xaf", R"(\xc0\xaf \xe0\x80\xaf \xf0\x80\x80\xaf)"},
        {"\xed\xa0\x80 \xf4\x90\x80\x80 \xff", R"(\xed\xa0\x80 \xf4\x90\x80\x80 \xff)"},
        {"cut \xe2\x98", R"(cut \xe2\x98)"},
        {"\xe2\x98\xe2\x98\x95", "\\xe2\\x98\xe2\x98\x95"},
    };
    for (const auto &each : cases)
        EXPECT_EQ(wifi_scan_text(each.bytes.data(), each.bytes.size()), each.shown);
}

} // namespace

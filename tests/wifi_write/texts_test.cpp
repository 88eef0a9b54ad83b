// Texts that a shell, a batch file or UCI could stumble over, in every field of a document that
// takes one.
#include <map>
#include <span>

#include "writer_fixture.h"

namespace {

struct text_field {
    const char *section, *json; // @ stands for the text
    const char *option;
    size_t size; // 0: only an address would be written
    const char *prefix = "";
};

constexpr text_field TEXT_FIELDS[] = {
    {"mesh", R"("key":"@")", "wireless.mesh1.key", 127},
    {"mesh", R"("protocol":"@")", "network.bat0.routing_algo", 11},
    {"radios", R"("band":"5GHz","mode":"@")", "wireless.radio1.htmode", 15},
    {"ssids", R"("index":1,"ssid":"@")", "ap_mgr.ssid1.ssid", 32},
    {"ssids", R"("index":1,"key":"@")", "wireless.ap1_1.key", 127},
    {"ssids", R"("index":1,"enc":"@")", "wireless.ap1_1.encryption", 31},
    {"ssids", R"("index":1,"radius_server":"@")", "wireless.ap1_1.auth_server", 127},
    {"ssids", R"("index":1,"radius_key":"@")", "wireless.ap1_1.auth_secret", 127},
    {"ssids", R"("index":1,"radius_acct_server":"@")", "wireless.ap1_1.acct_server", 127},
    {"ssids", R"("index":1,"radius_acct_key":"@")", "wireless.ap1_1.acct_secret", 127},
    {"ssids", R"("index":1,"roaming_domain":"@")", "wireless.ap1_1.mobility_domain", 4},
    {"ssids", R"("index":1,"roaming_key":"@")", "wireless.ap1_1.r0kh", 64, "ff:ff:ff:ff:ff:ff,*,"},
    {"ssids", R"("index":1,"smtp_redirect":"@")", "firewall.ssid1smtp.dest_ip", 127},
    {"ssids", R"("index":1,"dns_servers":["@"])", "dhcp.ssid1_dns.server", 127},
    {"ssids", R"("index":1,"bands":[{"band":"5GHz","enable":true,"ssid":"@"}])",
     "wireless.ap1_1.ssid", 32},
    {"ssids", R"("index":1,"access_control_list":["2:0:0:0:0:1@"])", "wireless.ap1_1.maclist", 17,
     "2:0:0:0:0:1"},
    {"ssids", R"("index":1,"dhcp":{"enable":true,"gateway_ip":"@"})", "network.ssid1.ipaddr", 0},
    {"ssids", R"("index":1,"dhcp":{"enable":true,"netmask":"@"})", "network.ssid1.netmask", 0},
    {"ssids", R"("index":1,"dhcp":{"enable":true,"relay":"@"})", "dhcp.relay_ssid1.server_addr", 0},
    {"ssids", R"("index":2,"dhcp":{"enable":true,"lease_length":"@"})", "dhcp.ssid2.leasetime", 15},
};

std::string in_json(const std::string &text)
{
    std::string quoted;
    for (const char c : text)
        quoted += c == '"' || c == '\\' ? std::string("\\") + c : std::string(1, c);
    return quoted;
}

/// A document with these fields, each with the text, which is JSON already.
std::string with_text(std::span<const text_field> fields, const std::string &text)
{
    std::map<std::string, std::string> sections;
    for (const text_field &field : fields) {
        std::string json = field.json;
        json.replace(json.find('@'), 1, text);
        std::string &section = sections[field.section];
        section += (section.empty() ? "" : ",") +
                   (field.section == std::string("mesh") ? json : "{" + json + "}");
    }
    std::string document = R"({"delayed_settings":true)";
    for (const auto &[name, section] : sections)
        document +=
            ",\"" + name + "\":" + (name == "mesh" ? "{" + section + "}" : "[" + section + "]");
    return document + "}";
}

/// What the option is to hold: the text as far as the setting has room for it.
std::string expected(const text_field &field, const std::string &text)
{
    const bool cut_with_prefix = field.section == std::string("ssids") && field.size == 17;
    if (cut_with_prefix)
        return (field.prefix + text).substr(0, field.size);
    return text.empty() ? "" : field.prefix + text.substr(0, field.size);
}

/// The option's value, or its list's only item. (`uci get` quotes items with blanks.)
std::string configured(const char *option)
{
    std::string text;
    const auto take = [](const char *value, void *out) {
        static_cast<std::string *>(out)->append(value);
    };
    (void)_ng_uci_get_val_cb(option, take, &text);
    return text;
}

using Texts = writer_fixture;

} // namespace

TEST_F(Texts, ComeThroughBatchAndUciUnchanged)
{
    ASSERT_EQ(push(R"({"delayed_settings":false,"radios":[{"band":"5GHz","enable":true,
        "channel":36,"mesh_enable":true}]})"),
              0);
    const std::string longest(200, 'y'); // cut to what each setting has room for
    for (const char *text : {longest.c_str(), "it's", "'", "\\", "\"", "$(touch /tmp/pwned)",
                             "`touch /tmp/pwned`", " lead and trail ", "h\xc3\xa9", "\xff\x80",
                             "a;b", "#", "x' 'y", "\\'", "%s%n", "&touch /tmp/pwned", ""}) {
        SCOPED_TRACE(text);
        ASSERT_EQ(push(with_text(TEXT_FIELDS, in_json(text))), 0);
        EXPECT_NE(batch_file(), "");
        confirm(true);
        (void)ubus_wifi_end_delayed_wireless(nullptr, nullptr, nullptr, nullptr, nullptr);
        (void)ng_uci_renew_change_context();
        for (const text_field &field : TEXT_FIELDS)
            EXPECT_EQ(configured(field.option), expected(field, text)) << field.option;
        EXPECT_NE(access("/tmp/cp-hosts1", F_OK), 0) << "for a text that is no address";
        EXPECT_EQ(uci("firewall.wired0.masq_src").find("/0"), std::string::npos);

        ASSERT_EQ(push(R"({"orphan_connect":{"radio":"5GHz","bssid":")" + in_json(text) + R"("}})"),
                  0);
        EXPECT_EQ(uci("wireless.orph_conn1.bssid"), std::string(text).substr(0, 31));
        ASSERT_EQ(push(std::string(R"({"channel_change_nonce":")") +
                       wifi_live_settings()->radio_override + "\"}"),
                  0);
    }
    ASSERT_EQ(push(R"({"delayed_settings":false,"regulatory":{"country":"'$"}})"), 0);
    EXPECT_EQ(uci("wireless.radio1.country"), "'$");
    EXPECT_EQ(uci("u80211d.global.country"), "'$");
    EXPECT_NE(access("/tmp/pwned", F_OK), 0);
    EXPECT_EQ(logged("Failed to change"), 0);
}

TEST_F(Texts, OfMoreThanOneLineAreRefused)
{
    const std::string before = everything(), packages = run("uci export").output;
    int refused = 0;
    for (const text_field &field : TEXT_FIELDS)
        for (const char *text : {"\\nb", "\\t", "\\u001b[2J", "\\u007f"}) {
            EXPECT_EQ(push(with_text({&field, 1}, text)), 2) << field.json;
            EXPECT_EQ(logged("holds a control character"), ++refused) << field.json;
        }
    EXPECT_EQ(push(R"({"regulatory":{"country":"a\n"}})"), 2);
    EXPECT_EQ(push(R"({"orphan_connect":{"radio":"5GHz","bssid":"a\n"}})"), 2);
    EXPECT_EQ(logged("'radius_key' of settings_ssid1 holds a control character"), 4);
    EXPECT_EQ(logged("'mesh_key' of settings holds a control character"), 4);
    EXPECT_EQ(everything(), before);
    EXPECT_EQ(run("uci export").output, packages);
}

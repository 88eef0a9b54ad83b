// What a push leaves behind is what a restarted daemon reads: for the examples and for generated
// documents.
#include <fcntl.h>
#include <random>
#include <sys/file.h>

extern "C" {
#include <libubox_host/clock.h>
}

#include "wifi/override.h"
#include "wifi/settings/document.h"
#include "writer_fixture.h"

namespace {

std::mt19937 random_bits(20240229); // the same documents in every run

int random_below(int limit)
{
    return static_cast<int>(random_bits() % static_cast<unsigned>(limit));
}

template <typename Choices>
const auto &one_of(const Choices &choices)
{
    return choices[random_bits() % std::size(choices)];
}

std::string random_text(const std::string &key)
{
    static const struct {
        std::string keys; ///< none: all others
        std::vector<const char *> texts;
    } CHOICES[] = {
        {" enc ", {"none", "psk2", "psk-mixed", "wpa3", "wpa2"}},
        {" gateway_ip netmask relay ", {"10.1.2.3", "192.168.7.1", "", "x", "255.255.255.0"}},
        {" band radio ", {"2.4GHz", "5GHz"}},
        {" country ", {"US", "SE", "' ", "$x"}},
        {" antenna_type ", {"dipole", "patch", "other"}},
        {" bssid ", {"02:00:00:00:00:01"}},
        {" nr ", {"00"}},
        {"",
         {"", "a", "it's", "\\'", "  x  ", "=", "=x", "0=", "\xff\x80",
          "0123456789012345678901234567890123456789"}},
    };
    if (key == "channel_change_nonce")
        return wifi_live_settings()->radio_override;
    const auto *choice = CHOICES;
    while (!choice->keys.empty() && choice->keys.find(" " + key + " ") == std::string::npos)
        choice++;
    return one_of(choice->texts);
}

int random_number(const std::string &key)
{
    static constexpr int NUMBERS[] = {0, 1, 2, 7, -1, 20, 1812, 4095, 4096, INT32_MAX, INT32_MIN};
    static constexpr int CHANNELS[] = {1, 6, 36, 44, 52, 100, 149, 165};
    if (key == "index" || key == "ssid_index")
        return 1 + random_below(4);
    if (key == "scanning_period")
        return random_below(100) - 10;
    return key == "channel" ? one_of(CHANNELS) : one_of(NUMBERS);
}

void add_table(blob_buf *buf, const char *name, const settings_level &level);

void add_array(blob_buf *buf, const settings_field &field)
{
    static const std::vector<const char *> ITEMS = {"02:00:00:00:00:01",
                                                    "02:00:00:00:00:02",
                                                    "2:0:0:0:0:3",
                                                    "10.0.0.53",
                                                    "fd00::53",
                                                    "it's",
                                                    "",
                                                    "02:00:00:00:00:0A and more"};
    void *array = blobmsg_open_array(buf, field.key);
    for (int i = random_below(6); i > 0; i--)
        switch (field.kind) {
        case SETTINGS_TABLES:
            add_table(buf, nullptr, *field.level);
            break;
        case SETTINGS_INTS:
            blobmsg_add_u32(buf, nullptr, static_cast<uint32_t>(52 + 4 * random_below(5)));
            break;
        default:
            blobmsg_add_string(buf, nullptr, one_of(ITEMS));
        }
    blobmsg_close_array(buf, array);
}

/// Mostly there; what changes the node's mode only now and then.
bool is_present(const settings_field &field)
{
    const std::string key = field.key;
    if (key == "channel_change_nonce")
        return wifi_radio_override_active();
    if (key == "lonely_friend" || key == "orphan_connect")
        return random_below(20) == 0;
    return field.required || random_below(4) != 0;
}

void add_field(blob_buf *buf, const settings_field &field)
{
    switch (field.kind) {
    case SETTINGS_BOOL:
    case SETTINGS_FLAG:
        blobmsg_add_u8(buf, field.key, random_below(3) != 0);
        break;
    case SETTINGS_INT:
        blobmsg_add_u32(buf, field.key, static_cast<uint32_t>(random_number(field.key)));
        break;
    case SETTINGS_STRING:
        blobmsg_add_string(buf, field.key, random_text(field.key).c_str());
        break;
    case SETTINGS_TABLE:
        add_table(buf, field.key, *field.level);
        break;
    default:
        add_array(buf, field);
    }
}

void add_table(blob_buf *buf, const char *name, const settings_level &level)
{
    void *table = blobmsg_open_table(buf, name);
    for (const settings_field &field : level.fields)
        if (is_present(field))
            add_field(buf, field);
    blobmsg_close_table(buf, table);
}

using Restarted = writer_fixture;

} // namespace

TEST_F(Restarted, KnowsEveryExample)
{
    for (const char *name : {"home", "office", "guest_portal", "mesh_repeater", "limits"}) {
        ASSERT_EQ(push(json_message(example(name)).head), 0) << name;
        const std::string before = everything(), dump = shown();
        const std::string hosts = run("cat /tmp/cp-hosts*; rm /tmp/cp-hosts*").output;
        restart();
        EXPECT_EQ(shown(), dump) << name;
        EXPECT_EQ(everything(), before) << name;
        EXPECT_EQ(run("cat /tmp/cp-hosts*").output, hosts) << name;
    }
}

TEST_F(Restarted, ReadsAPackageLaterThatCannotBeReadNow)
{
    ASSERT_EQ(push(json_message(example("office")).head), 0);
    const std::string before = everything();
    constexpr char OF_OFFICE[] = R"({"scanning_period":30})";
    uloop_clock_virtual(true);
    for (const bool first_start : {true, false})
        for (const std::string package : {"wireless", "tarn_net", "udshape"})
            for (const bool locked : {true, false}) {
                SCOPED_TRACE(package + (locked ? " locked" : " broken") +
                             (first_start ? " at start" : ""));
                const std::string path = "/etc/config/" + package, content = read_file(path);
                const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
                if (locked)
                    ASSERT_EQ(flock(fd, LOCK_EX), 0);
                else
                    write_file(path, "config 'x\n");
                if (first_start)
                    gWifi_live_settings = {};
                // At start the check of the enables reads a package of its own.
                const int waits = first_start && package == "wireless" ? 2 : 1;
                const int errors = logged("ERROR");
                EXPECT_EQ(wifi_reload_config(first_start), UBUS_STATUS_UNKNOWN_ERROR);
                uloop_clock_run_ms(10500);
                EXPECT_EQ(logged("ERROR"), errors + waits) << "said once";
                close(fd);
                EXPECT_EQ(everything() != before, first_start);
                if (first_start) {
                    EXPECT_EQ(push(OF_OFFICE), 2);
                    EXPECT_EQ(errors + waits + 1, logged("ERROR"));
                }
                write_file(path, content);
                uloop_clock_run_ms(1000);
                EXPECT_EQ(everything(), before);
                EXPECT_EQ(read_file(path), content);
                EXPECT_EQ(push(OF_OFFICE), 0);
            }
    uloop_clock_virtual(false);
    EXPECT_EQ(logged("The settings in force have not been read yet"), 6);
}

TEST_F(Restarted, DropsWhatNoSettingCanHoldAndIsPushedToAllTheSame)
{
    ASSERT_EQ(
        push(R"({"delayed_settings":false,"ssids":[{"index":1,"enable":true,"ssid":"x","key":"k",
        "dns_servers":["10.0.0.1","10.0.0.2"]}]})"),
        0);
    run("uci set wireless.ap0_1.key=\"$(printf 'a\\tb')\"; uci set "
        "tarn_net.settings.reg_country=\"$(printf '=a\\nb')\"; "
        "uci add_list dhcp.ssid1_dns.server=\"$(printf 'c\\td')\"; uci commit");
    restart();
    EXPECT_STREQ(wifi_live_settings()->ssids[0].key, "");
    EXPECT_STREQ(wifi_live_settings()->ssids[0].dns_servers[1], "10.0.0.2");
    EXPECT_STREQ(wifi_live_settings()->ssids[0].dns_servers[2], "");
    for (const char *name :
         {"wireless.ap0_1.key", "tarn_net.settings.reg_country", "dhcp.ssid1_dns.server"})
        EXPECT_EQ(logged(std::string("WARNING: Dropping the value of '") + name), 1) << name;
    EXPECT_EQ(push(R"({"scanning_period":7})"), 0);
    EXPECT_EQ(uci("u80211d.global.scan_period"), "420");
    EXPECT_EQ(push(R"({"ssids":[{"index":1,"key":"new"}]})"), 0);
    EXPECT_EQ(uci("wireless.ap0_1.key"), "new");
    EXPECT_EQ(logged("Dropping"), 3) << "once";
}

TEST_F(Restarted, KnowsAThousandGeneratedDocuments)
{
    int taken = 0, waiting = 0;
    for (int i = 0; i < 1000; i += SAMPLE) {
        blob_buffer buf;
        blob_buf_init(&buf, 0);
        add_table(&buf, "params", SETTINGS_TOP);
        const zu_text text(blobmsg_format_json(buf.head, true));
        taken += push(buf.head) == 0;
        confirm(random_below(2) == 0);
        waiting += wifi_delayed_settings_pending();
        if (random_below(5) == 0)
            (void)ubus_wifi_end_delayed_wireless(nullptr, nullptr, nullptr, nullptr, nullptr);
        const std::string before = everything(), dump = shown();
        restart();
        ASSERT_EQ(shown(), dump) << i << " " << text.get();
        ASSERT_EQ(everything(), before) << i << " " << text.get();
    }
    all_packages_quiet();
    EXPECT_GT(taken, 800 / SAMPLE);
    EXPECT_GT(waiting, 50 / SAMPLE);
}

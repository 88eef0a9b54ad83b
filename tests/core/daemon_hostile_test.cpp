// Malformed and hostile messages to every method and event: a status, at most a log line, nothing
// changed.
#include "core/daemon_fixture.h"

namespace {

struct method {
    const char *object, *name;
    bool acts_on_anything; ///< does its work whatever the message holds
};
const method METHODS[] = {
    {"qnet.wired", "parse_config", true},     {"qnet.wired", "reload_config", false},
    {"qnet.wired", "set_debug_level", false}, {"qnet.wired", "gen_checkin", true},
    {"qnet.wired", "health_check", true},     {"qnet.wired", "dump_state", true},
    {"qnet.wired", "wired_event", true},      {"qnet.wired", "debug", true},
    {"qnet.wired", "no such method", false},  {"qnet.wifi", "parse_config", true},
    {"qnet.wifi", "reload_config", false},    {"qnet.wifi", "set_debug_level", false},
    {"qnet.wifi", "gen_checkin", true},       {"qnet.wifi", "health_check", true},
    {"qnet.wifi", "dump_state", true},        {"qnet.wifi", "ap_scan_now", true},
    {"qnet.wifi", "ap_survey_now", true},     {"qnet.wifi", "", false},
};
const char *const EVENTS[] = {"qnet.jobs", "parse_config_status", "qnet.maint_window"};
const std::vector<const char *> MEMBERS = {"params",
                                           "package",
                                           "level",
                                           "checkin_type",
                                           "include_secrets",
                                           "enable",
                                           "interface",
                                           "action",
                                           "checkin_after_scan",
                                           "job",
                                           "id",
                                           "success",
                                           "active",
                                           "path"};

/// Messages that no well-meaning caller sends.
struct hostile {
    std::vector<std::pair<std::string, std::vector<char>>> all;

    hostile()
    {
        const std::string forged = "x\nThu Jan  1 [1] main:1: ERROR: forged; reboot $(id) `id`'\"",
                          huge(60000, 'A');
        add("nothing", [](blob_buf *) {});
        add("tables", each([](blob_buf *b, const char *m) {
                blobmsg_close_table(b, blobmsg_open_table(b, m));
            }));
        add("arrays", each([](blob_buf *b, const char *m) {
                blobmsg_close_array(b, blobmsg_open_array(b, m));
            }));
        add("big numbers", each([](blob_buf *b, const char *m) { blobmsg_add_u64(b, m, ~0ULL); }));
        add("numbers out of range",
            each([](blob_buf *b, const char *m) { blobmsg_add_u32(b, m, 0x80000000); }));
        add("unspecified", each([](blob_buf *b, const char *m) {
                blobmsg_add_field(b, BLOBMSG_TYPE_UNSPEC, m, nullptr, 0);
            }));
        for (const std::string &text : {std::string(), forged, huge})
            add("text " + text.substr(0, 10),
                each([&](blob_buf *b, const char *m) { blobmsg_add_string(b, m, text.c_str()); }));
        add("deep nesting", [](blob_buf *b) {
            std::vector<void *> open;
            for (int i = 0; i < 300; i++)
                open.push_back(blobmsg_open_table(b, "params"));
            for (; !open.empty(); open.pop_back())
                blobmsg_close_table(b, open.back());
        });
        // Members whose inner lengths lie, and bytes that are no members at all.
        for (unsigned step = 8; step < 18; step++)
            add("garbage", [step](blob_buf *b) {
                for (const char *member : MEMBERS)
                    blobmsg_add_string(b, member, "0123456789");
                char *data = static_cast<char *>(blob_data(b->head));
                unsigned seed = step;
                for (size_t i = step - 7; i < blob_len(b->head); i += step)
                    data[i] = static_cast<char>(rand_r(&seed));
            });
    }

private:
    using filler = std::function<void(blob_buf *)>;
    static filler each(const std::function<void(blob_buf *, const char *)> &put)
    {
        return [put](blob_buf *b) {
            for (const char *member : MEMBERS)
                put(b, member);
        };
    }
    void add(const std::string &name, const filler &fill)
    {
        blob_buffer buf;
        blob_buf_init(&buf, 0);
        fill(&buf);
        const char *start = reinterpret_cast<const char *>(buf.head);
        all.push_back({name, {start, start + blob_pad_len(buf.head)}});
    }
};

struct DaemonHostile : daemon_fixture {
    /// The wired state without the seconds that its timers have left.
    std::string wired_state()
    {
        std::string document = state();
        const size_t timers = document.find("\"timers\"");
        return document.erase(timers, document.find('}', timers) - timers);
    }
    /// Everything a message could have changed.
    std::string everything()
    {
        return run("cat /etc/config/*; uci changes; ls /tmp /tmp/led_flags /var/state; cat "
                   "/var/log/journal; ip rule")
                   .output +
               wired_state() +
               call("qnet.wifi", "dump_state", R"({"include_secrets":true})").document;
    }
};

} // namespace

TEST_F(DaemonHostile, MethodsAndEventsChangeNothing)
{
    const hostile messages;
    // Some of them ask for these, and rightly get them.
    (void)call("qnet.wifi", "ap_scan_now");
    (void)call("qnet.wifi", "ap_survey_now");
    settle();
    const std::string before = everything();
    for (const auto &[name, bytes] : messages.all) {
        std::vector<char> copy = bytes;
        auto *message = reinterpret_cast<blob_attr *>(copy.data());
        for (const method &m : METHODS) {
            SCOPED_TRACE(std::string(m.object) + " " + m.name + ": " + name);
            const int status = call(m.object, m.name, message).status;
            EXPECT_GE(status, 0) << "never answered";
            if (!m.acts_on_anything && std::string(m.name) != "reload_config") {
                EXPECT_NE(status, 0);
            }
        }
        for (const char *event : EVENTS)
            (void)ubus_send_event(stranger, event, message);
    }
    // Interfaces with names and answers that nobody asked for.
    for (const char *path : {"network.interface.wired\n0", "network.interface.orph_conn;reboot",
                             "hostapd.ap", "hostapd.ap0_1\nx", "network.interface.wired"}) {
        for (const char *status :
             {R"({"up":true,"device":7})", R"({"up":true,"device":"x","route":[[],{},7,null]})",
              R"({"up":true,"device":"; reboot","route":[{"target":1}]})", "{}"}) {
            fake_interface object(daemon, path, status);
            settle();
            object.notify(R"({"up":"maybe","route":{"a":1}})");
            settle();
        }
    }
    settle();
    EXPECT_EQ(everything(), before);
    EXPECT_EQ(log().find("\nThu Jan  1 [1]"), std::string::npos) << "a forged line";
    EXPECT_EQ(call("qnet.wired", "debug", R"({"enable":1})").status, 0);
}

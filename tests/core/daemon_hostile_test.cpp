// Malformed and hostile messages to every method and event: a status, at most a log line, nothing
// changed.
#include "core/daemon_fixture.h"

namespace {

struct method {
    const char *object, *name;
    bool acts_on_anything; ///< does its work whatever the message holds
};
const method METHODS[] = {
    {"qnet.wired", "parse_config", false},    {"qnet.wired", "reload_config", false},
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
const char *const MEMBERS[] = {"params",
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

    void add(const std::string &name, const blob_buf &buf)
    {
        const char *start = reinterpret_cast<const char *>(buf.head);
        all.push_back({name, {start, start + blob_pad_len(buf.head)}});
    }
    hostile()
    {
        every_member("tables", [](blob_buf *b, const char *m) {
            blobmsg_close_table(b, blobmsg_open_table(b, m));
        });
        every_member("arrays", [](blob_buf *b, const char *m) {
            blobmsg_close_array(b, blobmsg_open_array(b, m));
        });
        every_member("big numbers",
                     [](blob_buf *b, const char *m) { blobmsg_add_u64(b, m, ~0ULL); });
        every_member("numbers out of range",
                     [](blob_buf *b, const char *m) { blobmsg_add_u32(b, m, 0x80000000); });
        every_member("empty texts",
                     [](blob_buf *b, const char *m) { blobmsg_add_string(b, m, ""); });
        every_member("forged texts", [](blob_buf *b, const char *m) {
            blobmsg_add_string(b, m,
                               "x\nThu Jan  1 [1] main:1: ERROR: forged; reboot $(id) `id`'\"");
        });
        every_member("huge texts", [](blob_buf *b, const char *m) {
            blobmsg_add_string(b, m, std::string(60000, 'A').c_str());
        });
        every_member("unspecified", [](blob_buf *b, const char *m) {
            blobmsg_add_field(b, BLOBMSG_TYPE_UNSPEC, m, nullptr, 0);
        });
        blob_buffer none;
        blob_buf_init(&none, 0);
        add("nothing", none);
        nested(300);
        garbage();
    }

private:
    template <typename Add>
    void every_member(const char *name, Add fill)
    {
        blob_buffer buf;
        blob_buf_init(&buf, 0);
        for (const char *member : MEMBERS)
            fill(&buf, member);
        add(name, buf);
    }
    void nested(int depth)
    {
        blob_buffer buf;
        blob_buf_init(&buf, 0);
        std::vector<void *> open;
        for (int i = 0; i < depth; i++)
            open.push_back(blobmsg_open_table(&buf, "params"));
        for (; !open.empty(); open.pop_back())
            blobmsg_close_table(&buf, open.back());
        add("deep nesting", buf);
    }
    /// Members whose inner lengths lie, and bytes that are no members at all.
    void garbage()
    {
        for (unsigned seed = 1; seed <= 20; seed++) {
            blob_buffer buf;
            blob_buf_init(&buf, 0);
            for (const char *member : MEMBERS)
                blobmsg_add_string(&buf, member, "0123456789");
            char *data = static_cast<char *>(blob_data(buf.head));
            for (size_t i = seed; i < blob_len(buf.head); i += 7 + seed)
                data[i] = static_cast<char>(rand_r(&seed));
            add("garbage", buf);
        }
    }
};

struct DaemonHostile : daemon_fixture {
    /// Everything a message could have changed.
    std::string everything()
    {
        return run("cat /etc/config/*; uci changes; ls /tmp /tmp/led_flags /var/state; cat "
                   "/var/log/journal; ip rule")
                   .output +
               call("qnet.wired", "dump_state").document +
               call("qnet.wifi", "dump_state", R"({"include_secrets":true})").document;
    }
};

} // namespace

TEST_F(DaemonHostile, MethodsAnswerAndChangeNothing)
{
    const hostile messages;
    const std::string before = everything();
    for (const method &m : METHODS) {
        for (const auto &[name, bytes] : messages.all) {
            SCOPED_TRACE(std::string(m.object) + " " + m.name + ": " + name);
            std::vector<char> copy = bytes;
            auto *message = reinterpret_cast<blob_attr *>(copy.data());
            const int status = call(m.object, m.name, message).status;
            EXPECT_GE(status, 0) << "never answered";
            if (!m.acts_on_anything && std::string(m.name) != "reload_config") {
                EXPECT_NE(status, 0);
            }
        }
    }
    EXPECT_EQ(everything(), before);
    EXPECT_EQ(log().find("\nThu Jan  1 [1]"), std::string::npos) << "a forged line";
    EXPECT_EQ(call("qnet.wired", "debug", R"({"enable":1})").status, 0);
}

TEST_F(DaemonHostile, EventsChangeNothing)
{
    const hostile messages;
    const std::string before = everything();
    for (const char *event : EVENTS) {
        for (const auto &[name, bytes] : messages.all) {
            std::vector<char> copy = bytes;
            (void)ubus_send_event(stranger, event, reinterpret_cast<blob_attr *>(copy.data()));
        }
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
}

TEST_F(DaemonHostile, LogThatCannotBeOpenedChangesNothingElse)
{
    tarn_net.reset();
    run("rm -f /tmp/debug_tarn_net.log; ln -s /etc/passwd /tmp/debug_tarn_net.log");
    const std::string passwd = read_text("/etc/passwd");
    tarn_net.emplace(std::vector<std::string>{"tarn_net"});
    run_until([&] {
        uint32_t id;
        return ubus_lookup_id(stranger, "qnet.wired", &id) == 0;
    });
    EXPECT_TRUE(state_holds("\"upstream_state\":\"TARN_NET_UPSTREAM_NONE\""));
    EXPECT_EQ(read_text("/etc/passwd"), passwd);
    run("rm /tmp/debug_tarn_net.log");
}

// Which pushes wait, and what becomes of those that do.
#include <fcntl.h>
#include <sys/file.h>

extern "C" {
#include <libubox_host/clock.h>
}

#include "writer_fixture.h"

namespace {

// A mesh node as it is before each case; nothing of it waits.
constexpr char NODE[] =
    R"("mesh":{"protocol":"BATMAN_IV","key":"m","batman":{"hop_penalty":30,"gw_stickiness":20,
    "bridge_loop_avoidance":true}},"regulatory":{"outdoor":false,"country":"US"},"antenna_type":"dipole",
    "radios":[{"band":"2.4GHz","enable":true,"channel":6,"mode":"HT20","mesh_enable":false},
    {"band":"5GHz","enable":true,"channel":36,"mode":"VHT80","mesh_enable":true}])";

struct Delay : writer_fixture {
    void SetUp() override
    {
        writer_fixture::SetUp();
        uloop_clock_virtual(true);
        pass_ms(1); // what a start looks at as soon as the loop runs
        ASSERT_EQ(push(std::string("{\"delayed_settings\":false,") + NODE + "}"), 0);
        ASSERT_EQ(batch_file(), "");
        ASSERT_EQ(uci("wireless.radio1.channel"), "36");
    }
    void TearDown() override
    {
        uloop_clock_virtual(false);
        writer_fixture::TearDown();
    }
    static int push_channel(int channel)
    {
        return push(R"({"delayed_settings":true,"radios":[{"band":"5GHz","channel":)" +
                    std::to_string(channel) + "}]}");
    }
    static void pass_ms(int ms)
    {
        (void)ng_uci_renew_change_context();
        uloop_clock_run_ms(ms);
    }
    static std::string channel() { return uci("wireless.radio1.channel"); }
    /// What the state dump says of it.
    static std::string waiting()
    {
        blob_buffer buf;
        blob_buf_init(&buf, 0);
        EXPECT_EQ(wifi_dump_settings_and_state(&buf, false), 0);
        const std::string shown = zu_text(blobmsg_format_json(buf.head, true)).get();
        char state[16] = "";
        int left = -1;
        const size_t at = shown.find(R"(,"delayed":{)");
        if (at != std::string::npos)
            sscanf(shown.c_str() + at, R"(,"delayed":{"state":"%15[^"]","seconds_left":%d}})",
                   state, &left);
        return std::string(state) + " " + std::to_string(left);
    }
};

struct delay_case {
    const char *what;
    bool waits;
    const char *params;
};

void PrintTo(const delay_case &c, std::ostream *out)
{
    *out << c.what;
}

struct DelayDecision : Delay, testing::WithParamInterface<delay_case> {};

} // namespace

TEST_P(DelayDecision, OfOneChange)
{
    const std::string before = channel();
    ASSERT_EQ(push(GetParam().params), 0);
    EXPECT_EQ(GetParam().waits, !batch_file().empty());
    EXPECT_EQ(led("config"), "0") << "only a confirmed push lights it";
    if (GetParam().waits) {
        EXPECT_EQ(channel(), before) << "and nothing of it is applied";
    }
    all_packages_quiet();
}

INSTANTIATE_TEST_SUITE_P(
    Cases, DelayDecision,
    testing::Values(
        delay_case{"channel", true,
                   R"({"delayed_settings":true,"radios":[{"band":"5GHz","channel":40}]})"},
        delay_case{"channel of the radio without mesh", true,
                   R"({"delayed_settings":true,"radios":[{"band":"2.4GHz","channel":1}]})"},
        delay_case{"HT mode", true,
                   R"({"delayed_settings":true,"radios":[{"band":"5GHz","mode":"HT20"}]})"},
        delay_case{"radio off", true,
                   R"({"delayed_settings":true,"radios":[{"band":"2.4GHz","enable":false}]})"},
        delay_case{"one mesh more", true,
                   R"({"delayed_settings":true,"radios":[{"band":"2.4GHz","mesh_enable":true}]})"},
        delay_case{"mesh key", true, R"({"delayed_settings":true,"mesh":{"key":"n"}})"},
        delay_case{"mesh protocol", true,
                   R"({"delayed_settings":true,"mesh":{"protocol":"BATMAN_V"}})"},
        delay_case{"hop penalty", true,
                   R"({"delayed_settings":true,"mesh":{"batman":{"hop_penalty":31}}})"},
        delay_case{"gateway stickiness", true,
                   R"({"delayed_settings":true,"mesh":{"batman":{"gw_stickiness":21}}})"},
        delay_case{
            "loop avoidance", true,
            R"({"delayed_settings":true,"mesh":{"batman":{"bridge_loop_avoidance":false}}})"},
        delay_case{"outdoor", true, R"({"delayed_settings":true,"regulatory":{"outdoor":true,
                   "country":"US"}})"},
        delay_case{"country", true, R"({"delayed_settings":true,"regulatory":{"country":"SE"}})"},
        delay_case{"antenna", true, R"({"delayed_settings":true,"antenna_type":"patch"})"},
        delay_case{"not asked for", false,
                   R"({"delayed_settings":false,"radios":[{"band":"5GHz","channel":40}]})"},
        delay_case{"no mesh left", false, R"({"delayed_settings":true,"radios":[{"band":"5GHz",
                   "channel":40,"mesh_enable":false}]})"},
        delay_case{"nothing of the mesh", false,
                   R"({"delayed_settings":true,"radios":[{"band":"5GHz","txpower":9}],
                   "ssids":[{"index":1,"enable":true,"ssid":"x"}]})"},
        delay_case{"DFS list", false, R"({"delayed_settings":true,"regulatory":{"country":"US",
                   "dfs":{"enable":true,"channels":[52]}}})"},
        delay_case{"scanning radio", false,
                   R"({"delayed_settings":true,"radios":[{"band":"scanning","channel":40}]})"},
        delay_case{"with an override", false, R"({"delayed_settings":true,"lonely_friend":true,
                   "radios":[{"band":"5GHz","channel":40}]})"}));

TEST_F(Delay, EndOfAnOrphansConnectionDoesNotWait)
{
    ASSERT_EQ(push(R"({"delayed_settings":true,"orphan_connect":{"radio":"2.4GHz",
        "bssid":"02:00:00:00:00:01"}})"),
              0);
    EXPECT_EQ(uci("wireless.orph_conn0.bssid"), "02:00:00:00:00:01");
    EXPECT_EQ(uci("wireless.orph_conn0.key").size(), 32u);
    EXPECT_EQ(uci("wireless.orph_conn0.enable"), "1");
    EXPECT_EQ(uci("wireless.orph_conn1.enable"), "0");
    EXPECT_EQ(uci("wireless.orph_conn1.bssid") + uci("wireless.orph_conn1.key"), "");
    EXPECT_EQ(push_channel(40), 2) << "refused while the override is in place";
    wifi_restore_config_enabled_interfaces(false);
    (void)ng_uci_renew_change_context();
    EXPECT_EQ(uci("wireless.orph_conn0.enable"), "1") << "nor does a restoration end it";
    const std::string nonce = wifi_live_settings()->radio_override;
    ASSERT_EQ(push(R"({"channel_change_nonce":")" + nonce +
                   R"(","radios":[{"band":"5GHz","channel":40}]})"),
              0);
    EXPECT_EQ(batch_file(), "");
    EXPECT_EQ(channel(), "40");
    EXPECT_EQ(uci("wireless.orph_conn0.enable"), "0");
    EXPECT_EQ(uci("wireless.orph_conn0.key"), "");
    ASSERT_EQ(push_channel(44), 0);
    EXPECT_NE(batch_file(), "");
}

TEST_F(Delay, ConfirmedPushIsAppliedSevenMinutesLater)
{
    run("rm /var/log/journal");
    EXPECT_EQ(waiting(), "idle 0");
    ASSERT_EQ(push_channel(40), 0);
    pass_ms(3600000);
    EXPECT_EQ(channel(), "36") << "without a confirmation it waits";
    EXPECT_EQ(waiting(), "staged 0");
    confirm(true);
    EXPECT_EQ(led("config"), "1");
    EXPECT_EQ(waiting(), "pending 420");
    const int reloads = journal("reload_config");
    pass_ms(419000);
    EXPECT_EQ(channel(), "36");
    EXPECT_EQ(waiting(), "pending 1");
    EXPECT_EQ(journal("/etc/init.d/dnsmasq"), 0);
    pass_ms(2000);
    EXPECT_EQ(channel(), "40");
    EXPECT_EQ(batch_file(), "");
    EXPECT_EQ(led("config"), "0");
    EXPECT_EQ(journal("reload_config"), reloads + 1);
    EXPECT_EQ(journal("/etc/init.d/dnsmasq reload"), 1);
    EXPECT_EQ(wifi_live_settings()->radios[1].channel, 40u);
    EXPECT_EQ(gTarn_net_state.inet_test.test_passed, 1u) << "the uplink is tested on new terms";
    EXPECT_EQ(uci("tarn_net.settings_radio1.channel"), "") << "the radio says it again";
    all_packages_quiet();
    ASSERT_EQ(push_channel(40), 0);
    EXPECT_EQ(batch_file(), "") << "that is in force now";
}

TEST_F(Delay, SecondPushOfTheSameLeavesTheFirstsTimer)
{
    ASSERT_EQ(push_channel(40), 0);
    confirm(true);
    const std::string first = batch_file();
    pass_ms(300000);
    ASSERT_EQ(push_channel(40), 0);
    confirm(true);
    EXPECT_EQ(batch_file(), first);
    pass_ms(121000);
    EXPECT_EQ(channel(), "40");
}

TEST_F(Delay, DifferentPushTakesTheFirstsPlaceAndItsWaitBeginsAnew)
{
    ASSERT_EQ(push_channel(40), 0);
    confirm(true);
    pass_ms(300000);
    ASSERT_EQ(push(R"({"radios":[{"band":"2.4GHz","channel":1}]})"), 0);
    confirm(true);
    EXPECT_EQ(logged("Aborting delayed wifi settings"), 1);
    pass_ms(300000);
    EXPECT_EQ(channel(), "36");
    EXPECT_EQ(led("config"), "1");
    pass_ms(121000);
    EXPECT_EQ(channel(), "40") << "nothing of the first is lost";
    EXPECT_EQ(uci("wireless.radio0.channel"), "1");
}

TEST_F(Delay, RadioThatIsOffIsComparedWithWhatWasPushed)
{
    const std::string off =
        R"({"delayed_settings":true,"radios":[{"band":"5GHz","enable":false}]})";
    ASSERT_EQ(push(off), 0);
    confirm(true);
    pass_ms(421000);
    EXPECT_EQ(uci("wireless.radio1.enable"), "0");
    for (int i = 0; i < 2; i++) {
        ASSERT_EQ(push(off), 0); // its mesh is still wanted, and is off with it
        EXPECT_EQ(batch_file(), "");
        restart();
    }
    ASSERT_EQ(push(R"({"radios":[{"band":"2.4GHz","mesh_enable":true},
        {"band":"5GHz","mesh_enable":false}]})"),
              0);
    EXPECT_NE(batch_file(), "");
}

TEST_F(Delay, FailedPushIsDroppedAndLeavesThePendingOne)
{
    ASSERT_EQ(push_channel(40), 0);
    confirm(true);
    const std::string pending = batch_file();
    ASSERT_EQ(push_channel(44), 0);
    confirm(false);
    EXPECT_EQ(batch_file(), pending);
    confirm(true); // of some other package's push: nothing is staged
    pass_ms(421000);
    EXPECT_EQ(channel(), "40");
}

TEST_F(Delay, PushThatDoesNotWaitEndsThePendingAndTheStagedOne)
{
    ASSERT_EQ(push_channel(40), 0);
    confirm(true);
    ASSERT_EQ(push_channel(44), 0);
    ASSERT_EQ(push(R"({"delayed_settings":false,"radios":[{"band":"5GHz","channel":48}]})"), 0);
    EXPECT_EQ(channel(), "48");
    EXPECT_EQ(batch_file(), "");
    EXPECT_EQ(led("config"), "0");
    confirm(true);
    pass_ms(500000);
    EXPECT_EQ(channel(), "48");
    EXPECT_EQ(journal("/etc/init.d/dnsmasq reload"), 0) << "its timer went with it";
}

TEST_F(Delay, EndedByHandAndByTheMaintenanceWindow)
{
    EXPECT_EQ(ubus_wifi_end_delayed_wireless(nullptr, nullptr, nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(journal("/etc/init.d/dnsmasq reload"), 1) << "also when nothing is pending";
    const json_message begins(R"({"active":true})"), ends(R"({"active":false})");
    wifid_maint_window_handler(nullptr, nullptr, "qnet.maint_window", begins.head);
    EXPECT_EQ(journal("/etc/init.d/dnsmasq reload"), 1);
    for (const int to : {40, 44}) {
        ASSERT_EQ(push_channel(to), 0);
        confirm(true);
        wifid_maint_window_handler(nullptr, nullptr, "qnet.maint_window", ends.head);
        EXPECT_NE(batch_file(), "");
        if (to == 40)
            (void)ubus_wifi_end_delayed_wireless(nullptr, nullptr, nullptr, nullptr, nullptr);
        else
            wifid_maint_window_handler(nullptr, nullptr, "qnet.maint_window", begins.head);
        (void)ng_uci_renew_change_context();
        EXPECT_EQ(std::to_string(to), channel());
        EXPECT_EQ(batch_file(), "");
    }
    pass_ms(500000);
    EXPECT_EQ(journal("/etc/init.d/dnsmasq reload"), 3) << "the timers went with their files";
}

namespace {

/// What the process left, and then another one in its place.
void end_and_start()
{
    const std::string before = writer_fixture::everything();
    writer_fixture::restart();
    EXPECT_EQ(writer_fixture::everything(), before) << "the record shows what was pushed";
}

} // namespace

TEST_F(Delay, NoneSurvivesARestartButIsWantedStill)
{
    ASSERT_EQ(push_channel(40), 0);
    const std::string staged = batch_file();
    ASSERT_EQ(push_channel(44), 0);
    EXPECT_NE(batch_file(), staged) << "one staged file takes the other's place";
    confirm(true);
    ASSERT_EQ(push_channel(48), 0);
    EXPECT_EQ(run("ls /tmp/wifi-delayed-* | wc -l").output, "2\n") << "pending and staged";
    run("mkfifo /tmp/wifi-delayed-1; echo precious >/tmp/own; ln -s /tmp/own "
        "'/tmp/wifi-delayed-2;x'");
    end_and_start();
    EXPECT_EQ(batch_file(), "");
    EXPECT_EQ(led("config"), "0");
    EXPECT_EQ(logged("NOTICE: Aborting delayed wifi settings from file /tmp/wifi-delayed-"), 4);
    EXPECT_EQ(read_file("/tmp/own"), "precious\n");
    confirm(true); // comes too late
    pass_ms(500000);
    EXPECT_EQ(channel(), "36");
    ASSERT_EQ(push_channel(48), 0);
    EXPECT_NE(batch_file(), "") << "the radio is not there yet, so it waits again";
}

TEST_F(Delay, PushThatCannotBeCommittedLeavesThePendingOne)
{
    ASSERT_EQ(push_channel(40), 0);
    confirm(true);
    constexpr char ALL[] = "cat /etc/config/* /tmp/cp-hosts*";
    const std::string pending = batch_file(), configured = run(ALL).output;
    for (const char *waits : {"false", "true"}) {
        run("mount --bind /etc/config/firewall /etc/config/firewall");
        EXPECT_EQ(push(std::string(R"({"antenna_type":"patch","node_id":9,"delayed_settings":)") +
                       waits +
                       R"(,"ssids":[{"index":1,"enable":true,"ssid":"x","lan_block":true}]})"),
                  2);
        run("umount /etc/config/firewall");
        EXPECT_EQ(batch_file(), pending) << waits;
        EXPECT_EQ(run(ALL).output, configured) << "not by halves";
        all_packages_quiet();
        confirm(false);
    }
    pass_ms(421000);
    EXPECT_EQ(channel(), "40");
}

TEST_F(Delay, WhatCannotBeAppliedIsAppliedWhenItCanBe)
{
    const struct {
        const char *what, *locked, *before, *after;
    } faults[] = {
        {"locked", "/etc/config/wireless", ":", ":"},
        {"the last one locked", "/etc/config/tarn_net", ":", ":"},
        {"unreadable", "/dev/null",
         "cp /etc/config/dhcp /tmp; echo \"config 'x\" >/etc/config/dhcp",
         "cp /tmp/dhcp /etc/config/dhcp"},
        {"no new file", "/dev/null", "mount --bind /etc/config/wireless /etc/config/wireless",
         "umount /etc/config/wireless"},
    };
    int to = 40;
    for (const auto &fault : faults) {
        SCOPED_TRACE(fault.what);
        ASSERT_EQ(push_channel(to), 0);
        confirm(true);
        run(fault.before);
        const int fd = open(fault.locked, O_RDONLY);
        ASSERT_EQ(flock(fd, LOCK_EX), 0);
        const std::string before = run("cat /etc/config/*").output;
        const int errors = logged("ERROR:");
        pass_ms(425000);
        EXPECT_NE(batch_file(), "");
        EXPECT_EQ(run("cat /etc/config/*").output, before) << "not by halves";
        all_packages_quiet();
        EXPECT_EQ(logged("ERROR:"), errors + 1) << "not said every second";
        close(fd);
        run(fault.after);
        pass_ms(2000);
        EXPECT_EQ(std::to_string(to), channel());
        EXPECT_EQ(batch_file(), "");
        to += 4;
    }
}

TEST_F(Delay, EventThatSaysNothingLeavesTheStagedFileAlone)
{
    ASSERT_EQ(push_channel(40), 0);
    const std::string staged = batch_file();
    wifid_parse_config_event_handler(nullptr, nullptr, "parse_config_status", nullptr);
    EXPECT_EQ(logged("msg is NULL"), 1);
    const json_message empty("{}"), another(R"({"result":true})"), wrong(R"({"success":"true"})");
    wifid_parse_config_event_handler(nullptr, nullptr, "parse_config_status", empty.head);
    EXPECT_EQ(logged("Unable to parse parse_config status event"), 1);
    wifid_parse_config_event_handler(nullptr, nullptr, "parse_config_status", another.head);
    wifid_parse_config_event_handler(nullptr, nullptr, "parse_config_status", wrong.head);
    EXPECT_EQ(logged("parse_config status event didn't contain success flag"), 2);
    EXPECT_EQ(batch_file(), staged);
}

TEST_F(Delay, OnlyAStateThatSaysZeroKeepsInterfacesOff)
{
    const struct {
        const char *state, *supply;
        bool complete;
        const char *logged;
    } cases[] = {
        {"", "00", true, "NOTICE: UCI lookup incomplete for LLDP negotiation state"},
        {"wireless._lldp='lldp'\n", "00", true, "NOTICE: UCI lookup incomplete for"},
        {"='0x'\n", "00", true, "NOTICE: LLDP negotiation state is not an integer"},
        {"='0'\n", "00", false, "INFO: LLDP negotiation done: 0"},
        {"='2'\n", "00", true, "INFO: LLDP negotiation done: 2"},
        {"='0'\n", "10", true, "INFO: Sufficient power without LLDP, negotiation complete"},
        {"='0'\n", "01", true, "INFO: Sufficient power without LLDP, negotiation complete"},
    };
    gDebug_log_level = ZU_LOG_INFO;
    for (const auto &c : cases) {
        std::string state = c.state;
        if (state[0] == '=')
            state = "wireless._lldp='lldp'\nwireless._lldp.negotiation_complete" + state;
        write_file("/var/state/wireless", state);
        write_file("/sys/class/gpio/dc_detect/value", std::string(1, c.supply[0]) + "\n");
        write_file("/sys/class/gpio/poe_at_detect/value", std::string(1, c.supply[1]) + "\n");
        const int before = logged(c.logged);
        EXPECT_EQ(wifi_lldp_negotiation_complete(), c.complete) << state;
        EXPECT_EQ(logged(c.logged), before + 1) << state;
    }
    write_file("/sys/class/gpio/poe_at_detect/value", "0\n");
    write_file("/sys/class/gpio/dc_detect/value", "0\n");
    run("mv /etc/config/wireless /tmp/wireless");
    EXPECT_TRUE(wifi_lldp_negotiation_complete());
    EXPECT_EQ(logged("NOTICE: Unable to find LLDP negotiation UCI state"), 1);
    wifi_restore_config_enabled_interfaces(false);
    EXPECT_EQ(logged("trying again every second"), 0) << "there is nothing to restore";
    run("mv /tmp/wireless /etc/config/wireless");
    gDebug_log_level = ZU_LOG_NOTICE;
}

TEST_F(Delay, PushedWhilePowerWasNegotiatedComesOnWhenItIsApplied)
{
    const std::string lldp = "wireless._lldp='lldp'\nwireless._lldp.negotiation_complete=";
    write_file("/sys/class/gpio/dc_detect/value", "0\n");
    write_file("/var/state/wireless", lldp + "'0'\n");
    ASSERT_EQ(push(R"({"delayed_settings":true,"radios":[{"band":"5GHz","channel":40}],
        "ssids":[{"index":4,"enable":true}]})"),
              0);
    confirm(true);
    EXPECT_NE(run("grep \"ap1_4.enable='0'\" " + batch_file()).output, "");
    write_file("/var/state/wireless", lldp + "'1'\n");
    pass_ms(421000);
    EXPECT_EQ(channel(), "40");
    EXPECT_EQ(uci("wireless.ap1_4.config_enable") + " " + uci("wireless.ap1_4.enable"), "1 1");
    EXPECT_EQ(uci("wireless.mesh1.enable"), "1");
}

TEST_F(Delay, RestorationLeavesAloneWhatItCannotRead)
{
    run("for i in 0_1 0_2 1_1; do uci set wireless.ap$i.config_enable=1; "
        "uci set wireless.ap$i.enable=0; done; uci delete wireless.ap0_2.config_enable; "
        "uci delete wireless.mesh0.config_enable; uci set wireless.mesh1.config_enable=1; "
        "uci set wireless.mesh1.enable=0; uci set wireless.radio1.channel=52; "
        "uci delete wireless.radio1.htmode; uci set wireless.orph_conn1.enable=1; "
        "uci commit wireless");
    (void)ng_uci_renew_change_context();
    wifi_restore_config_enabled_interfaces(false);
    EXPECT_EQ(journal("reload_config"), 1) << "that of the push before";
    EXPECT_EQ(uci("wireless.ap0_1.enable") + " " + uci("wireless.ap0_2.enable") + " " +
                  uci("wireless.ap1_1.enable"),
              "1 0 1");
    EXPECT_EQ(uci("wireless.mesh1.enable"), "1") << "no word of a DFS channel";
    EXPECT_EQ(uci("wireless.orph_conn1.enable"), "0");
    EXPECT_EQ(logged("Unable to read 'config_enable' UCI option for iface ap0_2"), 1);
    EXPECT_EQ(logged("Unable to read 'config_enable' UCI option for iface mesh0"), 1);
    EXPECT_EQ(logged("Unable to read 'htmode' UCI option for radio1"), 1);
    run("uci set wireless.radio1.htmode=VHT80; uci commit wireless");
    (void)ng_uci_renew_change_context();
    wifi_restore_config_enabled_interfaces(true);
    EXPECT_EQ(uci("wireless.mesh1.enable"), "0");
    EXPECT_EQ(journal("reload_config"), 2);
}

TEST_F(Delay, InterfacesThatNobodyKeepsOffComeOn)
{
    const auto enables = [] { return uci("wireless.ap0_1.enable") + uci("wireless.mesh1.enable"); };
    const auto negotiated = [](int complete) {
        run("echo 0 >/sys/class/gpio/dc_detect/value; "
            "uci set wireless.ap0_1.enable=0; uci set wireless.mesh1.enable=0; uci commit "
            "wireless; "
            "uci -P /var/state set wireless._lldp=lldp; "
            "uci -P /var/state set wireless._lldp.negotiation_complete=" +
            std::to_string(complete));
    };
    run("rm /var/log/journal");
    negotiated(0);
    restart();
    pass_ms(5000);
    EXPECT_EQ(enables(), "00");
    negotiated(1); // and nobody heard of it
    run("uci set wireless.orph_conn0.enable=1; uci commit wireless");
    restart();
    pass_ms(1);
    EXPECT_EQ(enables() + uci("wireless.orph_conn0.enable"), "111") << "an orphan stays connected";
    EXPECT_EQ(journal("reload_config"), 1);
    restart();
    pass_ms(1);
    EXPECT_EQ(journal("reload_config"), 1) << "there was nothing to do";

    for (const int complete : {1, 0}) {
        SCOPED_TRACE(complete);
        negotiated(1);
        (void)ng_uci_renew_change_context();
        const int rival = open("/etc/config/wireless", O_RDWR | O_CLOEXEC);
        ASSERT_EQ(flock(rival, LOCK_EX), 0);
        wifi_restore_config_enabled_interfaces(true);
        const int said = logged("is locked by another process");
        pass_ms(5500);
        EXPECT_EQ(logged("trying again every second"), 1);
        EXPECT_EQ(logged("is locked by another process"), said);
        close(rival);
        if (!complete)
            negotiated(0);
        pass_ms(1000);
        EXPECT_EQ(complete ? "11" : "00", enables());
        EXPECT_EQ(journal("reload_config"), 2);
        if (complete)
            run("sed -i '/trying again/d' " + log.path);
    }
    pass_ms(5000);
    EXPECT_EQ(enables(), "00");
    EXPECT_EQ(logged("for iface ap2_"), 0) << "the scanning radio has no interfaces to restore";

    // Neither is notified, whoever wrote the zeros.
    for (const char *power : {"uci -P /var/state set wireless._lldp.negotiation_complete=1",
                              "echo 1 >/sys/class/gpio/dc_detect/value"}) {
        SCOPED_TRACE(power);
        run(power);
        pass_ms(31000);
        EXPECT_EQ(enables(), "11");
        negotiated(0);
        ASSERT_EQ(push(R"({"ssids":[{"index":1,"enable":true}]})"), 0);
        pass_ms(31000);
        EXPECT_EQ(enables(), "00");
    }
}

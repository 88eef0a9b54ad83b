// A scan from the request to its results, and what becomes of it when u80211d misbehaves.
#include "radio_fixture.h"

namespace {

using strings = std::vector<std::string>;

const std::string HOME =
    R"({"band":"5GHz","channel":36,"ssid":"Home","bssid":"02:00:00:00:00:01","crypto":1,)"
    R"("wpa_version":2,"mbm":"-6500","wifi_modes":"a/n"})";
const std::string HOME_RECORD =
    R"({"band":"5GHz","channel_width":20,"channels":[36],"ssid":"Home",)"
    R"("bssid":"02:00:00:00:00:01","encryption":"WPA2","signal":-6500.000000,"wifi_mode":"a/n"})";
const std::string TRIGGER =
    R"(scan {"dump":false,"ifname":"scan","on_channel":false,"ap_force":false})";
const std::string DUMP =
    R"(scan {"dump":true,"ifname":"scan","on_channel":false,"ap_force":false})";
constexpr const char *JOB = R"({"job":"ap_scan","id":"1","params":{"checkin_after_scan":true}})";

struct Scan : radio_fixture {
    /// The states of all entries: i idle, f in flight; upper case with results.
    static std::string states()
    {
        std::string text;
        const scanning_result *entry;
        list_for_each_entry(entry, &gScanning_results, link)
        {
            const char state = entry->timer.pending ? 'f' : 'i';
            text += entry->data_generated ? static_cast<char>(toupper(state)) : state;
        }
        return text;
    }
    /// Whatever happened before: a scan runs from end to end.
    void expect_scan_works()
    {
        u80211d->behaves.clear();
        finds("scan", {HOME});
        (void)calls();
        (void)checkins();
        EXPECT_EQ(scan_now(R"({"checkin_after_scan":true})"), 0);
        EXPECT_EQ(calls(), strings{TRIGGER});
        scan_done("scan");
        EXPECT_EQ(calls(), strings{DUMP});
        EXPECT_EQ(states(), "I");
        EXPECT_EQ(checkins(), 1);
        EXPECT_TRUE(dump_holds("\"result_data\":[" + HOME_RECORD + "]"));
    }
    std::string start_job()
    {
        gPackage_jobs_events = wifi_jobs();
        (void)sent("");
        blob_buffer params;
        blob_buf_init(&params, 0);
        gUbus_jobs_event_handler.cb(daemon, nullptr, "qnet.jobs", json_message(JOB).head);
        return sent("qnet.job_status");
    }
    static std::string report(const char *status, const char *message)
    {
        return std::string(R"({"job":"ap_scan","id":"1","status":")") + status +
               R"(","message":")" + message + R"(","params":{"checkin_after_scan":true}})";
    }
    static generic_job *job() { return wifi_jobs()[0].job; }
};

TEST_F(Scan, IsTriggeredOnceAndEndsWithResultsAndOneCheckin)
{
    EXPECT_EQ(dumped(wifi_dump_scanning_state),
              R"({"wifi_scanning_state":{"obj_id":)" + std::to_string(int(u80211d->id)) +
                  R"(,"subscribed_to_scan_events":true,"checkin_after_scan":false,)"
                  R"("scan_results":[{"ifname":"scan","is_ap_iface":false,)"
                  R"("scan_timeout_running":false,"data_generated":true,"scan_retry_count":0}]}})");
    EXPECT_EQ(scan_now(R"({"checkin_after_scan":true})"), 0);
    EXPECT_EQ(scan_now(R"({"checkin_after_scan":false})"), 0);
    EXPECT_EQ(calls(), strings{TRIGGER});
    EXPECT_EQ(states(), "f");
    EXPECT_TRUE(dump_holds(R"("checkin_after_scan":true)"));

    finds("scan", {HOME, R"({"bssid":"broken"})", HOME});
    scan_done("scan");
    EXPECT_EQ(calls(), strings{DUMP});
    EXPECT_EQ(states(), "I");
    EXPECT_TRUE(dump_holds("\"result_data\":[" + HOME_RECORD + "," + HOME_RECORD + "]"));
    EXPECT_EQ(cloud->called, strings{R"(checkin {"checkin_type":"normal"})"});
    EXPECT_TRUE(dump_holds(R"("checkin_after_scan":false)"));
    EXPECT_EQ(ubus_wifi_ap_scan_now(daemon, nullptr, nullptr, "ap_scan_now", nullptr), 9);
}

TEST_F(Scan, UsesTheAccessPointsWhereNoRadioScans)
{
    lists_access_points();
    EXPECT_EQ(scan_now(), 0);
    EXPECT_EQ(
        calls(),
        (strings{R"(scan {"dump":false,"ifname":"ap0_1","on_channel":false,"ap_force":true})",
                 R"(scan {"dump":false,"ifname":"ap1_1","on_channel":false,"ap_force":true})"}));
    finds("ap0_1", {HOME});
    scan_done("ap0_1");
    EXPECT_EQ(states(), "If");
    EXPECT_EQ(scan_now(R"({"checkin_after_scan":true})"), 0);
    EXPECT_EQ(states(), "ff") << "the one that had ended scans again, the other still does";
    finds("ap1_1", {HOME});
    scan_done("ap1_1");
    EXPECT_EQ(checkins(), 0) << "one still scans";
    finds("ap0_1", {});
    scan_done("ap0_1");
    EXPECT_EQ(states(), "II");
    EXPECT_EQ(checkins(), 1);

    run("uci set wireless.ap0_1.config_enable=0; uci set wireless.ap0_2.config_enable=0; "
        "uci set wireless.ap0_3.config_enable=0; uci commit wireless");
    ng_uci_renew_change_context();
    wifi_radio_list_ifaces();
    EXPECT_EQ(std::string(scanned()->ifname), "ap1_1") << "radio 0 has none that is on";
    EXPECT_EQ(scanned(1), nullptr);
}

TEST_F(Scan, ANotificationThatFitsNothingChangesNothing)
{
    const struct {
        const char *method, *json;
        int status;
    } cases[] = {{"wifi.scan.done", R"({"ifname":"scan2"})", 2},
                 {"wifi.scan.done", R"({"ifname":7})", 2},
                 {"wifi.scan.done", "{}", 2},
                 {"wifi.scan.began", R"({"ifname":"scan"})", 0},
                 {nullptr, R"({"ifname":"scan"})", 2}};
    EXPECT_EQ(scan_now(), 0);
    (void)calls();
    for (const auto &each : cases)
        EXPECT_EQ(tarn_net_wifi_scan_done_handler(daemon, nullptr, nullptr, each.method,
                                                  json_message(each.json).head),
                  each.status)
            << each.json;
    EXPECT_EQ(tarn_net_wifi_scan_done_handler(daemon, nullptr, nullptr, "wifi.scan.done", nullptr),
              2);
    EXPECT_EQ(calls(), strings{});
    EXPECT_EQ(states(), "f");
}

TEST_F(Scan, EveryAnswerToADumpEndsIt)
{
    const struct {
        const char *what;
        fake_peer::behaviour behaviour;
        std::function<void(blob_buf *)> reply;
        const char *ends;
    } cases[] = {
        {"no data", fake_peer::ANSWERS, [](blob_buf *) {}, "i"},
        {"an error", fake_peer::FAILS, [](blob_buf *) {}, "i"},
        {"another interface", fake_peer::ANSWERS,
         [](blob_buf *reply) { blobmsg_close_array(reply, blobmsg_open_array(reply, "scan2")); },
         "i"},
        {"a string", fake_peer::ANSWERS,
         [](blob_buf *reply) { blobmsg_add_string(reply, "scan", "none"); }, "I"},
        {"the data twice", fake_peer::TWICE,
         [](blob_buf *reply) {
             void *list = blobmsg_open_array(reply, "scan");
             bss_message(HOME).add_to(reply);
             blobmsg_close_array(reply, list);
         },
         "I"},
    };
    for (const auto &each : cases) {
        u80211d->behaves["scan"] = fake_peer::ANSWERS;
        EXPECT_EQ(scan_now(R"({"checkin_after_scan":true})"), 0);
        u80211d->behaves["scan"] = each.behaviour;
        u80211d->replies["scan"] = each.reply;
        scan_done("scan");
        settle();
        EXPECT_EQ(states(), each.ends) << each.what;
        EXPECT_EQ(checkins(), 1) << each.what;
    }
    EXPECT_TRUE(dump_holds("\"result_data\":[" + HOME_RECORD + "]"));
    expect_scan_works();
}

TEST_F(Scan, AHangingDumpEndsAndItsLateAnswerIsNobodys)
{
    u80211d->behaves["scan"] = fake_peer::HANGS;
    EXPECT_EQ(scan_now(R"({"checkin_after_scan":true})"), 0);
    scan_done("scan");
    scan_done("scan"); // the event comes twice: the first dump is given up
    EXPECT_EQ(calls(), (strings{TRIGGER, DUMP, DUMP}));
    expire(&scanned()->timer, 10000);
    EXPECT_EQ(logged("iface scan scan hit timeout"), 1);
    EXPECT_EQ(states(), "i");
    EXPECT_EQ(checkins(), 1);
    finds("scan", {HOME});
    u80211d->answer_late("scan");
    settle();
    EXPECT_EQ(states(), "i");
    EXPECT_FALSE(dump_holds("result_data"));
    expect_scan_works();
}

TEST_F(Scan, ANewListTakesOverWhatTheOldOneWasAsked)
{
    u80211d->behaves["scan"] = fake_peer::HANGS;
    EXPECT_EQ(scan_now(R"({"checkin_after_scan":true})"), 0);
    scan_done("scan"); // dumping
    (void)calls();
    wifi_radio_list_ifaces();
    EXPECT_EQ(calls(), strings{TRIGGER});
    finds("scan", {HOME, HOME});
    u80211d->answer_late("scan"); // to a request that was freed
    settle();
    EXPECT_EQ(states(), "f");
    u80211d->behaves.clear();
    scan_done("scan");
    EXPECT_EQ(states(), "I");
    EXPECT_EQ(checkins(), 1);

    EXPECT_EQ(scan_now(R"({"checkin_after_scan":true})"), 0);
    _parse_platform_data("{}");
    wifi_radio_list_ifaces();
    EXPECT_EQ(states(), "") << "nothing scans any more";
    EXPECT_EQ(checkins(), 1);
}

TEST_F(Scan, TheListStaysWhileTheConfigurationCannotBeRead)
{
    lists_access_points();
    run("printf \"config torn 'x\" >/etc/config/wireless");
    ng_uci_renew_change_context();
    wifi_radio_list_ifaces();
    EXPECT_EQ(states(), "II");
}

TEST_F(Scan, U80211dAwayAndBackUnderAnotherId)
{
    const uint32_t old = u80211d->id;
    u80211d->behaves["scan"] = fake_peer::HANGS;
    EXPECT_EQ(scan_now(R"({"checkin_after_scan":true})"), 0);
    scan_done("scan");
    u80211d.reset(); // with a dump unanswered
    u80211d_unsubscribe(daemon, old);
    EXPECT_TRUE(dump_holds(R"("obj_id":0)"));
    expire(&scanned()->timer, 10000);
    EXPECT_EQ(checkins(), 1);
    EXPECT_EQ(scan_now(R"({"checkin_after_scan":true})"), 0) << "asked into the void";
    EXPECT_EQ(states(), "f");

    u80211d.emplace(stranger, "wifi");
    ASSERT_NE(u80211d->id, old);
    u80211d_register_subscriber(daemon, u80211d->id);
    u80211d_register_subscriber(daemon, u80211d->id);
    expire(&scanned()->timer, 30000);
    EXPECT_EQ(calls(), strings{TRIGGER});
    finds("scan", {HOME});
    scan_done("scan");
    EXPECT_EQ(calls(), strings{DUMP}) << "subscribed once";
    expect_scan_works();
}

TEST_F(Scan, ARefusedSubscriptionIsTriedUntilItStands)
{
    const uint32_t id = u80211d->id;
    u80211d_unsubscribe(daemon, id);
    u80211d_register_subscriber(daemon, 12345); // no such object: refused
    EXPECT_EQ(logged("Unable to subscribe to wifi (u80211d) notifications"), 1);
    EXPECT_TRUE(dump_holds(R"("obj_id":0)"));
    u80211d_object_added(
        daemon, &*std::make_unique<ubus_object_data>(ubus_object_data{id, 0, "wifi", nullptr}));
    EXPECT_TRUE(dump_holds(R"("obj_id":)" + std::to_string(static_cast<int>(id))));
    expect_scan_works();
}

TEST_F(Scan, WithoutTheBusSaysSoAndTheNextOneWorks)
{
    gUbus_ctx = nullptr;
    EXPECT_EQ(scan_now(R"({"checkin_after_scan":true})"), 9);
    EXPECT_EQ(states(), "I");
    gUbus_ctx = daemon;
    EXPECT_EQ(scan_now(), 0);
    gUbus_ctx = nullptr;
    expire(&scanned()->timer, 30000);
    EXPECT_EQ(states(), "f") << "asked again after a pause";
    gUbus_ctx = daemon;
    (void)calls();
    expire(&scanned()->timer, 30000);
    EXPECT_EQ(calls(), strings{TRIGGER});
    finds("scan", {HOME});
    scan_done("scan");
    EXPECT_EQ(checkins(), 1);
}

TEST_F(Scan, TheJobIsReportedHoweverItEnds)
{
    EXPECT_EQ(start_job(), "");
    EXPECT_EQ(start_job(), R"({"job":"ap_scan","id":"1","status":"busy",)"
                           R"("message":"the job is running","params":{}})");
    finds("scan", {HOME});
    scan_done("scan");
    EXPECT_EQ(sent("qnet.job_status"), report("success", "ap_scan was successful"));
    EXPECT_EQ(checkins(), 1);

    EXPECT_EQ(start_job(), "");
    expire(&job()->timer, 45000);
    EXPECT_EQ(sent("qnet.job_status"), report("timeout", "the job did not end in time"));
    EXPECT_EQ(checkins(), 0);
    scan_done("scan");
    EXPECT_EQ(sent("qnet.job_status"), "") << "the job is over";
    EXPECT_EQ(checkins(), 1) << "its check-in is not";

    gUbus_ctx = nullptr;
    EXPECT_EQ(start_job(), report("failed", "the job could not be started"));
    gUbus_ctx = daemon;
    EXPECT_EQ(start_job(), "");
    scan_done("scan");
    EXPECT_EQ(sent("qnet.job_status"), report("success", "ap_scan was successful"));

    _parse_platform_data("{}");
    wifi_radio_list_ifaces();
    EXPECT_EQ(start_job(), report("success", "ap_scan was successful")) << "nothing to scan";
}

} // namespace

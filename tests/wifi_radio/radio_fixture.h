// Scans and surveys in this process, on a simulated root: another connection to the bus plays
// u80211d and the cloud's daemon. Time does not pass by itself: a test ends a wait by hand.
#pragma once

#include <map>

#include "bss.h"
#include "platform/zu/log.h"
#include "platform/zu/ng_uci.h"
#include "platform/zu/platform_data.h"
#include "state/owned.h"
#include "support/bus_fixture.h"
#include "support/fake_object.h"
#include "support/node.h"
#include "wifi/radio/radio.h"
#include "wifi/radio/radio_internal.h"
#include "wifi/settings/dump.h"
#include "wifi/wifi.h"

/// An object that answers every call of a method with `replies[method]`; by default with nothing.
struct fake_peer : fake_object {
    enum behaviour { ANSWERS, HANGS, TWICE, FAILS };
    std::map<std::string, behaviour> behaves;
    std::map<std::string, std::function<void(blob_buf *)>> replies;
    std::vector<ubus_request_data> unanswered;

    fake_peer(ubus_context *ctx, const char *object_path)
        : fake_object(ctx, object_path, {"scan", "survey", "checkin"})
    {
    }
    void answer(ubus_request_data *request, const std::string &method)
    {
        blob_buffer reply;
        blob_buf_init(&reply, 0);
        if (replies.contains(method))
            replies[method](&reply);
        if (blob_len(reply.head) > 0)
            ubus_send_reply(bus, request, reply.head);
    }
    /// What hung is answered after all.
    void answer_late(const std::string &method)
    {
        for (ubus_request_data &request : unanswered) {
            answer(&request, method);
            ubus_complete_deferred_request(bus, &request, 0);
        }
        unanswered.clear();
    }
    std::vector<std::string> take_calls() { return std::exchange(called, {}); }
    int on_call(ubus_request_data *request, const std::string &method) override
    {
        if (behaves[method] == HANGS)
            ubus_defer_request(bus, request, &unanswered.emplace_back());
        else if (behaves[method] == FAILS)
            return UBUS_STATUS_UNKNOWN_ERROR;
        else
            for (int i = 0; i < (behaves[method] == TWICE ? 2 : 1); i++)
                answer(request, method);
        return 0;
    }
};

struct radio_fixture : bus_fixture, logging {
    std::optional<fake_peer> u80211d, cloud;
    std::optional<event_log> events;

    void SetUp() override
    {
        bus_fixture::SetUp();
        begin_anew();
        platform_detect();
        gUbus_ctx = daemon;
        (void)wifi_reload_config(true);
        u80211d.emplace(stranger, "wifi");
        cloud.emplace(stranger, "qnet.cloud_comm");
        u80211d_register_subscriber(daemon, u80211d->id);
        events.emplace(stranger, "*");
    }
    void TearDown() override
    {
        wifi_init_scan_state();
        wifi_init_survey_state();
        uloop_timeout_cancel(&gSurvey_period_timer);
        gScan_state = {};
        gUbus_ctx = nullptr;
        settle();
        u80211d.reset();
        cloud.reset();
        ng_uci_drop_changes();
        bus_fixture::TearDown();
    }

    /// Ends a wait that was to take `ms`.
    static void expire(uloop_timeout *timer, int ms)
    {
        ASSERT_TRUE(timer->pending);
        const int left = static_cast<int>(uloop_timeout_remaining64(timer));
        EXPECT_TRUE(left <= ms && left > ms - 10000) << left << " of " << ms;
        uloop_timeout_cancel(timer);
        timer->cb(timer);
    }
    static scanning_result *scanned(int index = 0)
    {
        scanning_result *entry;
        list_for_each_entry(entry, &gScanning_results, link)
        {
            if (index-- == 0)
                return entry;
        }
        return nullptr;
    }
    static survey_entry *surveyed()
    {
        return list_first_entry(&gSurvey_entries, survey_entry, link);
    }
    void lists_access_points()
    {
        _parse_platform_data(R"({"wireless": {"num_radios": 2, "scanning_support": false,
            "wifi_radios": [{"band": "2.4GHz"}, {"band": "5GHz"}]}})");
        wifi_radio_list_ifaces();
    }
    void scan_done(const std::string &ifname)
    {
        ubus_notify(stranger, &*u80211d, "wifi.scan.done",
                    json_message(R"({"ifname":")" + ifname + "\"}").head, -1);
        settle();
    }
    /// u80211d has found these on the interface.
    void finds(const std::string &ifname, const std::vector<std::string> &entries)
    {
        u80211d->replies["scan"] = [ifname, entries](blob_buf *reply) {
            void *list = blobmsg_open_array(reply, ifname.c_str());
            for (const std::string &json : entries)
                bss_message(json).add_to(reply);
            blobmsg_close_array(reply, list);
        };
    }
    int scan_now(const std::string &json = "{}")
    {
        const int status =
            ubus_wifi_ap_scan_now(daemon, nullptr, nullptr, "ap_scan_now", json_message(json).head);
        settle();
        return status;
    }
    std::vector<std::string> calls()
    {
        settle();
        return u80211d->take_calls();
    }
    int checkins()
    {
        settle();
        return static_cast<int>(cloud->take_calls().size());
    }
    /// One table of the state dump as JSON text.
    static std::string dumped(void (*dump)(blob_buf *))
    {
        blob_buffer reply;
        blob_buf_init(&reply, 0);
        dump(&reply);
        return zu_blobmsg_json(reply.head, true).get();
    }
    static bool dump_holds(const std::string &text)
    {
        return dumped(wifi_dump_scanning_state).find(text) != std::string::npos;
    }
    /// Events of `type` since the last call, joined.
    std::string sent(const std::string &type)
    {
        settle();
        std::string text;
        for (const received_event &event : events->all)
            if (event.type == type)
                text += event.document;
        events->all.clear();
        return text;
    }
};

// Channel surveys: every five minutes the counters of the channel in use, of one access point a
// radio. The last two samples are kept side by side; a reader makes the ratio.
//
//            every 5 min            answered
//     idle ──────────────► surveying ────────► idle
//            ▲                │ 30 s without an end, up to 5 times in a row
//            ├────────────────┤
//            │                ▼ 6th, and no scan in flight
//            └──────────── pause, u80211d restarted
#include <cstdio>
#include <new>

#include "platform/zu/blobmsg_util.h"
#include "platform/zu/clock.h"
#include "platform/zu/log.h"
#include "state/state.h"
#include "wifi/radio/radio.h"
#include "wifi/radio/radio_internal.h"

constexpr int SURVEY_TIMEOUT_MS = 30000;

LIST_HEAD(gSurvey_entries);
uloop_timeout gSurvey_period_timer;

static void wifi_survey_now_handler();

static void wifi_survey_period_cb(uloop_timeout *)
{
    wifi_survey_now_handler();
    gSurvey_period_timer.cb = wifi_survey_period_cb;
    uloop_timeout_set(&gSurvey_period_timer, SURVEY_PERIOD_MS);
}

static void arm(survey_entry *entry, uloop_timeout_handler cb)
{
    entry->timer.cb = cb;
    uloop_timeout_set(&entry->timer, SURVEY_TIMEOUT_MS);
}

// ---- the answer

enum { ACTIVE, BUSY, TX, RX, IN_USE, MEMBERS };

static void add_sample(survey_entry *entry, blob_attr *const *channel)
{
    const auto counter = [channel](int member) -> uint64_t {
        return channel[member] ? blobmsg_get_u64(channel[member]) : 0;
    };
    entry->previous = entry->latest;
    entry->latest = {counter(ACTIVE), counter(BUSY), counter(RX), counter(TX)};
    entry->sampled_s = zu_monotonic_s();
    if (entry->latest.active >= entry->previous.active)
        return;
    log_info("Detected an interface restart, restart survey data collection");
    entry->previous = {};
}

static void read_channel(survey_entry *entry, blob_attr *member)
{
    static constexpr blobmsg_policy POLICY[MEMBERS] = {
        {"active", BLOBMSG_TYPE_INT64}, {"busy", BLOBMSG_TYPE_INT64},  {"tx", BLOBMSG_TYPE_INT64},
        {"rx", BLOBMSG_TYPE_INT64},     {"in_use", BLOBMSG_TYPE_BOOL},
    };
    blob_attr *channel[MEMBERS];
    if (!blobmsg_check_attr(member, false) || blobmsg_type(member) != BLOBMSG_TYPE_TABLE ||
        !zu_blobmsg_parse(POLICY, channel, member)) {
        log_error("Unable to parse a survey result for this frequency on iface '%s'",
                  entry->ifname);
        return;
    }
    if (!channel[IN_USE])
        log_notice("Survey result for iface '%s' does not include the 'in_use' flag, skipping "
                   "result",
                   entry->ifname);
    else if (blobmsg_get_bool(channel[IN_USE]))
        add_sample(entry, channel);
}

void wifi_survey_data_cb(ubus_request *req, int, blob_attr *msg)
{
    if (!req || !msg) {
        log_error("%s is NULL", req ? "msg" : "req");
        return;
    }
    auto *entry = static_cast<survey_entry *>(req->priv);
    if (!entry) {
        log_error("Missing survey results object. Ignoring");
        return;
    }
    entry->data_generated = true;
    blob_attr *member;
    size_t rest;
    blobmsg_for_each_attr(member, msg, rest) read_channel(entry, member);
}

static void wifi_survey_done_cb(ubus_request *req, int status)
{
    if (!req) {
        log_error("%s is NULL", "req");
        return;
    }
    auto *entry = static_cast<survey_entry *>(req->priv);
    if (!entry) {
        log_error("Missing survey results object. Ignoring");
        return;
    }
    if (status != UBUS_STATUS_OK)
        log_error("u80211d returned with '%s'", ubus_strerror(status));
    uloop_timeout_cancel(&entry->timer);
    entry->timeouts_in_a_row = 0;
    gSurvey_period_timer.cb = wifi_survey_period_cb;
    uloop_timeout_set(&gSurvey_period_timer, SURVEY_PERIOD_MS);
}

static void wifi_get_survey_timeout_cb(uloop_timeout *timer)
{
    survey_entry *entry = container_of(timer, survey_entry, timer);
    log_error("iface '%s' survey hit timeout", entry->ifname);
    if (gUbus_ctx)
        ubus_abort_request(gUbus_ctx, &entry->request);
    entry->data_generated = false;
    entry->survey_retry_count++;
    // Every trigger sets the count above to 0, so it takes another one to notice that none of them
    // is answered.
    if (++entry->timeouts_in_a_row <= U80211D_RETRIES &&
        entry->survey_retry_count <= U80211D_RETRIES)
        return;
    if (wifi_scan_in_flight()) {
        arm(entry, wifi_get_survey_timeout_cb);
        return;
    }
    entry->survey_retry_count = 0;
    entry->timeouts_in_a_row = 0;
    u80211d_restart();
    arm(entry, wifi_survey_period_cb);
}

// ---- the request

static int survey(survey_entry *entry)
{
    blob_buffer request;
    if (blob_buf_init(&request, 0) != 0) {
        log_error("Failed to allocate a blob_buf for the u80211d survey call");
        return -1;
    }
    if (blobmsg_add_string(&request, "ifname", entry->ifname) != 0) {
        log_error("Failed to add parameter 'ifname' to 'survey' ubus invoke for package 'wifi'");
        return -1;
    }
    if (!gUbus_ctx || ubus_invoke_async(gUbus_ctx, gScan_state.u80211d_obj_id, "survey",
                                        request.head, &entry->request) != UBUS_STATUS_OK) {
        log_error("Failed to invoke 'survey' method for pacakge 'wifi' to collect survey data");
        return -1;
    }
    entry->data_generated = false;
    entry->survey_retry_count = 0;
    entry->request.priv = entry;
    entry->request.data_cb = wifi_survey_data_cb;
    entry->request.complete_cb = wifi_survey_done_cb;
    arm(entry, wifi_get_survey_timeout_cb);
    ubus_complete_request_async(gUbus_ctx, &entry->request);
    return 0;
}

static void wifi_survey_now_handler()
{
    survey_entry *entry;
    list_for_each_entry(entry, &gSurvey_entries, link)
    {
        if (!entry->timer.pending && survey(entry) != 0)
            return; // the others with the next period
    }
}

int ubus_wifi_ap_survey_now(ubus_context *, ubus_object *, ubus_request_data *, const char *,
                            blob_attr *)
{
    wifi_survey_now_handler();
    return UBUS_STATUS_OK;
}

// ---- the list

static survey_entry *find_survey_entry_by_radio_idx(int radio_idx)
{
    survey_entry *entry;
    list_for_each_entry(entry, &gSurvey_entries, link)
    {
        if (entry->radio_idx == radio_idx)
            return entry;
    }
    return nullptr;
}

void update_survey_list_by_radio_idx(int radio_idx, const char *survey_ifname)
{
    if (!survey_ifname) {
        log_error("%s is NULL", "survey_ifname");
        return;
    }
    survey_entry *entry = find_survey_entry_by_radio_idx(radio_idx);
    if (!entry) {
        entry = new (std::nothrow) survey_entry{};
        if (!entry) {
            log_error("Failed to allocate memory for a new scanning result");
            return;
        }
        entry->radio_idx = radio_idx;
        entry->data_generated = true;
        list_add_tail(&entry->link, &gSurvey_entries);
    }
    snprintf(entry->ifname, sizeof entry->ifname, "%s", survey_ifname);
}

static void wifi_flush_survey_list()
{
    while (!list_empty(&gSurvey_entries)) {
        survey_entry *entry = list_first_entry(&gSurvey_entries, survey_entry, link);
        list_del(&entry->link);
        if (entry->timer.pending && gUbus_ctx)
            ubus_abort_request(gUbus_ctx, &entry->request);
        uloop_timeout_cancel(&entry->timer);
        delete entry;
    }
}

void wifi_init_survey_state()
{
    wifi_flush_survey_list();
    gSurvey_period_timer.cb = wifi_survey_period_cb;
    uloop_timeout_set(&gSurvey_period_timer, SURVEY_PERIOD_MS);
}

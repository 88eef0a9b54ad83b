// What the files of this folder tell each other.
//
// An entry of either list has one request and one timer. The timer runs exactly while something is
// owed to the entry: an answer, a notification, or the end of a pause after which it asks again. So
// a record that is freed has nothing in flight once its timer is stopped and its request aborted.
#pragma once

#include <cstdint>
#include <libubus.h>

#include "platform/fw_core/jobs.h"

struct ng_nl80211_event;

/// A scan that is not answered is asked for again; u80211d gets as long after a restart.
constexpr int SCAN_TRIGGER_TIMEOUT_MS = 30000;
constexpr int U80211D_PAUSE_MS = 30000;
/// Time-outs in a row that are answered by asking again; the next one restarts u80211d.
constexpr int U80211D_RETRIES = 5;
constexpr int SURVEY_PERIOD_MS = 300000;

/// One scanning interface.
struct scanning_result {
    list_head link;
    ubus_request request;
    blob_buf results; ///< the records of the last dump, as unnamed tables
    uloop_timeout timer;
    char ifname[16];
    bool is_ap_iface;    ///< an access point that must scan beside its work
    bool data_generated; ///< `results` is a complete dump
    int32_t scan_retry_count;
};

/// The scan's state beside the list.
struct scan_state {
    uint32_t u80211d_obj_id; ///< 0: not known
    bool subscriber_registered;
    bool checkin_after_scan;
    bool scan_job_in_progress;
};

extern list_head gScanning_results;
extern scan_state gScan_state;

// u80211d (u80211d.cpp)

/// Forgets the object and takes the subscriber off the bus.
void u80211d_forget(ubus_context *ctx);
/// Restarts the daemon; nothing when that was done less than U80211D_PAUSE_MS ago.
void u80211d_restart();

// Scans (scan.cpp)

/// Forgets what is known of u80211d and every interface; sets up the job.
void wifi_init_scan_state();
/// Appends an interface. Lost when memory runs out (logged).
void add_scanning_iface(const char *ifname, bool is_ap_iface);
/// Drops every interface, what is in flight first.
void wifi_flush_scanning_ifaces();
/// True while any interface has something in flight.
bool wifi_scan_in_flight();
/// Scans every interface that has nothing in flight; with `checkin` a check-in follows when all are
/// done. A bus status.
int wifi_scan_now_handler(bool checkin);
/// Scans again what the flushed list was scanning.
void wifi_scan_resume();
/// The subscriber's notification handler.
int tarn_net_wifi_scan_done_handler(ubus_context *ctx, ubus_object *obj, ubus_request_data *req,
                                    const char *method, blob_attr *msg);
/// The data callback of a dump (scan_collect.cpp).
void wifi_scan_collect_results_data_cb(ubus_request *req, int type, blob_attr *msg);

// The end of a scan (scan_job.cpp)

void wifi_init_ap_scan_job();
/// Unless an interface is still busy: reports the job and asks for the check-in, if they are due.
void wifi_scan_check_complete();

// Surveys (survey.cpp)

void wifi_init_survey_state();
void update_survey_list_by_radio_idx(int radio_idx, const char *survey_ifname);

// Radar and channel switches (radar.cpp)

/// Listens to the kernel's events, anew if it did already.
void restart_dfs_event_listener();
/// What the listener calls for each event.
void channel_switch_event_cb(const ng_nl80211_event *event, void *arg);

// The surveyed interfaces, one a radio: survey.cpp keeps them, survey_dump.cpp shows them.

/// Counters of the channel in use, in the driver's unit, from the interface's start on.
struct survey_sample {
    uint64_t active, busy, rx, tx;
};

struct survey_entry {
    list_head link;
    ubus_request request;
    uloop_timeout timer;
    survey_sample latest, previous;
    int64_t sampled_s; ///< when the latest was taken: zu_monotonic_s()
    char ifname[16];
    int32_t radio_idx;
    bool data_generated;        ///< the last survey was answered
    int32_t survey_retry_count; ///< time-outs since the last trigger
    int timeouts_in_a_row;      ///< surveys that did not end
};

/// The data callback of a survey; the request's private pointer is the entry.
void wifi_survey_data_cb(ubus_request *req, int type, blob_attr *msg);

extern list_head gSurvey_entries;
extern uloop_timeout gSurvey_period_timer;

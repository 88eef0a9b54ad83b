// Scans: the interfaces that scan, and how one gets from being asked to its results.
//
//            trigger              "wifi.scan.done"         answered: results
//     idle ───────────► triggered ────────────────► dumping ─────────────────► idle
//            ▲              │ 30 s                     │ 10 s, or answered without them
//            └──────────────┤ up to 5 times            └─────────────────────► idle
//            ▲              ▼ 6th: u80211d restarted
//            └─────────── pause
//
// The timer runs in every state but idle. u80211d may scan for reasons of its own, so a
// notification is taken in any state. What cannot be asked now is asked again after a pause.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "platform/zu/blobmsg_util.h"
#include "platform/zu/log.h"
#include "state/state.h"
#include "wifi/radio/radio.h"
#include "wifi/radio/radio_internal.h"

constexpr int COLLECT_TIMEOUT_MS = 10000;

LIST_HEAD(gScanning_results);
scan_state gScan_state;

static void arm(scanning_result *entry, uloop_timeout_handler cb, int ms)
{
    entry->timer.cb = cb;
    uloop_timeout_set(&entry->timer, ms);
}

/// Ends what is in flight: its answer, should it still come, is nobody's.
static void abort_request(scanning_result *entry)
{
    if (!entry->timer.pending)
        return;
    uloop_timeout_cancel(&entry->timer);
    if (gUbus_ctx)
        ubus_abort_request(gUbus_ctx, &entry->request);
}

// ---- requests

/// True (logged) when the request's member could not be added.
static bool not_added(int result, const char *name)
{
    if (result != 0)
        log_error("Failed to add paramater '%s' to 'scan' ubus invoke for package 'wifi'", name);
    return result != 0;
}

static int build_request(const scanning_result *entry, bool dump, blob_buf *request)
{
    if (blob_buf_init(request, 0) != 0) {
        log_error("Failed to allocate a blob_buf for the request dump call");
        return -1;
    }
    const int dump_added = blobmsg_add_u8(request, "dump", dump);
    if (dump && not_added(dump_added, "dump"))
        return -1;
    if (dump_added != 0) // a trigger goes out all the same
        log_info("Failed to add paramater 'dump' to 'scan' ubus invoke for package 'wifi'");
    if (not_added(blobmsg_add_string(request, "ifname", entry->ifname), "ifname") ||
        not_added(blobmsg_add_u8(request, "on_channel", false), "on_channel") ||
        not_added(blobmsg_add_u8(request, "ap_force", entry->is_ap_iface), "ap_force"))
        return -1;
    return 0;
}

/// Sends "scan" with the entry's request, which nothing else uses. 0 or -1 (logged).
static int invoke(scanning_result *entry, bool dump)
{
    blob_buffer request;
    if (build_request(entry, dump, &request) != 0)
        return -1;
    if (gUbus_ctx && ubus_invoke_async(gUbus_ctx, gScan_state.u80211d_obj_id, "scan", request.head,
                                       &entry->request) == 0)
        return 0;
    log_error("Failed to invoke the scan method for package 'wifi' to dump scan result");
    return -1;
}

// ---- triggered

static void scan_again_cb(uloop_timeout *timer);

/// Asks again for the scan that the entry owes, now or after a pause.
static void ask_again(scanning_result *entry)
{
    (void)wifi_scan_now_handler(gScan_state.checkin_after_scan);
    if (!entry->timer.pending)
        arm(entry, scan_again_cb, U80211D_PAUSE_MS);
}

static void scan_again_cb(uloop_timeout *timer)
{
    ask_again(container_of(timer, scanning_result, timer));
}

static void wifi_scan_trigger_timeout_cb(uloop_timeout *timer)
{
    scanning_result *entry = container_of(timer, scanning_result, timer);
    const bool retry = entry->scan_retry_count < U80211D_RETRIES;
    log_error("The scan triggered on interface '%s' timed out, %s", entry->ifname,
              retry ? "trying again" : "restarting u80211d");
    entry->scan_retry_count++;
    if (retry) {
        ask_again(entry);
        return;
    }
    entry->scan_retry_count = 0;
    u80211d_restart();
    arm(entry, scan_again_cb, U80211D_PAUSE_MS);
}

/// Nobody waits for the call's own answer: the notification is what comes next.
static int trigger(scanning_result *entry)
{
    if (invoke(entry, false) != 0)
        return -1;
    entry->data_generated = false;
    arm(entry, wifi_scan_trigger_timeout_cb, SCAN_TRIGGER_TIMEOUT_MS);
    return 0;
}

int wifi_scan_now_handler(bool checkin)
{
    gScan_state.checkin_after_scan |= checkin;
    scanning_result *entry;
    list_for_each_entry(entry, &gScanning_results, link)
    {
        if (!entry->timer.pending && trigger(entry) != 0)
            return UBUS_STATUS_UNKNOWN_ERROR;
    }
    if (list_empty(&gScanning_results))
        wifi_scan_check_complete(); // there is nothing to wait for
    return UBUS_STATUS_OK;
}

void wifi_scan_resume()
{
    if (list_empty(&gScanning_results))
        wifi_scan_check_complete();
    else
        ask_again(list_first_entry(&gScanning_results, scanning_result, link));
}

// ---- dumping

static void wifi_scan_collect_results_complete_cb(ubus_request *req, int status)
{
    auto *entry = static_cast<scanning_result *>(req->priv);
    uloop_timeout_cancel(&entry->timer);
    if (!entry->data_generated)
        log_warning("u80211d has no scan results of interface '%s': %s", entry->ifname,
                    ubus_strerror(status));
    wifi_scan_check_complete();
}

static void wifi_scan_collect_results_timeout_cb(uloop_timeout *timer)
{
    scanning_result *entry = container_of(timer, scanning_result, timer);
    log_error("iface %s scan hit timeout", entry->ifname);
    if (gUbus_ctx)
        ubus_abort_request(gUbus_ctx, &entry->request);
    entry->data_generated = false;
    wifi_scan_check_complete();
}

static int dump(scanning_result *entry)
{
    if (invoke(entry, true) != 0)
        return -1;
    entry->request.data_cb = wifi_scan_collect_results_data_cb;
    entry->request.complete_cb = wifi_scan_collect_results_complete_cb;
    entry->request.priv = entry;
    arm(entry, wifi_scan_collect_results_timeout_cb, COLLECT_TIMEOUT_MS);
    ubus_complete_request_async(gUbus_ctx, &entry->request);
    return 0;
}

static scanning_result *find(const char *ifname)
{
    scanning_result *entry;
    list_for_each_entry(entry, &gScanning_results, link)
    {
        if (strncmp(entry->ifname, ifname, sizeof entry->ifname) == 0)
            return entry;
    }
    return nullptr;
}

static int scan_done(blob_attr *msg)
{
    blob_attr *ifname = zu_blobmsg_member(msg, {"ifname", BLOBMSG_TYPE_STRING});
    if (!ifname) {
        log_error("wifi.scan.done event didn't contain an ID or path");
        return UBUS_STATUS_INVALID_ARGUMENT;
    }
    scanning_result *entry = find(blobmsg_get_string(ifname));
    if (!entry) {
        log_error("Failed to find the scanning result object associated with the interface '%s'",
                  blobmsg_get_string(ifname));
        return UBUS_STATUS_INVALID_ARGUMENT;
    }
    abort_request(entry); // of an event that came twice a dump may be in flight already
    entry->data_generated = false;
    entry->scan_retry_count = 0;
    if (dump(entry) == 0)
        return UBUS_STATUS_OK;
    arm(entry, scan_again_cb, U80211D_PAUSE_MS);
    return UBUS_STATUS_UNKNOWN_ERROR;
}

int tarn_net_wifi_scan_done_handler(ubus_context *, ubus_object *, ubus_request_data *,
                                    const char *method, blob_attr *msg)
{
    if (!method || !msg) {
        log_error("%s is NULL", method ? "msg" : "method");
        return UBUS_STATUS_INVALID_ARGUMENT;
    }
    return strcmp(method, "wifi.scan.done") == 0 ? scan_done(msg) : UBUS_STATUS_OK;
}

// ---- the list

void add_scanning_iface(const char *ifname, bool is_ap_iface)
{
    auto *entry = new (std::nothrow) scanning_result{};
    if (!entry) {
        log_error("Failed to allocate memory for a new scanning result");
        return;
    }
    snprintf(entry->ifname, sizeof entry->ifname, "%s", ifname);
    entry->is_ap_iface = is_ap_iface;
    entry->data_generated = true;
    list_add_tail(&entry->link, &gScanning_results);
}

void wifi_flush_scanning_ifaces()
{
    while (!list_empty(&gScanning_results)) {
        scanning_result *entry = list_first_entry(&gScanning_results, scanning_result, link);
        list_del(&entry->link);
        abort_request(entry);
        blob_buf_free(&entry->results);
        delete entry;
    }
}

bool wifi_scan_in_flight()
{
    const scanning_result *entry;
    list_for_each_entry(entry, &gScanning_results, link)
    {
        if (entry->timer.pending)
            return true;
    }
    return false;
}

void wifi_init_scan_state()
{
    u80211d_forget(gUbus_ctx);
    wifi_flush_scanning_ifaces();
    wifi_init_ap_scan_job();
}

int ubus_wifi_ap_scan_now(ubus_context *, ubus_object *, ubus_request_data *, const char *,
                          blob_attr *msg)
{
    if (!msg) {
        log_error("%s is NULL", "msg");
        return UBUS_STATUS_UNKNOWN_ERROR;
    }
    blob_attr *checkin = zu_blobmsg_member(msg, {"checkin_after_scan", BLOBMSG_TYPE_BOOL});
    return wifi_scan_now_handler(checkin && blobmsg_get_bool(checkin));
}

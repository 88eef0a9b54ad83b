// The scanning interfaces and their results in the state dump.
#include "platform/fw_core/fw_core.h"
#include "platform/zu/blobmsg_util.h"
#include "platform/zu/log.h"
#include "wifi/radio/radio.h"
#include "wifi/radio/radio_internal.h"

/// Left to what follows in the dump. Results that would take more are left out: with them the whole
/// reply would be lost.
constexpr size_t DUMP_RESERVE = 64 * 1024;

static void report(int result, const char *member)
{
    if (result != 0)
        log_info("Unable to add '%s' to the AP scanning state dump", member);
}

static bool fits(const blob_buf *buf, const blob_attr *record)
{
    return zu_blob_size(buf) + blob_pad_len(record) + DUMP_RESERVE <= PACKAGE_REPLY_MAX;
}

static void dump_results(blob_buf *buf, const scanning_result *entry)
{
    if (!entry->results.head || blob_len(entry->results.head) == 0)
        return;
    void *array = blobmsg_open_array(buf, "result_data");
    if (!array) {
        log_warning("Unable to open 'result_data' array for AP scanning state dump");
        return;
    }
    unsigned left_out = 0;
    blob_attr *record;
    size_t rest;
    blobmsg_for_each_attr(record, entry->results.head,
                          rest) if (!fits(buf, record) || blobmsg_add_blob(buf, record) != 0)
        left_out++;
    blobmsg_close_array(buf, array);
    if (left_out > 0)
        log_warning("%u scan results of interface '%s' do not fit into the state dump", left_out,
                    entry->ifname);
}

static void dump_entry(blob_buf *buf, const scanning_result *entry)
{
    void *table = blobmsg_open_table(buf, nullptr);
    if (!table) {
        log_warning("Unable to open table for AP scanning results on '%s' for state dump",
                    entry->ifname);
        return;
    }
    report(blobmsg_add_string(buf, "ifname", entry->ifname), "ifname");
    report(blobmsg_add_u8(buf, "is_ap_iface", entry->is_ap_iface), "is_ap_iface");
    report(blobmsg_add_u8(buf, "scan_timeout_running", entry->timer.pending),
           "scan_timeout_running");
    report(blobmsg_add_u8(buf, "data_generated", entry->data_generated), "data_generated");
    report(blobmsg_add_u32(buf, "scan_retry_count", static_cast<uint32_t>(entry->scan_retry_count)),
           "scan_retry_count");
    dump_results(buf, entry);
    blobmsg_close_table(buf, table);
}

static void dump_entries(blob_buf *buf)
{
    void *array = blobmsg_open_array(buf, "scan_results");
    if (!array) {
        log_warning("Unable to open 'scan_resutls' table for AP scanning state dump");
        return;
    }
    const scanning_result *entry;
    list_for_each_entry(entry, &gScanning_results, link)
    {
        dump_entry(buf, entry);
    }
    blobmsg_close_array(buf, array);
}

void wifi_dump_scanning_state(blob_buf *buf)
{
    void *table = blobmsg_open_table(buf, "wifi_scanning_state");
    if (!table) {
        log_warning("Unable to open 'wifi_scanning_state' table for AP scanning state dump");
        return;
    }
    report(blobmsg_add_u32(buf, "obj_id", gScan_state.u80211d_obj_id), "obj_id");
    report(blobmsg_add_u8(buf, "subscribed_to_scan_events", gScan_state.subscriber_registered),
           "subscribed_to_scan_events");
    report(blobmsg_add_u8(buf, "checkin_after_scan", gScan_state.checkin_after_scan),
           "checkin_after_scan");
    dump_entries(buf);
    blobmsg_close_table(buf, table);
}

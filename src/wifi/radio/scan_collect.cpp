// The answer to a dump: every BSS of it becomes a record of the interface's results.
#include <cstring>

#include "platform/zu/blobmsg_util.h"
#include "platform/zu/log.h"
#include "wifi/radio/radio_internal.h"
#include "wifi/radio/scan_result.h"

/// Bytes of records that are kept of one interface: what fits on the bus. Escapes make texts longer
/// than they came.
constexpr size_t RESULTS_MAX = 1024 * 1024;

/// The member of the reply that is named like the entry's interface, or null.
static blob_attr *find_iface(const scanning_result *entry, blob_attr *reply)
{
    blob_attr *member;
    size_t rest;
    blobmsg_for_each_attr(member, reply, rest)
    {
        if (blob_is_extended(member) && blobmsg_check_attr(member, false) &&
            strncmp(blobmsg_name(member), entry->ifname, sizeof entry->ifname) == 0)
            return member;
    }
    return nullptr;
}

static int append(scanning_result *entry, const blob_buf *record)
{
    if (blob_pad_len(entry->results.head) + blob_pad_len(record->head) > RESULTS_MAX)
        return -1;
    return blobmsg_add_field(&entry->results, BLOBMSG_TYPE_TABLE, nullptr, blob_data(record->head),
                             static_cast<unsigned>(blob_len(record->head)));
}

static const char *bssid_of(const blob_buf *record)
{
    blob_attr *bssid = zu_blobmsg_member(record->head, {"bssid", BLOBMSG_TYPE_STRING});
    return bssid ? blobmsg_get_string(bssid) : "";
}

static void collect(scanning_result *entry, blob_attr *list)
{
    blob_buffer record;
    blob_attr *bss;
    size_t rest;
    blobmsg_for_each_attr(bss, list, rest)
    {
        if (wifi_scan_parse_copy_bss_result(bss, entry->ifname, &record) == 0 &&
            append(entry, &record) != 0)
            log_error("Failed to add bss scan report to results buffer from bssid '%s' from "
                      "interface '%s'",
                      bssid_of(&record), entry->ifname);
    }
}

void wifi_scan_collect_results_data_cb(ubus_request *req, int, blob_attr *msg)
{
    if (!req || !msg) {
        log_error("%s is NULL", req ? "msg" : "req");
        return;
    }
    auto *entry = static_cast<scanning_result *>(req->priv);
    if (!entry) {
        log_error("We have no scan results object?  Ignoring");
        return;
    }
    blob_attr *list = find_iface(entry, msg);
    if (!list)
        return;
    // Not blob_buf_init() alone: what a huge neighbourhood took is given back with it.
    blob_buf_free(&entry->results);
    if (blob_buf_init(&entry->results, 0) != 0) {
        log_error("Failed to init scan result buffer for interface '%s'", entry->ifname);
        return;
    }
    if (blobmsg_type(list) == BLOBMSG_TYPE_ARRAY)
        collect(entry, list);
    entry->data_generated = true;
}

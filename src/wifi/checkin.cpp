// The wireless section of the check-in: what a cloud stores about the node. Made anew each time it
// is asked for, of what is known at that moment; what is not known is absent.
#include <algorithm>
#include <cstring>
#include <ctime>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "platform/fw_core/fw_core.h"
#include "platform/zu/blobmsg_util.h"
#include "platform/zu/log.h"
#include "state/state.h"
#include "wifi/checkin_internal.h"
#include "wifi/radio/dfs.h"
#include "wifi/radio/radio.h"
#include "wifi/wifi.h"
#include "wifi/wifi_internal.h"

/// Left free for the rest of the section and for the other packages' sections, when the agent puts
/// all into one message.
constexpr size_t SECTION_RESERVE = 96 * 1024;

// ---- values

void checkin_not_added(const checkin_row &row)
{
    log_info("Unable to add '%s' to the check-in", row.key);
}

static void weigh(const checkin_row &row, int result)
{
    if (result != 0)
        checkin_not_added(row);
}

void checkin_put_bool(blob_buf *buf, const checkin_row &row, bool value)
{
    weigh(row, blobmsg_add_u8(buf, row.key, value));
}

void checkin_put_int(blob_buf *buf, const checkin_row &row, int value)
{
    weigh(row, blobmsg_add_u32(buf, row.key, static_cast<uint32_t>(value)));
}

void checkin_put_long(blob_buf *buf, const checkin_row &row, uint64_t value)
{
    weigh(row, blobmsg_add_u64(buf, row.key, value));
}

void checkin_put_number(blob_buf *buf, const checkin_row &row, double value)
{
    weigh(row, blobmsg_add_double(buf, row.key, value));
}

void checkin_put_text(blob_buf *buf, const checkin_row &row, const char *value)
{
    weigh(row, blobmsg_add_string(buf, row.key, value));
}

// ---- upstream, mesh, radar

static void add_upstream(blob_buf *buf)
{
    const inet_test_state &test = node_state().inet_test;
    checkin_put_text(buf, UPSTREAM_STATE, upstream_state_name(test.upstream_state));
    checkin_put_long(buf, UPSTREAM_SINCE, static_cast<uint64_t>(upstream_since()));
    if (test.uplink_iface[0] != '\0')
        checkin_put_text(buf, UPSTREAM_IFACE, test.uplink_iface);
}

static void add_mesh(blob_buf *buf)
{
    const mesh_gateway_facts &facts = node_state().mesh.gateway;
    const struct {
        const checkin_row &row;
        const char *text;
    } known[] = {
        {MESH_GATEWAY, facts.mac},     {MESH_QUALITY, facts.quality}, {MESH_ROUTE, facts.route},
        {MESH_LATENCY, facts.latency}, {MESH_SPEED, facts.speed},
    };
    if (std::none_of(std::begin(known), std::end(known),
                     [](const auto &fact) { return fact.text; }))
        return;
    checkin_put_nested(buf, CHECKIN_MESH, [&] {
        for (const auto &fact : known)
            if (fact.text)
                checkin_put_text(buf, fact.row, fact.text);
    });
}

static void add_dfs(blob_buf *buf)
{
    checkin_put_bool(buf, DFS_EVENT, dfs_event_detected);
    const wifi_dfs_table table = wifi_dfs_channel_table();
    if (table[0].channel == 0)
        return; // the kernel knows no such channel, or does not tell
    checkin_put_nested(buf, DFS_USABLE, [&] {
        for (const wifi_dfs_channel &entry : table)
            if (entry.channel != 0 && wifi_dfs_is_usable(entry))
                weigh(DFS_USABLE,
                      blobmsg_add_u32(buf, nullptr, static_cast<uint32_t>(entry.channel)));
    });
}

// ---- what is held back

static void add_delayed(blob_buf *buf)
{
    const wifi_delayed_status now = wifi_delayed_now();
    if (strcmp(now.state, "idle") == 0)
        return;
    checkin_put_nested(buf, CHECKIN_DELAYED, [&] {
        checkin_put_text(buf, DELAYED_STATE, now.state);
        if (strcmp(now.state, "pending") != 0)
            return;
        checkin_put_int(buf, DELAYED_SECONDS_LEFT, now.seconds_left);
        checkin_put_long(buf, DELAYED_UNTIL,
                         static_cast<uint64_t>(time(nullptr) + now.seconds_left));
    });
}

static void add_override(blob_buf *buf)
{
    const wifi_settings *settings = wifi_live_settings();
    if (settings->radio_override[0] == '\0')
        return;
    checkin_put_nested(buf, CHECKIN_OVERRIDE, [&] {
        checkin_put_text(buf, OVERRIDE_NONCE, settings->radio_override);
        checkin_put_text(buf, OVERRIDE_REASON, settings->override_reason);
    });
}

// ---- scans

static void add_scan_status(blob_buf *buf)
{
    const wifi_scan_status now = wifi_scan_status_now();
    checkin_put_bool(buf, SCAN_JOB, now.job_running);
    checkin_put_bool(buf, SCAN_CHECKIN, now.checkin_after_scan);
    checkin_put_nested(buf, SCAN_INTERFACES, [&] {
        for (const wifi_scan_iface &iface : now.ifaces)
            checkin_put_element(buf, SCAN_INTERFACES, [&] {
                checkin_put_text(buf, SCANNED_IFNAME, iface.name);
                checkin_put_bool(buf, SCANNED_RUNNING, iface.running);
                checkin_put_bool(buf, SCANNED_COMPLETE, iface.complete);
            });
    });
}

/// One record of a scan, with what it is chosen by.
struct heard_ap {
    blob_attr *record;
    std::string_view bssid;
    double signal;
};

static heard_ap read_record(blob_attr *record)
{
    enum { BSSID, SIGNAL, COUNT };
    static constexpr blobmsg_policy POLICY[COUNT] = {{"bssid", BLOBMSG_TYPE_STRING},
                                                     {"signal", BLOBMSG_TYPE_DOUBLE}};
    blob_attr *tb[COUNT] = {};
    (void)zu_blobmsg_parse(POLICY, tb, record);
    return {record, tb[BSSID] ? blobmsg_get_string(tb[BSSID]) : "",
            tb[SIGNAL] ? blobmsg_get_double(tb[SIGNAL]) : 0};
}

/// Every access point once, the strongest first: heard by two radios, the better reception counts.
static std::vector<heard_ap> heard_aps()
{
    std::vector<heard_ap> heard;
    for (const wifi_scan_iface &iface : wifi_scan_status_now().ifaces) {
        blob_attr *record;
        size_t rest;
        blobmsg_for_each_attr(record, iface.results, rest) heard.push_back(read_record(record));
    }
    std::stable_sort(heard.begin(), heard.end(),
                     [](const heard_ap &a, const heard_ap &b) { return a.signal > b.signal; });
    std::unordered_set<std::string_view> seen;
    std::erase_if(heard, [&seen](const heard_ap &ap) { return !seen.insert(ap.bssid).second; });
    return heard;
}

/// One step instead of a thousand.
static void make_room(blob_buf *buf, const std::vector<heard_ap> &heard)
{
    size_t size = 0;
    for (const heard_ap &ap : heard)
        size += blob_pad_len(ap.record);
    (void)blob_buf_grow(buf, static_cast<int>(std::min(size, PACKAGE_REPLY_MAX)));
}

static void add_ap_list(blob_buf *buf)
{
    const std::vector<heard_ap> heard = heard_aps();
    make_room(buf, heard);
    int added = 0;
    checkin_put_nested(buf, CHECKIN_AP_LIST, [&] {
        for (const heard_ap &ap : heard) {
            const size_t size = zu_blob_size(buf) + blob_pad_len(ap.record);
            if (size > PACKAGE_REPLY_MAX - SECTION_RESERVE || blobmsg_add_blob(buf, ap.record) != 0)
                break;
            added++;
        }
    });
    checkin_put_int(buf, CHECKIN_AP_LIST_OMITTED, static_cast<int>(heard.size()) - added);
}

/// A check-in of the type "status" is for somebody at the node: it is not what the cloud will know.
static bool is_for_the_cloud(blob_attr *msg)
{
    blob_attr *type = zu_blobmsg_member(msg, ubus_package_gen_checkin_policy[0]);
    return !type || strcmp(blobmsg_get_string(type), "status") != 0;
}

int gen_checkin_wifi_section(ubus_context *, blob_attr *msg, blob_buf *reply)
{
    if (!reply) {
        log_error("%s is NULL", "checkin_data");
        return UBUS_STATUS_INVALID_ARGUMENT;
    }
    checkin_put_nested(reply, CHECKIN_UPSTREAM, [reply] { add_upstream(reply); });
    checkin_add_radios(reply, is_for_the_cloud(msg));
    add_mesh(reply);
    checkin_put_nested(reply, CHECKIN_DFS, [reply] { add_dfs(reply); });
    add_delayed(reply);
    add_override(reply);
    checkin_put_bool(reply, CHECKIN_POWER, !wifi_lldp_keeps_interfaces_off());
    checkin_put_nested(reply, CHECKIN_SCAN_STATUS, [reply] { add_scan_status(reply); });
    add_ap_list(reply);
    return UBUS_STATUS_OK;
}

// The list of neighbouring access points that the cloud gives: staged by a push, taken over when
// the push is confirmed, handed to hostapd for its 802.11k neighbour reports.

#include "platform/zu/log.h"
#include "wifi/wifi.h"
#include "wifi/wifi_internal.h"

#include <cctype>
#include <cstring>
#include <optional>
#include <string_view>
#include <strings.h>
#include <vector>

namespace {

constexpr size_t NEIGHBORS_MAX = 512;
constexpr size_t REPORT_HEX_MAX = 510; // an element's body has at most 255 bytes

struct neighbor {
    char bssid[18];
    int ssid; // 1..4
    std::string report;
};

std::optional<std::vector<neighbor>> staged; // an empty list is a list: it clears the live one
std::vector<neighbor> live;

enum { NEIGHBOR_BSSID, NEIGHBOR_SSID_INDEX, NEIGHBOR_NR, NEIGHBOR_FIELDS };
constexpr blobmsg_policy NEIGHBOR_POLICY[NEIGHBOR_FIELDS] = {
    {"bssid", BLOBMSG_TYPE_STRING},
    {"ssid_index", BLOBMSG_TYPE_INT32},
    {"nr", BLOBMSG_TYPE_STRING},
};

bool is_hex(std::string_view text)
{
    for (const char c : text)
        if (!isxdigit(static_cast<unsigned char>(c)))
            return false;
    return !text.empty() && text.size() % 2 == 0 && text.size() <= REPORT_HEX_MAX;
}

bool parse_neighbor(blob_attr *element, neighbor *out)
{
    blob_attr *fields[NEIGHBOR_FIELDS];
    if (blobmsg_type(element) != BLOBMSG_TYPE_TABLE ||
        blobmsg_parse(NEIGHBOR_POLICY, NEIGHBOR_FIELDS, fields, blobmsg_data(element),
                      static_cast<unsigned>(blobmsg_len(element))) != 0) {
        log_error("Neighbor list element is not a table");
        return false;
    }
    for (int field = 0; field < NEIGHBOR_FIELDS; field++) {
        if (fields[field])
            continue;
        log_error("Failed to find '%s' key in neighbor list element", NEIGHBOR_POLICY[field].name);
        return false;
    }
    const char *bssid = blobmsg_get_string(fields[NEIGHBOR_BSSID]);
    const char *report = blobmsg_get_string(fields[NEIGHBOR_NR]);
    out->ssid = static_cast<int>(blobmsg_get_u32(fields[NEIGHBOR_SSID_INDEX]));
    if (!str_is_mac_addr(bssid) || strlen(bssid) >= sizeof(out->bssid)) {
        log_error("Got incorrect format for neighbor bssid '%s'", bssid);
        return false;
    }
    if (out->ssid < 1 || out->ssid > WIFI_SSIDS || !is_hex(report)) {
        log_error("Invalid ssid index or report of neighbor '%s'", bssid);
        return false;
    }
    strcpy(out->bssid, bssid);
    out->report = report;
    return true;
}

void add_text(blob_buf *buf, const std::string &text)
{
    blobmsg_add_string(buf, nullptr, text.c_str());
}

} // namespace

int wifi_parse_neighbors(blob_attr *list)
{
    std::vector<neighbor> parsed;
    blob_attr *element;
    size_t rest;
    blobmsg_for_each_attr(element, list, rest)
    {
        neighbor entry;
        if (!parse_neighbor(element, &entry))
            return -1;
        if (parsed.size() < NEIGHBORS_MAX)
            parsed.push_back(entry);
        else
            log_warning("Neighbor list is full, ignoring '%s'", entry.bssid);
    }
    staged = std::move(parsed);
    return 0;
}

void parse_config_event_neighbors(bool success)
{
    if (success && staged) {
        live = std::move(*staged);
        wifi_arm_neighbor_list_timer(0);
    }
    staged.reset();
}

void wifi_neighbors_add_to(blob_buf *list, int ssid, const char *own_bssid)
{
    const char *name = wifi_live_settings()->ssids[ssid - 1].ssid;
    for (const neighbor &entry : live) {
        if (entry.ssid != ssid || strcasecmp(entry.bssid, own_bssid) == 0)
            continue;
        void *row = blobmsg_open_array(list, nullptr);
        add_text(list, entry.bssid);
        add_text(list, name);
        add_text(list, entry.report);
        blobmsg_close_array(list, row);
    }
}

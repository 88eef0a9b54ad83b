// The list of neighbouring access points that the cloud gives: staged by a push, taken over when
// the push is confirmed, handed to hostapd for its 802.11k neighbour reports.

#include <cstring>
#include <optional>
#include <strings.h>
#include <vector>

#include "platform/zu/log.h"
#include "wifi/settings/document.h"
#include "wifi/wifi.h"
#include "wifi/wifi_internal.h"

struct neighbor {
    char bssid[18];
    int ssid; // 1..4
    std::string report;
};

/// An empty list is one too: it clears the live one.
static std::optional<std::vector<neighbor>> gStaged;
static std::vector<neighbor> gLive;
static bool gLive_is_known; // one was confirmed since the start

static bool parse_neighbor(blob_attr *element, neighbor *out)
{
    settings_values values;
    if (!settings_parse_level(SETTINGS_NEIGHBOR, element, &values))
        return false;
    for (const settings_field &field : SETTINGS_NEIGHBOR.fields) {
        if (values.get(field.key))
            continue;
        log_error("Failed to find '%s' key in neighbor list element", field.key);
        return false;
    }
    const char *bssid = blobmsg_get_string(values.get("bssid"));
    const char *report = blobmsg_get_string(values.get("nr"));
    out->ssid = static_cast<int>(blobmsg_get_u32(values.get("ssid_index")));
    if (!values.fits("bssid")) {
        log_error("Got incorrect format for neighbor bssid '%s'", bssid);
        return false;
    }
    if (!values.fits("ssid_index") || !values.fits("nr")) {
        log_error("Invalid ssid index or report of neighbor '%s'", bssid);
        return false;
    }
    strcpy(out->bssid, bssid);
    out->report = report;
    return true;
}

/// Gives each element to `take` until one is refused; false then.
template <typename Take>
static bool parse_list(blob_attr *list, Take take)
{
    blob_attr *element;
    size_t rest;
    blobmsg_for_each_attr(element, list, rest)
    {
        neighbor entry;
        if (!parse_neighbor(element, &entry))
            return false;
        take(std::move(entry));
    }
    return true;
}

static void add_text(blob_buf *buf, const std::string &text)
{
    blobmsg_add_string(buf, nullptr, text.c_str());
}

int wifi_check_neighbors(blob_attr *list)
{
    return parse_list(list, [](neighbor &&) {}) ? 0 : -1;
}

void wifi_stage_neighbors(blob_attr *list)
{
    std::vector<neighbor> parsed;
    size_t too_many = 0;
    const bool whole = parse_list(list, [&](neighbor &&entry) {
        if (parsed.size() < SETTINGS_NEIGHBORS_MAX)
            parsed.push_back(std::move(entry));
        else
            too_many++;
    });
    if (too_many > 0)
        log_warning("Neighbor list is full, ignoring its last %zu", too_many);
    if (whole)
        gStaged = std::move(parsed);
}

void parse_config_event_neighbors(bool success)
{
    if (success && gStaged) {
        gLive = std::move(*gStaged);
        gLive_is_known = true;
        wifi_arm_neighbor_list_timer(0);
    }
    gStaged.reset();
}

bool wifi_neighbors_are_known()
{
    return gLive_is_known;
}

void wifi_neighbors_add_to(blob_buf *list, int ssid, const char *own_bssid)
{
    const char *name = wifi_live_settings()->ssids[ssid - 1].ssid;
    for (const neighbor &entry : gLive) {
        if (entry.ssid != ssid || strcasecmp(entry.bssid, own_bssid) == 0)
            continue;
        void *row = blobmsg_open_array(list, nullptr);
        add_text(list, entry.bssid);
        add_text(list, name);
        add_text(list, entry.report);
        blobmsg_close_array(list, row);
    }
}

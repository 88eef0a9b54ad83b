// The radios of the check-in: what each really does, who has joined it, whom it hears, and whether
// radar has moved it.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <optional>
#include <utility>

#include "platform/fw_core/fw_core.h"
#include "platform/zu/blobmsg_util.h"
#include "platform/zu/event.h"
#include "platform/zu/log.h"
#include "wifi/checkin_internal.h"
#include "wifi/radio/dfs.h"
#include "wifi/radio/radio.h"
#include "wifi/wifi.h"

/// The channel that the last check-in recorded, by radio; 0: none yet.
static int gRecorded_channel[WIFI_RADIOS_MAX];

// ---- whose interface

/// What the names of a radio's interfaces say.
struct iface_role {
    const char *role;
    int radio;
    int ssid; ///< of an access point, 1 to 4
};

static std::optional<iface_role> role_of(const char *name)
{
    int radio, ssid, end = -1;
    if (sscanf(name, "ap%d_%d%n", &radio, &ssid, &end) == 2 && end >= 0 && name[end] == '\0')
        return iface_role{"ap", radio, ssid};
    if (sscanf(name, "mesh%d%n", &radio, &end) == 1 && end >= 0 && name[end] == '\0')
        return iface_role{"mesh", radio, 0};
    if (sscanf(name, "orphan%d%n", &radio, &end) == 1 && end >= 0 && name[end] == '\0')
        return iface_role{"orphan", radio, 0};
    if (strcmp(name, "scan") != 0)
        return std::nullopt;
    for (radio = 0; radio < wifi_radio_count(); radio++)
        if (wifi_radio_band_type(radio) == WIFI_BAND_SCANNING)
            return iface_role{"scan", radio, 0};
    return std::nullopt;
}

/// An interface of a radio, as the kernel knows it.
struct radio_iface {
    iface_role is;
    const ng_nl80211_iface *facts;
};

static std::vector<radio_iface> radio_ifaces(const std::vector<ng_nl80211_iface> &all)
{
    std::vector<radio_iface> known;
    for (const ng_nl80211_iface &iface : all)
        if (const auto role = role_of(iface.name.c_str()))
            known.push_back({*role, &iface});
    return known;
}

// ---- channels that radar has moved

/// The interface that tells what the radio is tuned to, or null while it is on no channel.
static const ng_nl80211_iface *operation_of(int radio, const std::vector<radio_iface> &ifaces)
{
    for (const radio_iface &iface : ifaces)
        if (iface.is.radio == radio && iface.facts->frequency_mhz != 0)
            return iface.facts;
    return nullptr;
}

static void report_moved(int radio, int from, int to)
{
    log_notice("Detected DFS radar event channel change moving from channel %d to %d", from, to);
    char message[64];
    snprintf(message, sizeof message, "Radio%d switched to chan = %d", radio, to);
    blob_buffer event;
    blob_buf_init(&event, 0);
    blobmsg_add_string(&event, "message", message);
    (void)_zu_send_event("dfs.ch_switch", event.head);
}

/// After radar the cloud hears once that a radio is not on the channel that it knew any more.
static void report_channels(const std::vector<radio_iface> &ifaces)
{
    for (int radio = 0; radio < wifi_radio_count(); radio++) {
        const ng_nl80211_iface *on = operation_of(radio, ifaces);
        const int channel = on ? sys_freq2chan(static_cast<int>(on->frequency_mhz)) : 0;
        if (channel == 0)
            continue;
        int known = std::exchange(gRecorded_channel[radio], channel);
        if (known == 0)
            known = static_cast<int>(wifi_live_settings()->radios[radio].channel);
        if (known != channel && std::exchange(dfs_event_detected, false))
            report_moved(radio, known, channel);
    }
}

// ---- stations and neighbours

/// What is heard of others must not crowd out the rest of the section.
static bool has_room(const blob_buf *buf)
{
    return zu_blob_size(buf) < PACKAGE_REPLY_MAX / 2;
}

static std::vector<ng_nl80211_station> stations_of(const radio_iface &iface)
{
    std::vector<ng_nl80211_station> stations;
    if (ng_nl80211_station_list(iface.facts->ifindex, &stations) != 0)
        stations.clear(); // the interface has gone meanwhile
    return stations;
}

static void put_rate(blob_buf *buf, const checkin_row &row, uint32_t kbps)
{
    if (kbps != 0)
        checkin_put_int(buf, row, static_cast<int>(kbps));
}

static void add_station(blob_buf *buf, const ng_nl80211_station &station, int ssid)
{
    checkin_put_text(buf, STATION_MAC, zu_mac_text(station.mac).c_str());
    checkin_put_int(buf, STATION_SSID_INDEX, ssid);
    if (station.signal_dbm)
        checkin_put_int(buf, STATION_SIGNAL, *station.signal_dbm);
    put_rate(buf, STATION_RX_RATE, station.rx_rate_kbps);
    put_rate(buf, STATION_TX_RATE, station.tx_rate_kbps);
    checkin_put_long(buf, STATION_RX_BYTES, station.rx_bytes);
    checkin_put_long(buf, STATION_TX_BYTES, station.tx_bytes);
}

static void add_neighbor(blob_buf *buf, const ng_nl80211_station &station, int radio)
{
    checkin_put_int(buf, NEIGHBOR_RADIO, radio);
    checkin_put_text(buf, NEIGHBOR_MAC, zu_mac_text(station.mac).c_str());
    if (station.signal_dbm)
        checkin_put_int(buf, NEIGHBOR_SIGNAL, *station.signal_dbm);
    put_rate(buf, NEIGHBOR_RX_RATE, station.rx_rate_kbps);
    put_rate(buf, NEIGHBOR_TX_RATE, station.tx_rate_kbps);
}

/// Those for which there is no room are counted.
static void add_stations(blob_buf *buf, int radio, const std::vector<radio_iface> &ifaces)
{
    int omitted = 0;
    checkin_put_nested(buf, RADIO_STATIONS, [&] {
        for (const radio_iface &iface : ifaces) {
            if (iface.is.radio != radio || iface.is.ssid == 0)
                continue;
            for (const ng_nl80211_station &station : stations_of(iface))
                if (has_room(buf))
                    checkin_put_element(buf, RADIO_STATIONS,
                                        [&] { add_station(buf, station, iface.is.ssid); });
                else
                    omitted++;
        }
    });
    if (omitted > 0)
        checkin_put_int(buf, RADIO_STATIONS_OMITTED, omitted);
}

static void add_neighbors(blob_buf *buf, const std::vector<radio_iface> &ifaces)
{
    for (const radio_iface &iface : ifaces) {
        if (strcmp(iface.is.role, "mesh") != 0)
            continue;
        for (const ng_nl80211_station &station : stations_of(iface))
            if (has_room(buf))
                checkin_put_element(buf, CHECKIN_NEIGHBORS,
                                    [&] { add_neighbor(buf, station, iface.is.radio); });
    }
}

// ---- the radios

static void add_roles(blob_buf *buf, int radio, const std::vector<radio_iface> &ifaces)
{
    for (const char *role : {"ap", "mesh", "orphan", "scan"}) {
        const bool has = std::any_of(ifaces.begin(), ifaces.end(), [&](const radio_iface &iface) {
            return iface.is.radio == radio && strcmp(iface.is.role, role) == 0;
        });
        if (has && blobmsg_add_string(buf, nullptr, role) != 0)
            checkin_not_added(RADIO_ROLES);
    }
}

/// What the radio is tuned to, if it is.
static void add_operation(blob_buf *buf, int radio, const std::vector<radio_iface> &ifaces)
{
    const ng_nl80211_iface *on = operation_of(radio, ifaces);
    if (!on)
        return;
    if (const int channel = sys_freq2chan(static_cast<int>(on->frequency_mhz)); channel != 0)
        checkin_put_int(buf, RADIO_CHANNEL, channel);
    checkin_put_int(buf, RADIO_FREQUENCY, static_cast<int>(on->frequency_mhz));
    if (on->width_mhz != 0)
        checkin_put_int(buf, RADIO_WIDTH, static_cast<int>(on->width_mhz));
    if (on->txpower_mbm)
        checkin_put_int(buf, RADIO_TXPOWER, *on->txpower_mbm / 100);
}

static void add_utilization(blob_buf *buf, int radio)
{
    const std::optional<wifi_channel_use> use = wifi_survey_channel_use(radio);
    if (!use)
        return;
    checkin_put_nested(buf, RADIO_UTILIZATION, [&] {
        checkin_put_number(buf, USE_BUSY, use->busy);
        checkin_put_number(buf, USE_RX, use->rx);
        checkin_put_number(buf, USE_TX, use->tx);
    });
}

/// What only the kernel can tell.
static void add_facts(blob_buf *buf, int radio, const std::vector<radio_iface> &ifaces)
{
    add_operation(buf, radio, ifaces);
    checkin_put_nested(buf, RADIO_ROLES, [&] { add_roles(buf, radio, ifaces); });
    add_stations(buf, radio, ifaces);
}

static void add_radio(blob_buf *buf, int radio)
{
    const wifi_radio_settings &settings = wifi_live_settings()->radios[radio];
    checkin_put_int(buf, RADIO_INDEX, radio);
    if (const char *band = wifi_band_name(wifi_radio_band_type(radio)))
        checkin_put_text(buf, RADIO_BAND, band);
    checkin_put_bool(buf, RADIO_ENABLE, settings.enable != 0);
    if (settings.htmode[0] != '\0')
        checkin_put_text(buf, RADIO_MODE, settings.htmode);
    add_utilization(buf, radio);
}

void checkin_add_radios(blob_buf *buf, bool report)
{
    std::vector<ng_nl80211_iface> all;
    const bool known = ng_nl80211_iface_list(&all) == 0; // why not is said there
    const std::vector<radio_iface> ifaces = radio_ifaces(all);
    if (report)
        report_channels(ifaces);
    checkin_put_nested(buf, CHECKIN_RADIOS, [&] {
        for (int radio = 0; radio < wifi_radio_count(); radio++)
            checkin_put_element(buf, CHECKIN_RADIOS, [&] {
                add_radio(buf, radio);
                if (known)
                    add_facts(buf, radio, ifaces);
            });
    });
    if (known)
        checkin_put_nested(buf, CHECKIN_NEIGHBORS, [&] { add_neighbors(buf, ifaces); });
}

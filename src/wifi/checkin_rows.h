// The members of the check-in's wireless section as rows: the code that fills the section names
// them, and the JSON Schema and the manual are made of them.
#pragma once

#include <cstdint>
#include <span>

extern "C" {
#include <libubox/blobmsg.h>
}

enum checkin_kind : uint8_t {
    CHECKIN_BOOL,
    CHECKIN_INT,    ///< 32 bits
    CHECKIN_LONG,   ///< 64 bits, never negative
    CHECKIN_NUMBER, ///< with a fraction
    CHECKIN_TEXT,
    CHECKIN_TABLE,  ///< described by `level`
    CHECKIN_TABLES, ///< array of them
    CHECKIN_TEXTS,  ///< array
    CHECKIN_INTS,   ///< array
};

struct checkin_level;

struct checkin_row {
    const char *key;
    checkin_kind kind;
    const char *meaning; ///< for people, one line; with the unit where there is one
    const char *source;  ///< where the value comes from
    bool always = false; ///< never absent
    const checkin_level *level = nullptr;
};

/// One table of the section.
struct checkin_level {
    const char *name; ///< for people
    std::span<const checkin_row *const> rows;
};

extern const checkin_level CHECKIN_SECTION;

// The section

extern const checkin_row CHECKIN_UPSTREAM, CHECKIN_RADIOS, CHECKIN_NEIGHBORS, CHECKIN_MESH,
    CHECKIN_DFS, CHECKIN_DELAYED, CHECKIN_OVERRIDE, CHECKIN_POWER, CHECKIN_SCAN_STATUS,
    CHECKIN_AP_LIST, CHECKIN_AP_LIST_OMITTED;

// Its tables, each with the rows that its name begins with

extern const checkin_row UPSTREAM_STATE, UPSTREAM_SINCE, UPSTREAM_IFACE;
extern const checkin_row RADIO_INDEX, RADIO_BAND, RADIO_ENABLE, RADIO_CHANNEL, RADIO_FREQUENCY,
    RADIO_WIDTH, RADIO_TXPOWER, RADIO_ROLES, RADIO_MODE, RADIO_UTILIZATION, RADIO_STATIONS,
    RADIO_STATIONS_OMITTED;
extern const checkin_row USE_BUSY, USE_RX, USE_TX;
extern const checkin_row STATION_MAC, STATION_SSID_INDEX, STATION_SIGNAL, STATION_RX_RATE,
    STATION_TX_RATE, STATION_RX_BYTES, STATION_TX_BYTES;
extern const checkin_row NEIGHBOR_RADIO, NEIGHBOR_MAC, NEIGHBOR_SIGNAL, NEIGHBOR_RX_RATE,
    NEIGHBOR_TX_RATE;
extern const checkin_row MESH_GATEWAY, MESH_QUALITY, MESH_ROUTE, MESH_LATENCY, MESH_SPEED;
extern const checkin_row DFS_EVENT, DFS_USABLE;
extern const checkin_row DELAYED_STATE, DELAYED_SECONDS_LEFT, DELAYED_UNTIL;
extern const checkin_row OVERRIDE_NONCE, OVERRIDE_REASON;
extern const checkin_row SCAN_JOB, SCAN_CHECKIN, SCAN_INTERFACES;
extern const checkin_row SCANNED_IFNAME, SCANNED_RUNNING, SCANNED_COMPLETE;

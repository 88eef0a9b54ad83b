// What the files of this folder share.
#pragma once

#include <libubus.h>
#include <string>

#include "wifi/settings/record.h"

/// The live record (wifi.cpp). Replaced whole by a push and by the reload (push.cpp); an override
/// notes itself in it (override.cpp); everybody else reads it through wifi_live_settings().
extern wifi_settings gWifi_live_settings;

// Subscriptions, forgotten and made anew with the bus connection (wifi_bus_reset calls these)

void wifi_lldp_bus_reset(ubus_context *ctx);
void wifi_hapd_bus_reset();

// hostapd (ap/hapd.cpp)

/// True when the instance of that bus path is there.
bool wifi_hapd_is_known(const char *path);
/// The SSIDs' bridges may have changed: each instance whose bridge did hears of it soon.
void wifi_hapd_bridges_applied();

/// True when the text begins with six hexadecimal bytes joined by colons.
bool str_is_mac_addr(const char *text);

// Power negotiation and interfaces (write/lldp.cpp, write/enables.cpp)

/// As !wifi_lldp_negotiation_complete(), without a word in the log.
bool wifi_lldp_keeps_interfaces_off();
/// Looks, as soon as the loop runs and then while the negotiation keeps interfaces off, whether an
/// access point or mesh interface is not as intended although nothing does, and restores it.
void wifi_check_enables();

// Delayed settings (write/delayed.cpp)

/// Takes over a finished batch file as the staged one; one staged before is deleted.
void wifi_delayed_stage(const char *path);
/// The staged file waits from now on when the push succeeded and says other than the pending one;
/// otherwise it is deleted.
void parse_config_event_delayed_wireless(bool success);
/// Deletes the staged file and drops the pending one with its timer, if there are any: a push that
/// did not have to wait must not be followed by an older one.
void wifi_delayed_drop();
/// Begin of the names of batch files.
#define WIFI_DELAYED_FILES "/tmp/wifi-delayed-"
/// Cancels what waits, also what an earlier run of the daemon left.
void wifi_delayed_start();
/// What waits: "pending" before "staged" before "idle", and the whole seconds until a pending file
/// is applied, else 0.
struct wifi_delayed_status {
    const char *state;
    int seconds_left;
};
wifi_delayed_status wifi_delayed_now();
/// Drops the pending file and its timer, if any.
void wifid_cancel_delayed_wireless();

// The push (push.cpp)

/// Parses a document (the `params` table of a message) into a copy of the live record, puts that in
/// force and stages the document's neighbour list. 0, or 2: then nothing has changed.
[[nodiscard]] int wifid_parse_config(blob_attr *params);
/// Writes `settings`, with what is other services' to say, commits and makes them the live record;
/// the radios follow at once or when the push is confirmed. 0, or -1 (logged): then nothing but
/// `settings` has changed.
[[nodiscard]] int wifid_write_config(wifi_settings *settings);

// Bridges (ap/ssid_bridges.cpp)

/// Bridge that an SSID (1..4) of those settings belongs to; `bridge` holds at least 16 bytes.
void wifi_dest_ssid_bridge(const wifi_ssid_settings &settings, int ssid, char *bridge);

/// An SSID crosses the mesh on one VLAN of bat0, by its class.
enum wifi_mesh_class {
    WIFI_MESH_PLAIN = 1, ///< bat0.1s: its clients stay in the node's own network
    WIFI_MESH_VLAN = 2,  ///< bat0.2s: it has a VLAN
    WIFI_MESH_LAN = 3,   ///< bat0.3s: its clients are bridged to the wired LAN
};
constexpr wifi_mesh_class WIFI_MESH_CLASSES[] = {WIFI_MESH_PLAIN, WIFI_MESH_VLAN, WIFI_MESH_LAN};
/// Name of that interface of SSID `ssid` (1..4).
std::string wifi_mesh_iface(wifi_mesh_class of, int ssid);

// Neighbour lists (ap/neighbors.cpp)

/// Checks the list of a settings document. 0, or -1 (logged) for an element that is not {"bssid",
/// "ssid_index", "nr"}.
[[nodiscard]] int wifi_check_neighbors(blob_attr *list);
/// Stages a checked list; the live list stays until the push is confirmed.
void wifi_stage_neighbors(blob_attr *list);
/// Takes the staged list over when the push succeeded, drops it otherwise.
void parse_config_event_neighbors(bool success);
/// True once a list has been confirmed since the start.
bool wifi_neighbors_are_known();
/// Adds to `list` ([[bssid, ssid, nr], ...]) the neighbours of SSID `ssid` (1..4) whose BSSID is
/// not `own_bssid`.
void wifi_neighbors_add_to(blob_buf *list, int ssid, const char *own_bssid);

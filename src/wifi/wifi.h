// The wireless package as the rest of the daemon sees it.
#pragma once

#include <libubus.h>
#include <string>

#include "wifi/settings/record.h"

// The live settings (wifi.cpp)

/// The live record. Never null; changed only through the functions of this folder.
const wifi_settings *wifi_live_settings();
/// False until the live record has been read from UCI; before that nothing may be decided by it.
bool wifi_settings_are_read();
/// Name of a band type ("2.4GHz", ...), or null for another number.
const char *wifi_band_name(int band);
/// Band type of a name, or -1.
int wifid_find_band_by_type(const char *name);
/// Number of radios in use: the platform's, at most WIFI_RADIOS_MAX; 0 when it cannot be read.
int wifi_radio_count();
/// Band type of a platform radio, or -1 when it has none of the known names (logged).
int wifi_radio_band_type(int radio);

/// What the wireless package asks of the rest of the node, which knows this package and is not
/// known to it. Filled by core/requests.cpp.
struct wifi_requests {
    /// Services are to follow the committed configuration; repeated until they do.
    bool (*reload_config)();
    /// Those SSIDs, and no others, are to be forwarded to the present uplink; uncommitted.
    bool (*forward_ssids)(const wifi_settings *settings);
    /// Delayed settings are in force: the cycle counts as passed, and the next one starts at once.
    void (*test_uplink)();
};
extern const wifi_requests gWifi_requests;

// Package callbacks and bus methods of "qnet.wifi"

int wifi_parse_config(ubus_context *ctx, blob_attr *msg, blob_buf *reply);
int wifi_reload_config_cb(ubus_context *ctx, blob_attr *msg, blob_buf *reply);
int gen_checkin_wifi_section(ubus_context *ctx, blob_attr *msg, blob_buf *reply);
int wifi_health_check(ubus_context *ctx, blob_attr *msg, blob_buf *reply);
int wifi_dump_state(ubus_context *ctx, blob_attr *msg, blob_buf *reply);

/// Rebuilds the live record from UCI and the platform data; with `first_start` also sets up scan,
/// survey and DFS state. A bus status.
int wifi_reload_config(bool first_start);

int ubus_wifi_end_delayed_wireless(ubus_context *ctx, ubus_object *obj, ubus_request_data *req,
                                   const char *method, blob_attr *msg);
int ubus_force_wifi_restart(ubus_context *ctx, ubus_object *obj, ubus_request_data *req,
                            const char *method, blob_attr *msg);

// Bus events

void wifid_parse_config_event_handler(ubus_context *ctx, ubus_event_handler *ev, const char *type,
                                      blob_attr *msg);
void wifid_maint_window_handler(ubus_context *ctx, ubus_event_handler *ev, const char *type,
                                blob_attr *msg);

// Neighbours on the bus

void qnet_lldp_register_subscriber(ubus_context *ctx, uint32_t id);
void qnet_lldp_unregister_subscriber(ubus_context *ctx, uint32_t id);
/// Notes a hostapd instance by its bus path; `id` -1 when not looked up yet.
void wifi_add_hapd_instance_to_list(const char *path, int id);
void wifi_remove_hapd_instance_from_list(const char *path);
/// Sends the neighbour lists in `delay_ms`, restarting a wait that runs.
void wifi_arm_neighbor_list_timer(int delay_ms);
/// Tells every hostapd instance its fast-transition bridge in `delay_ms`.
void wifi_arm_ft_auth_bridge_timer(int delay_ms);
/// Forgets every subscription, instance and request of a bus connection that was lost. Called with
/// the new connection in place; what is on the bus is announced again afterwards.
void wifi_bus_reset(ubus_context *ctx);

// Bridges, power negotiation and delayed settings

/// Puts the mesh interface of each enabled SSID into its bridge, from then on also when it has been
/// taken out. Repeating it changes nothing.
void wifid_apply_bridges();
/// Bridge that SSID `ssid` (1..4) belongs to; `bridge` holds at least 16 bytes. 0, or -1 when out
/// of range.
int determine_dest_ssid_bridge(int ssid, char *bridge);
/// Name of the VLAN interface of bat0 that SSID `ssid` (1..4) of those settings crosses the mesh
/// on.
std::string wifi_ssid_mesh_iface(const wifi_ssid_settings &settings, int ssid);
/// True for 1..4095; anything else means that the SSID has no VLAN.
bool wifi_vlan_tag_is_valid(int vlan_tag);
/// False only while the power negotiation over LLDP is known to be running.
bool wifi_lldp_negotiation_complete();
/// Copies the intended enables of radios' interfaces to the live ones; with `reload` also runs
/// reload_config. When another process's lock is in the way, both are done as soon as it is gone.
void wifi_restore_config_enabled_interfaces(bool reload);
/// True while delayed wireless settings wait for their timer.
bool wifi_delayed_settings_pending();
/// Starts or stops the daemon that serves orphaned nodes. The exit status of the start, or -1 when
/// it could not be run; a failure is logged.
int wifid_start_orphand();
void wifid_stop_orphand();

// Firewall forwarding, as UCI options that follow the upstream. The captive portal's are
// wifi/write/portal's.
//
// Forwarding sections ("firewall.ssid1wan_wired0") exist beforehand; only their `enabled` option is
// written here.
#pragma once

#include <cstdint>

struct wifi_settings;

/// Enables or disables forwarding from `source` ("ssid1", "mesh") to a wired uplink. True also
/// when there is nothing to write: uplinks that are not wired have no forwarding sections.
[[nodiscard]] bool firewall_set_forwarding_rule(const char *iface, const char *source, bool enable);
/// The same for SSID `ssid` (1..4); one in a VLAN or bridged to the LAN is never enabled.
[[nodiscard]] bool firewall_set_ssid_forwarding_rule(const char *iface, int ssid, bool enable);
/// Disables every rule.
void firewall_reset_forwarding_rules();
/// Commits the firewall package and reloads. False when the commit failed.
[[nodiscard]] bool firewall_commit_forwarding_rules();
/// Drops the uncommitted changes of the firewall package. False on failure.
bool firewall_revert_forwarding_rules();

/// Moves forwarding from the current uplink interface to `iface` for `state`; uncommitted. 0, or
/// -1 with the firewall package reverted.
[[nodiscard]] int set_firewall_forwarding_rules(const char *iface, uint32_t state);

/// Lets the SSIDs of those settings, and no others, be forwarded to the wired uplink that
/// forwarding leads to, if it does to one; uncommitted. False when not all could be set.
bool set_ssid_forwarding(const wifi_settings *settings);

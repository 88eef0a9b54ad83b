// The captive portal's and the traffic shaper's interfaces, as UCI options of each SSID that follow
// the upstream. A push writes them as well as a switch.
#pragma once

#include <cstdint>

struct wifi_settings;

/// Sets the captive portal's log-out rules; uncommitted. False when not all could be.
bool set_udsplash_logout_firewall(uint32_t state, const wifi_settings *settings);
/// Tells portal and shaper which interfaces carry clients and which one leads out. False when not
/// all of it could be set, or committed.
bool set_udsplash_ifaces(uint32_t state, bool with_commit, const wifi_settings *settings);

// Which IPv4 networks a node owns: five adjacent /22 out of 10.0.0.0/8, counted downwards from
// 10.255.255.255 by its node id, or taken from its MAC address while it has none.
#pragma once

#include <cstdint>
#include <string>

/// Base of the node's networks; see wifi_plan_address(). `management_mac` may be null and matters
/// only without a node id (negative); one that is no MAC address counts as none.
uint32_t wifi_plan_base(int32_t node_id, const char *management_mac);
/// Value of the network of SSID `ssid` (1..4).
uint32_t wifi_plan_ssid(uint32_t base, int ssid);
/// The node's address in the network of a value: "10.X.Y.1".
std::string wifi_plan_address(uint32_t value);
/// True for the text of an IPv4 address.
bool wifi_is_ipv4(const char *text);
/// One bits of a dotted netmask, 0 for what is no address.
int wifi_netmask_bits(const char *netmask);

// The kernel's links and IPv4 policy rules over route netlink.
//
// Every call opens a socket of its own, sends one request, waits for the kernel's answer and closes
// the socket. Each returns 0 or -1 unless it says otherwise, logs what failed, and leaves the
// kernel's error in errno when the kernel refused. Asking for what is already there is success.
#pragma once

#include <cstdint>

/// Adds a rule "from src to dst/dst_len iif iif lookup table". Addresses are in host byte order, 0
/// is any; iif may be null for any interface; table 0 is the main table; a negative priority is
/// 500.
[[nodiscard]] int ng_rtnl_iface_rule_add(const char *iif, uint32_t src, uint32_t dst, int dst_len,
                                         int table, int priority);
/// Deletes the rule that ng_rtnl_iface_rule_add() with the same arguments added.
[[nodiscard]] int ng_rtnl_iface_rule_del(const char *iif, uint32_t src, uint32_t dst, int dst_len,
                                         int table, int priority);

/// Creates the VLAN interface "<parent>.<vid>" (cut to 15 characters); vid is at most 4094.
[[nodiscard]] int ng_rtnl_iface_create_vlan(const char *parent, uint16_t vid);
/// Deletes an interface; one that does not exist is -1 and no more than an INFO line.
[[nodiscard]] int ng_rtnl_iface_destroy(const char *name);

/// Makes `port` a port of `bridge`, or of no bridge when `bridge` is null.
[[nodiscard]] int ng_rtnl_bridge_set(const char *bridge, const char *port);
[[nodiscard]] int ng_rtnl_bridge_enslave(const char *bridge, const char *port);
[[nodiscard]] int ng_rtnl_bridge_release(const char *port);

/// Whether the link is set up and, unless `ignore_running`, has its carrier. False on any failure.
[[nodiscard]] bool ng_rtnl_iface_link_get_up(const char *name, bool ignore_running);
/// The same, asked up to five times with 100 ms after each no: blocks up to 0.5 s.
[[nodiscard]] bool ng_rtnl_iface_link_get_retry(const char *name, bool ignore_running);
/// The index of an interface, 0 when there is none after three look-ups: blocks up to 2 s.
[[nodiscard]] uint32_t ng_rtnl_iface_index_get_retry(const char *name);

/// Sets a link up (with or without the running flag) or down; blocks up to 2 s for its index.
[[nodiscard]] int ng_rtnl_iface_link_set_up(const char *name, bool up, bool running);
[[nodiscard]] int ng_rtnl_iface_set_up(const char *name, bool up);

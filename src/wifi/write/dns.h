// The node's common DNS instance, "dhcp.lan_dns": which interfaces it answers on.
#pragma once

#include "platform/zu/ng_uci.h"

/// Adds an interface to the instance's list or removes it; uncommitted. False on failure.
bool change_dns_interface(ng_uci_action action, const char *iface);

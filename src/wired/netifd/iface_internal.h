// Shared by iface.cpp and iface_status.cpp.
#pragma once

struct iface_entry;

/// Forgets device, up flag and route facts.
void iface_list_clear_facts(iface_entry *entry);

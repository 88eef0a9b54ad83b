// The interfaces of netifd that the node follows, as the record holds them.
#pragma once

#include <libubus.h>

struct iface_kind;

/// One of the two lists of followed interfaces and its enumeration (wired/netifd/enumeration.h);
/// zero at start-up.
struct iface_enumeration {
    list_head list;                ///< iface_entry, in the order they were found
    uloop_timeout enumerate_timer; ///< pending: enumeration is in progress
    const iface_kind *kind;        ///< once it has been started
};

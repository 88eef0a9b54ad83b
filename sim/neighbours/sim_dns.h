// A name server for a handful of hosts: enough for a resolver to find them, and to learn that all
// others do not exist. IPv4 addresses only; other questions get an empty answer.
#pragma once

#include <span>

struct sim_dns_host {
    const char *name, *address;
};

/// Serves `hosts` (which must outlive it) on UDP port 53 of `address` from the event loop.
/// 0, or -1 with a word on standard error.
int sim_dns_start(const char *address, std::span<const sim_dns_host> hosts);
/// How long an answer is held back, in ms.
void sim_dns_set_delay(int delay_ms);

// The shared record to its owners: wired/ changes all of it but `mesh`, which is mesh/'s. Whoever
// else wants something changed calls the owner's function for it.
#pragma once

#include "state/state.h"

/// Zero at start-up; inet_test_reset() puts it back there.
extern tarn_net_state gTarn_net_state;
/// Outlives a reset. Changed by wired/'s internet test alone.
extern online_settings gOnline_settings;

/// The one place that sets the upstream state; logs old and new.
void upstream_set_state(uint32_t state);

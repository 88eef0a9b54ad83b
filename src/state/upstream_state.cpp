// What the record says of the upstream, in words and times.
#include "state/upstream_state.h"

#include <iterator>

#include "platform/zu/clock.h"
#include "platform/zu/log.h"
#include "state/owned.h"

static const char *const gState_names[] = {
    "TARN_NET_UPSTREAM_NONE",
    "TARN_NET_UPSTREAM_WAN_STATE",
    "TARN_NET_UPSTREAM_MESH_STATE",
    "TARN_NET_LONELY_ORPHAN_STATE",
};

const char *upstream_state_name(uint32_t state)
{
    return state < std::size(gState_names) ? gState_names[state] : "State out of range";
}

time_t upstream_since()
{
    int64_t &since_s = gTarn_net_state.upstream.since_s;
    if (since_s == 0) // the first state is counted from the first question about it
        since_s = zu_monotonic_s();
    return zu_date_of(since_s);
}

void upstream_set_state(uint32_t state)
{
    uint32_t &current = gTarn_net_state.inet_test.upstream_state;
    if (current == state)
        return;
    log_debug("Update upstream state from %s to %s", upstream_state_name(current),
              upstream_state_name(state));
    current = state;
    gTarn_net_state.upstream.since_s = zu_monotonic_s();
}

bool upstream_is_incomplete()
{
    return gTarn_net_state.upstream.unmade != 0;
}

bool upstream_knows_wired_bridge()
{
    return gTarn_net_state.upstream.wired_uplink_bridge[0] != '\0';
}

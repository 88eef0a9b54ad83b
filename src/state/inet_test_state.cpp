// What the record says of the internet test.
#include "state/inet_test_state.h"

#include <algorithm>

#include "platform/zu/clock.h"
#include "state/owned.h"

const online_settings &inet_test_settings()
{
    return gOnline_settings;
}

bool inet_test_is_configured()
{
    return gOnline_settings.target_count != 0 && gOnline_settings.test_interval > 0;
}

int64_t inet_test_seconds_since_verdict()
{
    return zu_monotonic_s() -
           std::max(gTarn_net_state.inet_test.last_verdict.at_s, gOnline_settings.taken_at_s);
}

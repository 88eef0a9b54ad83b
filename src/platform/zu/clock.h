// Points in time that a clock which is set (at boot the node knows no date) does not move.
#pragma once

#include <cstdint>
#include <ctime>

static_assert(sizeof(time_t) == sizeof(int64_t), "dates end in 2038");

/// Seconds since some moment before the daemon began; never 0 and never backwards.
int64_t zu_monotonic_s();
/// The date, in seconds since 1970, of a moment that zu_monotonic_s() gave.
time_t zu_date_of(int64_t monotonic_s);

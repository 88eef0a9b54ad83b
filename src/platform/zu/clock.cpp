// The monotonic clock in whole seconds, and the way back to a date.
#include "platform/zu/clock.h"

int64_t zu_monotonic_s()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec + 1;
}

time_t zu_date_of(int64_t monotonic_s)
{
    return time(nullptr) - static_cast<time_t>(zu_monotonic_s() - monotonic_s);
}

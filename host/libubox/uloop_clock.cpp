// The loop's clock: CLOCK_MONOTONIC, or a virtual one that jumps where the loop would wait.
#include <algorithm>
#include <ctime>
#include <libubox_host/clock.h>
#include <sys/epoll.h>

#include "uloop_internal.h"

/// A timer re-armed with 0 runs again in the same pass, in real time for about a millisecond. Since
/// a virtual clock stands still meanwhile, it moves on a millisecond after this many timers.
constexpr unsigned TIMERS_PER_VIRTUAL_MS = 1000;

static bool is_virtual = false;
static int64_t virtual_us = 0;
static int settle_ms = 0;

static int64_t real_us()
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * int64_t{1000000} + now.tv_nsec / 1000;
}

int64_t uloop_clock_us()
{
    return is_virtual ? virtual_us : real_us();
}

int64_t uloop_clock_now_ms()
{
    return uloop_clock_us() / 1000;
}

void uloop_clock_virtual(bool on)
{
    int64_t before = uloop_clock_us();
    is_virtual = on;
    virtual_us = real_us();
    uloop_timeout_shift_all(uloop_clock_us() - before);
}

void uloop_clock_settle_ms(int ms)
{
    settle_ms = ms;
}

void uloop_clock_timer_ran(unsigned count)
{
    if (count % TIMERS_PER_VIRTUAL_MS == 0)
        virtual_us += 1000;
}

int uloop_clock_wait(int poll_fd, epoll_event *events, int max, int timeout_ms)
{
    if (!is_virtual || timeout_ms <= 0)
        return epoll_wait(poll_fd, events, max, timeout_ms);
    int count = epoll_wait(poll_fd, events, max, settle_ms);
    if (count == 0)
        virtual_us += timeout_ms * int64_t{1000};
    return count;
}

struct run_limit {
    uloop_timeout timer;
    bool reached;
};

static void on_limit_cb(uloop_timeout *timer)
{
    container_of(timer, run_limit, timer)->reached = true;
    uloop_end();
}

int uloop_clock_run_ms(int ms)
{
    run_limit limit = {};
    limit.timer.cb = on_limit_cb;
    uloop_timeout_set(&limit.timer, ms);
    (void)uloop_run();
    (void)uloop_timeout_cancel(&limit.timer);
    return limit.reached ? 0 : -1;
}

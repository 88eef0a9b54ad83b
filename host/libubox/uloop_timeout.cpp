// Timers, in one list sorted by expiry. Times are compared in whole milliseconds: what is less than
// one apart counts as equal and keeps its order of insertion, and a timer may fire that much early.
#include <algorithm>
#include <climits>

#include "uloop_internal.h"

constexpr int64_t US_PER_S = 1000000;
constexpr int64_t US_PER_MS = 1000;

static list_head timeouts = LIST_HEAD_INIT(timeouts);

static int64_t expiry_us(const uloop_timeout *t)
{
    return t->time.tv_sec * US_PER_S + t->time.tv_usec;
}

static void set_expiry(uloop_timeout *t, int64_t us)
{
    t->time.tv_sec = us / US_PER_S;
    t->time.tv_usec = us % US_PER_S;
}

static int64_t ms_left(const uloop_timeout *t, int64_t now_us)
{
    return (expiry_us(t) - now_us) / US_PER_MS;
}

int uloop_timeout_add(uloop_timeout *t)
{
    if (t->pending)
        return -1;
    list_head *before = &timeouts;
    uloop_timeout *other;
    list_for_each_entry(other, &timeouts, list)
    {
        if (ms_left(other, expiry_us(t)) > 0) {
            before = &other->list;
            break;
        }
    }
    list_add_tail(&t->list, before);
    t->pending = true;
    return 0;
}

int uloop_timeout_set(uloop_timeout *t, int msecs)
{
    if (t->pending)
        uloop_timeout_cancel(t);
    set_expiry(t, uloop_clock_us() + msecs * US_PER_MS);
    return uloop_timeout_add(t);
}

int uloop_timeout_cancel(uloop_timeout *t)
{
    if (!t->pending)
        return -1;
    list_del(&t->list);
    t->pending = false;
    return 0;
}

int64_t uloop_timeout_remaining64(uloop_timeout *t)
{
    return t->pending ? ms_left(t, uloop_clock_us()) : -1;
}

int uloop_get_next_timeout()
{
    if (list_empty(&timeouts))
        return -1;
    uloop_timeout *next = list_first_entry(&timeouts, uloop_timeout, list);
    return static_cast<int>(std::clamp<int64_t>(ms_left(next, uloop_clock_us()), 0, INT_MAX));
}

void uloop_timeout_run_due()
{
    int64_t now = uloop_clock_us();
    for (unsigned count = 1; !list_empty(&timeouts); count++) {
        uloop_timeout *t = list_first_entry(&timeouts, uloop_timeout, list);
        if (ms_left(t, now) > 0)
            break;
        uloop_timeout_cancel(t);
        if (t->cb)
            t->cb(t);
        uloop_clock_timer_ran(count);
    }
}

void uloop_timeout_cancel_all()
{
    while (!list_empty(&timeouts))
        uloop_timeout_cancel(list_first_entry(&timeouts, uloop_timeout, list));
}

void uloop_timeout_shift_all(int64_t us)
{
    uloop_timeout *t;
    list_for_each_entry(t, &timeouts, list) set_expiry(t, expiry_us(t) + us);
}

// The loop itself: due timers, ended children, then at most one descriptor, round after round.
//
//   ┌─► due timers ─► children ─► cancelled? ──yes──► return
//   │                                │no
//   └── one descriptor's callback ◄──┴─ wait until the next timer
#include "uloop_internal.h"

bool uloop_cancelled = false;

static volatile sig_atomic_t end_signal = 0;
static int run_depth = 0;

void uloop_end_by_signal(int signo)
{
    end_signal = signo;
    uloop_end();
}

int uloop_init()
{
    if (uloop_fd_open() < 0 || uloop_signal_open() < 0) {
        uloop_done();
        return -1;
    }
    uloop_process_open();
    return 0;
}

void uloop_done()
{
    uloop_process_close();
    // First: a child made by fork shares the set of watched descriptors with its parent's loop, and
    // what it takes out of an open one the parent waits for in vain.
    uloop_fd_close();
    uloop_signal_close();
    uloop_timeout_cancel_all();
}

bool uloop_cancelling()
{
    return run_depth > 0 && uloop_cancelled;
}

static void run_round(int limit_ms)
{
    uloop_timeout_run_due();
    uloop_process_reap();
    if (uloop_cancelled)
        return;
    int wait_ms = uloop_get_next_timeout();
    if (limit_ms >= 0 && (wait_ms < 0 || limit_ms < wait_ms))
        wait_ms = limit_ms;
    uloop_fd_run_one(wait_ms);
}

int uloop_run_timeout(int timeout)
{
    end_signal = 0;
    uloop_cancelled = false;
    run_depth++;
    do {
        run_round(timeout);
    } while (!uloop_cancelled && timeout < 0);
    run_depth--;
    return end_signal;
}

// What the parts of the loop share: uloop.cpp runs, uloop_timeout.cpp, uloop_fd.cpp,
// uloop_process.cpp and uloop_signal.cpp each own one kind of record, uloop_clock.cpp the time.
#pragma once

#include <csignal>
#include <cstdint>
#include <libubox/uloop.h>

struct epoll_event;

/// Ends the running loop with this signal number as its result. Safe in a signal handler.
void uloop_end_by_signal(int signo);

/// The loop's time in microseconds.
int64_t uloop_clock_us();
/// Tells a virtual clock that a pass has run its `count`th timer.
void uloop_clock_timer_ran(unsigned count);
/// epoll_wait, or in virtual time a glance that ends with a jump over the whole time-out.
int uloop_clock_wait(int poll_fd, epoll_event *events, int max, int timeout_ms);

/// Runs every timer that is due now.
void uloop_timeout_run_due();
void uloop_timeout_cancel_all();
/// Moves the expiry of every pending timer.
void uloop_timeout_shift_all(int64_t us);

/// The epoll set. 0 (also when it is open already) or -1.
int uloop_fd_open();
void uloop_fd_close();
/// Waits for events (up to 10 of them are kept for later calls) and runs one callback.
void uloop_fd_run_one(int timeout_ms);

/// Wake-up pipe and dispositions. 0 or -1.
int uloop_signal_open();
void uloop_signal_close();
/// Takes `signo` if its disposition is the default one.
void uloop_signal_take(int signo, void (*handler)(int));
/// Gives it back if it is still `handler`'s.
void uloop_signal_give_back(int signo, void (*handler)(int));
/// Ends the wait for events, now or as soon as it begins. Safe in a signal handler.
void uloop_signal_wake();

void uloop_process_open();
void uloop_process_close();
/// Reaps and reports children if a SIGCHLD came.
void uloop_process_reap();

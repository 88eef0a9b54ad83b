/* The loop's clock, which tests of long timers can make virtual. Only this library has it.
 *
 * A virtual clock stands still while callbacks run. Where the loop would wait for its next timer
 * and nothing happens on its descriptors, signals and children, the clock jumps to that timer
 * instead: half an hour of quiet passes in a moment, in the same order as in real time. With no
 * timer to jump to the loop waits for real. */
#pragma once

#include <stdbool.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Turns the virtual clock on (it starts at the real time) or off. What pending timers have left
 * stays the same either way. Call it between runs of the loop, not from a callback. */
void uloop_clock_virtual(bool on);

/* How long, in real milliseconds, nothing must happen before the clock jumps; 0 at first. Leave
 * peers in other processes and children the time they need to answer, else the time-outs that guard
 * them fire before they can. */
void uloop_clock_settle_ms(int ms);

/* The loop's time in milliseconds, real or virtual; only differences mean something. */
int64_t uloop_clock_now_ms(void);

/* Runs the loop until `ms` of its time have passed, timers due at the end included. 0, or -1 when
 * something ended the loop before. */
int uloop_clock_run_ms(int ms);

#ifdef __cplusplus
}
#endif

// Timers, rounds and the virtual clock.
#include <thread>

#include "libubox/loop_fixture.h"

TEST_F(Loop, TimersFireByTimeAndEqualOnesInOrderOfSetting)
{
    timer late = logging("late"), first = logging("first"), second = logging("second");
    timer past = logging("past"), almost = logging("almost");
    uloop_timeout_set(&late, 20);
    uloop_timeout_set(&first, 10);
    uloop_timeout_set(&second, 10);
    uloop_timeout_set(&past, -5);
    // Less than a millisecond before the others, but set after them.
    almost.time = first.time;
    almost.time.tv_usec -= almost.time.tv_usec >= 900 ? 900 : almost.time.tv_usec;
    EXPECT_EQ(uloop_timeout_add(&almost), 0);
    uloop_clock_run_ms(15);
    EXPECT_EQ(log, "past first second almost ");
    EXPECT_EQ(uloop_timeout_remaining64(&late), 5);
    EXPECT_EQ(uloop_get_next_timeout(), 5);
    uloop_clock_run_ms(5);
    EXPECT_EQ(log, "past first second almost late ");
    EXPECT_EQ(uloop_get_next_timeout(), -1);
}

TEST_F(Loop, ATimerIsPendingFromSetToCallbackOrTheEndOfTheLoop)
{
    timer t = logging("t"), forgotten = logging("forgotten");
    EXPECT_EQ(uloop_timeout_cancel(&t), -1);
    EXPECT_EQ(uloop_timeout_remaining64(&t), -1);
    uloop_timeout_set(&t, 5);
    EXPECT_EQ(uloop_timeout_add(&t), -1);
    uloop_timeout_set(&t, 50); // replaces, does not add
    uloop_clock_run_ms(49);
    EXPECT_EQ(log, "");
    EXPECT_TRUE(t.pending);
    uloop_clock_run_ms(1);
    EXPECT_EQ(log, "t ");
    EXPECT_FALSE(t.pending);

    uloop_timeout_set(&forgotten, -3);
    EXPECT_EQ(uloop_timeout_remaining64(&forgotten), -3);
    EXPECT_EQ(uloop_get_next_timeout(), 0);
    uloop_done();
    EXPECT_FALSE(forgotten.pending);
    uloop_init();
    uloop_run_timeout(0);
    EXPECT_EQ(log, "t ");
}

TEST_F(Loop, TimersMayCancelRearmAndFreeThemselvesAndOthers)
{
    timer victim = logging("victim");
    auto *doomed = new timer([] {});
    doomed->run = [&] {
        log += "doomed ";
        uloop_timeout_cancel(&victim);
        delete doomed;
    };
    int laps = 0;
    timer repeating([&] {
        EXPECT_FALSE(repeating.pending);
        if (++laps < 3)
            uloop_timeout_set(&repeating, 100);
        else
            uloop_end();
    });
    uloop_timeout_set(doomed, 10);
    uloop_timeout_set(&victim, 10);
    uloop_timeout_set(&repeating, 100);
    int64_t start = uloop_clock_now_ms();
    EXPECT_EQ(uloop_run(), 0);
    EXPECT_EQ(log, "doomed ");
    EXPECT_EQ(laps, 3);
    EXPECT_EQ(uloop_clock_now_ms() - start, 300);
}

TEST_F(Loop, AnEndBeforeTheRunIsForgottenAndAnInnerEndEndsBoth)
{
    timer inner([&] {
        log += "inner ";
        uloop_end();
    });
    timer outer([&] {
        uloop_timeout_set(&inner, 10);
        uloop_run();
        log += uloop_cancelling() ? "cancelled " : "running ";
    });
    timer never = logging("never");
    uloop_timeout_set(&outer, 10);
    uloop_timeout_set(&never, 1000);
    uloop_end();
    uloop_run();
    EXPECT_EQ(log, "inner cancelled ");
}

TEST_F(Loop, HalfAnHourPassesInAMomentWithQuietDescriptorsOpen)
{
    fd_pair pair;
    int ticks = 0;
    watch quiet(pair.ours, [&](unsigned) {
        char byte;
        EXPECT_EQ(read(pair.ours, &byte, 1), 1);
        log += "at " + std::to_string(ticks);
    });
    uloop_fd_add(&quiet, ULOOP_READ);
    timer tick([&] {
        uloop_timeout_set(&tick, 1000);
        // What was written is seen before the clock moves on.
        pair.send(++ticks == 900 ? "x" : "");
    });
    uloop_timeout_set(&tick, 1000);
    int64_t start = uloop_clock_now_ms();
    EXPECT_EQ(uloop_clock_run_ms(1800 * 1000), 0);
    EXPECT_EQ(uloop_clock_now_ms() - start, 1800 * 1000);
    EXPECT_EQ(ticks, 1800);
    EXPECT_EQ(log, "at 900");

    uloop_timeout_cancel(&tick);
    timer ender([] { uloop_end(); });
    uloop_timeout_set(&ender, 500);
    EXPECT_EQ(uloop_clock_run_ms(1000), -1) << "ended before";
}

TEST_F(Loop, TheClockWaitsForAPeerAsLongAsItIsToldTo)
{
    fd_pair pair;
    std::thread peer([&] {
        char byte;
        if (read(pair.theirs, &byte, 1) == 1)
            pair.send("x");
    });
    watch answer(pair.ours, [&](unsigned) {
        log += "answer ";
        uloop_end();
    });
    uloop_fd_add(&answer, ULOOP_READ);
    timer ask([&] {
        uloop_clock_settle_ms(5000);
        EXPECT_EQ(write(pair.ours, "x", 1), 1);
    });
    timer guard = logging("guard");
    uloop_timeout_set(&ask, 10);
    uloop_timeout_set(&guard, 20);
    uloop_run();
    EXPECT_EQ(log, "answer ");
    peer.join();
}

// Signals and child processes.
#include <cerrno>
#include <sys/wait.h>

#include "libubox/loop_fixture.h"

static void ignore_it(int) {}

/// A child that exits with what `action` returns.
static pid_t start(const std::function<int()> &action)
{
    const pid_t pid = fork();
    if (pid == 0)
        _exit(action());
    return pid;
}

/// Waits until the child has ended, without taking its status; the loop's handler for SIGCHLD
/// interrupts it.
static pid_t ended(pid_t pid)
{
    siginfo_t info = {};
    while (waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT) < 0 && errno == EINTR) {
    }
    return pid;
}

static auto handler_of(int signo)
{
    struct sigaction action = {};
    sigaction(signo, nullptr, &action);
    return action.sa_handler;
}

TEST_F(Loop, SigtermAndSigintEndTheRunThatTheyHit)
{
    for (int signo : {SIGTERM, SIGINT}) {
        timer t([=] { raise(signo); });
        uloop_timeout_set(&t, 10);
        EXPECT_EQ(uloop_run(), signo);
        raise(signo);
        uloop_timeout_set(&t, 10);
        t.run = [] { uloop_end(); };
        EXPECT_EQ(uloop_run(), 0) << "one from before the run is forgotten";
    }
}

TEST_F(Loop, OnlyDefaultDispositionsAreTakenAndTheyAreGivenBack)
{
    uloop_done();
    for (int signo : {SIGINT, SIGTERM, SIGCHLD})
        EXPECT_EQ(handler_of(signo), SIG_DFL) << signo;
    EXPECT_EQ(handler_of(SIGPIPE), SIG_IGN);

    signal(SIGTERM, ignore_it);
    signal(SIGINT, SIG_IGN);
    uloop_handle_sigchld = false;
    uloop_init();
    uloop_handle_sigchld = true;
    EXPECT_EQ(handler_of(SIGTERM), ignore_it);
    EXPECT_EQ(handler_of(SIGINT), SIG_IGN);
    EXPECT_EQ(handler_of(SIGCHLD), SIG_DFL);
    uloop_done();
    EXPECT_EQ(handler_of(SIGTERM), ignore_it);
    EXPECT_EQ(handler_of(SIGINT), SIG_IGN);
    signal(SIGTERM, SIG_DFL);
    signal(SIGINT, SIG_DFL);
}

namespace {
struct child : acting<uloop_process, int> {
    child(pid_t number, std::function<void(int status)> f) : acting(std::move(f)) { pid = number; }
    ~child() { (void)uloop_process_delete(this); }
};
} // namespace

TEST_F(Loop, AChildThatEndedEarlyOrWasKilledIsReportedToAllWhoAsk)
{
    const pid_t pid = start(pause);
    kill(pid, SIGKILL);
    ended(pid);
    child deleted(pid, [&](int) { log += "deleted "; });
    child second(pid, [&](int status) {
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
        log += "second ";
        uloop_end();
    });
    child first(pid, [&](int) {
        log += "first ";
        (void)uloop_process_delete(&deleted);
        EXPECT_EQ(uloop_process_add(&first), 0); // waits for a later child of this number
    });
    for (child *c : {&first, &deleted, &second})
        uloop_process_add(c);
    uloop_run();
    EXPECT_EQ(log, "first second ");
    EXPECT_TRUE(first.pending);
    uloop_done();
    EXPECT_FALSE(first.pending);
}

// Shell commands beside the event loop: outcomes, child reaping, signals, inherited descriptors.
#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <libubus.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/zu/shell.h"
#include "support/temporary_directory.h"

namespace {

TEST(Shell, TellsHowACommandEnded)
{
    const struct {
        const char *command;
        bool ran;
        int exit_status;
    } cases[] = {{"true", true, 0},
                 {"exit 3", true, 3},
                 {"/nonexistent/command 2>/dev/null", true, 127},
                 {"kill -9 $$", false, 0}};
    for (const auto &c : cases) {
        const shell_result result = shell_run(c.command);
        EXPECT_EQ(result.ran, c.ran) << c.command;
        EXPECT_EQ(result.exit_status, c.exit_status) << c.command;
        EXPECT_EQ(result.error != 0, !c.ran) << c.command;
    }
}

TEST(Shell, ABoundCommandDiesWithItsCaller)
{
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const pid_t caller = fork();
    if (caller == 0) {
        dup2(ends[1], STDERR_FILENO);
        (void)!shell_run_bound("sh -c 'echo started >&2; exec sleep 60'").ran;
        _exit(0);
    }
    close(ends[1]);
    char text[16];
    EXPECT_EQ(read(ends[0], text, sizeof text), 8);
    kill(caller, SIGKILL);
    waitpid(caller, nullptr, 0);
    pollfd left = {ends[0], POLLIN, 0};
    EXPECT_EQ(poll(&left, 1, 20000), 1) << "the command still holds its standard error";
    close(ends[0]);
}

TEST(Shell, AChildInheritsTheStandardDescriptorsOnly)
{
    const temporary_directory directory;
    int plain[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, plain), 0);
    const int high = fcntl(plain[0], F_DUPFD, 200);
    ASSERT_GE(high, 200);
    ASSERT_TRUE(shell_run(("ls /proc/self/fd > " + (directory / "fds")).c_str()).ran);
    // What ls has open: the three, and the directory it lists.
    EXPECT_EQ(read_file(directory / "fds"), "0\n1\n2\n3\n");
    close(plain[0]);
    close(plain[1]);
    close(high);
}

struct ShellInLoop : testing::Test {
    void SetUp() override { uloop_init(); }
    void TearDown() override { uloop_done(); }
};

struct watched_child : uloop_process {
    bool ended = false;
    int status = 0;
};

TEST_F(ShellInLoop, TheLoopAndSystemEachGetTheirOwnChild)
{
    watched_child child = {};
    child.cb = [](uloop_process *process, int status) {
        static_cast<watched_child *>(process)->ended = true;
        static_cast<watched_child *>(process)->status = status;
    };
    child.pid = fork();
    if (child.pid == 0)
        _exit(7);
    uloop_process_add(&child);
    // The loop's child ends while the command runs, so its SIGCHLD arrives in the middle of it.
    const shell_result result = shell_run("sleep 0.05; exit 4");
    EXPECT_TRUE(result.ran);
    EXPECT_EQ(result.exit_status, 4);
    for (int i = 0; i < 100 && !child.ended; i++)
        uloop_run_timeout(10);
    EXPECT_TRUE(child.ended);
    EXPECT_EQ(WEXITSTATUS(child.status), 7);

    // And from inside the loop, many times.
    static int good;
    good = 0;
    uloop_timeout timer = {};
    timer.cb = [](uloop_timeout *t) {
        good += shell_run("exit 5").exit_status == 5;
        if (good < 20)
            uloop_timeout_set(t, 0);
        else
            uloop_end();
    };
    uloop_timeout_set(&timer, 0);
    uloop_run_timeout(1000);
    for (int i = 0; i < 100 && good < 20; i++)
        uloop_run_timeout(10);
    EXPECT_EQ(good, 20);
}

TEST_F(ShellInLoop, SignalHandlingIsLeftAsItWas)
{
    const int signals[] = {SIGCHLD, SIGINT, SIGTERM, SIGQUIT, SIGPIPE};
    struct sigaction before[std::size(signals)], after;
    sigset_t mask_before, mask_after;
    for (std::size_t i = 0; i < std::size(signals); i++)
        sigaction(signals[i], nullptr, &before[i]);
    sigprocmask(SIG_BLOCK, nullptr, &mask_before);
    shell_run_ignored("true");
    sigprocmask(SIG_BLOCK, nullptr, &mask_after);
    for (std::size_t i = 0; i < std::size(signals); i++) {
        sigaction(signals[i], nullptr, &after);
        EXPECT_EQ(after.sa_handler, before[i].sa_handler) << signals[i];
        EXPECT_EQ(sigismember(&mask_after, signals[i]), sigismember(&mask_before, signals[i]));
    }
}

} // namespace

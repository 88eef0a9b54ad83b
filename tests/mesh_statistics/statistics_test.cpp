// The child that collects the gateway facts does not outlive whoever would have bounded it.
#include "core/state.h"
#include "mesh/mesh.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <sys/wait.h>
#include <unistd.h>

namespace {

bool soon(bool (*condition)(pid_t), pid_t pid)
{
    for (int tries = 0; tries < 200; tries++) {
        if (condition(pid))
            return true;
        usleep(20 * 1000);
    }
    return false;
}

bool asks_batctl(pid_t)
{
    return system("grep -q ' batctl gwl' /var/log/journal 2>/dev/null") == 0;
}

bool group_is_gone(pid_t group)
{
    return kill(-group, 0) < 0 && errno == ESRCH;
}

TEST(Statistics, ACollectionEndsWithTheDaemon)
{
    ASSERT_EQ(0, system("mkdir -p /var/sim/batctl && echo 60 >/var/sim/batctl/delay"));
    int ends[2];
    ASSERT_EQ(0, pipe(ends));
    const pid_t daemon = fork();
    if (daemon == 0) {
        uloop_init();
        fork_and_execute_batctl_cmds(nullptr);
        const pid_t child = gTarn_net_state.mesh.stats_child.pid;
        (void)!write(ends[1], &child, sizeof child);
        pause();
        _exit(1);
    }
    pid_t child = 0;
    ASSERT_EQ(read(ends[0], &child, sizeof child), (ssize_t)sizeof child);
    ASSERT_TRUE(soon(asks_batctl, 0));
    EXPECT_FALSE(group_is_gone(child));
    kill(daemon, SIGKILL);
    waitpid(daemon, nullptr, 0);
    EXPECT_TRUE(soon(group_is_gone, child));
    kill(-child, SIGKILL);
}

} // namespace

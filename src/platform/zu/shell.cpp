// Shell commands, each in a process group of its own, so that one that hangs can be ended with all
// that it has started.
#include "platform/zu/shell.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <poll.h>
#include <spawn.h>
#include <string>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/zu/handle.h"
#include "platform/zu/log.h"

constexpr int LIMIT_MS = 30000;
/// After the group was killed: a process that hangs in the kernel does not end even then.
constexpr int KILLED_LIMIT_MS = 1000;
/// A child's end interrupts the wait; this is for a SIGCHLD that nobody handles (before the loop).
constexpr int STEP_MS = 20;

/// Marks every descriptor but the standard ones close-on-exec. libcurl opens some (its resolver's,
/// the multi handle's wake-up pair) that it neither marks nor shows.
static void descriptors_close_on_exec()
{
    const zu_directory dir(opendir("/proc/self/fd"));
    if (!dir)
        return;
    while (const dirent *entry = readdir(dir.get())) {
        const int fd = atoi(entry->d_name);
        if (fd > STDERR_FILENO)
            (void)fcntl(fd, F_SETFD, FD_CLOEXEC);
    }
}

// What a command says is nobody's business here, and `diff` says the keys that files of settings
// hold: it must not reach the system log, where our own output may go.
constexpr char NOWHERE[] = "/dev/null";

/// 0 and the child's id, or errno. Spawned, not forked: a fork marks every page of the daemon,
/// which then faults at its next write to each.
static int spawn_shell(const char *command, pid_t *pid)
{
    posix_spawnattr_t attributes;
    int error = posix_spawnattr_init(&attributes);
    if (error != 0)
        return error;
    (void)posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP); // a group of its own
    posix_spawn_file_actions_t files;
    error = posix_spawn_file_actions_init(&files);
    if (error == 0) {
        (void)posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, NOWHERE, O_WRONLY, 0);
        char shell[] = "sh", option[] = "-c";
        char *arguments[] = {shell, option, const_cast<char *>(command), nullptr};
        error = posix_spawn(pid, "/bin/sh", &files, &attributes, arguments, environ);
        (void)posix_spawn_file_actions_destroy(&files);
    }
    (void)posix_spawnattr_destroy(&attributes);
    return error;
}

/// In the child, which dies with the daemon.
[[noreturn]] static void become_bound_shell(const char *command, pid_t daemon)
{
    (void)setpgid(0, 0); // a group of its own
    (void)prctl(PR_SET_PDEATHSIG, SIGKILL);
    const int nowhere = open(NOWHERE, O_WRONLY | O_CLOEXEC);
    const bool orphan = getppid() != daemon;
    if (!orphan && nowhere >= 0 && dup2(nowhere, STDOUT_FILENO) >= 0 &&
        fcntl(STDOUT_FILENO, F_SETFD, 0) == 0) // it may have been closed, and be `nowhere` now
        execl("/bin/sh", "sh", "-c", command, static_cast<char *>(nullptr));
    _exit(127); // as a shell says that it could not run a command
}

/// As spawn_shell(), which cannot ask for such a death.
static int fork_bound_shell(const char *command, pid_t *pid)
{
    // Not every shell becomes a single command by itself, which would then outlive the shell.
    const std::string text = std::string("exec ") + command;
    const pid_t daemon = getpid();
    *pid = fork();
    if (*pid == 0)
        become_bound_shell(text.c_str(), daemon);
    return *pid < 0 ? errno : 0;
}

static long now_ms()
{
    timespec now;
    (void)clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1000L + now.tv_nsec / 1000000L;
}

/// Waits for this child alone, for others are the loop's. True when it has ended (`status` is set).
static bool wait_for(pid_t pid, int limit_ms, int *status)
{
    // Between the look and the wait SIGCHLD is kept back, so that it ends the wait; the loop's
    // handler gets it there, for the loop's own children too.
    sigset_t child, before;
    sigemptyset(&child);
    sigaddset(&child, SIGCHLD);
    (void)sigprocmask(SIG_BLOCK, &child, &before);
    const long end = now_ms() + limit_ms;
    pid_t ended;
    for (long left = limit_ms; (ended = waitpid(pid, status, WNOHANG)) == 0;
         left = end - now_ms()) {
        if (left <= 0)
            break;
        const timespec step{0, std::min<long>(left, STEP_MS) * 1000000L};
        (void)ppoll(nullptr, 0, &step, &before);
    }
    (void)sigprocmask(SIG_SETMASK, &before, nullptr);
    return ended != 0;
}

static shell_result run(const char *command, bool bound)
{
    descriptors_close_on_exec();
    pid_t pid;
    int status = 0;
    const int error = bound ? fork_bound_shell(command, &pid) : spawn_shell(command, &pid);
    if (error != 0)
        return {false, error, 0};
    if (!wait_for(pid, LIMIT_MS, &status)) {
        log_error("'%s' has not ended within %d seconds, ending it", command, LIMIT_MS / 1000);
        (void)kill(-pid, SIGKILL);
        (void)wait_for(pid, KILLED_LIMIT_MS, &status);
        return {false, ETIMEDOUT, 0};
    }
    if (!WIFEXITED(status))
        return {false, EINTR, 0};
    return {true, 0, WEXITSTATUS(status)};
}

shell_result shell_run(const char *command)
{
    return run(command, false);
}

shell_result shell_run_bound(const char *command)
{
    return run(command, true);
}

bool shell_run_in_group(const char *command)
{
    const int status = system(command);
    return status >= 0 && !WIFSIGNALED(status);
}

void shell_run_ignored(const char *command)
{
    const shell_result result = shell_run(command);
    log_debug("'%s' %s %d", command, result.ran ? "ended with status" : "could not be run, errno",
              result.ran ? result.exit_status : result.error);
}

// Preloaded into the daemon: how long its event loop is away from its wait at the longest, measured
// from outside. Everything between a return of epoll_wait() and the next call counts as one; what
// it spends in ppoll(), where the daemon waits for the commands it runs, is also counted apart.
//
// The result is the text of the file LOOP_WATCH names: "<longest in µs> <its end, in ms since boot>
// <of it waiting for commands, in µs>".
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/epoll.h>
#include <unistd.h>

using wait_function = int (*)(int, epoll_event *, int, int);

using command_wait_function = int (*)(pollfd *, nfds_t, const timespec *, const sigset_t *);

static wait_function real_wait;
static command_wait_function real_command_wait;
static int result_fd = -1;
static long longest_us;
static long commands_us; // of the callback that runs
static timespec returned;
static bool running;

/// Commands that the daemon runs are not watched.
static __attribute__((constructor)) void prepare()
{
    real_wait = reinterpret_cast<wait_function>(dlsym(RTLD_NEXT, "epoll_wait"));
    real_command_wait = reinterpret_cast<command_wait_function>(dlsym(RTLD_NEXT, "ppoll"));
    if (const char *path = getenv("LOOP_WATCH"))
        result_fd = open(path, O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
    unsetenv("LD_PRELOAD");
}

static long passed_us(const timespec &since, const timespec &now)
{
    return (now.tv_sec - since.tv_sec) * 1000000 + (now.tv_nsec - since.tv_nsec) / 1000;
}

static void record(const timespec &now)
{
    const long us = passed_us(returned, now);
    if (us <= longest_us)
        return;
    longest_us = us;
    char text[64];
    const int length = snprintf(text, sizeof text, "%-12ld %-12ld %-12ld\n", us,
                                now.tv_sec * 1000L + now.tv_nsec / 1000000, commands_us);
    if (result_fd >= 0 && pwrite(result_fd, text, static_cast<size_t>(length), 0) < 0)
        result_fd = -1;
}

extern "C" int epoll_wait(int fd, epoll_event *events, int max, int timeout)
{
    timespec now{};
    clock_gettime(CLOCK_BOOTTIME, &now);
    if (running)
        record(now);
    const int count = real_wait(fd, events, max, timeout);
    clock_gettime(CLOCK_BOOTTIME, &returned);
    commands_us = 0;
    running = true;
    return count;
}

extern "C" int ppoll(pollfd *fds, nfds_t count, const timespec *limit, const sigset_t *mask)
{
    timespec before{}, after{};
    clock_gettime(CLOCK_BOOTTIME, &before);
    const int ready = real_command_wait(fds, count, limit, mask);
    clock_gettime(CLOCK_BOOTTIME, &after);
    commands_us += passed_us(before, after);
    return ready;
}

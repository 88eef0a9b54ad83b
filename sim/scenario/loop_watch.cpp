// Preloaded into the daemon: how long its event loop is away from its wait at the longest, measured
// from outside. Everything between a return of epoll_wait() and the next call counts as one.
//
// The result is the text of the file LOOP_WATCH names: "<longest in µs> <its end, in ms since
// boot>".
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/epoll.h>
#include <unistd.h>

using wait_function = int (*)(int, epoll_event *, int, int);

static wait_function real_wait;
static int result_fd = -1;
static long longest_us;
static timespec returned;
static bool running;

/// Commands that the daemon runs are not watched.
static __attribute__((constructor)) void prepare()
{
    real_wait = reinterpret_cast<wait_function>(dlsym(RTLD_NEXT, "epoll_wait"));
    if (const char *path = getenv("LOOP_WATCH"))
        result_fd = open(path, O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
    unsetenv("LD_PRELOAD");
}

static void record(const timespec &now)
{
    const long us =
        (now.tv_sec - returned.tv_sec) * 1000000 + (now.tv_nsec - returned.tv_nsec) / 1000;
    if (us <= longest_us)
        return;
    longest_us = us;
    char text[64];
    const int length = snprintf(text, sizeof text, "%-12ld %-12ld\n", us,
                                now.tv_sec * 1000L + now.tv_nsec / 1000000);
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
    running = true;
    return count;
}

// ubusd: the message bus broker of a development machine.
#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>

#include "broker.h"

static int usage(const char *program)
{
    fprintf(stderr,
            "Usage: %s [-s SOCKET] [-A DIR]\n"
            "  -s SOCKET  listen here (default %s)\n"
            "  -A DIR     access lists; accepted and ignored, everybody may do everything\n",
            program, WIRE_DEFAULT_SOCKET);
    return 1;
}

static void allow_many_clients()
{
    rlimit limit;
    if (getrlimit(RLIMIT_NOFILE, &limit) < 0)
        return;
    limit.rlim_cur = limit.rlim_max;
    (void)setrlimit(RLIMIT_NOFILE, &limit);
}

// SIGHUP would reload access lists.
static void ignore_cb(uloop_signal *) {}

int main(int argc, char **argv)
{
    const char *path = WIRE_DEFAULT_SOCKET;
    for (int opt; (opt = getopt(argc, argv, "s:A:")) != -1;) {
        if (opt == 's')
            path = optarg;
        else if (opt != 'A')
            return usage(argv[0]);
    }
    allow_many_clients();
    if (uloop_init() < 0 || server_start(path) < 0)
        return 1;
    uloop_signal hangup{};
    hangup.cb = ignore_cb;
    hangup.signo = SIGHUP;
    (void)uloop_signal_add(&hangup);
    (void)uloop_run();
    server_stop();
    uloop_done();
    return 0;
}

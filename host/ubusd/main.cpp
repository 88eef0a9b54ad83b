// ubusd: the message bus broker of a development machine.
#include <cstdio>
#include <sys/resource.h>
#include <unistd.h>

#include "broker.h"

constexpr char DEFAULT_ACCESS_LISTS[] = "/usr/share/acl.d";

static int usage(const char *program)
{
    fprintf(stderr,
            "Usage: %s [-s SOCKET] [-A DIR]\n"
            "  -s SOCKET  listen here (default %s)\n"
            "  -A DIR     access lists (default %s)\n",
            program, WIRE_DEFAULT_SOCKET, DEFAULT_ACCESS_LISTS);
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

static void hangup_cb(uloop_signal *)
{
    acl_load(nullptr);
}

int main(int argc, char **argv)
{
    const char *path = WIRE_DEFAULT_SOCKET;
    const char *access_lists = DEFAULT_ACCESS_LISTS;
    for (int opt; (opt = getopt(argc, argv, "s:A:")) != -1;) {
        if (opt == 's')
            path = optarg;
        else if (opt == 'A')
            access_lists = optarg;
        else
            return usage(argv[0]);
    }
    acl_load(access_lists);
    allow_many_clients();
    if (uloop_init() < 0 || server_start(path) < 0)
        return 1;
    uloop_signal hangup{};
    hangup.cb = hangup_cb;
    hangup.signo = SIGHUP;
    (void)uloop_signal_add(&hangup);
    (void)uloop_run();
    server_stop();
    uloop_done();
    return 0;
}

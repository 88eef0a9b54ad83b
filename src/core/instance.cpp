// The guard before the start: a second daemon, or somebody who only asks for the usage, must not
// reset the rules of a node that works. So both come before anything is touched, the log included.
#include "core/instance.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

constexpr const char *LOCK_FILE = "/var/run/tarn_net.lock";
constexpr const char *USAGE = "usage: tarn_net [--help | --version]; without arguments it "
                              "is the network daemon and stays in the foreground\n";
constexpr int EXIT_USAGE = 2;

int instance_answer_arguments(int argc, char **argv)
{
    if (argc < 2)
        return -1;
    const bool alone = argc == 2;
    if (alone && strcmp(argv[1], "--version") == 0) {
        printf("tarn_net %s\n", TARN_VERSION);
        return 0;
    }
    const bool help = alone && strcmp(argv[1], "--help") == 0;
    fputs(USAGE, help ? stdout : stderr);
    return help ? 0 : EXIT_USAGE;
}

bool instance_become_only()
{
    // Never closed. The lock is the process's own: a child that outlives the daemon does not hold
    // it against the next one.
    const int fd = open(LOCK_FILE, O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
    struct flock whole {};
    whole.l_type = F_WRLCK;
    if (fd >= 0 && fcntl(fd, F_SETLK, &whole) == 0)
        return true;
    if (fd >= 0 && (errno == EACCES || errno == EAGAIN)) {
        fputs("tarn_net: another one runs on this node, leaving it alone\n", stderr);
        return false;
    }
    fprintf(stderr, "tarn_net: cannot lock %s, running unguarded: %s\n", LOCK_FILE,
            strerror(errno));
    return true;
}

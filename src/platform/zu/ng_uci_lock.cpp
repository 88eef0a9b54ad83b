// Locks of other processes on a package's files. libuci waits for them without limit; the loop may
// stand still for a moment only. What is taken between this look and libuci's own is waited for.
#include "platform/zu/log.h"
#include "platform/zu/ng_uci.h"
#include "platform/zu/ng_uci_internal.h"

#include <ctime>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

constexpr int STEP_MS = 5;

static int g_waited_ms; // in this callback

/// True when somebody holds a lock on the file that keeps us out. A missing file has none.
static bool is_locked(const std::string &path)
{
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0)
        return false;
    const bool locked = flock(fd, LOCK_EX | LOCK_NB) != 0;
    close(fd);
    return locked;
}

bool ng_uci_wait_for_locks(const char *package)
{
    for (const char *dir : {UCI_CONFDIR "/", UCI_SAVEDIR "/"}) {
        const std::string path = std::string(dir) + package;
        while (is_locked(path)) {
            if (g_waited_ms >= NG_UCI_LOCK_WAIT_MS) {
                log_error("%s is locked by another process", path.c_str());
                return false;
            }
            const timespec step{0, STEP_MS * 1000000L};
            (void)nanosleep(&step, nullptr);
            g_waited_ms += STEP_MS;
        }
    }
    return true;
}

void ng_uci_reset_lock_wait()
{
    g_waited_ms = 0;
}

bool ng_uci_is_free(const char *package)
{
    return ng_uci_wait_for_locks(package);
}

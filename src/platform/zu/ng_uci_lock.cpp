// Locks of other processes on a package's files. libuci waits for them without limit, the loop may
// stand still for a moment only: a lock is tried for that moment, and held while libuci takes its
// own. Shared locks do not exclude each other, so libuci's, which are for reading, come at once.
// What it writes is written without it.
#include <cerrno>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include "platform/zu/log.h"
#include "platform/zu/ng_uci.h"
#include "platform/zu/ng_uci_internal.h"

constexpr int STEP_MS = 5;

static int gWaited_ms; // in this callback

void ng_uci_reset_lock_wait()
{
    gWaited_ms = 0;
}

/// False when the name now belongs to another file than the one that is open.
static bool is_named(int fd, const char *path)
{
    struct stat open_file, named;
    return fstat(fd, &open_file) == 0 && stat(path, &named) == 0 &&
           open_file.st_ino == named.st_ino && open_file.st_dev == named.st_dev;
}

bool ng_uci_open_locked(const std::string &path, int flags, int kind, ng_uci_descriptor *file)
{
    for (;;) {
        ng_uci_descriptor opened(open(path.c_str(), flags | O_CLOEXEC | O_NONBLOCK, 0600));
        if (opened < 0)
            return true;
        if (flock(opened, kind | LOCK_NB) == 0 && is_named(opened, path.c_str())) {
            *file = std::move(opened);
            return true;
        }
        if (gWaited_ms >= NG_UCI_LOCK_WAIT_MS) {
            log_error("%s is locked by another process", path.c_str());
            return false;
        }
        const timespec step{0, STEP_MS * 1000000L};
        (void)nanosleep(&step, nullptr);
        gWaited_ms += STEP_MS;
    }
}

ng_uci_read_locks::ng_uci_read_locks(const uci_context *ctx, const char *package)
{
    free_ = add(ng_uci_config_path(package));
    uci_element *e;
    uci_foreach_element(&ctx->delta_path, e) free_ =
        free_ && add(std::string(e->name) + "/" + package);
}

bool ng_uci_read_locks::add(const std::string &path)
{
    return ng_uci_open_locked(path, O_RDONLY, LOCK_SH, &held_.emplace_back(-1));
}

bool ng_uci_is_free(const char *package)
{
    for (const std::string &path :
         {ng_uci_config_path(package), UCI_SAVEDIR "/" + std::string(package)}) {
        ng_uci_descriptor file(-1);
        if (!ng_uci_open_locked(path, O_RDONLY, LOCK_EX, &file))
            return false;
    }
    return true;
}

// A package's files among other processes. Their locks: libuci waits for them without limit, the
// loop may stand still for a moment only, so a lock is tried for that moment and held while libuci
// takes its own; shared locks do not exclude each other, so libuci's, which are for reading, come
// at once. And its delta file, the changes that are saved and not committed: lines are added to it
// all or none, where libuci's own saving leaves a torn line on a full disk and calls it a success.
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/zu/file.h"
#include "platform/zu/log.h"
#include "platform/zu/ng_uci.h"
#include "platform/zu/uci/uci_internal.h"

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

bool ng_uci_open_locked(const std::string &path, int flags, int kind, zu_descriptor *file)
{
    for (;;) {
        zu_descriptor opened(open(path.c_str(), flags | O_CLOEXEC | O_NONBLOCK, 0600));
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

static bool is_empty(int fd)
{
    struct stat info;
    return fd < 0 || (fstat(fd, &info) == 0 && info.st_size == 0);
}

std::optional<std::string> ng_uci_read_locks::whole_text() const
{
    struct stat info;
    const zu_descriptor &config = held_.front();
    if (!std::all_of(held_.begin() + 1, held_.end(), is_empty) || config < 0 ||
        fstat(config, &info) != 0)
        return {};
    std::string text(static_cast<size_t>(info.st_size), '\0');
    if (pread(config, text.data(), text.size(), 0) != static_cast<ssize_t>(text.size()))
        return {};
    return text;
}

bool ng_uci_is_free(const char *package)
{
    for (const std::string &path :
         {ng_uci_config_path(package), UCI_SAVEDIR "/" + std::string(package)}) {
        zu_descriptor file;
        if (!ng_uci_open_locked(path, O_RDONLY, LOCK_EX, &file))
            return false;
    }
    return true;
}

// ---- the delta file

static std::string delta_path(const char *package)
{
    return std::string(UCI_SAVEDIR "/") + package;
}

/// True when the file ends within a line, which another process left: what is added must not
/// continue it.
static bool is_torn(int fd, off_t size)
{
    char last;
    return size > 0 && pread(fd, &last, 1, size - 1) == 1 && last != '\n';
}

static bool add_lines(int fd, const std::string &lines)
{
    struct stat before;
    if (fd < 0 || fstat(fd, &before) != 0)
        return false;
    if (file_write_all(fd, is_torn(fd, before.st_size) ? "\n" + lines : lines) == 0)
        return true;
    const int reason = errno;
    (void)!ftruncate(fd, before.st_size);
    errno = reason;
    return false;
}

int ng_uci_delta_add(const char *package, const std::string &lines)
{
    if (lines.empty())
        return 0;
    (void)mkdir(UCI_SAVEDIR, 0700);
    zu_descriptor file;
    if (!ng_uci_open_locked(delta_path(package), O_RDWR | O_CREAT | O_APPEND | O_NOFOLLOW, LOCK_EX,
                            &file))
        return -1;
    if (add_lines(file, lines))
        return 0;
    log_error("Failed to save changes of %s: %s", package, strerror(errno));
    return -1;
}

int ng_uci_delta_clear(const char *package)
{
    zu_descriptor file;
    if (!ng_uci_open_locked(delta_path(package), O_RDWR | O_NOFOLLOW, LOCK_EX, &file))
        return -1;
    if (file < 0 || ftruncate(file, 0) == 0)
        return 0;
    log_error("Failed to drop changes of %s: %s", package, strerror(errno));
    return -1;
}

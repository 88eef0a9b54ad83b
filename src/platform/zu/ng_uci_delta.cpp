// The delta file of a package: changes that are saved and not committed. Lines are added to it all
// or none; libuci's own saving leaves a torn line on a full disk and calls it a success.
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/zu/log.h"
#include "platform/zu/ng_uci_internal.h"

static std::string delta_path(const char *package)
{
    return std::string(UCI_SAVEDIR "/") + package;
}

/// True when the file ends within a line, which somebody else left; ours must not continue it.
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
    if (ng_uci_write_all(fd, is_torn(fd, before.st_size) ? "\n" + lines : lines))
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
    ng_uci_descriptor file(-1);
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
    ng_uci_descriptor file(-1);
    if (!ng_uci_open_locked(delta_path(package), O_RDWR | O_NOFOLLOW, LOCK_EX, &file))
        return -1;
    if (file < 0 || ftruncate(file, 0) == 0)
        return 0;
    log_error("Failed to drop changes of %s: %s", package, strerror(errno));
    return -1;
}

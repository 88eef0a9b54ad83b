// Commits: the whole new file is written beside the old one, checked, and renamed over it, so that
// neither a full disk nor the end of the process leaves anything but the old file or the new one.
//
// libuci's own commit goes by way of the delta file and checks neither of the two: on a full disk
// it replaces the configuration by what happened to fit. It is locked out here by the same locks.
#include "platform/zu/log.h"
#include "platform/zu/ng_uci.h"
#include "platform/zu/ng_uci_internal.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

constexpr int ATTEMPTS = 5; // against another process that commits at the same time

/// One of the files that make up what is configured, as it was when it was read.
struct source_file {
    std::string path;
    struct stat before;

    explicit source_file(std::string name) : path(std::move(name)), before{}
    {
        (void)stat(path.c_str(), &before);
    }
    bool same(const struct stat &now) const
    {
        return now.st_ino == before.st_ino && now.st_dev == before.st_dev &&
               now.st_size == before.st_size && now.st_mtim.tv_sec == before.st_mtim.tv_sec &&
               now.st_mtim.tv_nsec == before.st_mtim.tv_nsec;
    }
    /// Takes the lock at once and makes sure that nothing has changed.
    bool lock(int fd) const
    {
        struct stat now {};
        if (fd < 0)
            return before.st_ino == 0;
        return flock(fd, LOCK_EX | LOCK_NB) == 0 && fstat(fd, &now) == 0 && same(now) &&
               stat(path.c_str(), &now) == 0 && same(now);
    }
};

static bool export_text(uci_context *ctx, uci_package *package, std::string &out)
{
    char *text = nullptr;
    size_t size = 0;
    FILE *stream = open_memstream(&text, &size);
    if (!stream)
        return false;
    bool good = uci_export(ctx, stream, package, false) == UCI_OK;
    good = fclose(stream) == 0 && good;
    const uci_text owned(text);
    if (good && text)
        out.assign(text, size);
    return good && text;
}

static bool file_holds(int fd, const std::string &text)
{
    std::string content(text.size() + 1, '\0'); // room for one byte too many
    return pread(fd, content.data(), content.size(), 0) == static_cast<ssize_t>(text.size()) &&
           content.compare(0, text.size(), text) == 0;
}

bool ng_uci_write_all(int fd, const std::string &text)
{
    for (size_t done = 0; done < text.size();) {
        const ssize_t put = write(fd, text.data() + done, text.size() - done);
        if (put < 0 && errno != EINTR)
            return false;
        done += put > 0 ? static_cast<size_t>(put) : 0;
    }
    return true;
}

/// "/etc/config/.NAME.new": libuci takes no notice of names with a point.
static std::string new_name(const std::string &path)
{
    const size_t name_at = path.rfind('/') + 1;
    return path.substr(0, name_at) + "." + path.substr(name_at) + ".new";
}

static int replace_file(const source_file &config, const std::string &text)
{
    const std::string name = new_name(config.path);
    (void)unlink(name.c_str()); // from a commit that was cut off
    const ng_uci_descriptor file(
        open(name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    const bool written = file >= 0 && fchmod(file, config.before.st_mode & 07777) == 0 &&
                         ng_uci_write_all(file, text) && fsync(file) == 0 && file_holds(file, text);
    if (written && rename(name.c_str(), config.path.c_str()) == 0)
        return 0;
    log_error("Failed to commit %s: %s", config.path.c_str(), strerror(errno));
    (void)unlink(name.c_str());
    return -1;
}

enum attempt { DONE, FAILED, AGAIN };

/// With the locks held: the file, if it would become another one, and then the delta file, whose
/// changes it holds now.
static attempt write_locked(const source_file &config, const std::string &text, int config_fd,
                            int delta_fd, bool *changed)
{
    if (!file_holds(config_fd, text)) {
        if (replace_file(config, text) != 0)
            return FAILED;
        *changed = true;
    }
    if (delta_fd >= 0 && ftruncate(delta_fd, 0) != 0)
        log_warning("Failed to empty the delta file of %s: %s", config.path.c_str(),
                    strerror(errno));
    return DONE;
}

static attempt write_package(const ng_uci_changes &changes, uci_package *from, bool *changed)
{
    const char *name = changes.package.c_str();
    const source_file delta(std::string(UCI_SAVEDIR "/") + name);
    char path[PATH_MAX];
    const uci_context_handle ctx(uci_alloc_context());
    source_file config(std::string(UCI_CONFDIR "/") + name);
    std::string differences;
    if (!from && delta.before.st_size == 0 && config.before.st_ino != 0)
        return DONE;
    uci_package *package = ng_uci_load(ctx.get(), name);
    if (!package)
        return FAILED;
    if (from && ng_uci_carry_over(changes, from, ctx.get(), package, &differences) != UCI_OK) {
        log_error("Failed to commit %s: %s", name, ng_uci_error(ctx.get()).get());
        return FAILED;
    }
    if (differences.empty() && delta.before.st_size == 0)
        return DONE;
    std::string text;
    if (!realpath(package->path, path) || !export_text(ctx.get(), package, text)) {
        log_error("Failed to commit %s: %s", name, strerror(errno));
        return FAILED;
    }
    config.path = path; // behind a symbolic link: the link stays
    const ng_uci_descriptor config_fd(open(path, O_RDWR | O_CLOEXEC));
    const ng_uci_descriptor delta_fd(open(delta.path.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW));
    if (!config.lock(config_fd) || !delta.lock(delta_fd))
        return AGAIN;
    return write_locked(config, text, config_fd, delta_fd, changed);
}

int ng_uci_write_package(const ng_uci_changes &changes, uci_package *from, bool *changed)
{
    for (int i = 0; i < ATTEMPTS; i++) {
        if (!ng_uci_is_free(changes.package.c_str()))
            return -1;
        const attempt result = write_package(changes, from, changed);
        if (result != AGAIN)
            return result == DONE ? 0 : -1;
    }
    log_error("Failed to commit %s: other processes keep changing it", changes.package.c_str());
    return -1;
}

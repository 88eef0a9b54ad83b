// Commits, of one package or of several as one: all new files are written beside the old ones,
// checked and synced, and only then renamed over them, so that neither a full disk nor the end of
// the process leaves anything but all old files or all new ones (undo.cpp).
//
// libuci's own commit goes by way of the delta file and checks neither of the two: on a full disk
// it replaces the configuration by what happened to fit. It is locked out here by the same locks.
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/zu/file.h"
#include "platform/zu/log.h"
#include "platform/zu/ng_uci.h"
#include "platform/zu/uci/uci_internal.h"

constexpr int ATTEMPTS = 5; // against another process that commits at the same time

/// One of the files that make up what is configured, as it was when it was read.
struct source_file {
    std::string path;
    struct stat before;

    explicit source_file(std::string name) : path(std::move(name)), before{}
    {
        (void)stat(path.c_str(), &before);
    }
    bool exists() const { return before.st_ino != 0; }
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
            return !exists();
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
    const zu_text owned(text);
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

/// A package's part of a commit: its new file, if it gets one, ready to be put in place, and the
/// locks on the files that it was made from.
struct commit_part {
    std::string path; ///< of its file, behind symbolic links; the links stay
    zu_descriptor config, delta, fresh;
};

enum attempt { DONE, FAILED, AGAIN };

static attempt failed_to_commit(const std::string &what, const char *reason)
{
    log_error("Failed to commit %s: %s", what.c_str(), reason);
    return FAILED;
}

/// Writes the new file beside the old one; not yet synced.
static attempt write_new(commit_part &part, mode_t mode, const std::string &text)
{
    const std::string name = ng_uci_new_name(part.path);
    (void)unlink(name.c_str()); // from a commit that was cut off
    part.fresh =
        zu_descriptor(open(name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (part.fresh >= 0 && fchmod(part.fresh, mode & 07777) == 0 &&
        file_write_all(part.fresh, text) == 0 && file_holds(part.fresh, text))
        return DONE;
    return failed_to_commit(part.path, strerror(errno));
}

/// Locks the files and writes what `package` has become, unless the file holds that already.
static attempt prepare_locked(source_file &config, const source_file &delta, uci_context *ctx,
                              uci_package *package, commit_part &part)
{
    char path[PATH_MAX];
    std::string text;
    if (!realpath(config.path.c_str(), path) || !export_text(ctx, package, text))
        return failed_to_commit(config.path, strerror(errno));
    config.path = part.path = path;
    part.config = zu_descriptor(open(path, O_RDWR | O_CLOEXEC));
    part.delta = zu_descriptor(open(delta.path.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW));
    if (!config.lock(part.config) || !delta.lock(part.delta))
        return AGAIN;
    return file_holds(part.config, text) ? DONE : write_new(part, config.before.st_mode, text);
}

/// True when the file is, byte for byte, the one that the package in memory was read from: then
/// nobody else's change has to be taken in, and the file need not be read as a package again.
static bool is_as_read(const source_file &config, const char *package)
{
    const std::string *text = ng_uci_noted_file(package);
    const zu_descriptor file(open(config.path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    return text && file >= 0 && file_holds(file, *text);
}

static attempt try_to_prepare(const ng_uci_commit_item &item, commit_part &part)
{
    const char *name = item.changes.package.c_str();
    const source_file delta(std::string(UCI_SAVEDIR "/") + name);
    source_file config(ng_uci_config_path(name));
    const bool saved = delta.before.st_size != 0;
    if (!item.from && !saved && config.exists())
        return DONE;
    if (item.from && !saved && is_as_read(config, name)) {
        if (!item.changes.came_to_something(item.from))
            return DONE;
        return prepare_locked(config, delta, item.from->ctx, item.from, part);
    }
    const uci_context_handle ctx(uci_alloc_context());
    std::string differences;
    if (ng_uci_is_absent(name))
        return DONE;
    uci_package *package = ng_uci_load(ctx.get(), name);
    if (!package)
        return FAILED;
    if (item.from && ng_uci_carry_over(item.changes, item.from, ctx.get(), package, &differences))
        return failed_to_commit(name, ng_uci_error(ctx.get()).get());
    if (differences.empty() && !saved)
        return DONE;
    return prepare_locked(config, delta, ctx.get(), package, part);
}

static bool prepare(const ng_uci_commit_item &item, commit_part &part)
{
    const char *name = item.changes.package.c_str();
    for (int i = 0; i < ATTEMPTS; i++) {
        if (!ng_uci_is_free(name))
            return false;
        part = commit_part{};
        const attempt result = try_to_prepare(item, part);
        if (result != AGAIN)
            return result == DONE;
    }
    log_error("Failed to commit %s: other processes keep changing it", name);
    return false;
}

// ---- all parts as one

/// The first phase; a failure (logged) leaves new files behind.
static bool prepare_all(std::span<const ng_uci_commit_item> items, std::vector<commit_part> &parts)
{
    for (const ng_uci_commit_item &item : items)
        if (!prepare(item, parts.emplace_back()))
            return false;
    for (const commit_part &part : parts) // all written before the first is waited for
        if (part.fresh >= 0 && fsync(part.fresh) != 0)
            return failed_to_commit(part.path, strerror(errno)) == DONE;
    return true;
}

static bool put_in_place(const std::vector<std::string> &paths)
{
    for (const std::string &path : paths)
        if (rename(ng_uci_new_name(path).c_str(), path.c_str()) != 0)
            return failed_to_commit(path, strerror(errno)) == DONE;
    return true;
}

/// The second phase. One file is replaced in one step anyway.
static bool replace_all(const std::vector<std::string> &paths)
{
    if (paths.size() < 2)
        return put_in_place(paths);
    if (ng_uci_undo_begin(paths) != 0)
        return false;
    if (put_in_place(paths) && ng_uci_undo_end(paths) == 0)
        return true;
    (void)ng_uci_undo(); // logged there, and tried again
    return false;
}

/// Their changes are in the configuration now.
static void empty_deltas(const std::vector<commit_part> &parts)
{
    for (const commit_part &part : parts)
        if (part.delta >= 0 && ftruncate(part.delta, 0) != 0)
            log_warning("Failed to empty the delta file of %s: %s", part.path.c_str(),
                        strerror(errno));
}

int ng_uci_write_packages(std::span<const ng_uci_commit_item> items, bool *changed)
{
    std::vector<commit_part> parts;
    std::vector<std::string> paths;
    bool good = ng_uci_undo() == 0 && prepare_all(items, parts);
    for (const commit_part &part : parts)
        if (part.fresh >= 0)
            paths.push_back(part.path);
    good = good && replace_all(paths);
    if (good)
        empty_deltas(parts);
    else
        for (const std::string &path : paths)
            (void)unlink(ng_uci_new_name(path).c_str());
    *changed = good && !paths.empty();
    return good ? 0 : -1;
}

int ng_uci_make_package(const char *name)
{
    const std::string path = ng_uci_config_path(name);
    const zu_descriptor file(
        open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, UCI_FILEMODE));
    if (file < 0 && errno != EEXIST) {
        log_error("Failed to make %s: %s", path.c_str(), strerror(errno));
        return -1;
    }
    if (file >= 0)
        log_notice("There was no package %s, made an empty one", name);
    return 0;
}

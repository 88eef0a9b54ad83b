// Files: loading a package with its deltas, and committing it without ever losing the old file.
//
// Locks (flock): shared to read; exclusive to append to a delta file, and on the config file for
// the whole of a commit. A commit takes the config file's lock first, then the delta file's.
#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "uci_internal.h"

using namespace libuci;

/// False when the name now belongs to another file than the one that is open.
static bool still_named(int fd, const char *path)
{
    struct stat open_file, named;
    return fstat(fd, &open_file) == 0 && stat(path, &named) == 0 &&
           open_file.st_ino == named.st_ino && open_file.st_dev == named.st_dev;
}

stream_handle libuci::open_locked(const char *path, int flags, bool exclusive, mode_t mode)
{
    for (;;) {
        const int fd = open(path, flags | O_CLOEXEC, mode);
        if (fd < 0)
            return nullptr;
        int locked;
        do
            locked = flock(fd, exclusive ? LOCK_EX : LOCK_SH);
        while (locked != 0 && errno == EINTR);
        // Whoever held the lock may have put a new file in the place of this one.
        if (locked == 0 && still_named(fd, path)) {
            const bool reads = (flags & O_ACCMODE) != O_WRONLY;
            return stream_handle(fdopen(fd, reads ? (flags & O_RDWR ? "r+" : "r") : "a"));
        }
        close(fd);
        if (locked != 0)
            return nullptr;
    }
}

static bool is_regular(const char *path)
{
    struct stat info;
    return stat(path, &info) == 0 && S_ISREG(info.st_mode);
}

/// Settles which file a package of that name is; the override directory's goes first.
static void set_origin(uci_context *ctx, uci_package *p, const char *name)
{
    if (is_path(name)) {
        p->has_delta = false;
        set_text(p->path, name);
        return;
    }
    const std::string override_file =
        ctx->conf2dir && *ctx->conf2dir ? std::string(ctx->conf2dir) + "/" + name : "";
    p->uses_conf2 = !override_file.empty() && is_regular(override_file.c_str());
    set_text(p->path, p->uses_conf2 ? override_file.c_str()
                                    : (std::string(ctx->confdir) + "/" + name).c_str());
}

struct package_deleter {
    void operator()(uci_package *p) const { package_free(p); }
};
using package_handle = std::unique_ptr<uci_package, package_deleter>;

/// A package without its deltas, from the open file that `origin` says it is.
static package_handle read_config(uci_context *ctx, FILE *stream, const uci_package *origin)
{
    package_handle p(package_new(ctx, origin->e.name));
    set_text(p->path, origin->path);
    p->has_delta = origin->has_delta;
    p->uses_conf2 = origin->uses_conf2;
    return read_statements(ctx, stream, p.get()) == UCI_OK ? std::move(p) : nullptr;
}

/// Applies the package's delta files, the save file as it is open in `save_file`, if it is.
static int apply_deltas(uci_context *ctx, uci_package *p, FILE *save_file)
{
    int applied = 0;
    uci_element *e;
    uci_foreach_element(&ctx->delta_path, e)
    {
        if (save_file && !strcmp(e->name, ctx->savedir)) {
            applied += delta_apply_stream(p, save_file);
            continue;
        }
        const stream_handle file = open_locked(delta_file(e->name, p).c_str(), O_RDONLY, false);
        if (file)
            applied += delta_apply_stream(p, file.get());
    }
    return applied;
}

int uci_load(uci_context *ctx, const char *name, uci_package **package)
{
    const char *base = name ? package_base_name(name) : nullptr;
    if (!name)
        return result(ctx, UCI_ERR_INVAL);
    if (strpbrk(name, "/.") &&
        !is_path(name)) // such a file is no package, whether or not it is there
        return result(ctx, UCI_ERR_NOTFOUND);
    if (!valid_package_name(base))
        return result(ctx, UCI_ERR_INVAL);
    if (uci_lookup_package(ctx, base))
        return result(ctx, UCI_ERR_DUPLICATE);

    const package_handle origin(package_new(ctx, base));
    set_origin(ctx, origin.get(), name);
    const stream_handle file = open_locked(origin->path, O_RDONLY, false);
    if (!file || !is_regular(origin->path))
        return result(ctx,
                      file || errno == ENOENT || errno == ENOTDIR ? UCI_ERR_NOTFOUND : UCI_ERR_IO);
    package_handle p = read_config(ctx, file.get(), origin.get());
    if (!p)
        return ctx->err;
    if (p->has_delta)
        (void)apply_deltas(ctx, p.get(), nullptr);
    list_insert(ctx->root.prev, &p->e.list);
    uci_package *loaded = p.release();
    if (package)
        *package = loaded;
    return result(ctx, UCI_OK);
}

int uci_unload(uci_context *ctx, uci_package *p)
{
    package_free(p);
    return result(ctx, UCI_OK);
}

// ---- writing

/// Writes to `stream` and closes it; 0 only when every byte is known to be on the disk.
static int write_and_close(uci_context *ctx, uci_package *p, FILE *stream)
{
    bool good = uci_export(ctx, stream, p, false) == UCI_OK && fflush(stream) == 0 &&
                !ferror(stream) && fsync(fileno(stream)) == 0;
    good = fclose(stream) == 0 && good;
    return good ? UCI_OK : UCI_ERR_IO;
}

/// Writes a temporary file beside `target` and renames it over it, once it is whole.
static int replace_file(uci_context *ctx, uci_package *p, const std::string &target, mode_t mode)
{
    const size_t name_at = target.find_last_of('/') + 1;
    std::string temporary =
        target.substr(0, name_at) + "." + target.substr(name_at) + ".uci-XXXXXX";
    const int fd = mkostemp(temporary.data(), O_CLOEXEC);
    if (fd < 0)
        return UCI_ERR_IO;
    FILE *stream = fdopen(fd, "w");
    int err = fchmod(fd, mode) == 0 ? UCI_OK : UCI_ERR_IO;
    if (write_and_close(ctx, p, stream) != UCI_OK ||
        (!err && rename(temporary.c_str(), target.c_str()) != 0))
        err = UCI_ERR_IO;
    if (err)
        (void)unlink(temporary.c_str());
    return err;
}

/// Writes the package over its file, or over the file that its file is a symbolic link to.
static int write_locked(uci_context *ctx, uci_package *p)
{
    char target[PATH_MAX];
    struct stat info;
    if (!realpath(p->path, target) || stat(target, &info) != 0)
        return UCI_ERR_IO;
    return replace_file(ctx, p, target, info.st_mode & 07777);
}

int libuci::write_config(uci_context *ctx, uci_package *p)
{
    const stream_handle lock = open_locked(p->path, O_RDWR | O_CREAT, true, UCI_FILEMODE);
    return result(ctx, lock ? write_locked(ctx, p) : UCI_ERR_IO);
}

// ---- committing

/// Applies all deltas to `p`, writes it if that changed anything (or `always`), and then empties
/// the save file. Called with the config file's lock held.
static int merge_and_write(uci_context *ctx, uci_package *p, bool always)
{
    const stream_handle save_file = open_locked(delta_file(ctx->savedir, p).c_str(), O_RDWR, true);
    const int applied = apply_deltas(ctx, p, save_file.get());
    if (applied == 0 && !always)
        return UCI_OK;
    const int err = write_locked(ctx, p);
    if (err)
        return err;
    delta_free_all(&p->saved_delta);
    return save_file && ftruncate(fileno(save_file.get()), 0) != 0 ? UCI_ERR_IO : UCI_OK;
}

/// The package made anew from the files takes the place of the caller's.
static int commit_from_files(uci_context *ctx, uci_package **package)
{
    const stream_handle config = open_locked((*package)->path, O_RDWR, true);
    if (!config)
        return result(ctx, errno == ENOENT ? UCI_ERR_NOTFOUND : UCI_ERR_IO);
    package_handle fresh = read_config(ctx, config.get(), *package);
    if (!fresh)
        return ctx->err;
    const int err = merge_and_write(ctx, fresh.get(), false);
    if (err)
        return result(ctx, err);
    list_insert(&(*package)->e.list, &fresh->e.list);
    package_free(*package);
    *package = fresh.release();
    return result(ctx, UCI_OK);
}

/// The package in memory goes over the file: always when it was imported, else with new deltas.
static int commit_from_memory(uci_context *ctx, uci_package *p)
{
    const bool imported = !p->path;
    if (imported)
        set_origin(ctx, p, p->e.name);
    const stream_handle config =
        open_locked(p->path, O_RDWR | (imported ? O_CREAT : 0), true, UCI_FILEMODE);
    return result(ctx, config ? merge_and_write(ctx, p, imported) : UCI_ERR_IO);
}

int uci_commit(uci_context *ctx, uci_package **package, bool overwrite)
{
    if (!(*package)->has_delta)
        return write_config(ctx, *package);
    const int err = uci_save(ctx, *package);
    if (err)
        return err;
    return overwrite ? commit_from_memory(ctx, *package) : commit_from_files(ctx, package);
}

// ---- listing

static void add_configs(const char *dir, std::vector<std::string> &names)
{
    DIR *handle = dir && *dir ? opendir(dir) : nullptr;
    if (!handle)
        return;
    while (const dirent *entry = readdir(handle))
        if (!strchr(entry->d_name, '.') &&
            is_regular((std::string(dir) + "/" + entry->d_name).c_str()))
            names.emplace_back(entry->d_name);
    closedir(handle);
}

int uci_list_configs(uci_context *ctx, char ***list)
{
    std::vector<std::string> names;
    add_configs(ctx->confdir, names);
    add_configs(ctx->conf2dir, names);
    std::sort(names.begin(), names.end());
    names.erase(std::unique(names.begin(), names.end()), names.end());

    size_t size = (names.size() + 1) * sizeof(char *);
    for (const std::string &name : names)
        size += name.size() + 1;
    char **block = static_cast<char **>(malloc(size));
    if (!block)
        return result(ctx, UCI_ERR_MEM);
    char *text = reinterpret_cast<char *>(block + names.size() + 1);
    for (size_t i = 0; i < names.size(); i++) {
        block[i] = text;
        text = stpcpy(text, names[i].c_str()) + 1;
    }
    block[names.size()] = nullptr;
    *list = block;
    return result(ctx, UCI_OK);
}

// Commits that cannot lose a configuration file.
//
// libuci writes a temporary file and renames it over the old one, but without checking that all of
// it was written: on a full disk the old file is replaced by an empty or a short one, and the
// commit succeeds. So the old file is kept under a second, hidden name until the new one has been
// compared with what it should hold. That takes a directory entry and no room for data, and putting
// the old file back takes nothing.
#include "platform/zu/log.h"
#include "platform/zu/ng_uci_internal.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

struct stream_closer {
    void operator()(FILE *stream) const { fclose(stream); }
};
using stream_handle = std::unique_ptr<FILE, stream_closer>;

/// "/etc/config/.NAME.old": libuci takes no notice of names with a point.
static std::string kept_name(const std::string &path)
{
    const size_t name_at = path.rfind('/') + 1;
    return path.substr(0, name_at) + "." + path.substr(name_at) + ".old";
}

static int keep_file(const std::string &path, const std::string &kept)
{
    (void)unlink(kept.c_str()); // from a commit that a power cut ended
    if (link(path.c_str(), kept.c_str()) == 0)
        return UCI_OK;
    log_error("Failed to keep a copy of %s: %s", path.c_str(), strerror(errno));
    return UCI_ERR_IO;
}

static bool same_file(const std::string &a, const std::string &b)
{
    struct stat first, second;
    return stat(a.c_str(), &first) == 0 && stat(b.c_str(), &second) == 0 &&
           first.st_ino == second.st_ino && first.st_dev == second.st_dev;
}

static bool file_holds(const std::string &path, const char *text, size_t size)
{
    const stream_handle file(fopen(path.c_str(), "re"));
    std::string content(size + 1, '\0'); // room for one byte too many
    return file && fread(content.data(), 1, content.size(), file.get()) == size &&
           memcmp(content.data(), text, size) == 0;
}

/// True when the file is the whole written form of the package.
static bool is_written(uci_context *ctx, uci_package *package, const std::string &path)
{
    char *text = nullptr;
    size_t size = 0;
    stream_handle stream(open_memstream(&text, &size));
    if (!stream)
        return false;
    const bool exported = uci_export(ctx, stream.get(), package, false) == UCI_OK;
    stream.reset();
    const uci_text owned(text);
    return exported && text && file_holds(path, text, size);
}

int ng_uci_commit_safely(uci_context *ctx, uci_package **package)
{
    char path[PATH_MAX];
    if (!realpath((*package)->path, path)) {
        log_error("Failed to find %s: %s", (*package)->path, strerror(errno));
        return UCI_ERR_IO;
    }
    const std::string kept = kept_name(path);
    if (keep_file(path, kept) != UCI_OK)
        return UCI_ERR_IO;
    int err = uci_commit(ctx, package, false);
    if (err) {
        log_error("Failed to commit %s: %s", path, ng_uci_error(ctx).get());
    } else if (!same_file(path, kept) && !is_written(ctx, *package, path)) {
        log_error("Failed to commit %s: the file was not written whole", path);
        err = UCI_ERR_IO;
    }
    if (err && rename(kept.c_str(), path) != 0)
        log_error("Failed to put %s back: %s", path, strerror(errno));
    else
        (void)unlink(kept.c_str());
    return err;
}

// Several configuration files replaced as one. Before the first is renamed, each old file gets a
// second name beside it and a journal names them all; when the journal goes, the change is made.
// Whoever finds a journal, this process after a failure or the next one after a crash, puts the old
// files back.
//
// The journal is a symbolic link whose text is the paths: it is there whole or not at all. All this
// happens to names only, which file systems keep in order, so that nothing is to be synced for it.
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <string_view>
#include <unistd.h>

extern "C" {
#include <libubox/uloop.h>
}

#include "platform/zu/log.h"
#include "platform/zu/ng_uci.h"
#include "platform/zu/shell.h"
#include "platform/zu/uci/uci_internal.h"

constexpr char JOURNAL[] = UCI_CONFDIR "/.commit";
constexpr char OLD[] = ".undo";
constexpr char NEW[] = ".new";
constexpr int AGAIN_MS = 1000;

/// "/etc/config/.NAME.SUFFIX": libuci takes no notice of names with a point.
static std::string beside(const std::string &path, const char *suffix)
{
    const size_t name_at = path.rfind('/') + 1;
    return path.substr(0, name_at) + "." + path.substr(name_at) + suffix;
}

std::string ng_uci_new_name(const std::string &path)
{
    return beside(path, NEW);
}

static void forget_old(const std::vector<std::string> &paths)
{
    for (const std::string &path : paths)
        (void)unlink(beside(path, OLD).c_str());
}

int ng_uci_undo_begin(const std::vector<std::string> &paths)
{
    std::string text;
    bool good = true;
    forget_old(paths); // from a commit that was cut off
    for (const std::string &path : paths) {
        good = good && link(path.c_str(), beside(path, OLD).c_str()) == 0;
        text += path + "\n";
    }
    if (good && symlink(text.c_str(), JOURNAL) == 0)
        return 0;
    log_error("Failed to prepare the way back of a commit: %s", strerror(errno));
    forget_old(paths);
    return -1;
}

static int remove_journal()
{
    if (unlink(JOURNAL) == 0)
        return 0;
    log_error("Failed to remove %s: %s", JOURNAL, strerror(errno));
    return -1;
}

int ng_uci_undo_end(const std::vector<std::string> &paths)
{
    if (remove_journal() != 0)
        return -1;
    forget_old(paths);
    return 0;
}

static bool put_back(const std::string &path)
{
    // Not there: put back before the last attempt ended.
    if (rename(beside(path, OLD).c_str(), path.c_str()) != 0 && errno != ENOENT) {
        log_error("Failed to put %s back: %s", path.c_str(), strerror(errno));
        return false;
    }
    (void)unlink(beside(path, OLD).c_str()); // of two names of one file, renaming keeps both
    (void)unlink(beside(path, NEW).c_str());
    return true;
}

static void put_back_again_cb(uloop_timeout *)
{
    const zu_log_repetition quiet;
    if (ng_uci_undo() == 0)
        shell_run_ignored(RELOAD_SERVICES); // others may have read half a change
}

static int put_all_back(std::string_view paths)
{
    bool good = true;
    for (size_t end; (end = paths.find('\n')) != paths.npos; paths.remove_prefix(end + 1))
        good = put_back(std::string(paths.substr(0, end))) && good;
    if (good && remove_journal() == 0)
        return 0;
    static uloop_timeout again;
    again.cb = put_back_again_cb;
    uloop_timeout_set(&again, AGAIN_MS);
    return -1;
}

int ng_uci_undo()
{
    char text[PATH_MAX];
    const ssize_t size = readlink(JOURNAL, text, sizeof text);
    return size < 0 ? 0 : put_all_back({text, static_cast<size_t>(size)});
}

// ---- at start

static bool ends_with(std::string_view text, std::string_view end)
{
    return text.size() > end.size() && text.substr(text.size() - end.size()) == end;
}

/// What a process leaves that ends while it commits; nothing in it is wanted.
static void remove_leftovers()
{
    DIR *dir = opendir(UCI_CONFDIR);
    if (!dir)
        return;
    while (const dirent *entry = readdir(dir))
        if (entry->d_name[0] == '.' &&
            (ends_with(entry->d_name, OLD) || ends_with(entry->d_name, NEW)))
            (void)unlinkat(dirfd(dir), entry->d_name, 0);
    closedir(dir);
}

bool ng_uci_recover()
{
    const bool cut_off = faccessat(AT_FDCWD, JOURNAL, F_OK, AT_SYMLINK_NOFOLLOW) == 0;
    if (cut_off)
        log_notice("A commit was cut off, putting the configuration back");
    if (ng_uci_undo() != 0)
        return false;
    remove_leftovers();
    return cut_off;
}

// Batch files: writing one so that it counts only when it is whole, and applying one through the
// change context. Their text is made and read in batch_text.cpp.
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <new>
#include <set>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/zu/log.h"
#include "platform/zu/ng_uci_batch.h"
#include "platform/zu/uci/batch_text.h"
#include "platform/zu/uci/uci_internal.h"

struct ng_uci_batch {
    FILE *file;
    std::string path;
    bool failed;
};

// ---- writing

ng_uci_batch *ng_uci_batch_open(const char *path)
{
    const int fd = open(path, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (fd < 0) {
        log_error("Failed to create %s: %s", path, strerror(errno));
        return nullptr;
    }
    FILE *file = fdopen(fd, "w");
    ng_uci_batch *batch = file ? new (std::nothrow) ng_uci_batch{file, path, false} : nullptr;
    if (batch)
        return batch;
    log_error("Out of memory for %s", path);
    if (file)
        fclose(file);
    else
        close(fd);
    (void)unlink(path);
    return nullptr;
}

static void put_command(ng_uci_batch *batch, const ng_uci_batch_command &command)
{
    if (!batch)
        return;
    std::string line;
    if (!ng_uci_batch_format(command, line)) {
        // Its value stays out of the log: it may be a key.
        log_error("'%s' or its value cannot be written to %s", command.name.c_str(),
                  batch->path.c_str());
        batch->failed = true;
        return;
    }
    if (fwrite(line.data(), 1, line.size(), batch->file) != line.size())
        batch->failed = true; // close reports it
}

void ng_uci_batch_set_fmt_string(ng_uci_batch *batch, const char *value, const char *name_format,
                                 ...)
{
    va_list args;
    va_start(args, name_format);
    put_command(batch, {uci_set_string, ng_uci_format(name_format, args), value});
    va_end(args);
}

void ng_uci_batch_set_fmt_int(ng_uci_batch *batch, int value, const char *name_format, ...)
{
    va_list args;
    va_start(args, name_format);
    put_command(batch, {uci_set_string, ng_uci_format(name_format, args), std::to_string(value)});
    va_end(args);
}

void ng_uci_batch_fmt_list(ng_uci_batch *batch, const char *value, const char *name_format, ...)
{
    va_list args;
    va_start(args, name_format);
    const std::string name = ng_uci_format(name_format, args);
    va_end(args);
    // Removed first for whoever applies the file by hand: here adding does so anyway.
    put_command(batch, {ng_uci_del_list, name, value});
    put_command(batch, {ng_uci_add_list, name, value});
}

void ng_uci_batch_del_fmt(ng_uci_batch *batch, const char *name_format, ...)
{
    va_list args;
    va_start(args, name_format);
    put_command(batch, {ng_uci_delete_option, ng_uci_format(name_format, args), ""});
    va_end(args);
}

int ng_uci_batch_close(ng_uci_batch *batch)
{
    if (!batch)
        return -1;
    const std::unique_ptr<ng_uci_batch> owned(batch);
    // Not synced: a batch file lies in memory, which a power cut empties anyway.
    bool good = !batch->failed && fflush(batch->file) == 0 && !ferror(batch->file);
    const int reason = errno;
    good = fclose(batch->file) == 0 && good;
    if (good)
        return 0;
    if (!batch->failed)
        log_error("Failed to write %s: %s", batch->path.c_str(), strerror(reason));
    else
        log_error("Dropping %s: not all of it could be written", batch->path.c_str());
    (void)unlink(batch->path.c_str());
    return -1;
}

// ---- applying

/// True for a file that only this process's user can have written, of a size that is taken.
static bool is_trusted(const struct stat &info)
{
    return S_ISREG(info.st_mode) && info.st_uid == geteuid() &&
           (info.st_mode & (S_IWGRP | S_IWOTH)) == 0 &&
           info.st_size <= static_cast<off_t>(NG_UCI_BATCH_MAX);
}

/// The whole file; false (logged) when it cannot be read or is not to be trusted.
static bool read_batch(const char *path, std::string &text)
{
    const int fd = open(path, O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK);
    const zu_file file(fd >= 0 ? fdopen(fd, "r") : nullptr);
    struct stat info;
    if (!file || fstat(fd, &info) != 0) {
        log_error("Failed to open %s: %s", path, strerror(errno));
        return false;
    }
    if (!is_trusted(info)) {
        log_error("Refusing %s: not a plain file of our own, or larger than %zu bytes", path,
                  NG_UCI_BATCH_MAX);
        return false;
    }
    text.resize(static_cast<size_t>(info.st_size));
    if (fread(text.data(), 1, text.size(), file.get()) == text.size())
        return true;
    log_error("Failed to read %s: %s", path, strerror(errno));
    return false;
}

static int commit_packages_of(const std::vector<ng_uci_batch_command> &commands)
{
    std::set<std::string> names;
    for (const ng_uci_batch_command &command : commands)
        names.insert(command.name.substr(0, command.name.find('.')));
    std::vector<const char *> packages;
    packages.reserve(names.size());
    for (const std::string &name : names)
        packages.push_back(name.c_str());
    return ng_uci_commit_all(packages);
}

/// The items that the commands from `first` on add to one list, each removed first as
/// ng_uci_batch_fmt_list() writes it.
static std::vector<std::string> items_added(const std::vector<ng_uci_batch_command> &commands,
                                            size_t first)
{
    std::vector<std::string> items;
    for (size_t i = first; i + 1 < commands.size(); i += 2) {
        const ng_uci_batch_command &removed = commands[i], &added = commands[i + 1];
        if (removed.action != ng_uci_del_list || added.action != ng_uci_add_list ||
            removed.value != added.value || removed.name != commands[first].name ||
            added.name != commands[first].name)
            break;
        items.push_back(added.value);
    }
    return items;
}

/// A change that cannot be made (its section is missing) is logged and left out, as `uci batch`
/// does it; the others are still wanted.
static void apply_commands(const std::vector<ng_uci_batch_command> &commands)
{
    for (size_t at = 0; at < commands.size();) {
        const ng_uci_batch_command &command = commands[at];
        const std::vector<std::string> added = items_added(commands, at);
        if (added.size() > 1) {
            std::vector<std::string> items = ng_uci_items(command.name);
            items.insert(items.end(), added.begin(), added.end());
            (void)ng_uci_put_list(command.name, items);
            at += 2 * added.size();
            continue;
        }
        (void)ng_uci_save_action_ctx(ng_uci_change_context(), command.action, command.value.c_str(),
                                     "%s", command.name.c_str());
        at++;
    }
}

int ng_uci_batch_apply(const char *path, bool commit)
{
    std::string text;
    std::vector<ng_uci_batch_command> commands;
    if (!read_batch(path, text))
        return -1;
    if (const int line = ng_uci_batch_parse(text, commands)) {
        log_error("Line %d of %s is not a command, applying nothing of it", line, path);
        return -1;
    }
    apply_commands(commands);
    return commit ? commit_packages_of(commands) : 0;
}

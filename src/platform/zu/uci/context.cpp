// The change context: one for all that a callback reads and changes, its delta files written once,
// thrown away when the callback ends. What a change is stands in change.cpp, what makes a commit
// safe in commit.cpp.
#include <algorithm>
#include <cstdio>
#include <utility>
#include <vector>

extern "C" {
#include <libubox/uloop.h>
}

#include "platform/zu/log.h"
#include "platform/zu/ng_uci.h"
#include "platform/zu/uci/uci_internal.h"

static constinit uci_context_handle gContext;
static constinit std::vector<ng_uci_changes> gChanges; // that are in memory only

/// A package's file as the change context has read it.
struct file_read {
    std::string package, text;
};
static constinit std::vector<file_read> gFiles;

// ---- the end of the callback

static void end_of_callback_cb(uloop_timeout *)
{
    (void)ng_uci_flush(); // logged there; the changes are gone with the context
    ng_uci_drop_changes();
    ng_uci_reset_lock_wait();
}

/// Due at once: the loop runs it when the callback that made the context has returned.
static uloop_timeout *end_of_callback()
{
    static uloop_timeout timer;
    timer.cb = end_of_callback_cb;
    return &timer;
}

uci_context *ng_uci_change_context()
{
    if (!gContext) {
        gContext.reset(uci_alloc_context());
        if (gContext)
            uloop_timeout_set(end_of_callback(), 0);
    }
    return gContext.get();
}

// ---- what was read

static void forget_file(const std::string &package)
{
    std::erase_if(gFiles, [&](const file_read &file) { return file.package == package; });
}

void ng_uci_note_file(const uci_context *ctx, const std::string &package,
                      const ng_uci_read_locks &locks)
{
    if (!ctx || ctx != gContext.get())
        return;
    forget_file(package);
    if (std::optional<std::string> text = locks.whole_text())
        gFiles.push_back({package, std::move(*text)});
}

const std::string *ng_uci_noted_file(const std::string &package)
{
    for (const file_read &file : gFiles)
        if (file.package == package)
            return &file.text;
    return nullptr;
}

// ---- writing

ng_uci_changes &ng_uci_changes_of(const char *package)
{
    const auto place = std::find_if(gChanges.begin(), gChanges.end(),
                                    [&](const ng_uci_changes &c) { return c.package == package; });
    return place != gChanges.end() ? *place : gChanges.emplace_back(ng_uci_changes{package, {}});
}

/// What is in memory of the package has been written elsewhere; it is read anew when next needed.
static void forget_package(uci_package *package)
{
    const std::string name = package->e.name;
    std::erase_if(gChanges, [&](const ng_uci_changes &c) { return c.package == name; });
    forget_file(name);
    (void)uci_unload(gContext.get(), package);
}

/// Appends what the changes come to to the delta file.
static int save_package(const ng_uci_changes &changes, uci_package *from)
{
    const uci_context_handle ctx(uci_alloc_context());
    uci_package *to = ng_uci_load(ctx.get(), from->e.name);
    std::string delta;
    if (!to)
        return -1;
    if (ng_uci_carry_over(changes, from, ctx.get(), to, &delta) == UCI_OK)
        return ng_uci_delta_add(from->e.name, delta);
    log_error("Failed to save changes of %s: %s", from->e.name, ng_uci_error(ctx.get()).get());
    return -1;
}

int ng_uci_flush()
{
    int result = 0;
    // What cannot be saved stays: the next flush tries again.
    for (const ng_uci_changes &changes : std::vector(gChanges)) {
        uci_package *package = uci_lookup_package(gContext.get(), changes.package.c_str());
        if (package && save_package(changes, package) == 0)
            forget_package(package);
        else
            result = -1;
    }
    return result;
}

void ng_uci_drop_changes()
{
    gChanges.clear();
    gFiles.clear();
    gContext.reset();
}

bool ng_uci_renew_change_context()
{
    // Changes that cannot be written stay with the old context, so that their commit fails as well.
    if (ng_uci_flush() != 0)
        return true;
    end_of_callback_cb(nullptr);
    if (ng_uci_change_context())
        return true;
    log_warning("Failed to create new uci context for tarn_net");
    return false;
}

/// The package, loaded if need be; null with libuci's error in `err` (logged, unless it is that
/// there is no such package).
static uci_package *load_package(uci_context *ctx, const char *name, int *err)
{
    uci_package *package = ctx ? uci_lookup_package(ctx, name) : nullptr;
    *err = UCI_OK;
    if (package)
        return package;
    if (!ctx) {
        log_error("Failed to load %s: out of memory", name);
        *err = UCI_ERR_MEM;
        return nullptr;
    }
    const ng_uci_read_locks locks(ctx, name);
    ng_uci_note_file(ctx, name, locks);
    *err = locks ? uci_load(ctx, name, &package) : UCI_ERR_IO;
    if (locks && *err != UCI_OK && *err != UCI_ERR_NOTFOUND)
        log_error("Failed to load %s: %s", name, ng_uci_error(ctx).get());
    return *err == UCI_OK ? package : nullptr;
}

uci_package *ng_uci_load(uci_context *ctx, const char *name)
{
    int err;
    uci_package *package = load_package(ctx, name, &err);
    if (err == UCI_ERR_NOTFOUND)
        log_error("Failed to load %s: %s", name, ng_uci_error(ctx).get());
    return package;
}

ng_uci_readability ng_uci_check_readable(const char *package)
{
    if (ng_uci_undo() != 0) // half a commit stands there
        return NG_UCI_UNREADABLE;
    int err;
    if (load_package(ng_uci_change_context(), package, &err))
        return NG_UCI_READABLE;
    return err == UCI_ERR_NOTFOUND ? NG_UCI_ABSENT : NG_UCI_UNREADABLE;
}

bool ng_uci_is_absent(const std::string &package)
{
    static std::vector<std::string> said;
    const auto place = std::find(said.begin(), said.end(), package);
    const bool absent = ng_uci_check_readable(package.c_str()) == NG_UCI_ABSENT;
    if (absent && place == said.end()) {
        log_notice("There is no package %s here, passing over its settings", package.c_str());
        said.push_back(package);
    } else if (!absent && place != said.end()) {
        said.erase(place);
    }
    return absent;
}

int ng_uci_commit_all(std::span<const char *const> packages, bool *changed)
{
    std::vector<ng_uci_commit_item> items;
    bool written = false;
    uci_context *ctx = ng_uci_change_context();
    for (const char *package : packages) {
        uci_package *loaded = ctx ? uci_lookup_package(ctx, package) : nullptr;
        items.push_back(
            {loaded ? ng_uci_changes_of(package) : ng_uci_changes{package, {}}, loaded});
    }
    const int result = ctx ? ng_uci_write_packages(items, &written) : -1;
    for (const ng_uci_commit_item &item : items)
        if (result == 0 && item.from)
            forget_package(item.from);
    if (changed)
        *changed = written;
    return result;
}

int ng_uci_commit(const char *package, bool *changed)
{
    return ng_uci_commit_all({&package, 1}, changed);
}

int ng_uci_revert(const char *package)
{
    uci_package *loaded = ng_uci_load(ng_uci_change_context(), package);
    if (!loaded)
        return -1;
    forget_package(loaded);
    return ng_uci_delta_clear(package);
}

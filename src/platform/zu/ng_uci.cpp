// The change context: one for all that a callback reads and changes, its delta files written once,
// thrown away when the callback ends. What a change is lies in ng_uci_change.cpp, what makes a
// commit safe in ng_uci_commit.cpp.
#include "platform/zu/ng_uci.h"
#include "platform/zu/log.h"
#include "platform/zu/ng_uci_internal.h"

extern "C" {
#include <libubox/uloop.h>
}

#include <algorithm>
#include <cstdio>
#include <utility>
#include <vector>

static constinit uci_context_handle g_context;
static constinit std::vector<std::string>
    g_changed; // packages with changes that are in memory only

// ---- the end of the callback

static void end_of_callback_cb(uloop_timeout *)
{
    (void)ng_uci_flush(); // logged there; the changes are gone with the context
    ng_uci_forget_items();
    g_changed.clear();
    g_context.reset();
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
    if (!g_context) {
        g_context.reset(uci_alloc_context());
        if (g_context)
            uloop_timeout_set(end_of_callback(), 0);
    }
    return g_context.get();
}

// ---- writing

void ng_uci_mark_changed(const char *package)
{
    if (std::find(g_changed.begin(), g_changed.end(), package) == g_changed.end())
        g_changed.emplace_back(package);
}

static int save_package(const std::string &name)
{
    uci_package *package = uci_lookup_package(g_context.get(), name.c_str());
    if (!package || uci_save(g_context.get(), package) == UCI_OK)
        return 0;
    log_error("Failed to save changes of %s: %s", name.c_str(),
              ng_uci_error(g_context.get()).get());
    return -1;
}

int ng_uci_flush()
{
    int result = 0;
    for (const std::string &name : std::exchange(g_changed, {}))
        if (save_package(name) != 0) {
            g_changed.push_back(name); // the next flush tries again
            result = -1;
        }
    return result;
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

/// The package, loaded if need be; null when that fails (logged).
static uci_package *loaded_package(uci_context *ctx, const char *name)
{
    uci_package *package = uci_lookup_package(ctx, name);
    if (package || uci_load(ctx, name, &package) == UCI_OK)
        return package;
    log_error("Failed to load %s: %s", name, ng_uci_error(ctx).get());
    return nullptr;
}

int ng_uci_commit(const char *package)
{
    uci_context *ctx = ng_uci_change_context();
    if (!ctx || ng_uci_flush() != 0)
        return -1;
    uci_package *loaded = loaded_package(ctx, package);
    ng_uci_forget_items();
    return loaded && ng_uci_commit_safely(ctx, &loaded) == UCI_OK ? 0 : -1;
}

int ng_uci_revert(const char *package)
{
    uci_context *ctx = ng_uci_change_context();
    uci_package *loaded = ctx ? loaded_package(ctx, package) : nullptr;
    if (!loaded)
        return -1;
    ng_uci_forget_items();
    g_changed.erase(std::remove(g_changed.begin(), g_changed.end(), package), g_changed.end());
    std::string text;
    uci_ptr ptr;
    if (ng_uci_lookup(ctx, &ptr, text, package) == UCI_OK && uci_revert(ctx, &ptr) == UCI_OK)
        return 0;
    log_error("Failed to revert %s: %s", package, ng_uci_error(ctx).get());
    return -1;
}

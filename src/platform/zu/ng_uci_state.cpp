// Run-time state: uncommitted changes in a save directory of their own, over the configuration.
#include <fcntl.h>
#include <sys/file.h>

#include "platform/zu/ng_uci.h"
#include "platform/zu/ng_uci_internal.h"

static uci_context_handle state_context(const char *state_dir)
{
    uci_context_handle ctx(uci_alloc_context());
    if (ctx && uci_set_savedir(ctx.get(), state_dir) != UCI_OK)
        ctx.reset();
    return ctx;
}

ng_uci_state_result ng_uci_get_state(const char *state_dir, const char *name, std::string &out)
{
    const uci_context_handle ctx = state_context(state_dir);
    if (!ctx)
        return NG_UCI_STATE_NO_CONTEXT;
    std::string text;
    uci_ptr ptr;
    if (ng_uci_lookup(ctx.get(), &ptr, text, name) != UCI_OK)
        return NG_UCI_STATE_LOOKUP_FAILED;
    if (!ng_uci_is_found(ptr) || !ptr.o || ptr.o->type != UCI_TYPE_STRING)
        return NG_UCI_STATE_INCOMPLETE;
    out = ptr.o->v.string;
    return NG_UCI_STATE_FOUND;
}

int ng_uci_delete_state(const char *state_dir, const char *name)
{
    const uci_context_handle ctx = state_context(state_dir);
    if (!ctx)
        return -1;
    std::string text;
    uci_ptr ptr;
    if (ng_uci_lookup(ctx.get(), &ptr, text, name) != UCI_OK || !ng_uci_is_found(ptr))
        return 0;
    // A look: here libuci takes a lock that excludes ours, and would wait for another's for ever.
    if (ng_uci_descriptor look(-1);
        !ng_uci_open_locked(std::string(state_dir) + "/" + ptr.package, O_RDONLY, LOCK_EX, &look))
        return 0;
    (void)uci_revert(ctx.get(), &ptr);
    return 0;
}

// Removing run-time state, which lies as uncommitted changes in a directory of its own.
#include <memory>
#include <string>

#include "platform/zu/ng_uci.h"

struct context_deleter {
    void operator()(uci_context *ctx) const { uci_free_context(ctx); }
};

int ng_uci_delete_state(const char *state_dir, const char *name)
{
    const std::unique_ptr<uci_context, context_deleter> ctx(uci_alloc_context());
    if (!ctx)
        return -1;
    uci_set_savedir(ctx.get(), state_dir);
    std::string text = name; // the look-up cuts it into the parts that `ptr` points to
    uci_ptr ptr{};
    if (uci_lookup_ptr(ctx.get(), &ptr, text.data(), false) == UCI_OK &&
        (ptr.flags & uci_ptr::UCI_LOOKUP_COMPLETE) != 0)
        (void)uci_revert(ctx.get(), &ptr);
    return 0;
}

// The library on a private set of directories.
#pragma once

#include <memory>
#include <uci.h>

#include "tool_run.h"

struct context_deleter {
    void operator()(uci_context *ctx) const { uci_free_context(ctx); }
};
using context_handle = std::unique_ptr<uci_context, context_deleter>;

inline context_handle open_context(const uci_directories &dirs)
{
    context_handle ctx(uci_alloc_context());
    uci_set_confdir(ctx.get(), dirs.conf().c_str());
    uci_set_conf2dir(ctx.get(), nullptr);
    uci_set_savedir(ctx.get(), dirs.save().c_str());
    return ctx;
}

/// Makes one change of a tuple and leaves it unsaved; the pointer as it is afterwards in *ptr.
inline int change(uci_context *ctx, int (*act)(uci_context *, uci_ptr *), std::string tuple,
                  uci_package **package = nullptr)
{
    uci_ptr ptr;
    int err = uci_lookup_ptr(ctx, &ptr, tuple.data(), true);
    if (!err)
        err = act(ctx, &ptr);
    if (package)
        *package = ptr.p;
    return err;
}

// Reading options: through the change context, so that a callback reads what it has changed, and
// of the run-time state.
#include <fcntl.h>
#include <sys/file.h>
#include <vector>

#include "platform/zu/ng_uci.h"
#include "platform/zu/number.h"
#include "platform/zu/uci/uci_internal.h"

/// Looks `name` up in the change context; false when not all of it is there.
static bool find(const char *name, std::string &text, uci_ptr *ptr)
{
    uci_context *ctx = ng_uci_change_context();
    return ctx && ng_uci_lookup(ctx, ptr, text, name) == UCI_OK && ng_uci_is_found(*ptr);
}

/// False when there is no such option.
static bool read_items(const char *name, std::vector<std::string> &items)
{
    std::string text;
    uci_ptr ptr;
    if (!find(name, text, &ptr) || !ptr.o)
        return false;
    uci_element *e;
    if (ptr.o->type == UCI_TYPE_STRING)
        items.emplace_back(ptr.o->v.string);
    else
        uci_foreach_element(&ptr.o->v.list, e) items.emplace_back(e->name);
    return true;
}

int _ng_uci_get_val_cb(const char *name, void (*cb)(const char *value, void *priv), void *priv)
{
    std::vector<std::string> values; // copies: the callback may change the option
    if (!read_items(name, values))
        return -1;
    for (const std::string &value : values)
        cb(value.c_str(), priv);
    return 0;
}

std::vector<std::string> ng_uci_items(const std::string &name)
{
    std::vector<std::string> items;
    (void)read_items(name.c_str(), items);
    return items;
}

/// The option's text, or null when it is missing or a list.
static const char *option_string(const char *name)
{
    std::string text;
    uci_ptr ptr;
    if (!find(name, text, &ptr) || !ptr.o || ptr.o->type != UCI_TYPE_STRING)
        return nullptr;
    return ptr.o->v.string;
}

int ng_uci_get_string(std::string &out, const char *name_format, ...)
{
    va_list args;
    va_start(args, name_format);
    const std::string name = ng_uci_format(name_format, args);
    va_end(args);
    const char *value = option_string(name.c_str());
    if (!value)
        return -1;
    out = value;
    return 0;
}

int ng_uci_get_int(int *out, const char *name_format, ...)
{
    va_list args;
    va_start(args, name_format);
    const std::string name = ng_uci_format(name_format, args);
    va_end(args);
    const char *value = option_string(name.c_str());
    return value && zu_number_read(value, out) ? 0 : -1;
}

bool ng_uci_exists(const char *name_format, ...)
{
    va_list args;
    va_start(args, name_format);
    const std::string name = ng_uci_format(name_format, args);
    va_end(args);
    std::string text;
    uci_ptr ptr;
    return find(name.c_str(), text, &ptr);
}

// ---- run-time state: uncommitted changes in a save directory of their own, over the configuration

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
    // Tried first: here libuci takes an exclusive lock, for which it would wait for ever.
    if (zu_descriptor look;
        !ng_uci_open_locked(std::string(state_dir) + "/" + ptr.package, O_RDONLY, LOCK_EX, &look))
        return 0;
    (void)uci_revert(ctx.get(), &ptr);
    return 0;
}

// Reading options through the change context, so that a callback reads what it has changed.
#include <charconv>
#include <vector>

#include "platform/zu/ng_uci.h"
#include "platform/zu/ng_uci_internal.h"

/// Looks `name` up in the change context; false when not all of it is there.
static bool find(const char *name, std::string &text, uci_ptr *ptr)
{
    uci_context *ctx = ng_uci_change_context();
    return ctx && ng_uci_lookup(ctx, ptr, text, name) == UCI_OK && ng_uci_is_found(*ptr);
}

int _ng_uci_get_val_cb(const char *name, void (*cb)(const char *value, void *priv), void *priv)
{
    std::string text;
    uci_ptr ptr;
    if (!find(name, text, &ptr) || !ptr.o)
        return -1;
    std::vector<std::string> values; // copies: the callback may change the option
    uci_element *e;
    if (ptr.o->type == UCI_TYPE_STRING)
        values.emplace_back(ptr.o->v.string);
    else
        uci_foreach_element(&ptr.o->v.list, e) values.emplace_back(e->name);
    for (const std::string &value : values)
        cb(value.c_str(), priv);
    return 0;
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
    if (!value)
        return -1;
    const std::string_view text = value;
    int number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size())
        return -1;
    *out = number;
    return 0;
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

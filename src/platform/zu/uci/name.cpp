// Names and values: forming them, checking them, looking them up.
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <sys/stat.h>

#include "platform/zu/ng_uci.h"
#include "platform/zu/uci/uci_internal.h"

std::string ng_uci_format(const char *format, va_list args)
{
    char *text = nullptr;
    if (vasprintf(&text, format, args) < 0)
        return {};
    const zu_text owned(text);
    return text;
}

std::string ng_uci_name(const char *format, ...)
{
    va_list args;
    va_start(args, format);
    std::string name = ng_uci_format(format, args);
    va_end(args);
    return name;
}

zu_text ng_uci_error(uci_context *ctx)
{
    char *text = nullptr;
    uci_get_errorstr(ctx, &text, nullptr);
    return zu_text(text);
}

/// Takes away a leading run of letters, digits, "_" and the characters of `more`; false when empty.
static bool skip_word(std::string_view &text, std::string_view more)
{
    size_t length = 0;
    while (length < text.size() && (isalnum(static_cast<unsigned char>(text[length])) ||
                                    text[length] == '_' || more.find(text[length]) != more.npos))
        length++;
    text.remove_prefix(length);
    return length > 0;
}

static bool skip_character(std::string_view &text, char c)
{
    if (text.empty() || text.front() != c)
        return false;
    text.remove_prefix(1);
    return true;
}

static bool skip_section(std::string_view &text)
{
    if (!skip_character(text, '@'))
        return skip_word(text, "");
    (void)skip_word(text, "-");
    return skip_character(text, '[') && (skip_character(text, '-'), skip_word(text, "")) &&
           skip_character(text, ']');
}

bool ng_uci_is_name(const char *name)
{
    std::string_view text = name;
    if (!skip_word(text, "-") || !skip_character(text, '.') || !skip_section(text))
        return false;
    if (text.empty())
        return true;
    return skip_character(text, '.') && skip_word(text, "") && text.empty();
}

bool ng_uci_is_value(const char *value)
{
    for (; *value; value++)
        if (static_cast<unsigned char>(*value) < 0x20 || *value == 0x7f)
            return false;
    return true;
}

std::string ng_uci_config_path(const std::string &package)
{
#ifdef UCI_CONF2DIR // a newer libuci's: a file there stands for the one in the configuration
    std::string override_file = UCI_CONF2DIR "/" + package;
    struct stat info;
    if (stat(override_file.c_str(), &info) == 0 && S_ISREG(info.st_mode))
        return override_file;
#endif
    return UCI_CONFDIR "/" + package;
}

std::string ng_uci_quoted(std::string_view value)
{
    std::string text = "'";
    for (const char c : value)
        text += c == '\'' ? "'\\''" : std::string(1, c);
    return text + "'";
}

int ng_uci_lookup(uci_context *ctx, uci_ptr *ptr, std::string &text, const char *name)
{
    text = name; // the look-up cuts it into the parts that ptr points to
    *ptr = uci_ptr{};
    const std::string package = text.substr(0, text.find('.'));
    if (uci_lookup_package(ctx, package.c_str()))
        return uci_lookup_ptr(ctx, ptr, text.data(), true);
    const ng_uci_read_locks locks(ctx, package.c_str()); // the look-up loads the package
    ng_uci_note_file(ctx, package, locks);
    return locks ? uci_lookup_ptr(ctx, ptr, text.data(), true) : UCI_ERR_IO;
}

bool ng_uci_is_found(const uci_ptr &ptr)
{
    return ptr.last && ptr.last->type == ptr.target;
}

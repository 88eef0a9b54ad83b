// What the ng_uci files share.
#pragma once

#include <uci.h>

#include <cstdarg>
#include <memory>
#include <string>

struct uci_context_deleter {
    void operator()(uci_context *ctx) const { uci_free_context(ctx); }
};
using uci_context_handle = std::unique_ptr<uci_context, uci_context_deleter>;

struct uci_text_deleter {
    void operator()(char *text) const { free(text); }
};
using uci_text = std::unique_ptr<char, uci_text_deleter>;

/// A name after printf's rules.
std::string ng_uci_format(const char *format, va_list args) __attribute__((format(printf, 1, 0)));
/// What went wrong last in `ctx`, in libuci's words, for a log line.
uci_text ng_uci_error(uci_context *ctx);
/// True for "package.section[.option]" of characters that tuples may have, a section also as
/// "@type[index]".
bool ng_uci_is_name(const char *name);
/// True when no byte is a control character.
bool ng_uci_is_value(const char *value);

/// Looks `name` up. The names in `ptr` point into `text`. 0, or libuci's error.
int ng_uci_lookup(uci_context *ctx, uci_ptr *ptr, std::string &text, const char *name);
/// True when all that a looked-up `ptr` names is there.
bool ng_uci_is_found(const uci_ptr &ptr);

/// The package has changes that its delta file does not have yet.
void ng_uci_mark_changed(const char *package);
/// Forgets what is known of lists' items; with `list` of that one ("package.section.option").
void ng_uci_forget_items();
void ng_uci_forget_items(const std::string &list);

/// Commits without ever leaving a file that is not whole. 0, or libuci's error (logged).
int ng_uci_commit_safely(uci_context *ctx, uci_package **package);

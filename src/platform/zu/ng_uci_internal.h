// What the ng_uci files share.
#pragma once

#include <uci.h>

#include <cstdarg>
#include <memory>
#include <string>
#include <vector>

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

/// What a callback has touched of one package.
struct ng_uci_changes {
    struct touched {
        std::string section;
        std::vector<std::string> options;
        bool whole; ///< made, deleted or given another type: all of its options count
    };
    std::string package;
    std::vector<touched> sections;

    /// Notes an option, or with a null option the section as a whole.
    void touch(const char *section, const char *option);
};

/// The changes noted so far of a package of the change context.
ng_uci_changes &ng_uci_changes_of(const char *package);

/// Makes in `to` the differences that the touched options and sections have in `from`. 0, or
/// libuci's error; `differences` counts what was made.
int ng_uci_carry_over(const ng_uci_changes &changes, uci_package *from, uci_context *ctx,
                      uci_package *to, int *differences);

/// Forgets what is known of lists' items; with `list` of that one ("package.section.option").
void ng_uci_forget_items();
void ng_uci_forget_items(const std::string &list);

/// Waits a moment for another process that has the package's files locked, altogether at most
/// NG_UCI_LOCK_WAIT_MS a callback. False (logged) when it still has.
constexpr int NG_UCI_LOCK_WAIT_MS = 80;
bool ng_uci_wait_for_locks(const char *package);
/// A callback's wait begins anew.
void ng_uci_reset_lock_wait();

/// Writes what is configured and saved with the differences that `from` (or null: none) has in
/// `changes`. 0, or -1 (logged): then the committed file is what it was. `changed`: it was written.
int ng_uci_write_package(const ng_uci_changes &changes, uci_package *from, bool *changed);

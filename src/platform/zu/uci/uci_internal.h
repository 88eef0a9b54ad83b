// What the sources of ng_uci.h share.
#pragma once

#include <cstdarg>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <uci.h>
#include <vector>

#include "platform/zu/handle.h"

struct uci_context_deleter {
    void operator()(uci_context *ctx) const { uci_free_context(ctx); }
};
using uci_context_handle = std::unique_ptr<uci_context, uci_context_deleter>;

/// A name after printf's rules.
std::string ng_uci_format(const char *format, va_list args) __attribute__((format(printf, 1, 0)));
/// What went wrong last in `ctx`, in libuci's words, for a log line.
zu_text ng_uci_error(uci_context *ctx);
/// True for "package.section[.option]" of characters that tuples may have, a section also as
/// "@type[index]".
bool ng_uci_is_name(const char *name);
/// The file that libuci reads the package from.
std::string ng_uci_config_path(const std::string &package);
/// True when the device does not have the package, which is said once (NOTICE) until it has it.
bool ng_uci_is_absent(const std::string &package);
/// The value in single quotes, as batch and delta files have it.
std::string ng_uci_quoted(std::string_view value);

/// Looks `name` up. The names in `ptr` point into `text`. 0, or libuci's error.
int ng_uci_lookup(uci_context *ctx, uci_ptr *ptr, std::string &text, const char *name);
/// The package, loaded if need be; null (logged) when that fails or `ctx` is null.
uci_package *ng_uci_load(uci_context *ctx, const char *name);
/// True when all that a looked-up `ptr` names is there.
bool ng_uci_is_found(const uci_ptr &ptr);

/// What a callback has touched of one package.
struct ng_uci_changes {
    struct touched {
        std::string section;
        std::string before; ///< all of the section as one text, before the first change
        std::vector<std::string> options;
        bool whole; ///< made, deleted or given another type: all of its options count
    };
    std::string package;
    std::vector<touched> sections;

    /// To be called before what `ptr` names is changed: an option, or without one the section as a
    /// whole.
    void touch(const uci_ptr &ptr);
    /// False when all that was touched is again what it was.
    bool came_to_something(uci_package *now) const;
};

/// The changes noted so far of a package of the change context.
ng_uci_changes &ng_uci_changes_of(const char *package);

/// Makes in `to` the differences that the touched options and sections have in `from`. 0, or
/// libuci's error; `delta` is what was made, as lines of a delta file.
int ng_uci_carry_over(const ng_uci_changes &changes, uci_package *from, uci_context *ctx,
                      uci_package *to, std::string *delta);

/// How long other processes' locks are waited for, altogether in one callback.
constexpr int NG_UCI_LOCK_WAIT_MS = 80;
/// A callback's wait begins anew.
void ng_uci_reset_lock_wait();
/// Opens the file and locks it (LOCK_SH or LOCK_EX); `file` stays below 0 when it cannot be opened
/// (errno). False (logged) when another process does not let go of its lock.
[[nodiscard]] bool ng_uci_open_locked(const std::string &path, int flags, int kind,
                                      zu_descriptor *file);

/// While it lives, libuci can read the package's files through `ctx` without waiting.
class ng_uci_read_locks {
public:
    ng_uci_read_locks(const uci_context *ctx, const char *package);
    /// False (logged) when another process does not let go of its lock.
    explicit operator bool() const { return free_; }
    /// The package's file, when that is all there is: null while changes are saved beside it.
    std::optional<std::string> whole_text() const;

private:
    bool add(const std::string &path);
    std::vector<zu_descriptor> held_;
    bool free_;
};

/// To be called before libuci reads a package into `ctx`; what it reads is noted when that is the
/// change context.
void ng_uci_note_file(const uci_context *ctx, const std::string &package,
                      const ng_uci_read_locks &locks);
/// The file that the change context has read the package from; null when it also read changes that
/// were saved beside it.
const std::string *ng_uci_noted_file(const std::string &package);

/// Adds the lines to the package's delta file, all or none. 0 or -1 (logged).
[[nodiscard]] int ng_uci_delta_add(const char *package, const std::string &lines);
/// Empties the package's delta file. 0 or -1 (logged).
[[nodiscard]] int ng_uci_delta_clear(const char *package);

/// One package of a commit: what is configured and saved gets the differences that `from` (or
/// null: none) has in `changes`.
struct ng_uci_commit_item {
    ng_uci_changes changes;
    uci_package *from;
};
/// Writes the packages. 0, or -1 (logged): then every committed file is what it was. `changed`:
/// one was written.
int ng_uci_write_packages(std::span<const ng_uci_commit_item> items, bool *changed);

// Several files replaced as one (undo.cpp)

/// The name beside the file under which a new one is written.
std::string ng_uci_new_name(const std::string &path);
/// Prepares the way back; to be called before the first of the files is replaced. 0 or -1 (logged).
[[nodiscard]] int ng_uci_undo_begin(const std::vector<std::string> &paths);
/// All are replaced: there is no way back any more. 0, or -1 (logged): then there still is.
[[nodiscard]] int ng_uci_undo_end(const std::vector<std::string> &paths);
/// Puts back what was begun and not ended. 0, or -1 (logged): then it is tried again by itself.
int ng_uci_undo();

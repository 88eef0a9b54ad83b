// UCI for the daemon: reading values, changing them through save actions, committing, batch files.
//
// All changes of one callback gather in one change context. It is made when first asked for, what
// its packages' changes come to is written once per flush or commit, and it is thrown away when the
// callback ends, so the next callback sees what other processes have committed meanwhile. Changes
// that come to nothing (a list emptied and filled with the same items) write nothing.
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <uci.h>
#include <vector>

/// What a save action does to an option. A value that holds a control character is refused.
enum ng_uci_action {
    uci_set_string = 1,       ///< set an option, or (two-part name) create a section of that type
    ng_uci_add_list = 2,      ///< append to a list; the same value is removed first
    ng_uci_del_list = 3,      ///< remove the value from a list; with value null as delete_option
    ng_uci_delete_option = 4, ///< delete the option or section; `value` is not used
};

/// True when no byte is a control character: a value that a save action or a batch file takes.
bool ng_uci_is_value(const char *value);

/// The change context, or null when it cannot be allocated. Owned here; never free it.
[[nodiscard]] uci_context *ng_uci_change_context();

/// One change, named by a printf-style "package.section[.option]". Nothing reaches a file before
/// the next flush. It is made in the change context in force; `ctx` may be from before a renewal.
/// 0, also when there is nothing to delete or the device does not have the package (NOTICE, once);
/// or -1 (logged: ERROR) when the name, section or value is not acceptable.
int ng_uci_save_action_ctx(uci_context *ctx, ng_uci_action action, const char *value,
                           const char *name_format, ...) __attribute__((format(printf, 4, 5)));
int ng_uci_save_action_int_ctx(uci_context *ctx, ng_uci_action action, int value,
                               const char *name_format, ...) __attribute__((format(printf, 4, 5)));

/// Makes the option a list of these items, each once (where it stands last); nothing when it is
/// that list already. As adding them one by one, in a fraction of the time. False when it could not
/// be (logged).
bool ng_uci_put_list(const std::string &name, const std::vector<std::string> &items);

/// True when the option is a list of these items, or missing and there are none.
bool ng_uci_is_list(const std::string &name, const std::vector<std::string> &items);

/// Save actions by a plain name, for one option each. False when it could not be made (logged).
bool ng_uci_put(const std::string &name, const char *value);
bool ng_uci_put(const std::string &name, int value);
/// Deletes an option or a section.
bool ng_uci_clear(const std::string &name);
bool ng_uci_add(const std::string &list, const std::string &item);
bool ng_uci_remove(const std::string &list, const std::string &item);
/// The items of a list, or the one text of an option; empty without the option.
std::vector<std::string> ng_uci_items(const std::string &name);
/// A name after printf's rules, for the above.
std::string ng_uci_name(const char *format, ...) __attribute__((format(printf, 1, 2)));

/// Writes every changed package's delta file once. 0, or -1 when one could not be written (logged).
int ng_uci_flush();
/// Flushes, then replaces the change context by a fresh one, or keeps it when there were changes
/// that could not be written. False, with WARNING "Failed to create
/// new uci context for tarn_net", when that fails.
bool ng_uci_renew_change_context();
/// Commits the packages as one: 0, or -1 when one of them could not be written (logged); then every
/// committed file is what it was, byte for byte, and the changes wait for another attempt. A
/// package that comes out as it is configured already is not written; `changed` (may be null) says
/// whether one was. One that the device does not have is passed over.
[[nodiscard]] int ng_uci_commit_all(std::span<const char *const> packages, bool *changed = nullptr);
[[nodiscard]] int ng_uci_commit(const char *package, bool *changed = nullptr);
/// To be called before anything is read: puts back what a commit changed that was cut off, by a
/// crash or a power failure, and removes what else it left. True when something was put back; what
/// cannot be now is tried every second, and "reload_config" run when it is done.
bool ng_uci_recover();
/// Makes an empty package when the device does not have it. 0 or -1 (logged).
int ng_uci_make_package(const char *name);
/// Drops every change that was not flushed or committed.
void ng_uci_drop_changes();
/// False (logged) when another process holds a lock on the package and does not let go of it
/// within the moment that the loop may stand still.
[[nodiscard]] bool ng_uci_is_free(const char *package);
/// Drops every change of a package that was not committed. 0 or -1.
[[nodiscard]] int ng_uci_revert(const char *package);

/// Whether a package can be read now. A lock or a torn file is not a missing option: whoever reads
/// settings to put them into force asks this first, keeps what it has and asks again later.
enum ng_uci_readability {
    NG_UCI_READABLE,
    NG_UCI_ABSENT,     ///< the device does not have it: each of its options is missing
    NG_UCI_UNREADABLE, ///< locked by another process, not to be parsed, or half of a commit that
                       ///< cannot be taken back yet (logged: ERROR)
};
/// Loads the package into the change context: what this callback reads of it comes from there.
[[nodiscard]] ng_uci_readability ng_uci_check_readable(const char *package);

/// Reads one option through the change context; `cb` gets the value, or each item of a list.
/// Negative on failure (missing package, section or option), without a log line.
int _ng_uci_get_val_cb(const char *name, void (*cb)(const char *value, void *priv), void *priv);
/// Reads an option into `out`, untouched on failure. 0 or -1.
int ng_uci_get_string(std::string &out, const char *name_format, ...)
    __attribute__((format(printf, 2, 3)));
/// Reads an option that is a decimal integer as a whole; `out` untouched on failure. 0 or -1.
int ng_uci_get_int(int *out, const char *name_format, ...) __attribute__((format(printf, 2, 3)));
/// True when "package.section" or "package.section.option" exists.
bool ng_uci_exists(const char *name_format, ...) __attribute__((format(printf, 1, 2)));
/// Reads "package.section.option" of the run-time state kept under `state_dir` (for example
/// "/var/state") on top of the configuration.
enum ng_uci_state_result {
    NG_UCI_STATE_FOUND,
    NG_UCI_STATE_NO_CONTEXT,
    NG_UCI_STATE_LOOKUP_FAILED,
    NG_UCI_STATE_INCOMPLETE,
};
ng_uci_state_result ng_uci_get_state(const char *state_dir, const char *name, std::string &out);
/// Removes an option of the run-time state under `state_dir`; one that is not there is fine, and
/// one that another process keeps locked stays (logged). 0, or -1 when no UCI context can be
/// allocated.
[[nodiscard]] int ng_uci_delete_state(const char *state_dir, const char *name);

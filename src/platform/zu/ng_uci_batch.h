// Batch files: UCI changes written down as `uci batch` commands, applied later in one step.
//
// Plain text an operator can read and feed to `uci batch`. Created O_EXCL|O_NOFOLLOW with mode
// 0600: it holds the mesh key.
#pragma once

struct ng_uci_batch; // an open, unfinished batch file

/// Creates the file. Null (logged) when it exists or cannot be created; the calls below take a null
/// batch as one that has failed.
ng_uci_batch *ng_uci_batch_open(const char *path);
/// Adds a command. A value that cannot stand on one line marks the batch as failed.
void ng_uci_batch_set_fmt_string(ng_uci_batch *batch, const char *value, const char *name_format,
                                 ...) __attribute__((format(printf, 3, 4)));
void ng_uci_batch_set_fmt_int(ng_uci_batch *batch, int value, const char *name_format, ...)
    __attribute__((format(printf, 3, 4)));
void ng_uci_batch_fmt_list(ng_uci_batch *batch, const char *value, const char *name_format, ...)
    __attribute__((format(printf, 3, 4)));
void ng_uci_batch_del_fmt(ng_uci_batch *batch, const char *name_format, ...)
    __attribute__((format(printf, 2, 3)));
/// Flushes and checks the file, and frees `batch`. 0; or -1 (logged), the file then removed.
[[nodiscard]] int ng_uci_batch_close(ng_uci_batch *batch);

/// Parses the whole file, then makes every change through the change context, and with `commit`
/// commits the packages named, as one. 0, or -1 (logged) when the file does not parse or is not a
/// plain file of this user (then nothing changes) or a commit fails. A single change that cannot be
/// made, for want of its section, is logged and left out.
[[nodiscard]] int ng_uci_batch_apply(const char *path, bool commit);

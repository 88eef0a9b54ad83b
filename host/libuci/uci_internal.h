// What libuci's files share: the word reader, elements and their lists, changes, locked files.
//
// Memory: elements come from new, their strings from strdup; running out of it ends the process.
#pragma once

#include <memory>
#include <string>
#include <sys/types.h>
#include <uci.h>

/// One input stream, read a line at a time; also where the last parse error is remembered.
struct uci_parse_context {
    FILE *stream;
    std::string buffer; ///< the current line, and those that a quote or a backslash joined to it
    std::size_t pos;
    int line;           ///< lines read so far
    const char *reason; ///< of the last parse error; null when none is to be told
    int error_line;
    std::size_t error_byte;
};

namespace libuci {

struct stream_closer {
    void operator()(FILE *file) const { fclose(file); }
};
using stream_handle = std::unique_ptr<FILE, stream_closer>;

// ---- context.cpp
/// Stores `code` as the context's last error, without a parse reason, and returns it.
int result(uci_context *ctx, int code);

// ---- word.cpp
enum class word { found, none, unterminated };
void parser_start(uci_parse_context &parser, FILE *stream);
/// The next line into the buffer. False at the end of the stream.
bool next_line(uci_parse_context &parser);
/// The next word of the statement; `none` at its end, with pos left on a ";" that ended it.
word next_word(uci_parse_context &parser, std::string &text);
void skip_blanks(uci_parse_context &parser);
/// Remembers `reason` with the parser's position; UCI_ERR_PARSE.
int parse_error(uci_parse_context &parser, const char *reason);

bool valid_name(const char *name);
bool valid_package_name(const char *name);
bool valid_type(const char *type);

// ---- element.cpp
void list_init(uci_list *list);
/// Puts `item` behind `after`; with a list's prev member, at the list's end.
void list_insert(uci_list *after, uci_list *item);
void list_remove(uci_list *item);

uci_element *element_new(uci_type type, const char *name);
void element_free(uci_element *e);
uci_package *package_new(uci_context *ctx, const char *name);
void package_free(uci_package *p);
/// At the end of the package; `name` null or empty: anonymous, its name generated.
uci_section *section_new(uci_package *p, const char *type, const char *name);
void section_free(uci_section *s);
/// At the end of the section, holding an empty list or a copy of `string`.
uci_option *option_new(uci_section *s, const char *name, const char *string);
void option_free(uci_option *o);
void option_set_string(uci_option *o, const char *string);
/// A string becomes the list's first item.
void option_make_list(uci_option *o);
void option_append(uci_option *o, const char *item);
void set_text(char *&member, const char *text);

// ---- change.cpp
/// Makes one change of what `ptr` has been looked up to; with `record` it becomes a delta.
int change(uci_command command, uci_ptr &ptr, bool record);

// ---- statement.cpp
/// Reads a stream's statements into `p`; its package lines are checked and ignored.
int read_statements(uci_context *ctx, FILE *stream, uci_package *p);

// ---- export.cpp
void write_quoted(FILE *stream, const char *text);

// ---- delta.cpp
void delta_free_all(uci_list *list);
void delta_record(uci_package *p, uci_command command, const uci_ptr &ptr, const char *value);
/// Applies the lines of a delta stream to `p`; the number that applied.
int delta_apply_stream(uci_package *p, FILE *stream);
std::string delta_file(const char *dir, const uci_package *p);

// ---- lookup.cpp
/// The name part of a package that may be named by a path.
const char *package_base_name(const char *name);
bool is_path(const char *name);

// ---- file.cpp
/// Opens with `flags` and takes the lock, waiting for it; the file is then the one at `path` still.
/// Null with errno set.
stream_handle open_locked(const char *path, int flags, bool exclusive, mode_t mode = 0);
/// Writes a package that keeps no deltas over its file.
int write_config(uci_context *ctx, uci_package *p);

} // namespace libuci

// Words: the quoting, comment and joining rules that config files, delta files and batch input
// share, and which characters names and values may hold.
//
//   blank, end of line    ends an unquoted word        #   starts a comment, in a word too
//   'text'                taken as it is               ;   ends the statement; glued to an unquoted
//   "text" and unquoted   \ takes the next character       word it also drops the rest of the line
//   \ + end of line       joins the next line          (outside single quotes)
#include <cctype>
#include <cstdlib>
#include <cstring>

#include "uci_internal.h"

using namespace libuci;

void libuci::parser_start(uci_parse_context &parser, FILE *stream)
{
    parser = uci_parse_context{};
    parser.stream = stream;
}

int libuci::parse_error(uci_parse_context &parser, const char *reason)
{
    parser.reason = reason;
    parser.error_line = parser.line;
    parser.error_byte = parser.pos;
    return UCI_ERR_PARSE;
}

/// Adds the next line to the buffer; what follows a NUL in it is dropped.
static bool join_line(uci_parse_context &parser)
{
    char *line = nullptr;
    size_t size = 0;
    const bool got = getline(&line, &size, parser.stream) >= 0;
    if (got) {
        parser.buffer += line;
        parser.line++;
    }
    free(line);
    return got;
}

bool libuci::next_line(uci_parse_context &parser)
{
    parser.buffer.clear();
    parser.pos = 0;
    return join_line(parser);
}

/// The character at pos, or NUL behind the last one.
static char current(const uci_parse_context &parser)
{
    return parser.pos < parser.buffer.size() ? parser.buffer[parser.pos] : '\0';
}

static bool is_space(char c)
{
    return isspace(static_cast<unsigned char>(c)) != 0;
}

void libuci::skip_blanks(uci_parse_context &parser)
{
    while (is_space(current(parser)))
        parser.pos++;
}

/// The character behind a backslash; or, at the end of a line, goes on with the next line, which
/// takes the place of the line end.
static void read_escaped(uci_parse_context &parser, std::string &text)
{
    parser.pos++;
    const char *rest = parser.buffer.c_str() + parser.pos;
    if (!strcmp(rest, "\n") || !strcmp(rest, "\r\n")) {
        parser.buffer.resize(parser.pos);
        (void)join_line(parser);
        return;
    }
    if (*rest) {
        text += *rest;
        parser.pos++;
    }
}

/// A quoted string with pos on its opening quote. False when the stream ends inside it.
static bool read_quoted(uci_parse_context &parser, std::string &text)
{
    const char quote = parser.buffer[parser.pos++];
    for (;;) {
        const char c = current(parser);
        if (c == '\0') {
            if (!join_line(parser))
                return false;
        } else if (c == quote) {
            parser.pos++;
            return true;
        } else if (c == '\\' && quote == '"') {
            read_escaped(parser, text);
        } else {
            text += c;
            parser.pos++;
        }
    }
}

word libuci::next_word(uci_parse_context &parser, std::string &text)
{
    text.clear();
    skip_blanks(parser);
    bool started = false, unquoted = false;
    for (;; started = true) {
        const char c = current(parser);
        if (c == '\0' || (c == ';' && !unquoted))
            return started ? word::found : word::none;
        if (c == '#' || c == ';') {
            parser.pos = parser.buffer.size();
            return started ? word::found : word::none;
        }
        if (is_space(c)) {
            parser.pos++;
            return word::found;
        }
        unquoted = c != '\'' && c != '"';
        if (!unquoted) {
            if (!read_quoted(parser, text)) {
                (void)parse_error(parser, c == '"' ? "EOF with unterminated \""
                                                   : "EOF with unterminated '");
                return word::unterminated;
            }
        } else if (c == '\\') {
            read_escaped(parser, text);
        } else {
            text += c;
            parser.pos++;
        }
    }
}

int uci_parse_argument(uci_context *ctx, FILE *stream, char **str, char **result_word)
{
    uci_parse_context &parser = *ctx->pctx;
    if (!*str) {
        parser_start(parser, stream);
        if (!next_line(parser)) {
            *result_word = nullptr;
            return result(ctx, UCI_OK);
        }
    }
    std::string text;
    const word got = next_word(parser, text);
    *str = parser.buffer.data() + parser.pos;
    *result_word = got == word::found ? strdup(text.c_str()) : nullptr;
    return got == word::unterminated ? ctx->err = UCI_ERR_PARSE : result(ctx, UCI_OK);
}

template <typename Allowed>
static bool all_characters(const char *text, Allowed allowed)
{
    if (!text || !*text)
        return false;
    for (; *text; text++)
        if (!allowed(static_cast<unsigned char>(*text)))
            return false;
    return true;
}

static bool name_character(unsigned char c)
{
    return c < 0x80 && (isalnum(c) || c == '_');
}

bool libuci::valid_name(const char *name)
{
    return all_characters(name, name_character);
}

bool libuci::valid_package_name(const char *name)
{
    return all_characters(name, [](unsigned char c) { return name_character(c) || c == '-'; });
}

bool libuci::valid_type(const char *type)
{
    return all_characters(type, [](unsigned char c) { return c >= 33 && c <= 126; });
}

bool uci_validate_text(const char *str)
{
    for (; *str; str++)
        if (static_cast<unsigned char>(*str) < 0x20 && !strchr("\t\n\r", *str))
            return false;
    return true;
}

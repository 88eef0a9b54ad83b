// Config files: package, config, option and list statements, read into a package.
#include <cstring>

#include "uci_internal.h"

using namespace libuci;

struct reader {
    uci_context *ctx;
    uci_parse_context &parser;
    uci_package *package; ///< null before the first package line of a stream without a name
    uci_section *section;
    bool named;         ///< the package is settled: package lines are only checked
    bool single;        ///< the first package line settles it
    uci_package **last; ///< where a package line puts the package it starts
};

static bool strict(const reader &r)
{
    return r.ctx->flags & UCI_FLAG_STRICT;
}

/// What may still stand in a statement whose words have all been read: nothing, if strict.
static int statement_end(reader &r)
{
    std::string extra;
    for (;;) {
        const word got = next_word(r.parser, extra);
        if (got == word::unterminated)
            return UCI_ERR_PARSE;
        if (got == word::none)
            return UCI_OK;
        if (strict(r) && !extra.empty())
            return parse_error(r.parser, "too many arguments");
    }
}

static int required_word(reader &r, std::string &text)
{
    if (next_word(r.parser, text) == word::unterminated)
        return UCI_ERR_PARSE;
    return text.empty() ? parse_error(r.parser, "insufficient arguments") : UCI_OK;
}

static int optional_word(reader &r, std::string &text)
{
    return next_word(r.parser, text) == word::unterminated ? UCI_ERR_PARSE : UCI_OK;
}

static int package_statement(reader &r)
{
    std::string name;
    int err = required_word(r, name);
    if (err)
        return err;
    if (!valid_package_name(name.c_str()))
        return parse_error(r.parser, "invalid character in name field");
    if ((err = statement_end(r)) || r.named)
        return err;
    if (uci_package *loaded = uci_lookup_package(r.ctx, name.c_str()))
        package_free(loaded);
    r.package = *r.last = package_new(r.ctx, name.c_str());
    r.section = nullptr;
    r.named = r.single;
    list_insert(r.ctx->root.prev, &r.package->e.list);
    return UCI_OK;
}

static int enter_section(reader &r, const char *type, const char *name)
{
    uci_section *s = *name ? uci_lookup_section(r.ctx, r.package, name) : nullptr;
    if (!s) {
        r.section = section_new(r.package, type, name);
        return UCI_OK;
    }
    if (strcmp(s->type, type) != 0) {
        if (strict(r))
            return parse_error(r.parser,
                               "section of different type overwrites prior section with same name");
        set_text(s->type, type);
    }
    r.section = s;
    return UCI_OK;
}

static int config_statement(reader &r)
{
    if (!r.package)
        return parse_error(r.parser, "attempting to import a file without a package name");
    std::string type, name;
    int err = required_word(r, type);
    if (err)
        return err;
    if (!valid_type(type.c_str()))
        return parse_error(r.parser, "invalid character in type field");
    if ((err = optional_word(r, name)))
        return err;
    if (!name.empty() && !valid_name(name.c_str()))
        return parse_error(r.parser, "invalid character in name field");
    if ((err = statement_end(r)))
        return err;
    return enter_section(r, type.c_str(), name.c_str());
}

static void put_value(uci_section *s, const char *name, const char *value, bool list)
{
    uci_option *o = uci_lookup_option(s->package->ctx, s, name);
    if (list) {
        if (!o)
            o = option_new(s, name, nullptr);
        option_make_list(o);
        option_append(o, value);
    } else if (*value) {
        if (o)
            option_set_string(o, value);
        else
            option_new(s, name, value);
    }
}

static int value_statement(reader &r, bool list)
{
    if (!r.section)
        return parse_error(r.parser, "option/list command found before the first section");
    std::string name, value;
    int err = required_word(r, name);
    if (err)
        return err;
    if (!valid_name(name.c_str()))
        return parse_error(r.parser, "invalid character in name field");
    if ((err = optional_word(r, value)) || (err = statement_end(r)))
        return err;
    put_value(r.section, name.c_str(), value.c_str(), list);
    return UCI_OK;
}

static bool is_keyword(const std::string &text, const char *keyword)
{
    return text == keyword || (text.size() == 1 && text[0] == keyword[0]);
}

/// One statement with pos on its keyword, which a blank or tab must follow.
static int statement(reader &r)
{
    uci_parse_context &parser = r.parser;
    const size_t end = parser.buffer.find_first_of(" \t", parser.pos);
    if (end == std::string::npos)
        return parse_error(parser, "invalid command");
    const std::string keyword = parser.buffer.substr(parser.pos, end - parser.pos);
    const size_t start = parser.pos;
    parser.pos = end;
    if (is_keyword(keyword, "config"))
        return config_statement(r);
    if (is_keyword(keyword, "package"))
        return package_statement(r);
    const bool list = is_keyword(keyword, "list");
    if ((list || is_keyword(keyword, "option")) && r.section)
        return value_statement(r, list);
    parser.pos = start;
    return parse_error(parser, list || is_keyword(keyword, "option")
                                   ? "option/list command found before the first section"
                                   : "invalid command");
}

static int line(reader &r)
{
    for (;;) {
        skip_blanks(r.parser);
        const size_t pos = r.parser.pos;
        if (pos >= r.parser.buffer.size() || r.parser.buffer[pos] == '#')
            return UCI_OK;
        const int err = statement(r);
        if (err)
            return err;
        if (r.parser.pos < r.parser.buffer.size())
            r.parser.pos++; // the ";" the statement ended at
    }
}

static int read_lines(reader &r)
{
    r.ctx->pctx->reason = nullptr;
    while (next_line(r.parser)) {
        r.ctx->err = line(r);
        if (!r.ctx->err)
            continue;
        if (strict(r))
            return r.ctx->err;
        if (r.ctx->flags & UCI_FLAG_PERROR)
            uci_perror(r.ctx, nullptr);
    }
    if (ferror(r.parser.stream))
        return result(r.ctx, UCI_ERR_IO);
    return result(r.ctx, UCI_OK);
}

int libuci::read_statements(uci_context *ctx, FILE *stream, uci_package *p)
{
    parser_start(*ctx->pctx, stream);
    reader r{ctx, *ctx->pctx, p, nullptr, true, true, nullptr};
    return read_lines(r);
}

static int import_named(uci_context *ctx, FILE *stream, const char *name, uci_package **package)
{
    if (!valid_package_name(name))
        return result(ctx, UCI_ERR_INVAL);
    uci_package *p = package_new(ctx, name);
    const int err = read_statements(ctx, stream, p);
    if (err) {
        package_free(p);
        return err;
    }
    if (uci_package *loaded = uci_lookup_package(ctx, name))
        package_free(loaded);
    list_insert(ctx->root.prev, &p->e.list);
    if (package)
        *package = p;
    return UCI_OK;
}

int uci_import(uci_context *ctx, FILE *stream, const char *name, uci_package **package, bool single)
{
    if (name)
        return import_named(ctx, stream, name, package);
    uci_package *last = nullptr;
    parser_start(*ctx->pctx, stream);
    reader r{ctx, *ctx->pctx, nullptr, nullptr, false, single, &last};
    const int err = read_lines(r);
    if (package)
        *package = last;
    return err;
}

// The written form of packages.
#include "uci_internal.h"

using namespace libuci;

void libuci::write_quoted(FILE *stream, const char *text)
{
    putc('\'', stream);
    for (; *text; text++) {
        if (*text == '\'')
            fputs("'\\''", stream);
        else
            putc(*text, stream);
    }
    putc('\'', stream);
}

static void write_value(FILE *stream, const char *keyword, const char *name, const char *value)
{
    fprintf(stream, "\t%s %s ", keyword, name);
    write_quoted(stream, value);
    putc('\n', stream);
}

static void write_section(FILE *stream, uci_section *s, bool with_name)
{
    fprintf(stream, "\nconfig %s", s->type);
    if (with_name)
        fprintf(stream, " '%s'", s->e.name);
    putc('\n', stream);
    uci_element *e, *item;
    uci_foreach_element(&s->options, e)
    {
        uci_option *o = uci_to_option(e);
        if (o->type == UCI_TYPE_STRING) {
            write_value(stream, "option", e->name, o->v.string);
            continue;
        }
        uci_foreach_element(&o->v.list, item) write_value(stream, "list", e->name, item->name);
    }
}

static void write_package(FILE *stream, uci_package *p, bool header)
{
    if (header)
        fprintf(stream, "package %s\n", p->e.name);
    const bool all_names = p->ctx->flags & UCI_FLAG_EXPORT_NAME;
    uci_element *e;
    uci_foreach_element(&p->sections, e)
        write_section(stream, uci_to_section(e), all_names || !uci_to_section(e)->anonymous);
    putc('\n', stream);
}

int uci_export(uci_context *ctx, FILE *stream, uci_package *package, bool header)
{
    uci_element *e;
    if (package)
        write_package(stream, package, header);
    else
        uci_foreach_element(&ctx->root, e) write_package(stream, uci_to_package(e), header);
    return result(ctx, ferror(stream) ? UCI_ERR_IO : UCI_OK);
}

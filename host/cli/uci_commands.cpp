// The commands of the `uci` tool that change something; those that print are in uci_print.cpp.
#include <cstdlib>
#include <cstring>
#include <vector>

#include "uci_tool_internal.h"

int uci_tool_failed(uci_tool &tool)
{
    // A failure without a code (text in the place of an item number) has no message.
    if (tool.ctx->err && !tool.quiet)
        uci_perror(tool.ctx, tool.name);
    return 1;
}

int uci_tool_failed(uci_tool &tool, int code)
{
    tool.ctx->err = code;
    return uci_tool_failed(tool);
}

void uci_tool_unload_all(uci_tool &tool)
{
    while (!uci_list_empty(&tool.ctx->root))
        (void)uci_unload(tool.ctx, uci_to_package(list_to_element(tool.ctx->root.next)));
}

/// Makes one change of the tuple in `text` and saves it.
static int change_and_save(uci_tool &tool, char *text, int (*change)(uci_context *, uci_ptr *))
{
    uci_ptr ptr;
    if (uci_lookup_ptr(tool.ctx, &ptr, text, true) != UCI_OK)
        return uci_tool_failed(tool);
    const int err = change(tool.ctx, &ptr);
    if (err || uci_save(tool.ctx, ptr.p) != UCI_OK)
        return uci_tool_failed(tool);
    return 0;
}

int uci_tool_set(uci_tool &tool, char **arguments, int)
{
    return change_and_save(tool, arguments[0], uci_set);
}

int uci_tool_add_list(uci_tool &tool, char **arguments, int)
{
    return change_and_save(tool, arguments[0], uci_add_list);
}

int uci_tool_del_list(uci_tool &tool, char **arguments, int)
{
    return change_and_save(tool, arguments[0], uci_del_list);
}

int uci_tool_delete(uci_tool &tool, char **arguments, int)
{
    return change_and_save(tool, arguments[0], uci_delete);
}

int uci_tool_rename(uci_tool &tool, char **arguments, int)
{
    return change_and_save(tool, arguments[0], uci_rename);
}

static int reorder(uci_context *ctx, uci_ptr *ptr)
{
    if (!ptr->s || !ptr->value)
        return ctx->err = UCI_ERR_NOTFOUND;
    char *end;
    const long pos = strtol(ptr->value, &end, 10);
    if (end == ptr->value || *end)
        return ctx->err = UCI_ERR_INVAL;
    return uci_reorder_section(ctx, ptr->s, static_cast<int>(pos));
}

int uci_tool_reorder(uci_tool &tool, char **arguments, int)
{
    return change_and_save(tool, arguments[0], reorder);
}

int uci_tool_add(uci_tool &tool, char **arguments, int)
{
    uci_package *p = nullptr;
    uci_section *s = nullptr;
    int err = uci_load(tool.ctx, arguments[0], &p);
    if (!err)
        err = uci_add_section(tool.ctx, p, arguments[1], &s);
    if (!err)
        err = uci_save(tool.ctx, p);
    if (err) {
        (void)uci_tool_failed(tool);
        return err;
    }
    printf("%s\n", s->e.name);
    return 0;
}

int uci_tool_revert(uci_tool &tool, char **arguments, int)
{
    uci_ptr ptr;
    if (uci_lookup_ptr(tool.ctx, &ptr, arguments[0], true) != UCI_OK ||
        uci_revert(tool.ctx, &ptr) != UCI_OK)
        return uci_tool_failed(tool);
    return 0;
}

// ---- commit

static int commit_package(uci_tool &tool, char *name)
{
    uci_ptr ptr;
    if (uci_lookup_ptr(tool.ctx, &ptr, name, true) != UCI_OK)
        return uci_tool_failed(tool);
    if (ptr.target != UCI_TYPE_PACKAGE)
        return uci_tool_failed(tool, UCI_ERR_INVAL);
    if (!tool.state_only && uci_commit(tool.ctx, &ptr.p, false) != UCI_OK)
        return uci_tool_failed(tool);
    return 0;
}

int uci_tool_commit(uci_tool &tool, char **arguments, int count)
{
    return uci_tool_each(tool, arguments, count, commit_package);
}

// ---- import

/// One change of the package that is merged into.
static int merge_value(uci_tool &tool, uci_section *into, const char *option, const char *value,
                       int (*change)(uci_context *, uci_ptr *))
{
    uci_ptr ptr{};
    ptr.p = into->package;
    ptr.s = into;
    ptr.option = option;
    ptr.value = value;
    return change(tool.ctx, &ptr);
}

static int merge_options(uci_tool &tool, uci_section *from, uci_section *into)
{
    int err = UCI_OK;
    uci_element *e, *item;
    uci_foreach_element(&from->options, e)
    {
        uci_option *o = uci_to_option(e);
        if (o->type == UCI_TYPE_STRING) {
            err = err ? err : merge_value(tool, into, e->name, o->v.string, uci_set);
            continue;
        }
        uci_foreach_element(&o->v.list, item) err =
            err ? err : merge_value(tool, into, e->name, item->name, uci_add_list);
    }
    return err;
}

/// The section of `into` that `s` is merged into; made when it is not there or has no name.
static int merge_target(uci_tool &tool, uci_section *s, uci_package *into, uci_section **target)
{
    if (s->anonymous)
        return uci_add_section(tool.ctx, into, s->type, target);
    uci_ptr ptr{};
    ptr.p = into;
    ptr.section = s->e.name;
    ptr.value = s->type;
    const int err = uci_set(tool.ctx, &ptr);
    *target = ptr.s;
    return err;
}

static int merge_package(uci_tool &tool, uci_package *from)
{
    uci_package *into = uci_lookup_package(tool.ctx, from->e.name);
    int err = into ? UCI_OK : uci_load(tool.ctx, from->e.name, &into);
    uci_element *e, *tmp;
    uci_foreach_element_safe(&from->sections, tmp, e)
    {
        uci_section *target = nullptr;
        if (!err)
            err = merge_target(tool, uci_to_section(e), into, &target);
        if (!err)
            err = merge_options(tool, uci_to_section(e), target);
    }
    return err ? err : uci_save(tool.ctx, into);
}

static int overwrite_package(uci_tool &, uci_package *imported)
{
    return uci_commit(imported->ctx, &imported, true);
}

int uci_tool_import(uci_tool &tool, char **arguments, int count)
{
    uci_tool reader = tool; // a context of its own, so that a merge has both packages at hand
    reader.ctx = uci_alloc_context();
    reader.ctx->flags = tool.ctx->flags;
    (void)uci_set_confdir(reader.ctx, tool.ctx->confdir);
    (void)uci_set_conf2dir(reader.ctx, tool.ctx->conf2dir);
    (void)uci_set_savedir(reader.ctx, tool.ctx->savedir);

    uci_package *last = nullptr;
    int status = 0;
    if (uci_import(reader.ctx, tool.input, count ? arguments[0] : nullptr, &last, count > 0) != 0)
        status = uci_tool_failed(reader);
    uci_element *e, *tmp;
    uci_foreach_element_safe(&reader.ctx->root, tmp, e)
    {
        const int err =
            status ? UCI_OK
                   : (tool.merge ? merge_package : overwrite_package)(tool, uci_to_package(e));
        if (err)
            status = uci_tool_failed(tool, err);
    }
    uci_free_context(reader.ctx);
    return status;
}

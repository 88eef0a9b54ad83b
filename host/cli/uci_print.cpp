// The commands of the `uci` tool that print: get, show, export, changes.
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>

#include "uci_tool_internal.h"

int uci_tool_each(uci_tool &tool, char **arguments, int count, int (*act)(uci_tool &, char *name))
{
    if (count > 0)
        return act(tool, arguments[0]);
    char **names = nullptr;
    if (uci_list_configs(tool.ctx, &names) != UCI_OK)
        return uci_tool_failed(tool);
    int status = 0;
    for (char **name = names; *name; name++) {
        std::string text = *name;
        status |= act(tool, text.data());
    }
    free(names);
    return status;
}

/// With no package named, one that does not load is reported and counts as shown.
static int each_shown(uci_tool &tool, char **arguments, int count,
                      int (*act)(uci_tool &, char *name))
{
    const int status = uci_tool_each(tool, arguments, count, act);
    return count > 0 ? status : 0;
}

static void print_quoted(const char *text)
{
    putchar('\'');
    for (; *text; text++)
        fputs(*text == '\'' ? "'\\''" : std::string(1, *text).c_str(), stdout);
    putchar('\'');
}

// ---- get

static void print_item(const char *text)
{
    if (strpbrk(text, " \t\r\n"))
        print_quoted(text);
    else
        fputs(text, stdout);
}

static void print_list(uci_tool &tool, uci_option *o, void (*print)(const char *))
{
    const char *between = "";
    uci_element *e;
    uci_foreach_element(&o->v.list, e)
    {
        fputs(between, stdout);
        print(e->name);
        between = tool.delimiter;
    }
    putchar('\n');
}

int uci_tool_get(uci_tool &tool, char **arguments, int)
{
    uci_ptr ptr;
    if (uci_lookup_ptr(tool.ctx, &ptr, arguments[0], true) != UCI_OK)
        return uci_tool_failed(tool);
    if (ptr.value)
        return 1;
    if (ptr.last->type != ptr.target)
        return uci_tool_failed(tool, UCI_ERR_NOTFOUND);
    if (ptr.o && ptr.o->type == UCI_TYPE_LIST)
        print_list(tool, ptr.o, print_item);
    else if (ptr.o)
        printf("%s\n", ptr.o->v.string);
    else if (ptr.s)
        printf("%s\n", ptr.s->type);
    return 0;
}

// ---- show

static void show_option(uci_tool &tool, const std::string &section, uci_option *o)
{
    printf("%s.%s=", section.c_str(), o->e.name);
    if (o->type == UCI_TYPE_LIST) {
        print_list(tool, o, print_quoted);
        return;
    }
    print_quoted(o->v.string);
    putchar('\n');
}

static void show_section(uci_tool &tool, const std::string &name, uci_section *s)
{
    printf("%s=%s\n", name.c_str(), s->type);
    uci_element *e;
    uci_foreach_element(&s->options, e) show_option(tool, name, uci_to_option(e));
}

/// Nameless sections as "@type[n]", n counting all sections of the type.
static void show_package(uci_tool &tool, uci_package *p)
{
    std::map<std::string, int> count;
    uci_element *e;
    uci_foreach_element(&p->sections, e)
    {
        uci_section *s = uci_to_section(e);
        std::string name = std::string("@") + s->type + "[";
        name += std::to_string(count[s->type]++) + "]";
        if (!s->anonymous || tool.generated_names)
            name = e->name;
        show_section(tool, std::string(p->e.name) + "." + name, s);
    }
}

static int show(uci_tool &tool, char *text)
{
    uci_ptr ptr;
    if (uci_lookup_ptr(tool.ctx, &ptr, text, true) != UCI_OK)
        return uci_tool_failed(tool);
    if (ptr.value)
        return 1;
    if (ptr.last->type != ptr.target)
        return uci_tool_failed(tool, UCI_ERR_NOTFOUND);
    const std::string section =
        ptr.s ? std::string(ptr.p->e.name) + "." + ptr.s->e.name : std::string();
    if (ptr.o)
        show_option(tool, section, ptr.o);
    else if (ptr.s)
        show_section(tool, section, ptr.s);
    else
        show_package(tool, ptr.p);
    return 0;
}

int uci_tool_show(uci_tool &tool, char **arguments, int count)
{
    return each_shown(tool, arguments, count, show);
}

// ---- export, changes

/// The package of that name, loaded if need be; null with a message.
static uci_package *package_for(uci_tool &tool, char *text)
{
    uci_ptr ptr;
    if (uci_lookup_ptr(tool.ctx, &ptr, text, true) != UCI_OK) {
        (void)uci_tool_failed(tool);
        return nullptr;
    }
    return ptr.p;
}

static int export_package(uci_tool &tool, char *name)
{
    uci_package *p = package_for(tool, name);
    return p ? uci_export(tool.ctx, stdout, p, true) : 1;
}

int uci_tool_export(uci_tool &tool, char **arguments, int count)
{
    return each_shown(tool, arguments, count, export_package);
}

static void print_change(uci_package *p, const uci_delta *d)
{
    printf("%s%s.%s", d->cmd == UCI_CMD_REMOVE ? "-" : "", p->e.name, d->section);
    if (d->e.name)
        printf(".%s", d->e.name);
    if (d->cmd != UCI_CMD_REMOVE && d->value) {
        fputs(d->cmd == UCI_CMD_LIST_ADD ? "+=" : d->cmd == UCI_CMD_LIST_DEL ? "-=" : "=", stdout);
        print_quoted(d->value);
    }
    putchar('\n');
}

static int print_changes(uci_tool &tool, char *name)
{
    uci_package *p = package_for(tool, name);
    if (!p)
        return 1;
    uci_element *e;
    uci_foreach_element(&p->saved_delta, e) print_change(p, uci_to_delta(e));
    return 0;
}

int uci_tool_changes(uci_tool &tool, char **arguments, int count)
{
    return each_shown(tool, arguments, count, print_changes);
}

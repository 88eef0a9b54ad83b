// Elements in memory: packages, sections, options, list items, and the names of nameless sections.
#include <cstdlib>
#include <cstring>

#include "uci_internal.h"

using namespace libuci;

void libuci::list_init(uci_list *list)
{
    list->next = list->prev = list;
}

void libuci::list_insert(uci_list *after, uci_list *item)
{
    item->prev = after;
    item->next = after->next;
    after->next->prev = item;
    after->next = item;
}

void libuci::list_remove(uci_list *item)
{
    item->prev->next = item->next;
    item->next->prev = item->prev;
    list_init(item);
}

void libuci::set_text(char *&member, const char *text)
{
    char *copy = text ? strdup(text) : nullptr;
    free(member);
    member = copy;
}

static void element_init(uci_element *e, uci_type type, const char *name)
{
    list_init(&e->list);
    e->type = type;
    set_text(e->name, name);
}

static void element_release(uci_element *e)
{
    list_remove(&e->list);
    free(e->name);
}

uci_element *libuci::element_new(uci_type type, const char *name)
{
    uci_element *e = new uci_element{};
    element_init(e, type, name);
    return e;
}

void libuci::element_free(uci_element *e)
{
    element_release(e);
    delete e;
}

uci_package *libuci::package_new(uci_context *ctx, const char *name)
{
    uci_package *p = new uci_package{};
    element_init(&p->e, UCI_TYPE_PACKAGE, name);
    p->ctx = ctx;
    p->has_delta = true;
    list_init(&p->sections);
    list_init(&p->delta);
    list_init(&p->saved_delta);
    return p;
}

void libuci::package_free(uci_package *p)
{
    uci_element *e, *tmp;
    uci_foreach_element_safe(&p->sections, tmp, e) section_free(uci_to_section(e));
    delta_free_all(&p->delta);
    delta_free_all(&p->saved_delta);
    free(p->path);
    element_release(&p->e);
    delete p;
}

/// "cfg", the section's number in the package and a hash of its type: the same after every load of
/// the same file.
static std::string generated_name(const uci_package *p, const char *type)
{
    uint32_t hash = 5381;
    for (const char *c = type; *c; c++)
        hash = hash * 33 + static_cast<unsigned char>(*c);
    char name[32];
    snprintf(name, sizeof name, "cfg%02x%04x", static_cast<unsigned>(p->n_section),
             static_cast<unsigned>((hash & 0x7fffffff) % 0x10000));
    return name;
}

uci_section *libuci::section_new(uci_package *p, const char *type, const char *name)
{
    uci_section *s = new uci_section{};
    p->n_section++;
    s->anonymous = !name || !*name;
    element_init(&s->e, UCI_TYPE_SECTION, s->anonymous ? generated_name(p, type).c_str() : name);
    s->package = p;
    set_text(s->type, type);
    list_init(&s->options);
    list_insert(p->sections.prev, &s->e.list);
    return s;
}

void libuci::section_free(uci_section *s)
{
    uci_element *e, *tmp;
    uci_foreach_element_safe(&s->options, tmp, e) option_free(uci_to_option(e));
    free(s->type);
    element_release(&s->e);
    delete s;
}

uci_option *libuci::option_new(uci_section *s, const char *name, const char *string)
{
    uci_option *o = new uci_option{};
    element_init(&o->e, UCI_TYPE_OPTION, name);
    o->section = s;
    o->type = string ? UCI_TYPE_STRING : UCI_TYPE_LIST;
    if (string)
        o->v.string = strdup(string);
    else
        list_init(&o->v.list);
    list_insert(s->options.prev, &o->e.list);
    return o;
}

static void option_release_value(uci_option *o)
{
    if (o->type == UCI_TYPE_STRING) {
        free(o->v.string);
        return;
    }
    uci_element *e, *tmp;
    uci_foreach_element_safe(&o->v.list, tmp, e) element_free(e);
}

void libuci::option_free(uci_option *o)
{
    option_release_value(o);
    element_release(&o->e);
    delete o;
}

void libuci::option_set_string(uci_option *o, const char *string)
{
    char *copy = strdup(string); // the old value may be where `string` points
    option_release_value(o);
    o->type = UCI_TYPE_STRING;
    o->v.string = copy;
}

void libuci::option_make_list(uci_option *o)
{
    if (o->type == UCI_TYPE_LIST)
        return;
    char *string = o->v.string;
    o->type = UCI_TYPE_LIST;
    list_init(&o->v.list);
    option_append(o, string);
    free(string);
}

void libuci::option_append(uci_option *o, const char *item)
{
    list_insert(o->v.list.prev, &element_new(UCI_TYPE_ITEM, item)->list);
}

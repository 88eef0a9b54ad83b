// Looking things up: by name in a list, and by a tuple "package.section.option=value".
#include <cstdlib>
#include <cstring>

#include "uci_internal.h"

using namespace libuci;

int uci_lookup_next(uci_context *ctx, uci_element **e, uci_list *list, const char *name)
{
    uci_list *item = *e ? (*e)->list.next : list->next;
    for (; item != list; item = item->next) {
        uci_element *candidate = list_to_element(item);
        if (!strcmp(candidate->name, name)) {
            *e = candidate;
            return result(ctx, UCI_OK);
        }
    }
    return result(ctx, UCI_ERR_NOTFOUND);
}

bool libuci::is_path(const char *name)
{
    return name[0] == '/' || (name[0] == '.' && name[1] == '/');
}

const char *libuci::package_base_name(const char *name)
{
    const char *slash = strrchr(name, '/');
    return slash ? slash + 1 : name;
}

/// Ends the text at its first `separator` and gives what follows, or null.
static char *split(char *text, char separator)
{
    char *at = text ? strchr(text, separator) : nullptr;
    if (at)
        *at++ = '\0';
    return at;
}

int uci_parse_ptr(uci_context *ctx, uci_ptr *ptr, char *str)
{
    *ptr = uci_ptr{};
    char *value = split(str, '=');
    char *base = is_path(str) ? str + (package_base_name(str) - str) : str;
    char *section = split(base, '.');
    char *option = split(section, '.');
    ptr->package = str;
    ptr->section = section;
    ptr->option = option;
    ptr->value = value;
    ptr->target = option ? UCI_TYPE_OPTION : section ? UCI_TYPE_SECTION : UCI_TYPE_PACKAGE;
    if (split(option, '.') || !valid_package_name(base) || (option && !valid_name(option)) ||
        (value && !uci_validate_text(value)))
        return result(ctx, UCI_ERR_PARSE);
    if (section && !valid_name(section))
        ptr->flags = uci_ptr::UCI_LOOKUP_EXTENDED;
    return result(ctx, UCI_OK);
}

/// The section that "@type[index]" means, a negative index counting from the end, no type meaning
/// any. *s is null when the index is out of range; false when the text has another form.
static bool find_indexed(uci_package *p, const char *text, uci_section **s)
{
    *s = nullptr;
    const char *bracket = strchr(text, '[');
    if (text[0] != '@' || !bracket)
        return false;
    char *end;
    long index = strtol(bracket + 1, &end, 10);
    if (end == bracket + 1 || strcmp(end, "]") != 0)
        return false;
    const std::string type(text + 1, bracket);

    const bool backwards = index < 0;
    if (backwards)
        index = -(index + 1);
    uci_list *item = backwards ? p->sections.prev : p->sections.next;
    for (; item != &p->sections; item = backwards ? item->prev : item->next) {
        uci_section *candidate = uci_to_section(list_to_element(item));
        if ((type.empty() || type == candidate->type) && index-- == 0) {
            *s = candidate;
            break;
        }
    }
    return true;
}

static int find_section(uci_context *ctx, uci_ptr *ptr, bool extended)
{
    const bool indexed = (ptr->flags & uci_ptr::UCI_LOOKUP_EXTENDED) || ptr->section[0] == '@';
    if (!indexed) {
        ptr->s = uci_lookup_section(ctx, ptr->p, ptr->section);
        return UCI_OK;
    }
    ptr->flags = static_cast<decltype(ptr->flags)>(ptr->flags | uci_ptr::UCI_LOOKUP_EXTENDED);
    if (!extended || !find_indexed(ptr->p, ptr->section, &ptr->s))
        return UCI_ERR_INVAL;
    if (ptr->s)
        ptr->section = ptr->s->e.name;
    return UCI_OK;
}

/// Fills the names of what the caller gave as elements only.
static void names_from_elements(uci_ptr *ptr)
{
    if (ptr->o && !ptr->s)
        ptr->s = ptr->o->section;
    if (ptr->s && !ptr->p)
        ptr->p = ptr->s->package;
    if (ptr->p)
        ptr->package = ptr->p->e.name;
    if (ptr->s)
        ptr->section = ptr->s->e.name;
    if (ptr->o)
        ptr->option = ptr->o->e.name;
    ptr->target = ptr->option    ? UCI_TYPE_OPTION
                  : ptr->section ? UCI_TYPE_SECTION
                                 : UCI_TYPE_PACKAGE;
}

static int find_package(uci_context *ctx, uci_ptr *ptr)
{
    if (!ptr->package)
        return UCI_ERR_INVAL;
    ptr->p = uci_lookup_package(ctx, package_base_name(ptr->package));
    return ptr->p ? UCI_OK : uci_load(ctx, ptr->package, &ptr->p);
}

static void set_found(uci_ptr *ptr)
{
    ptr->last = ptr->o ? &ptr->o->e : ptr->s ? &ptr->s->e : &ptr->p->e;
    const bool complete = ptr->last->type == ptr->target;
    ptr->flags = static_cast<decltype(ptr->flags)>((ptr->flags & uci_ptr::UCI_LOOKUP_EXTENDED) |
                                                   uci_ptr::UCI_LOOKUP_DONE |
                                                   (complete ? uci_ptr::UCI_LOOKUP_COMPLETE : 0));
}

int uci_lookup_ptr(uci_context *ctx, uci_ptr *ptr, char *str, bool extended)
{
    int err = UCI_OK;
    if (str)
        err = uci_parse_ptr(ctx, ptr, str);
    else
        names_from_elements(ptr);
    if (err)
        return err;
    if ((ptr->flags & uci_ptr::UCI_LOOKUP_EXTENDED) && !extended)
        return result(ctx, UCI_ERR_INVAL);
    if (!ptr->p && (err = find_package(ctx, ptr)))
        return ctx->err == err ? err : result(ctx, err);
    if (ptr->section && !ptr->s && (err = find_section(ctx, ptr, extended)))
        return result(ctx, err);
    if (ptr->option && ptr->s && !ptr->o)
        ptr->o = uci_lookup_option(ctx, ptr->s, ptr->option);
    set_found(ptr);
    return result(ctx, UCI_OK);
}

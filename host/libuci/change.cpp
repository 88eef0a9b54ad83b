// Changes of a package in memory. The same code makes a caller's changes, which become deltas, and
// applies the lines of delta files, which do not.
#include <cstdlib>
#include <cstring>

#include "uci_internal.h"

using namespace libuci;

static void record_if(bool record, uci_command command, const uci_ptr &ptr, const char *value)
{
    if (record && ptr.p->has_delta)
        delta_record(ptr.p, command, ptr, value);
}

/// What deleting a list item by something that is no number gives: a failure without a text.
constexpr int NOT_A_NUMBER = 1;

/// Deletes list item number `value`; a number past the end deletes nothing.
static int delete_item(uci_ptr &ptr, bool record)
{
    char *end;
    long index = strtol(ptr.value, &end, 10);
    if (end == ptr.value || *end)
        return NOT_A_NUMBER;
    uci_element *e;
    uci_foreach_element(&ptr.o->v.list, e)
    {
        if (index-- != 0)
            continue;
        record_if(record, UCI_CMD_REMOVE, ptr, ptr.value);
        element_free(e);
        return UCI_OK;
    }
    return UCI_OK;
}

static int change_delete(uci_ptr &ptr, bool record)
{
    if (!ptr.section)
        return UCI_ERR_INVAL;
    if (!ptr.s || (ptr.option && !ptr.o))
        return UCI_ERR_NOTFOUND;
    if (ptr.o && ptr.o->type == UCI_TYPE_LIST && ptr.value && *ptr.value)
        return delete_item(ptr, record);
    record_if(record, UCI_CMD_REMOVE, ptr, nullptr);
    if (ptr.o) {
        option_free(ptr.o);
        ptr.last = &ptr.s->e;
    } else {
        section_free(ptr.s);
        ptr.s = nullptr;
        ptr.last = &ptr.p->e;
    }
    ptr.o = nullptr;
    return UCI_OK;
}

static int set_section(uci_ptr &ptr, bool record)
{
    if (!valid_type(ptr.value))
        return UCI_ERR_INVAL;
    if (ptr.s && !strcmp(ptr.s->type, ptr.value))
        return UCI_OK;
    if (!ptr.s && ptr.section[0] == '@')
        return UCI_ERR_INVAL; // an index past the end names no section that could be made
    record_if(record, UCI_CMD_CHANGE, ptr, ptr.value);
    if (ptr.s)
        set_text(ptr.s->type, ptr.value);
    else
        ptr.s = section_new(ptr.p, ptr.value, ptr.section);
    ptr.last = &ptr.s->e;
    return UCI_OK;
}

static int set_option(uci_ptr &ptr, bool record)
{
    if (ptr.o && ptr.o->type == UCI_TYPE_STRING && !strcmp(ptr.o->v.string, ptr.value))
        return UCI_OK;
    record_if(record, UCI_CMD_CHANGE, ptr, ptr.value);
    if (ptr.o)
        option_set_string(ptr.o, ptr.value);
    else
        ptr.o = option_new(ptr.s, ptr.option, ptr.value);
    ptr.last = &ptr.o->e;
    return UCI_OK;
}

static int change_set(uci_ptr &ptr, bool record)
{
    if (!ptr.value || !ptr.section)
        return UCI_ERR_INVAL;
    if (ptr.option && !ptr.s)
        return UCI_ERR_INVAL;
    if (!*ptr.value) {
        ptr.value = nullptr; // not an item number: the whole option goes
        const bool exists = ptr.option ? ptr.o != nullptr : ptr.s != nullptr;
        return exists ? change_delete(ptr, record) : UCI_OK;
    }
    return ptr.option ? set_option(ptr, record) : set_section(ptr, record);
}

static int change_add_section(uci_ptr &ptr)
{
    if (!valid_type(ptr.value))
        return UCI_ERR_INVAL;
    if (ptr.s) {
        set_text(ptr.s->type, ptr.value);
        return UCI_OK;
    }
    ptr.s = section_new(ptr.p, ptr.value, ptr.section);
    ptr.s->anonymous = true;
    return UCI_OK;
}

static int change_add_list(uci_ptr &ptr, bool record)
{
    if (!ptr.s || !ptr.value)
        return UCI_ERR_INVAL;
    record_if(record, UCI_CMD_LIST_ADD, ptr, ptr.value);
    if (!ptr.option)
        return UCI_OK;                   // its delta line names no option: nothing will come of it
    const std::string value = ptr.value; // which may be the text that becomes the first item
    if (!ptr.o)
        ptr.o = option_new(ptr.s, ptr.option, nullptr);
    option_make_list(ptr.o);
    option_append(ptr.o, value.c_str());
    ptr.last = &ptr.o->e;
    return UCI_OK;
}

static int change_del_list(uci_ptr &ptr, bool record)
{
    if (!ptr.s || !ptr.value)
        return UCI_ERR_INVAL;
    if (!ptr.o || ptr.o->type != UCI_TYPE_LIST)
        return UCI_OK;
    record_if(record, UCI_CMD_LIST_DEL, ptr, ptr.value);
    const std::string value = ptr.value; // which may be the text of an item
    uci_element *e, *tmp;
    uci_foreach_element_safe(&ptr.o->v.list, tmp, e) if (value == e->name) element_free(e);
    return UCI_OK;
}

static int change_rename(uci_ptr &ptr, bool record)
{
    if (!ptr.section || !ptr.value)
        return UCI_ERR_INVAL;
    if (!ptr.s || (ptr.option && !ptr.o))
        return UCI_ERR_NOTFOUND;
    record_if(record, UCI_CMD_RENAME, ptr, ptr.value);
    if (ptr.o) {
        set_text(ptr.o->e.name, ptr.value);
        ptr.option = ptr.o->e.name;
        return UCI_OK;
    }
    set_text(ptr.s->e.name, ptr.value);
    ptr.s->anonymous = false;
    ptr.section = ptr.s->e.name;
    return UCI_OK;
}

/// Moves the section so that `pos` others come before it. False when it stands there already.
static bool move_section(uci_section *s, long pos)
{
    uci_list *before = s->e.list.prev, *list = &s->package->sections;
    list_remove(&s->e.list);
    uci_list *after = list;
    for (; pos > 0 && after->next != list; pos--)
        after = after->next;
    list_insert(after, &s->e.list);
    return after != before;
}

static int change_reorder(uci_ptr &ptr, bool record)
{
    if (!ptr.s)
        return UCI_ERR_NOTFOUND;
    char *end;
    const long pos = ptr.value ? strtol(ptr.value, &end, 10) : -1;
    if (pos < 0 || end == ptr.value || *end)
        return UCI_ERR_INVAL;
    if (move_section(ptr.s, pos))
        record_if(record, UCI_CMD_REORDER, ptr, ptr.value);
    return UCI_OK;
}

int libuci::change(uci_command command, uci_ptr &ptr, bool record)
{
    switch (command) {
    case UCI_CMD_ADD:
        return change_add_section(ptr);
    case UCI_CMD_REMOVE:
        return change_delete(ptr, record);
    case UCI_CMD_CHANGE:
        return change_set(ptr, record);
    case UCI_CMD_RENAME:
        return change_rename(ptr, record);
    case UCI_CMD_REORDER:
        return change_reorder(ptr, record);
    case UCI_CMD_LIST_ADD:
        return change_add_list(ptr, record);
    case UCI_CMD_LIST_DEL:
        return change_del_list(ptr, record);
    }
    return UCI_ERR_INVAL;
}

/// A caller's change, of a pointer that may still have to be looked up.
static int caller_change(uci_context *ctx, uci_command command, uci_ptr *ptr)
{
    if (!(ptr->flags & uci_ptr::UCI_LOOKUP_DONE)) {
        const int err = uci_lookup_ptr(ctx, ptr, nullptr, true);
        if (err)
            return err;
    }
    const int err = change(command, *ptr, true);
    (void)result(ctx, err == NOT_A_NUMBER ? UCI_OK : err);
    return err;
}

int uci_set(uci_context *ctx, uci_ptr *ptr)
{
    return caller_change(ctx, UCI_CMD_CHANGE, ptr);
}

int uci_add_list(uci_context *ctx, uci_ptr *ptr)
{
    return caller_change(ctx, UCI_CMD_LIST_ADD, ptr);
}

int uci_del_list(uci_context *ctx, uci_ptr *ptr)
{
    return caller_change(ctx, UCI_CMD_LIST_DEL, ptr);
}

int uci_rename(uci_context *ctx, uci_ptr *ptr)
{
    return caller_change(ctx, UCI_CMD_RENAME, ptr);
}

int uci_delete(uci_context *ctx, uci_ptr *ptr)
{
    return caller_change(ctx, UCI_CMD_REMOVE, ptr);
}

int uci_reorder_section(uci_context *ctx, uci_section *s, int pos)
{
    const std::string value = std::to_string(pos);
    uci_ptr ptr{};
    ptr.s = s;
    ptr.value = value.c_str();
    return caller_change(ctx, UCI_CMD_REORDER, &ptr);
}

int uci_add_section(uci_context *ctx, uci_package *p, const char *type, uci_section **res)
{
    uci_section *s = section_new(p, type, nullptr);
    uci_ptr ptr{};
    ptr.p = p;
    ptr.section = s->e.name;
    record_if(true, UCI_CMD_ADD, ptr, type);
    if (res)
        *res = s;
    return result(ctx, UCI_OK);
}

// Save actions: one change each of a package in memory.
//
// libuci removes a list item by walking the whole list, and reads such a removal back from the
// delta file in the same way. So that thousands of additions do not become millions of steps, the
// items of the lists being added to are known here, and only what is in a list is removed from it.
#include <algorithm>
#include <cstring>
#include <unordered_map>
#include <unordered_set>

#include "platform/zu/log.h"
#include "platform/zu/ng_uci.h"
#include "platform/zu/ng_uci_internal.h"

using item_set = std::unordered_set<std::string>;

/// By "package.section.option", for the life of the change context.
static std::unordered_map<std::string, item_set> &known_items()
{
    static std::unordered_map<std::string, item_set> items;
    return items;
}

void ng_uci_forget_items()
{
    known_items().clear();
}

void ng_uci_forget_items(const std::string &list)
{
    known_items().erase(list);
}

static std::string list_name(const uci_ptr &ptr)
{
    return std::string(ptr.package) + "." + ptr.section + "." + ptr.option;
}

/// The items of the list, which may be a single string or not be there.
static item_set &items_of(const uci_ptr &ptr)
{
    const auto [place, fresh] = known_items().try_emplace(list_name(ptr));
    item_set &items = place->second;
    if (!fresh || !ptr.o)
        return items;
    if (ptr.o->type == UCI_TYPE_STRING) {
        items.insert(ptr.o->v.string);
        return items;
    }
    uci_element *e;
    uci_foreach_element(&ptr.o->v.list, e) items.insert(e->name);
    return items;
}

// ---- the four actions; each gives libuci's error

static int delete_named(uci_context *ctx, uci_ptr &ptr)
{
    if (!ng_uci_is_found(ptr))
        return UCI_OK;
    if (ptr.o)
        ng_uci_forget_items(list_name(ptr));
    else
        ng_uci_forget_items();
    ptr.value = nullptr;
    return uci_delete(ctx, &ptr);
}

static int set_string(uci_context *ctx, uci_ptr &ptr)
{
    if (ptr.option)
        ng_uci_forget_items(list_name(ptr));
    return uci_set(ctx, &ptr);
}

static int remove_item(uci_context *ctx, uci_ptr &ptr)
{
    if (!ptr.value)
        return delete_named(ctx, ptr);
    if (!ptr.o || items_of(ptr).erase(ptr.value) == 0)
        return UCI_OK;
    // To libuci a string option is no list, although it is one of a single item to its readers.
    return ptr.o->type == UCI_TYPE_STRING ? delete_named(ctx, ptr) : uci_del_list(ctx, &ptr);
}

static int add_item(uci_context *ctx, uci_ptr &ptr)
{
    if (!ptr.option || !ptr.value)
        return UCI_ERR_INVAL;
    const char *value = ptr.value; // which removing may clear
    const int err = remove_item(ctx, ptr);
    if (err)
        return err;
    ptr.value = value;
    const int added = uci_add_list(ctx, &ptr);
    if (added == UCI_OK)
        items_of(ptr).insert(value);
    return added;
}

static int act(uci_context *ctx, ng_uci_action action, uci_ptr &ptr)
{
    switch (action) {
    case uci_set_string:
        return set_string(ctx, ptr);
    case ng_uci_add_list:
        return add_item(ctx, ptr);
    case ng_uci_del_list:
        return remove_item(ctx, ptr);
    case ng_uci_delete_option:
        return delete_named(ctx, ptr);
    }
    return UCI_ERR_INVAL;
}

/// True when the device does not have the package, and whoever it is for is not there either.
static bool is_in_no_package(const std::string &name)
{
    return ng_uci_is_absent(name.substr(0, name.find('.')));
}

// ---- a whole list

/// The items without repetition, each where it stands last.
static std::vector<std::string> without_repetition(const std::vector<std::string> &items)
{
    std::vector<std::string> once;
    item_set seen;
    for (auto item = items.rbegin(); item != items.rend(); ++item)
        if (seen.insert(*item).second)
            once.push_back(*item);
    std::reverse(once.begin(), once.end());
    return once;
}

static bool is_list_of(const uci_option *option, const std::vector<std::string> &items)
{
    if (!option || option->type != UCI_TYPE_LIST)
        return !option && items.empty();
    size_t at = 0;
    uci_element *e;
    uci_foreach_element(&const_cast<uci_option *>(option)->v.list, e)
    {
        if (at == items.size() || items[at] != e->name)
            return false;
        at++;
    }
    return at == items.size();
}

static int replace_items(uci_context *ctx, const char *name, const std::vector<std::string> &items)
{
    std::string text;
    uci_ptr ptr;
    int err = ng_uci_lookup(ctx, &ptr, text, name);
    if (err || is_list_of(ptr.o, items))
        return err;
    if (ptr.o)
        err = uci_delete(ctx, &ptr);
    if (!err)
        err = ng_uci_lookup(ctx, &ptr, text, name);
    for (const std::string &item : items) {
        ptr.value = item.c_str();
        if (!err)
            err = uci_add_list(ctx, &ptr);
    }
    if (!err) {
        ng_uci_changes_of(ptr.package).touch(ptr.section, ptr.option);
        ng_uci_forget_items(list_name(ptr));
    }
    return err;
}

int ng_uci_set_list(const std::vector<std::string> &items, const char *name)
{
    uci_context *ctx = ng_uci_change_context();
    const bool good = std::all_of(items.begin(), items.end(), [](const std::string &item) {
        return ng_uci_is_value(item.c_str());
    });
    if (!ctx || !ng_uci_is_name(name) || !good) {
        log_error("Refusing a value with control characters for '%s', or its name", name);
        return -1;
    }
    const int err = replace_items(ctx, name, without_repetition(items));
    if (!err || (err == UCI_ERR_NOTFOUND && is_in_no_package(name)))
        return 0;
    log_error("Failed to change '%s': %s", name, ng_uci_error(ctx).get());
    return -1;
}

// ---- save actions

static int save_action(ng_uci_action action, const char *value, const char *name)
{
    // Always the context that is in force: a caller's may be from before it was renewed.
    uci_context *ctx = ng_uci_change_context();
    if (!ctx) {
        log_error("No UCI context to change '%s' in", name);
        return -1;
    }
    if (!ng_uci_is_name(name)) {
        log_error("'%s' is not the name of a UCI option", name);
        return -1;
    }
    // Its text stays out of the log: it may be a key.
    if (value && !ng_uci_is_value(value)) {
        log_error("Refusing a value with control characters for '%s'", name);
        return -1;
    }
    std::string text;
    uci_ptr ptr;
    int err = ng_uci_lookup(ctx, &ptr, text, name);
    const std::string section = !err && ptr.section ? ptr.section : ""; // deleting frees it
    ptr.value = value;
    if (!err)
        err = act(ctx, action, ptr);
    if (err) {
        if (err == UCI_ERR_NOTFOUND && is_in_no_package(name))
            return 0;
        log_error("Failed to change '%s': %s", name, ng_uci_error(ctx).get());
        return -1;
    }
    ng_uci_changes_of(ptr.p->e.name).touch(section.c_str(), ptr.option);
    return 0;
}

int ng_uci_save_action_ctx(uci_context *ctx, ng_uci_action action, const char *value,
                           const char *name_format, ...)
{
    (void)ctx;
    va_list args;
    va_start(args, name_format);
    const std::string name = ng_uci_format(name_format, args);
    va_end(args);
    return save_action(action, value, name.c_str());
}

int ng_uci_save_action_int_ctx(uci_context *ctx, ng_uci_action action, int value,
                               const char *name_format, ...)
{
    (void)ctx;
    va_list args;
    va_start(args, name_format);
    const std::string name = ng_uci_format(name_format, args);
    va_end(args);
    return save_action(action, std::to_string(value).c_str(), name.c_str());
}

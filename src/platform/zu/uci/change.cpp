// Changes of a package in memory: save actions, one option each, and whole lists. To add one item
// is to walk the list, where it must not stand twice; thousands are added as a whole.
#include <algorithm>
#include <cstring>
#include <string_view>
#include <unordered_set>

#include "platform/zu/log.h"
#include "platform/zu/ng_uci.h"
#include "platform/zu/uci/uci_internal.h"

static bool is_item(uci_option *list, const char *value)
{
    if (list->type == UCI_TYPE_STRING)
        return strcmp(list->v.string, value) == 0;
    uci_element *e;
    uci_foreach_element(&list->v.list, e)
    {
        if (strcmp(e->name, value) == 0)
            return true;
    }
    return false;
}

// ---- the four actions; each gives libuci's error

static int delete_named(uci_context *ctx, uci_ptr &ptr)
{
    if (!ng_uci_is_found(ptr))
        return UCI_OK;
    ptr.value = nullptr;
    return uci_delete(ctx, &ptr);
}

static int remove_item(uci_context *ctx, uci_ptr &ptr)
{
    if (!ptr.value)
        return delete_named(ctx, ptr);
    if (!ptr.o || !is_item(ptr.o, ptr.value))
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
    return uci_add_list(ctx, &ptr);
}

static int act(uci_context *ctx, ng_uci_action action, uci_ptr &ptr)
{
    switch (action) {
    case uci_set_string:
        return uci_set(ctx, &ptr);
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
static std::vector<const char *> without_repetition(const std::vector<std::string> &items)
{
    std::vector<const char *> once;
    std::unordered_set<std::string_view> seen;
    for (auto item = items.rbegin(); item != items.rend(); ++item)
        if (seen.insert(*item).second)
            once.push_back(item->c_str());
    std::reverse(once.begin(), once.end());
    return once;
}

template <typename Items>
static bool is_list_of(const uci_option *option, const Items &items)
{
    if (!option || option->type != UCI_TYPE_LIST)
        return !option && items.empty();
    size_t at = 0;
    uci_element *e;
    uci_foreach_element(&const_cast<uci_option *>(option)->v.list, e)
    {
        if (at == items.size() || items[at] != std::string_view(e->name))
            return false;
        at++;
    }
    return at == items.size();
}

static int replace_items(uci_context *ctx, const char *name, const std::vector<const char *> &items)
{
    std::string text;
    uci_ptr ptr;
    int err = ng_uci_lookup(ctx, &ptr, text, name);
    if (err || is_list_of(ptr.o, items))
        return err;
    ng_uci_changes_of(ptr.package).touch(ptr);
    if (ptr.o)
        err = uci_delete(ctx, &ptr);
    if (!err)
        err = ng_uci_lookup(ctx, &ptr, text, name);
    for (const char *item : items) {
        ptr.value = item;
        if (!err)
            err = uci_add_list(ctx, &ptr);
    }
    return err;
}

bool ng_uci_is_list(const std::string &name, const std::vector<std::string> &items)
{
    uci_context *ctx = ng_uci_change_context();
    std::string text;
    uci_ptr ptr;
    return ctx && ng_uci_is_name(name.c_str()) &&
           ng_uci_lookup(ctx, &ptr, text, name.c_str()) == UCI_OK && is_list_of(ptr.o, items);
}

bool ng_uci_put_list(const std::string &name, const std::vector<std::string> &items)
{
    if (ng_uci_is_list(name, items))
        return true;
    uci_context *ctx = ng_uci_change_context();
    const bool good = std::all_of(items.begin(), items.end(), [](const std::string &item) {
        return ng_uci_is_value(item.c_str());
    });
    if (!ctx || !ng_uci_is_name(name.c_str()) || !good) {
        log_error("Refusing a value with control characters for '%s', or its name", name.c_str());
        return false;
    }
    const int err = replace_items(ctx, name.c_str(), without_repetition(items));
    if (!err || (err == UCI_ERR_NOTFOUND && is_in_no_package(name)))
        return true;
    log_error("Failed to change '%s': %s", name.c_str(), ng_uci_error(ctx).get());
    return false;
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
    ptr.value = value;
    if (!err) {
        ng_uci_changes_of(ptr.p->e.name).touch(ptr);
        err = act(ctx, action, ptr);
    }
    if (!err || (err == UCI_ERR_NOTFOUND && is_in_no_package(name)))
        return 0;
    log_error("Failed to change '%s': %s", name, ng_uci_error(ctx).get());
    return -1;
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

// ---- by a plain name

bool ng_uci_put(const std::string &name, const char *value)
{
    return save_action(uci_set_string, value, name.c_str()) == 0;
}

bool ng_uci_put(const std::string &name, int value)
{
    return ng_uci_put(name, std::to_string(value).c_str());
}

bool ng_uci_clear(const std::string &name)
{
    return save_action(ng_uci_delete_option, nullptr, name.c_str()) == 0;
}

bool ng_uci_add(const std::string &list, const std::string &item)
{
    return save_action(ng_uci_add_list, item.c_str(), list.c_str()) == 0;
}

bool ng_uci_remove(const std::string &list, const std::string &item)
{
    return save_action(ng_uci_del_list, item.c_str(), list.c_str()) == 0;
}

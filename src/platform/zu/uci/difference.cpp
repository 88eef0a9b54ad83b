// What a callback's changes come to: the touched options and sections are compared with what is
// configured now, and only differences are carried over. So a list that was emptied and filled
// again with the same items, or a section that was made anew as it was, is no change.
#include <algorithm>
#include <cstring>

#include "platform/zu/uci/uci_internal.h"

static bool same_items(uci_list &a, uci_list &b)
{
    uci_list *left = a.next, *right = b.next;
    for (; left != &a && right != &b; left = left->next, right = right->next)
        if (strcmp(list_to_element(left)->name, list_to_element(right)->name) != 0)
            return false;
    return left == &a && right == &b;
}

/// An empty list and a missing option are the same to a file.
static uci_option *in_file(uci_option *option)
{
    const bool empty = option && option->type == UCI_TYPE_LIST && uci_list_empty(&option->v.list);
    return empty ? nullptr : option;
}

static bool same_option(uci_option *a, uci_option *b)
{
    a = in_file(a);
    b = in_file(b);
    if (!a || !b || a->type != b->type)
        return a == b;
    return a->type == UCI_TYPE_STRING ? strcmp(a->v.string, b->v.string) == 0
                                      : same_items(a->v.list, b->v.list);
}

// ---- noting what is changed, and how it was

/// Each value with the NUL that ends it, and one more.
static std::string text_of(uci_option *option)
{
    const bool is_list = option->type == UCI_TYPE_LIST;
    std::string text = option->e.name + std::string(is_list ? "|" : "=");
    const auto add = [&text](const char *value) { text.append(value, strlen(value) + 1); };
    uci_element *e;
    if (!is_list)
        add(option->v.string);
    else
        uci_foreach_element(&option->v.list, e) add(e->name);
    text.push_back('\0');
    return text;
}

/// The same for any order of the options; empty for no section.
static std::string text_of(uci_section *section)
{
    if (!section)
        return {};
    std::vector<std::string> options;
    uci_element *e;
    uci_foreach_element(&section->options, e) if (in_file(uci_to_option(e)))
        options.push_back(text_of(uci_to_option(e)));
    std::sort(options.begin(), options.end());
    std::string text(section->type, strlen(section->type) + 1);
    for (const std::string &option : options)
        text += option;
    return text;
}

void ng_uci_changes::touch(const uci_ptr &ptr)
{
    auto place = std::find_if(sections.begin(), sections.end(),
                              [&](const touched &t) { return t.section == ptr.section; });
    if (place == sections.end())
        place = sections.insert(place, {ptr.section, text_of(ptr.s), {}, false});
    if (!ptr.option)
        place->whole = true;
    else if (std::find(place->options.begin(), place->options.end(), ptr.option) ==
             place->options.end())
        place->options.emplace_back(ptr.option);
}

bool ng_uci_changes::came_to_something(uci_package *now) const
{
    return std::any_of(sections.begin(), sections.end(), [now](const touched &t) {
        return text_of(uci_lookup_section(now->ctx, now, t.section.c_str())) != t.before;
    });
}

// ---- carrying over

/// The first of `items` past those that the option begins with; null when it holds others or is
/// no list.
static uci_list *after_common(uci_option *option, uci_list &items)
{
    uci_list *item = items.next;
    if (!option)
        return item;
    if (option->type == UCI_TYPE_STRING)
        return nullptr;
    for (uci_list *have = option->v.list.next; have != &option->v.list; have = have->next) {
        if (item == &items || strcmp(list_to_element(have)->name, list_to_element(item)->name) != 0)
            return nullptr;
        item = item->next;
    }
    return item;
}

// Into another context's package; each gives libuci's error.

struct carrier {
    uci_context *ctx;
    uci_package *to;
    std::string delta; ///< what was changed, as lines of a delta file

    uci_ptr at(const char *section, const char *option) const
    {
        uci_ptr ptr{};
        ptr.p = to;
        ptr.package = to->e.name;
        ptr.section = section;
        ptr.s = uci_lookup_section(ctx, to, section);
        ptr.option = option;
        if (ptr.s && option)
            ptr.o = uci_lookup_option(ctx, ptr.s, option);
        ptr.target = option ? UCI_TYPE_OPTION : UCI_TYPE_SECTION;
        const bool found = option ? ptr.o != nullptr : ptr.s != nullptr;
        ptr.flags = static_cast<decltype(ptr.flags)>(uci_ptr::UCI_LOOKUP_DONE |
                                                     (found ? uci_ptr::UCI_LOOKUP_COMPLETE : 0));
        return ptr;
    }

    /// One change, and its line: `mark` is what delta files put before the name.
    int change(int (*make)(uci_context *, uci_ptr *), const char *mark, uci_ptr &ptr,
               const char *value)
    {
        delta += std::string(mark) + to->e.name + "." + ptr.section;
        if (ptr.option)
            delta += std::string(".") + ptr.option;
        if (value)
            delta.append("=").append(ng_uci_quoted(value));
        delta += '\n';
        ptr.value = value;
        return make(ctx, &ptr);
    }

    /// The list becomes `items`; one that only grows is only added to.
    int change_list(uci_ptr ptr, uci_list &items)
    {
        const char *section = ptr.section, *option = ptr.option;
        uci_list *rest = after_common(ptr.o, items);
        int err = UCI_OK;
        if (!rest) {
            err = change(uci_delete, "-", ptr, nullptr);
            ptr = at(section, option);
            rest = items.next;
        }
        for (; !err && rest != &items; rest = rest->next) {
            // NOLINTNEXTLINE(clang-analyzer-core.NullDereference): the list is circular
            err = change(uci_add_list, "|", ptr, list_to_element(rest)->name);
        }
        return err;
    }

    int option(const char *section, const char *name, uci_option *wanted)
    {
        uci_ptr ptr = at(section, name);
        if (same_option(wanted, ptr.o))
            return UCI_OK;
        if (!in_file(wanted))
            return change(uci_delete, "-", ptr, nullptr);
        if (wanted->type == UCI_TYPE_LIST)
            return change_list(ptr, wanted->v.list);
        return change(uci_set, "", ptr, wanted->v.string);
    }

    int missing_section(uci_ptr ptr)
    {
        return ptr.s ? change(uci_delete, "-", ptr, nullptr) : UCI_OK;
    }

    int section_type(uci_ptr ptr, const char *type)
    {
        if (ptr.s && strcmp(ptr.s->type, type) == 0)
            return UCI_OK;
        return change(uci_set, "", ptr, type);
    }

    int whole_section(const char *name, uci_section *wanted)
    {
        const uci_ptr ptr = at(name, nullptr);
        if (!wanted)
            return missing_section(ptr);
        std::vector<std::string> names;
        uci_element *e;
        if (ptr.s)
            uci_foreach_element(&ptr.s->options, e) names.emplace_back(e->name);
        uci_foreach_element(&wanted->options,
                            e) if (!ptr.s || !uci_lookup_option(ctx, ptr.s, e->name))
            names.emplace_back(e->name);
        int err = section_type(ptr, wanted->type);
        for (const std::string &option_name : names)
            if (!err)
                err = option(name, option_name.c_str(),
                             uci_lookup_option(wanted->package->ctx, wanted, option_name.c_str()));
        return err;
    }
};

int ng_uci_carry_over(const ng_uci_changes &changes, uci_package *from, uci_context *ctx,
                      uci_package *to, std::string *delta)
{
    carrier carry{ctx, to, {}};
    int err = UCI_OK;
    for (const ng_uci_changes::touched &t : changes.sections) {
        uci_section *wanted = uci_lookup_section(from->ctx, from, t.section.c_str());
        if (t.whole)
            err = carry.whole_section(t.section.c_str(), wanted);
        for (const std::string &name : t.options)
            if (!err && !t.whole)
                err = carry.option(t.section.c_str(), name.c_str(),
                                   wanted ? uci_lookup_option(from->ctx, wanted, name.c_str())
                                          : nullptr);
        if (err)
            break;
    }
    *delta = std::move(carry.delta);
    return err;
}

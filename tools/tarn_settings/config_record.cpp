// Read through libuci, compared by names: the order of options is not a difference, that of a
// list's items is.
#include "config_record.h"

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <set>
#include <uci.h>

#include "platform/zu/handle.h"
#include "wifi/write/commit.h"

struct uci_closer {
    void operator()(uci_context *ctx) const { uci_free_context(ctx); }
};

static std::string uci_failure(uci_context *ctx)
{
    char *text = nullptr;
    uci_get_errorstr(ctx, &text, nullptr);
    const zu_text owned(text);
    return text ? text : "no memory";
}

static config_option option_of(const uci_option *option)
{
    if (option->type == UCI_TYPE_STRING)
        return {false, {option->v.string}};
    config_option list = {true, {}};
    uci_element *item;
    uci_foreach_element(&option->v.list, item) list.items.emplace_back(item->name);
    return list;
}

static config_section section_of(uci_section *section)
{
    config_section record = {section->type, {}};
    uci_element *element;
    uci_foreach_element(&section->options, element) record.options[element->name] =
        option_of(uci_to_option(element));
    return record;
}

static config_package package_of(uci_package *package)
{
    config_package record;
    std::map<std::string, int> nameless;
    uci_element *element;
    uci_foreach_element(&package->sections, element)
    {
        uci_section *section = uci_to_section(element);
        const std::string type = section->type;
        record[section->anonymous ? "@" + type + "[" + std::to_string(nameless[type]++) + "]"
                                  : std::string(element->name)] = section_of(section);
    }
    return record;
}

/// The items that the other list lacks.
static std::vector<std::string> lacking(const std::vector<std::string> &items,
                                        const std::vector<std::string> &other)
{
    const std::set<std::string> there(other.begin(), other.end());
    std::vector<std::string> result;
    std::copy_if(items.begin(), items.end(), std::back_inserter(result),
                 [&](const std::string &item) { return !there.contains(item); });
    return result;
}

/// What goes and what comes; all of both unless taking the one out and adding the other at the end
/// is the whole change.
static config_change change_of(const std::string &section, const std::string &option,
                               const config_option &from, const config_option &to)
{
    const std::vector<std::string> removed = lacking(from.items, to.items);
    const std::vector<std::string> added = lacking(to.items, from.items);
    std::vector<std::string> result = lacking(from.items, removed);
    result.insert(result.end(), added.begin(), added.end());
    const bool is_all = result == to.items && result != from.items;
    return is_all ? config_change{section, option, removed, added}
                  : config_change{section, option, from.items, to.items};
}

/// Compares one option; null is one that is not there.
static void compare_option(const std::string &section, const std::string &name,
                           const config_option *before, const config_option *after,
                           std::vector<config_change> &changes)
{
    static const config_option NONE = {};
    const config_option &from = before ? *before : NONE, &to = after ? *after : NONE;
    if (from != to)
        changes.push_back(change_of(section, name, from, to));
}

template <typename Map>
static const typename Map::mapped_type *find(const Map &map, const std::string &name)
{
    const auto place = map.find(name);
    return place != map.end() ? &place->second : nullptr;
}

/// The names in either map.
template <typename Map>
static std::set<std::string> names_of(const Map &a, const Map &b)
{
    std::set<std::string> names;
    for (const Map *map : {&a, &b})
        for (const auto &entry : *map)
            names.insert(entry.first);
    return names;
}

static void compare_section(const std::string &name, const config_section *before,
                            const config_section *after, std::vector<config_change> &changes)
{
    static const config_section NONE = {};
    const config_section &from = before ? *before : NONE, &to = after ? *after : NONE;
    const config_option from_type = {false, {from.type}}, to_type = {false, {to.type}};
    compare_option(name, "", before ? &from_type : nullptr, after ? &to_type : nullptr, changes);
    for (const std::string &option : names_of(from.options, to.options))
        compare_option(name, option, find(from.options, option), find(to.options, option), changes);
}

bool read_config(config_record &record, std::string &error)
{
    const std::unique_ptr<uci_context, uci_closer> ctx(uci_alloc_context());
    for (const char *name : wifi_written_packages()) {
        uci_package *package = nullptr;
        if (!ctx || uci_load(ctx.get(), name, &package) != UCI_OK) {
            error = name + std::string(": ") + (ctx ? uci_failure(ctx.get()) : "no memory");
            return false;
        }
        record[name] = package_of(package);
    }
    return true;
}

config_changes config_difference(const config_record &before, const config_record &after)
{
    config_changes all;
    for (const auto &[package, sections] : before) {
        std::vector<config_change> changes;
        const config_package &now = after.at(package);
        for (const std::string &name : names_of(sections, now))
            compare_section(name, find(sections, name), find(now, name), changes);
        if (!changes.empty())
            all[package] = std::move(changes);
    }
    return all;
}

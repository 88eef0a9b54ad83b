// Tables of the state dump as tables of items; how they are walked.
#pragma once

#include <initializer_list>

#include "wifi/settings/fields.h"

/// A key of a table: a setting, or what code makes of it.
struct dump_item {
    const char *key;
    const char *name = nullptr;    ///< of the setting; null: as the key
    const char *element = nullptr; ///< name of a list's elements; null: as the key
    int (*add)(blob_buf *buf, const void *part, bool include_secrets) = nullptr;
    const char *failed = nullptr; ///< what could not be added; null: the key
};

/// Settings of a part of the record, in the order in which they are shown.
struct dump_table {
    const char *name; ///< for the log; "" at the top
    std::span<const wifi_field> fields;
    std::span<const dump_item> items;
};

constexpr const char *dump_setting_name(const dump_item &item)
{
    return item.name ? item.name : item.key;
}

/// To be asserted of each table: every item has code or names a setting.
consteval bool dump_is_whole(const dump_table &table)
{
    for (const dump_item &item : table.items)
        if (!item.add && !wifi_find_field(table.fields, dump_setting_name(item)))
            return false;
    return true;
}

/// A nested table or array; one that cannot be opened is reported and skipped.
class dump_nest {
public:
    dump_nest(blob_buf *buf, const char *name, bool array);
    ~dump_nest();
    dump_nest(const dump_nest &) = delete;
    dump_nest &operator=(const dump_nest &) = delete;
    explicit operator bool() const { return cookie_ != nullptr; }

private:
    blob_buf *buf_;
    void *cookie_;
};

/// Logs what could not be added to the table.
void dump_report(int result, const dump_table &table, const char *what);
/// Adds a setting of a part, unless it is a secret and those are left out. 0, or -1.
int dump_setting(blob_buf *buf, const dump_item &item, const wifi_field &field, const void *part,
                 bool include_secrets);
/// Adds the items of a part, secrets only with `include_secrets`.
void dump_items(blob_buf *buf, const dump_table &table, const void *part, bool include_secrets);
/// Adds the items of the first table and behind them the part's other settings; the further tables
/// show some of those elsewhere.
void dump_part(blob_buf *buf, std::initializer_list<const dump_table *> tables, const void *part,
               bool include_secrets);

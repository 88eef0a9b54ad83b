// Tables of the state dump as tables of items; how they are walked.
#pragma once

#include <array>
#include <cstring>

#include "wifi/settings/fields.h"

/// A key of a table: a setting, or what code makes of it.
struct dump_item {
    const char *key;
    const char *name = nullptr;    ///< of the setting; null: as the key
    const char *element = nullptr; ///< name of a list's elements; null: as the key
    int (*add)(blob_buf *buf, const void *part, bool include_secrets) = nullptr;
    const char *failed = nullptr; ///< what could not be added; null: the key
};

/// Settings of a part of the record, in the order in which they are shown. Made by
/// dump_table_of().
struct dump_table {
    const char *name; ///< for the log; "" at the top
    std::span<const wifi_field> fields;
    std::span<const dump_item> items;
    std::span<const uint8_t> rows;   ///< of each item: which of the fields it is
    std::span<const uint8_t> others; ///< the fields that no item shows, here or elsewhere
};

namespace dump_detail {

constexpr std::string_view setting_name(const dump_item &item)
{
    return item.name ? item.name : item.key;
}

consteval bool is_named(const wifi_field &field, std::span<const dump_item> items)
{
    for (const dump_item &item : items)
        if (setting_name(item) == field.name)
            return true;
    return false;
}

/// The row of each item; 0 where there is code. An item that has neither does not compile.
template <const auto &Fields, const auto &Items>
consteval auto rows_of_items()
{
    std::array<uint8_t, std::size(Items)> rows{};
    for (size_t i = 0; i < rows.size(); i++)
        if (!Items[i].add)
            rows[i] =
                static_cast<uint8_t>(wifi_find_field(Fields, setting_name(Items[i])) - Fields);
    return rows;
}

template <const auto &Fields, const auto &...Items>
consteval size_t list_others(uint8_t *rows)
{
    size_t count = 0;
    for (const wifi_field &field : Fields)
        if (field.use != ALSO && !field.hidden && !(is_named(field, Items) || ...)) {
            if (rows)
                rows[count] = static_cast<uint8_t>(&field - Fields);
            count++;
        }
    return count;
}

template <const auto &Fields, const auto &...Items>
consteval auto rows_of_others()
{
    std::array<uint8_t, list_others<Fields, Items...>(nullptr)> rows{};
    (void)list_others<Fields, Items...>(rows.data());
    return rows;
}

template <const auto &Fields, const auto &Items>
inline constexpr auto ROWS = rows_of_items<Fields, Items>();
template <const auto &Fields, const auto &...Items>
inline constexpr auto OTHERS = rows_of_others<Fields, Items...>();

} // namespace dump_detail

/// A table of these items; some of the other fields are shown elsewhere.
template <const auto &Fields, const auto &Items, const auto &...Elsewhere>
consteval dump_table dump_table_of(const char *name)
{
    return {name, Fields, Items, dump_detail::ROWS<Fields, Items>,
            dump_detail::OTHERS<Fields, Items, Elsewhere...>};
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
/// Adds the items of a part and behind them its other settings.
void dump_part(blob_buf *buf, const dump_table &table, const void *part, bool include_secrets);

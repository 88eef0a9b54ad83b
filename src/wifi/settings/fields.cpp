// The record's members as texts, as the configuration holds them.
#include "wifi/settings/fields.h"

#include <algorithm>
#include <cstring>

#include "platform/zu/number.h"

using values = std::vector<std::string>;

static int32_t int_at(const char *member)
{
    return static_cast<int32_t>(settings_load(SETTINGS_INT, member).number);
}

static values texts_of(const wifi_field &row, const char *member)
{
    values texts;
    for (size_t i = 0; i < row.slots && member[i * row.size]; i++)
        texts.emplace_back(member + i * row.size);
    return texts;
}

static values integers_of(const wifi_field &row, const char *member)
{
    values texts;
    const int count = int_at(member + size_t{row.slots} * row.size);
    for (int i = 0; i < count; i++)
        texts.push_back(std::to_string(int_at(member + static_cast<size_t>(i) * row.size)));
    return texts;
}

static int number_of(const std::string &text, int otherwise)
{
    int32_t number = otherwise;
    (void)zu_number_read(text, &number);
    return number;
}

static void store_one(const wifi_field &row, char *member, const std::string &text, int otherwise)
{
    const bool is_text = row.kind == SETTINGS_STRING || row.kind == SETTINGS_STRINGS;
    settings_save(is_text ? SETTINGS_STRING : row.kind, row.size, member,
                  {is_text ? 0 : static_cast<uint32_t>(number_of(text, otherwise)), text.c_str()});
}

values field_texts(const wifi_field &row, const char *record)
{
    const char *member = record + row.offset;
    if (row.kind == SETTINGS_STRINGS)
        return texts_of(row, member);
    if (row.kind == SETTINGS_INTS)
        return integers_of(row, member);
    const settings_value value = settings_load(row.kind, member);
    return {value.text ? value.text : std::to_string(static_cast<int32_t>(value.number))};
}

bool field_texts_are(const wifi_field &row, const char *record, bool (*good)(const char *text))
{
    if (row.kind != SETTINGS_STRING && row.kind != SETTINGS_STRINGS)
        return true;
    const char *member = record + row.offset;
    for (size_t i = 0; i < row.slots && member[i * row.size]; i++)
        if (!good(member + i * row.size))
            return false;
    return true;
}

void field_store(const wifi_field &row, char *record, const values &from)
{
    char *member = record + row.offset;
    if (!field_is_list(row)) {
        store_one(row, member, from.front(), row.absent);
        return;
    }
    const size_t slots = row.slots;
    const size_t count = std::min(from.size(), slots);
    wifi_settings_zero(member + count * row.size, (slots - count) * row.size);
    for (size_t i = 0; i < count; i++)
        store_one(row, member + i * row.size, from[i], 0);
    if (row.kind == SETTINGS_INTS)
        settings_save(SETTINGS_INT, row.size, member + slots * row.size,
                      {static_cast<uint32_t>(count), nullptr});
}

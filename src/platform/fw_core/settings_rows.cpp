// The walks over a level's rows: taking a table apart, storing its values into the record.
#include "platform/fw_core/settings_rows.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>

#include "platform/fw_core/fw_core.h"
#include "platform/zu/blobmsg_util.h"
#include "platform/zu/log.h"

const settings_field *settings_find_row(const settings_level &level, const char *key)
{
    for (const settings_field &field : level.fields)
        if (strcmp(field.key, key) == 0)
            return &field;
    return nullptr;
}

const settings_field &settings_row(const settings_level &level, const char *key)
{
    const settings_field *field = settings_find_row(level, key);
    if (!field)
        abort(); // a slip in the code
    return *field;
}

blob_attr *settings_values::get(const char *key) const
{
    return attrs[static_cast<size_t>(&settings_row(*level, key) - level->fields.data())];
}

bool settings_values::fits(const char *key) const
{
    blob_attr *value = get(key);
    return !value || settings_value_fault(settings_row(*level, key), value) == SETTINGS_FITS;
}

bool settings_parse_level(const settings_level &level, blob_attr *table, settings_values *out)
{
    out->level = &level;
    out->attrs = {};
    const bool is_table = blobmsg_type(table) == BLOBMSG_TYPE_TABLE;
    if (level.may_be_empty && is_table && blobmsg_data_len(table) == 0)
        return true;
    // libubox counts a table without members as malformed.
    if (is_table &&
        zu_blobmsg_parse(level.policy, std::span(out->attrs).first(level.policy.size()), table))
        return true;
    log_error("%s", level.broken);
    return false;
}

// ---- what is passed over

/// How many places are named.
constexpr unsigned PLACES_MAX = 8;

/// Places of a document with what they have in common.
struct passed_over {
    const char *reason;
    std::string places{};
    unsigned count = 0;

    void add(const std::string &place)
    {
        if (++count <= PLACES_MAX)
            places += (count == 1 ? "'" : ", '") + place + "'";
    }
    void explain() const
    {
        std::string text = std::string("Passed over, as ") + reason + ": " + places;
        if (count > PLACES_MAX)
            text += " and " + std::to_string(count - PLACES_MAX) + " more";
        if (count > 0)
            package_explain(text.c_str());
    }
};

struct findings {
    passed_over unknown{"no setting has this name"}, mistyped{"the value is of another type"};
};

static void find_passed_over(const settings_level &level, blob_attr *table,
                             const std::string &place, findings *found);

static void find_within(const settings_field &field, blob_attr *value, const std::string &place,
                        findings *found)
{
    blob_attr *element;
    size_t rest, index = 0;
    if (blobmsg_type(value) != settings_blobmsg_type(field.kind))
        found->mistyped.add(place);
    else if (field.kind == SETTINGS_TABLE)
        find_passed_over(*field.level, value, place + ".", found);
    else if (field.level)
        blobmsg_for_each_attr(element, value, rest) find_passed_over(
            *field.level, element, place + "[" + std::to_string(index++) + "].", found);
}

static void find_passed_over(const settings_level &level, blob_attr *table,
                             const std::string &place, findings *found)
{
    blob_attr *member;
    size_t rest;
    if (blobmsg_type(table) != BLOBMSG_TYPE_TABLE)
        return;
    blobmsg_for_each_attr(member, table, rest)
    {
        const std::string at = place + blobmsg_name(member);
        if (const settings_field *row = settings_find_row(level, blobmsg_name(member)))
            find_within(*row, member, at, found);
        else
            found->unknown.add(at);
    }
}

void settings_explain_passed_over(const settings_level &level, blob_attr *params)
{
    findings found;
    find_passed_over(level, params, "", &found);
    found.unknown.explain();
    found.mistyped.explain();
}

// ---- judging values

settings_fault settings_number_fault(const settings_limits &limits, int32_t number)
{
    const bool listed =
        limits.numbers.empty() ||
        std::ranges::find(limits.numbers, static_cast<uint32_t>(number)) != limits.numbers.end();
    return listed && number >= limits.min && number <= limits.max ? SETTINGS_FITS
                                                                  : SETTINGS_OUT_OF_RANGE;
}

settings_fault settings_text_fault(const settings_limits &limits, const char *text)
{
    if (limits.takes && !limits.takes(text))
        return SETTINGS_MALFORMED;
    return strlen(text) < limits.text_min ? SETTINGS_TOO_SHORT : SETTINGS_FITS;
}

settings_fault settings_value_fault(const settings_field &field, blob_attr *value)
{
    if (blobmsg_type(value) == BLOBMSG_TYPE_INT32)
        return settings_number_fault(*field.limits, static_cast<int32_t>(blobmsg_get_u32(value)));
    if (blobmsg_type(value) == BLOBMSG_TYPE_STRING)
        return settings_text_fault(*field.limits, blobmsg_get_string(value));
    return SETTINGS_FITS;
}

// ---- values

void settings_store_text(char *member, size_t size, const char *text)
{
    const size_t length = strnlen(text, size - 1);
    memcpy(member, text, length);
    member[length] = '\0';
}

settings_value settings_load(settings_kind kind, const char *member)
{
    settings_value value;
    if (kind == SETTINGS_STRING)
        value.text = member;
    else if (kind == SETTINGS_BOOL)
        value.number = *member != 0;
    else
        memcpy(&value.number, member, sizeof(value.number));
    return value;
}

void settings_save(settings_kind kind, uint32_t size, char *member, const settings_value &value)
{
    const bool on = value.number != 0;
    const uint32_t number = kind == SETTINGS_FLAG ? on : value.number;
    if (kind == SETTINGS_STRING)
        settings_store_text(member, size, value.text ? value.text : "");
    else if (kind == SETTINGS_BOOL)
        memcpy(member, &on, sizeof(on));
    else
        memcpy(member, &number, sizeof(number));
}

/// An attribute's value; of an array or a table none.
static settings_value value_of(blob_attr *attr)
{
    switch (blobmsg_type(attr)) {
    case BLOBMSG_TYPE_INT8:
        return {blobmsg_get_u8(attr), nullptr};
    case BLOBMSG_TYPE_INT32:
        return {blobmsg_get_u32(attr), nullptr};
    case BLOBMSG_TYPE_STRING:
        return {0, blobmsg_get_string(attr)};
    default:
        return {};
    }
}

void settings_store(const settings_values &values, void *record)
{
    for (size_t i = 0; i < values.level->fields.size(); i++) {
        const settings_field &field = values.level->fields[i];
        if (values.attrs[i] && field.offset != SETTINGS_NO_MEMBER)
            settings_save(field.kind, field.size, static_cast<char *>(record) + field.offset,
                          value_of(values.attrs[i]));
    }
}

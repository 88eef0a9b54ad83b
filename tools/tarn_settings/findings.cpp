// The walk over a document beside its rows. It judges nothing the daemon would not: a finding is a
// key that is not read, a value outside the row's limits, or a required key that is missing.
#include "findings.h"

#include <cstdlib>
#include <cstring>
#include <regex.h>

#include "wifi/settings/document.h"

namespace {

struct walk {
    std::vector<finding> findings;
    std::vector<std::string> outer; // of where the walk is

    void add(const std::string &path, const std::string &what, const char *refusal = nullptr)
    {
        findings.push_back({path, what, refusal, outer});
    }
};

} // namespace

static void walk_level(walk &state, const settings_level &level, blob_attr *table,
                       const std::string &path);

static const char *type_name(int type)
{
    switch (type) {
    case BLOBMSG_TYPE_ARRAY:
        return "an array";
    case BLOBMSG_TYPE_TABLE:
        return "a table";
    case BLOBMSG_TYPE_STRING:
        return "a text";
    case BLOBMSG_TYPE_INT64:
        return "an integer beyond 32 bits";
    case BLOBMSG_TYPE_INT32:
        return "an integer";
    case BLOBMSG_TYPE_INT8:
        return "true or false";
    case BLOBMSG_TYPE_DOUBLE:
        return "a number with a fraction";
    default:
        return "null";
    }
}

static std::string not_of_type(int wanted, int given)
{
    return std::string("must be ") + type_name(wanted) + ", not " + type_name(given) +
           ": passed over";
}

static bool matches(const char *pattern, const char *text)
{
    regex_t expression;
    if (regcomp(&expression, pattern, REG_EXTENDED | REG_NOSUB) != 0)
        abort(); // a row's pattern is a literal: a slip in the code
    const bool match = regexec(&expression, text, 0, nullptr, 0) == 0;
    regfree(&expression);
    return match;
}

template <typename List, typename Value>
static bool contains(const List &list, const Value &value)
{
    for (const auto &element : list)
        if (element == value)
            return true;
    return false;
}

static std::string quoted_list(const std::vector<std::string> &words)
{
    std::string text;
    for (const std::string &word : words)
        text += (text.empty() ? "\"" : ", \"") + word + "\"";
    return text;
}

static std::string integer_fault(const settings_limits &limits, int32_t number)
{
    if (settings_number_fault(limits, number) == SETTINGS_FITS)
        return {};
    const std::string range = std::to_string(limits.min) + " to " + std::to_string(limits.max);
    return "must be " + (limits.rule ? std::string(limits.rule) : range) + ", not " +
           std::to_string(number);
}

static std::string choice_fault(const settings_limits &limits, const std::string &text)
{
    std::vector<std::string> choices = settings_choices(limits.choice);
    choices.insert(choices.end(), limits.words.begin(), limits.words.end());
    if (limits.choice == SETTINGS_ANY_TEXT && choices.empty())
        return {};
    if (contains(choices, text))
        return {};
    return "must be one of " + (choices.empty() ? "nothing at all" : quoted_list(choices)) +
           ", not \"" + text + "\"";
}

static std::string text_fault(const settings_limits &limits, const std::string &text)
{
    const settings_fault fault = settings_text_fault(limits, text.c_str());
    if (fault == SETTINGS_MALFORMED || (limits.pattern && !matches(limits.pattern, text.c_str())))
        return std::string("must be ") + limits.rule + ", not \"" + text + "\"";
    if (fault == SETTINGS_TOO_SHORT)
        return "must not be empty";
    return choice_fault(limits, text);
}

static bool has_control_character(const char *text)
{
    for (; *text; text++)
        if (static_cast<unsigned char>(*text) < 0x20 || *text == 0x7f)
            return true;
    return false;
}

static void walk_text(walk &state, const settings_field &field, const char *text,
                      const std::string &path, const char *refusal)
{
    const std::string fault = text_fault(*field.limits, text);
    if (!fault.empty())
        state.add(path, fault, refusal);
    else if (settings_is_kept(field) && has_control_character(text))
        state.add(path, "holds a control character"); // the daemon's line names the member
    else if (strlen(text) > settings_text_max(field))
        state.add(path, "is cut to " + std::to_string(settings_text_max(field)) + " bytes");
}

/// One element of an array of plain values.
static void walk_element(walk &state, const settings_field &field, blob_attr *element,
                         const std::string &path)
{
    const int wanted = field.kind == SETTINGS_INTS ? BLOBMSG_TYPE_INT32 : BLOBMSG_TYPE_STRING;
    if (blobmsg_type(element) != wanted) {
        state.add(path, not_of_type(wanted, blobmsg_type(element)), field.error);
    } else if (wanted == BLOBMSG_TYPE_STRING) {
        walk_text(state, field, blobmsg_get_string(element), path, field.error);
    } else if (const std::string fault =
                   integer_fault(*field.limits, static_cast<int32_t>(blobmsg_get_u32(element)));
               !fault.empty()) {
        state.add(path, fault);
    }
}

static void walk_array(walk &state, const settings_field &field, blob_attr *array,
                       const std::string &path)
{
    blob_attr *element;
    size_t rest;
    uint32_t index = 0;
    blobmsg_for_each_attr(element, array, rest)
    {
        const std::string at = path + "[" + std::to_string(index++) + "]";
        if (field.kind == SETTINGS_TABLES)
            walk_level(state, *field.level, element, at);
        else
            walk_element(state, field, element, at);
    }
    if (index > field.limits->items_max)
        state.add(path,
                  "has " + std::to_string(index) + " elements, of which " +
                      std::to_string(field.limits->items_max) + " are kept",
                  field.kind != SETTINGS_TABLES ? field.error : nullptr);
}

static void walk_value(walk &state, const settings_field &field, blob_attr *value,
                       const std::string &path)
{
    switch (field.kind) {
    case SETTINGS_BOOL:
    case SETTINGS_FLAG:
    case SETTINGS_PRESENCE:
        return;
    case SETTINGS_INT:
        if (const std::string fault =
                integer_fault(*field.limits, static_cast<int32_t>(blobmsg_get_u32(value)));
            !fault.empty())
            state.add(path, fault, field.error);
        return;
    case SETTINGS_STRING:
        walk_text(state, field, blobmsg_get_string(value), path, field.error);
        return;
    case SETTINGS_TABLE:
        walk_level(state, *field.level, value, path);
        return;
    case SETTINGS_TABLES:
    case SETTINGS_INTS:
    case SETTINGS_STRINGS:
        walk_array(state, field, value, path);
        return;
    }
}

/// Walks one row; keeps track of the rows around it whose line would follow a refusal.
static void walk_row(walk &state, const settings_field &field, blob_attr *value,
                     const std::string &path)
{
    if (field.never_read) {
        state.add(path, "is never read");
        return;
    }
    const bool encloses = field.level && field.error;
    if (encloses)
        state.outer.push_back(path);
    walk_value(state, field, value, path);
    if (encloses)
        state.outer.pop_back();
}

/// Why a required member does not count: it is not there, or of another type.
static std::string why_missing(const settings_field &field, blob_attr *table)
{
    blob_attr *member;
    size_t rest;
    blobmsg_for_each_attr(member, table, rest)
    {
        if (strcmp(blobmsg_name(member), field.key) == 0)
            return not_of_type(settings_blobmsg_type(field.kind), blobmsg_type(member));
    }
    return "is missing";
}

/// The members that no row takes.
static void walk_strangers(walk &state, const settings_level &level, blob_attr *table,
                           const std::string &path)
{
    blob_attr *member;
    size_t rest;
    blobmsg_for_each_attr(member, table, rest)
    {
        const std::string at = path + "." + blobmsg_name(member);
        const settings_field *field = settings_find_row(level, blobmsg_name(member));
        if (!field)
            state.add(at, "is not known: passed over");
        else if (!field->required && blobmsg_type(member) != settings_blobmsg_type(field->kind))
            state.add(at, not_of_type(settings_blobmsg_type(field->kind), blobmsg_type(member)));
    }
}

/// True when a value switches its own table off, so that `key` is not looked at.
static bool is_dormant(const settings_values &values, const char *key)
{
    if (values.level == &SETTINGS_TOP)
        return strcmp(key, "orphan_connect") == 0 && values.get("lonely_friend");
    if (values.level == &SETTINGS_RADIO && strcmp(key, "band") != 0) {
        blob_attr *band = values.get("band");
        return band && strcmp(blobmsg_get_string(band), "scanning") == 0;
    }
    if (values.level == &SETTINGS_DHCP && strcmp(key, "enable") != 0) {
        blob_attr *enable = values.get("enable");
        return enable && !blobmsg_get_bool(enable);
    }
    return false;
}

static void walk_level(walk &state, const settings_level &level, blob_attr *table,
                       const std::string &path)
{
    settings_values values;
    if (!settings_parse_level(level, table, &values)) {
        const bool is_table = blobmsg_type(table) == BLOBMSG_TYPE_TABLE;
        state.add(path, is_table ? "must not be empty" : "must be a table", level.broken);
        return;
    }
    walk_strangers(state, level, table, path);
    for (size_t i = 0; i < level.fields.size(); i++) {
        const settings_field &field = level.fields[i];
        const std::string at = path + "." + field.key;
        if (!values.attrs[i]) {
            if (field.required)
                state.add(at, why_missing(field, table), field.error);
        } else if (is_dormant(values, field.key)) {
            state.add(at, "is passed over here");
        } else {
            walk_row(state, field, values.attrs[i], at);
        }
    }
}

std::vector<finding> findings_of(const settings_level &level, blob_attr *params)
{
    walk state;
    walk_level(state, level, params, "params");
    return std::move(state.findings);
}

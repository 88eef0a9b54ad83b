// Rows to JSON Schema. It accepts exactly the documents that are taken with nothing passed over,
// as far as a schema can tell 1 from 1.0 and characters from bytes.
#include "json_schema.h"

#include <cstdio>
#include <json-c/json.h>
#include <memory>

struct putter {
    void operator()(json_object *object) const { json_object_put(object); }
};

static json_object *level_schema(const settings_level &level);

static void add(json_object *object, const char *key, json_object *value)
{
    json_object_object_add(object, key, value);
}

static void add_text(json_object *object, const char *key, const std::string &text)
{
    add(object, key, json_object_new_string(text.c_str()));
}

static void add_count(json_object *object, const char *key, int64_t count)
{
    add(object, key, json_object_new_int64(count));
}

static json_object *typed(const char *type)
{
    json_object *schema = json_object_new_object();
    add_text(schema, "type", type);
    return schema;
}

static json_object *integer_schema(const settings_limits &limits)
{
    json_object *schema = typed("integer");
    if (limits.numbers.empty()) {
        add_count(schema, "minimum", limits.min);
        add_count(schema, "maximum", limits.max);
        return schema;
    }
    json_object *numbers = json_object_new_array();
    for (const uint8_t number : limits.numbers)
        json_object_array_add(numbers, json_object_new_int(number));
    add(schema, "enum", numbers);
    return schema;
}

static void add_words(json_object *schema, const settings_limits &limits)
{
    if (limits.choice == SETTINGS_ANY_TEXT && limits.words.empty())
        return;
    json_object *words = json_object_new_array();
    for (const std::string &word : settings_choices(limits.choice))
        json_object_array_add(words, json_object_new_string(word.c_str()));
    for (const char *word : limits.words)
        json_object_array_add(words, json_object_new_string(word));
    add(schema, "enum", words);
}

static json_object *text_schema(const settings_field &field)
{
    const settings_limits &limits = *field.limits;
    json_object *schema = typed("string");
    add_words(schema, limits);
    if (limits.text_min > 0)
        add_count(schema, "minLength", limits.text_min);
    if (const uint32_t most = settings_text_max(field); most != UINT32_MAX)
        add_count(schema, "maxLength", most);
    // Some dialects of regular expressions let "$" match before a final newline.
    if (limits.pattern)
        add_text(schema, "pattern", std::string(limits.pattern) + "(?!\\n)");
    else if (settings_is_kept(field))
        add_text(schema, "pattern", "^[^\\u0000-\\u001f\\u007f]*$(?!\\n)");
    return schema;
}

static json_object *array_schema(const settings_field &field, json_object *items)
{
    json_object *schema = typed("array");
    if (items)
        add(schema, "items", items);
    if (field.limits->items_max != UINT32_MAX)
        add_count(schema, "maxItems", field.limits->items_max);
    return schema;
}

static json_object *value_schema(const settings_field &field)
{
    switch (field.kind) {
    case SETTINGS_BOOL:
    case SETTINGS_FLAG:
        return typed("boolean");
    case SETTINGS_INT:
        return integer_schema(*field.limits);
    case SETTINGS_STRING:
        return text_schema(field);
    case SETTINGS_TABLE:
        return level_schema(*field.level);
    case SETTINGS_TABLES:
        return array_schema(field, level_schema(*field.level));
    case SETTINGS_INTS:
        return array_schema(field, integer_schema(*field.limits));
    case SETTINGS_STRINGS:
        return array_schema(field, text_schema(field));
    case SETTINGS_PRESENCE:
        return array_schema(field, nullptr);
    }
    return json_object_new_object();
}

static json_object *level_schema(const settings_level &level)
{
    json_object *properties = json_object_new_object();
    json_object *required = json_object_new_array();
    for (const settings_field &field : level.fields) {
        json_object *value = value_schema(field);
        add_text(value, "description", field.meaning);
        if (field.never_read)
            add(value, "deprecated", json_object_new_boolean(true));
        if (field.required)
            json_object_array_add(required, json_object_new_string(field.key));
        add(properties, field.key, value);
    }
    json_object *schema = typed("object");
    add(schema, "properties", properties);
    add(schema, "required", required);
    add(schema, "additionalProperties", json_object_new_boolean(false));
    if (!level.may_be_empty)
        add_count(schema, "minProperties", 1); // libubox refuses an empty table
    return schema;
}

static json_object *document_schema(const document_kind &kind)
{
    json_object *properties = json_object_new_object();
    add(properties, "params", level_schema(*kind.level));
    json_object *required = json_object_new_array();
    json_object_array_add(required, json_object_new_string("params"));
    json_object *schema = json_object_new_object();
    add_text(schema, "$schema", "https://json-schema.org/draft/2020-12/schema");
    add_text(schema, "title", kind.title);
    add_text(schema, "description", std::string("Message of parse_config on ") + kind.object);
    add_text(schema, "type", "object");
    add(schema, "properties", properties);
    add(schema, "required", required);
    add(schema, "additionalProperties", json_object_new_boolean(false));
    return schema;
}

void print_json_schema(const document_kind &kind)
{
    const std::unique_ptr<json_object, putter> schema(document_schema(kind));
    puts(json_object_to_json_string_ext(schema.get(), JSON_C_TO_STRING_PRETTY |
                                                          JSON_C_TO_STRING_SPACED |
                                                          JSON_C_TO_STRING_NOSLASHESCAPE));
}

// The rows of the check-in as a schema, by way of json-c, and as the tables of a manual.
#include "checkin_document.h"

#include <cstdio>
#include <json-c/json.h>
#include <string>

#include "wifi/checkin_rows.h"

constexpr char INTRODUCTION[] = R"(# The wireless section of the check-in

Written by `./dev manual`; a test fails when it is out of date.

`gen_checkin` of `qnet.wifi` answers it, made anew each time of what is known at that moment. What
cannot be had is absent, never invented; members marked "always" are always there. The section stays
below 1 MB whatever the neighbourhood: access points heard are left out from the weakest on, and
`ap_list_omitted` counts them.

After radar the section also tells the cloud, once, that a radio is not on the channel it knew any
more (event `dfs.ch_switch`). Somebody at the node asks with `{"checkin_type": "status"}`, which
reports nothing; `tarn-status` does.

[An example](../examples/access_point/checkin.json), and
[a JSON Schema](../examples/access_point/checkin.schema.json), which allows members that are not
named here: later versions add some.
)";

/// The schema of one value, or of an array's elements.
struct kind_words {
    const char *json;  ///< type in JSON Schema
    const char *item;  ///< of an array: type of its elements
    const char *shown; ///< for people
};

static kind_words words_of(checkin_kind kind)
{
    switch (kind) {
    case CHECKIN_BOOL:
        return {"boolean", nullptr, "boolean"};
    case CHECKIN_INT:
        return {"integer", nullptr, "integer"};
    case CHECKIN_LONG:
        return {"integer", nullptr, "integer of 64 bits"};
    case CHECKIN_NUMBER:
        return {"number", nullptr, "number"};
    case CHECKIN_TEXT:
        return {"string", nullptr, "text"};
    case CHECKIN_TABLE:
        return {"object", nullptr, "table"};
    case CHECKIN_TABLES:
        return {"array", "object", "array of tables"};
    case CHECKIN_TEXTS:
        return {"array", "string", "array of texts"};
    case CHECKIN_INTS:
        return {"array", "integer", "array of integers"};
    }
    return {"null", nullptr, ""};
}

static void add_text(json_object *object, const char *key, const char *text)
{
    json_object_object_add(object, key, json_object_new_string(text));
}

/// Adds the members of a table to its schema.
static void describe_table(json_object *schema, const checkin_level &level)
{
    json_object *properties = json_object_new_object();
    json_object *required = json_object_new_array();
    for (const checkin_row *row : level.rows) {
        const kind_words words = words_of(row->kind);
        json_object *value = json_object_new_object(), *table = value;
        add_text(value, "type", words.json);
        add_text(value, "description", row->meaning);
        if (row->kind == CHECKIN_LONG)
            json_object_object_add(value, "minimum", json_object_new_int(0));
        if (words.item) {
            table = json_object_new_object();
            add_text(table, "type", words.item);
            json_object_object_add(value, "items", table);
        }
        if (row->level)
            describe_table(table, *row->level);
        if (row->always)
            json_object_array_add(required, json_object_new_string(row->key));
        json_object_object_add(properties, row->key, value);
    }
    json_object_object_add(schema, "properties", properties);
    json_object_object_add(schema, "required", required);
}

static void print_level(const checkin_level &level, const std::string &path)
{
    printf("\n## %s\n\n| member | type | present | meaning | from |\n|---|---|---|---|---|\n",
           path.empty() ? "The section" : ("`" + path + "`").c_str());
    for (const checkin_row *row : level.rows)
        printf("| `%s` | %s | %s | %s | %s |\n", row->key, words_of(row->kind).shown,
               row->always ? "always" : "when known", row->meaning, row->source);
    for (const checkin_row *row : level.rows)
        if (row->level)
            print_level(*row->level, path + (path.empty() ? "" : ".") + row->key +
                                         (row->kind == CHECKIN_TABLES ? "[]" : ""));
}

void print_checkin_schema()
{
    json_object *schema = json_object_new_object();
    add_text(schema, "$schema", "https://json-schema.org/draft/2020-12/schema");
    add_text(schema, "title", CHECKIN_SECTION.name);
    add_text(schema, "description", "Answer of gen_checkin on qnet.wifi");
    add_text(schema, "type", "object");
    describe_table(schema, CHECKIN_SECTION);
    puts(json_object_to_json_string_ext(schema, JSON_C_TO_STRING_PRETTY | JSON_C_TO_STRING_SPACED |
                                                    JSON_C_TO_STRING_NOSLASHESCAPE));
    json_object_put(schema);
}

void print_checkin_manual()
{
    fputs(INTRODUCTION, stdout);
    print_level(CHECKIN_SECTION, "");
}

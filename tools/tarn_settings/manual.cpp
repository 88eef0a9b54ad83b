// Rows to tables for people.
#include "manual.h"

#include <cstdio>

#include "settings_kinds.h"

constexpr char INTRODUCTION[] = R"(# The settings documents

Written by `./dev manual`; a test fails when it is out of date.

The cloud hands each package its settings as one document, the table `params` of the bus method
`parse_config`. A document is taken whole or not at all: the first fault refuses it with status 2,
and the reply's `messages` are the lines of the column "error", innermost first. What a document
omits stays as it is, unless the column "when omitted" says otherwise; a key that is unknown or of
another type is passed over as if it were not there. Texts are cut to their length in bytes; one
that has a length must not hold a control character (`'%s' of %s holds a control character`, `Failed
to write uci batch config`). A table must not be empty.

Before a document goes out:

    tarn-settings --platform examples/access_point/platform.json check office.json
    tarn-settings --platform examples/access_point/platform.json schema >settings.schema.json
    tarn-settings --platform examples/access_point/platform.json preview office.json --config /mnt/router/etc/config

What may stand in a document depends on the access point's radios. On an access point its own
description is used, elsewhere `--platform` names one: a copy of its `/etc/tarn/platform.json`.
`--kind wired` is for wired settings.

`check` asks the daemon's own parser. Each line says where in the document something is, and is an

- `error`: the document would be refused, first for what reason, then in the daemon's own words;
- `warning`: it would be taken, and this passed over or cut;
- `lint`: it would be taken as it stands, but is hardly meant: a channel of another band, a VLAN id,
  power, port, address, mode, encryption or country that there is not, a passphrase of the wrong
  length, an empty list of targets, two elements for the same, a key that stands twice.

Its status is 0 when there is nothing to say, 1 when the document would be taken all the same, 2 when
it would be refused. It supposes a node whose radios have a channel and on which no local radio
override is in force. `preview` says what the push would change in that configuration:
[uci.md](uci.md#preview).

The schema, which `./dev manual` writes to `examples/access_point` for the access point described
there, accepts what `check` has no error and no warning about, with two exceptions. To a JSON Schema
1.0 is an integer; to the daemon it is a number with a fraction, which is passed over, or refuses the
document where an integer is required. And both want MAC addresses written in full,
aa:bb:cc:dd:ee:ff; the daemon also takes others that read as six hexadecimal numbers, such as
2:0:0:0:0:1, and whatever follows them.
)";

/// "|" would end a cell.
static std::string cell(const char *text)
{
    std::string escaped;
    for (; *text; text++)
        escaped += *text == '|' ? std::string("\\|") : std::string(1, *text);
    return escaped;
}

/// The lines of a row's `error`, each as code.
static std::string code(const char *lines)
{
    if (!lines)
        return {};
    std::string text = "`";
    text.append(cell(lines)).append("`");
    for (size_t at = 0; (at = text.find("; ", at)) != std::string::npos; at += 4)
        text.replace(at, 2, "`; `");
    return text;
}

static const char *type_text(const settings_field &field)
{
    switch (field.kind) {
    case SETTINGS_BOOL:
    case SETTINGS_FLAG:
        return "boolean";
    case SETTINGS_INT:
        return "integer";
    case SETTINGS_STRING:
        return "text";
    case SETTINGS_TABLE:
        return "table";
    case SETTINGS_TABLES:
        return "array of tables";
    case SETTINGS_INTS:
        return "array of integers";
    case SETTINGS_STRINGS:
        return "array of texts";
    case SETTINGS_PRESENCE:
        return "array";
    }
    return "";
}

static std::string quoted(std::span<const char *const> words)
{
    std::string text;
    for (const char *word : words)
        text += (text.empty() ? "\"" : " or \"") + std::string(word) + "\"";
    return text;
}

static std::string value_range(const settings_field &field)
{
    const settings_limits &limits = *field.limits;
    if (limits.rule)
        return limits.rule;
    if (!limits.words.empty())
        return quoted(limits.words);
    if (limits.min != INT32_MIN || limits.max != INT32_MAX)
        return std::to_string(limits.min) + " to " + std::to_string(limits.max);
    if (field.kind == SETTINGS_INT || field.kind == SETTINGS_INTS)
        return "32 bits, signed";
    const bool is_text = field.kind == SETTINGS_STRING || field.kind == SETTINGS_STRINGS;
    const uint32_t most = settings_text_max(field);
    if (is_text && most != UINT32_MAX)
        return (limits.text_min > 0 ? "1 to " : "up to ") + std::to_string(most) + " bytes";
    return {};
}

static std::string range_text(const settings_field &field)
{
    const std::string value = value_range(field);
    if (field.limits->items_max == UINT32_MAX)
        return value;
    std::string count = "up to ";
    count += std::to_string(field.limits->items_max);
    return value.empty() ? count : count + ", each " + value;
}

static std::string omitted_text(const settings_field &field)
{
    if (field.required)
        return "required";
    return field.absent ? field.absent : "as it is";
}

static void print_level(const settings_level &level, const std::string &path)
{
    printf("\n### `%s`\n\n%s: `%s`\n\n", path.c_str(),
           level.may_be_empty ? "Malformed" : "Empty or malformed", level.broken);
    puts("| key | type | range | when omitted | meaning | error |\n|---|---|---|---|---|---|");
    for (const settings_field &field : level.fields)
        printf("| `%s` | %s | %s | %s | %s | %s |\n", field.key, type_text(field),
               cell(range_text(field).c_str()).c_str(), omitted_text(field).c_str(),
               cell(field.meaning).c_str(), code(field.error).c_str());
    for (const settings_field &field : level.fields)
        if (field.level)
            print_level(*field.level,
                        path + "." + field.key + (field.kind == SETTINGS_TABLES ? "[]" : ""));
}

void print_manual()
{
    fputs(INTRODUCTION, stdout);
    for (const document_kind &kind : document_kinds()) {
        printf("\n## %s: `%s`\n", kind.title, kind.object);
        print_level(*kind.level, "params");
    }
}

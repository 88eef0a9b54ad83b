// A preview for people, and the same as one JSON object.
#include <cstdio>
#include <cstring>
#include <json-c/json.h>
#include <memory>

#include "preview.h"

constexpr const char *VERDICT_NAMES[] = {"taken", "taken in part", "refused"};
constexpr char HIDDEN[] = "***";

struct json_deleter {
    void operator()(json_object *object) const { json_object_put(object); }
    void operator()(json_tokener *tokener) const { json_tokener_free(tokener); }
};

namespace {

using json_handle = std::unique_ptr<json_object, json_deleter>;

} // namespace
using tokener_handle = std::unique_ptr<json_tokener, json_deleter>;

/// Options that hold keys: those of the access points and the mesh, and those kept in our package.
static bool is_secret(const std::string &option)
{
    return option.ends_with("key") || option.ends_with("secret") || option == "r0kh" ||
           option == "r1kh";
}

static std::string name_of(const std::string &package, const config_change &change)
{
    return package + "." + change.section + (change.option.empty() ? "" : "." + change.option);
}

static std::string joined(const std::vector<std::string> &words)
{
    std::string text;
    for (const std::string &word : words)
        text += (text.empty() ? "" : ", ") + word;
    return text.empty() ? "none" : text;
}

// ---- for people

/// As `uci show` writes it.
static std::string quoted(const std::string &value)
{
    std::string text = "'";
    for (const char c : on_one_line(value))
        text += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return text + "'";
}

static void print_items(char sign, const std::string &package, const config_change &change,
                        const std::vector<std::string> &items, bool with_secrets)
{
    const bool hidden = !with_secrets && is_secret(change.option);
    for (const std::string &item : items) {
        const std::string shown =
            change.option.empty() ? on_one_line(item) : quoted(hidden ? HIDDEN : item);
        printf("%c %s=%s\n", sign, on_one_line(name_of(package, change)).c_str(), shown.c_str());
    }
}

static std::string described(const radio_restart &radio)
{
    std::vector<std::string> causes;
    if (radio.removed)
        causes.emplace_back("taken out");
    else if (radio.own_options)
        causes.emplace_back("own options");
    causes.insert(causes.end(), radio.interfaces.begin(), radio.interfaces.end());
    return radio.radio + " (" + joined(causes) + ")";
}

static void print_effect(const char *title, const push_effect &effect, bool with_secrets)
{
    printf("\n%s:\n", title);
    if (effect.changes.empty())
        puts("\nnothing changes");
    for (const auto &[package, changes] : effect.changes) {
        printf("\n%s\n", package.c_str());
        for (const config_change &change : changes) {
            print_items('-', package, change, change.removed, with_secrets);
            print_items('+', package, change, change.added, with_secrets);
        }
    }
    std::vector<std::string> radios;
    for (const radio_restart &radio : effect.radios)
        radios.push_back(described(radio));
    printf("\nservices that reload: %s\n", joined(effect.services).c_str());
    printf("radios that restart: %s\n", on_one_line(joined(radios)).c_str());
}

static void print_text(const preview_request &request, const preview_report &report)
{
    for (const std::string &line : report.judged.lines)
        printf("%s: %s\n", request.file.c_str(), line.c_str());
    if (report.judged.result == VERDICT_REFUSED)
        return;
    printf("%s: %s\n", request.file.c_str(), VERDICT_NAMES[report.judged.result]);
    printf("upstream: %s\n", report.upstream);
    if (report.delayed)
        puts("delayed: yes, seven minutes after the cloud confirms the push");
    else
        printf("delayed: no, %s\n", report.at_once_reason);
    print_effect("at once", report.at_once, request.with_secrets);
    if (report.delayed)
        print_effect("after the wait", report.after_wait, request.with_secrets);
}

// ---- as JSON

static bool is_utf8(json_object *text)
{
    const tokener_handle tokener(json_tokener_new());
    json_tokener_set_flags(tokener.get(), JSON_TOKENER_VALIDATE_UTF8);
    const json_handle parsed(
        json_tokener_parse_ex(tokener.get(), json_object_to_json_string(text), -1));
    return parsed != nullptr;
}

/// Bytes that are no UTF-8 are written out, as JSON cannot hold them.
static json_object *json_of(const std::string &text)
{
    json_handle value(json_object_new_string(text.c_str()));
    if (is_utf8(value.get()))
        return value.release();
    std::string escaped;
    for (const char c : text) {
        char escape[8];
        snprintf(escape, sizeof(escape), "\\x%02x", static_cast<unsigned char>(c));
        escaped += (c & 0x80) != 0 ? std::string(escape) : std::string(1, c);
    }
    return json_object_new_string(escaped.c_str());
}

static json_object *json_of(const std::vector<std::string> &texts)
{
    json_object *array = json_object_new_array();
    for (const std::string &text : texts)
        json_object_array_add(array, json_of(text));
    return array;
}

static json_object *json_of(const std::string &package, const config_change &change,
                            bool with_secrets)
{
    const bool secret = is_secret(change.option);
    const auto shown = [&](const std::vector<std::string> &items) {
        return json_of(secret && !with_secrets ? std::vector<std::string>(items.size(), HIDDEN)
                                               : items);
    };
    json_object *object = json_object_new_object();
    json_object_object_add(object, "name", json_of(name_of(package, change)));
    json_object_object_add(object, "removed", shown(change.removed));
    json_object_object_add(object, "added", shown(change.added));
    json_object_object_add(object, "secret", json_object_new_boolean(secret));
    return object;
}

static json_object *json_of(const radio_restart &radio)
{
    json_object *object = json_object_new_object();
    json_object_object_add(object, "radio", json_of(radio.radio));
    json_object_object_add(object, "own_options", json_object_new_boolean(radio.own_options));
    json_object_object_add(object, "removed", json_object_new_boolean(radio.removed));
    json_object_object_add(object, "interfaces", json_of(radio.interfaces));
    return object;
}

static json_object *json_of(const push_effect &effect, bool with_secrets)
{
    json_object *packages = json_object_new_object();
    for (const auto &[package, changes] : effect.changes) {
        json_object *array = json_object_new_array();
        for (const config_change &change : changes)
            json_object_array_add(array, json_of(package, change, with_secrets));
        json_object_object_add(packages, package.c_str(), array);
    }
    json_object *radios = json_object_new_array();
    for (const radio_restart &radio : effect.radios)
        json_object_array_add(radios, json_of(radio));
    json_object *object = json_object_new_object();
    json_object_object_add(object, "packages", packages);
    json_object_object_add(object, "services", json_of(effect.services));
    json_object_object_add(object, "radios", radios);
    return object;
}

static void print_json(const preview_request &request, const preview_report &report)
{
    const json_handle root(json_object_new_object());
    const auto add = [&](const char *key, json_object *value) {
        json_object_object_add(root.get(), key, value);
    };
    add("file", json_of(request.file));
    add("verdict", json_of(VERDICT_NAMES[report.judged.result]));
    add("messages", json_of(report.judged.lines));
    if (report.judged.result != VERDICT_REFUSED) {
        add("upstream", json_of(report.upstream));
        add("delayed", json_object_new_boolean(report.delayed));
        add("reason", report.delayed ? nullptr : json_of(report.at_once_reason));
        add("at_once", json_of(report.at_once, request.with_secrets));
        add("after_wait",
            report.delayed ? json_of(report.after_wait, request.with_secrets) : nullptr);
    }
    puts(json_object_to_json_string_ext(root.get(),
                                        JSON_C_TO_STRING_PRETTY | JSON_C_TO_STRING_NOSLASHESCAPE));
}

void print_preview(const preview_request &request, const preview_report &report)
{
    if (request.as_json)
        print_json(request, report);
    else
        print_text(request, report);
}

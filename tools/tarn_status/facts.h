// What the daemon says of itself, over the bus alone.
#pragma once

#include <initializer_list>
#include <json-c/json.h>
#include <memory>
#include <string>

struct json_release {
    void operator()(json_object *object) const { json_object_put(object); }
};
using json_handle = std::unique_ptr<json_object, json_release>;

/// One object with the answers "wired", "wifi", "checkin" and "health", each absent when it was not
/// given. Null when the bus or the daemon is not there; `why` then says so.
json_handle facts_ask(std::string *why);

/// The member at the end of a path of keys, or null.
json_object *facts_get(json_object *from, std::initializer_list<const char *> keys);
/// As text; `absent` when it is not there. Control characters are shown as '?'.
std::string facts_text(json_object *from, std::initializer_list<const char *> keys,
                       const char *absent = "");
/// As a number; `absent` when it is not there.
int64_t facts_int(json_object *from, std::initializer_list<const char *> keys, int64_t absent = 0);
double facts_number(json_object *from, std::initializer_list<const char *> keys);
bool facts_is(json_object *from, std::initializer_list<const char *> keys);
/// Number of elements of an array, 0 when it is not there.
size_t facts_count(json_object *array);

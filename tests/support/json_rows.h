// Recorded behaviour read from JSON files.
#pragma once

#include <json-c/json.h>
#include <memory>
#include <string>
#include <vector>

struct json_deleter {
    void operator()(json_object *object) const { json_object_put(object); }
};
using json_handle = std::unique_ptr<json_object, json_deleter>;

/// tests/data/PATH; null when it cannot be read.
inline json_handle load_json(const std::string &path)
{
    return json_handle(json_object_from_file((TEST_DATA_DIR "/" + path).c_str()));
}

inline json_object *member(json_object *object, const char *name)
{
    return json_object_object_get(object, name);
}

inline std::string text(json_object *object)
{
    return {json_object_get_string(object), (size_t)json_object_get_string_len(object)};
}

/// The elements of an array; of none (null), none.
inline std::vector<json_object *> elements(json_object *array)
{
    std::vector<json_object *> all;
    for (size_t i = 0; array && i < json_object_array_length(array); i++)
        all.push_back(json_object_array_get_idx(array, i));
    return all;
}

inline std::vector<std::string> texts(json_object *array)
{
    std::vector<std::string> all;
    for (json_object *element : elements(array))
        all.push_back(text(element));
    return all;
}

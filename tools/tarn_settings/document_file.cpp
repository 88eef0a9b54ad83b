// Files and JSON texts: read whole, refused when they are not what the bus could carry.
#include "document_file.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <json-c/json.h>
#include <memory>

extern "C" {
#include <libubox/blobmsg_json.h>
}

#include "json_text.h"
#include "platform/zu/blobmsg_util.h"

constexpr size_t FILE_MAX = 16 * 1024 * 1024;
/// ubus cuts a caller off that sends more than 1 MiB; the call around the document is in it, too.
constexpr size_t MESSAGE_MAX = 1024 * 1024 - 512;

struct closer {
    void operator()(FILE *file) const
    {
        if (file != stdin)
            fclose(file);
    }
    void operator()(json_object *object) const { json_object_put(object); }
    void operator()(json_tokener *tokener) const { json_tokener_free(tokener); }
};

/// True when a text of the document, or of a key, holds a NUL: the bus would end it there.
static bool holds_nul(json_object *value)
{
    if (json_object_is_type(value, json_type_string))
        return strlen(json_object_get_string(value)) !=
               static_cast<size_t>(json_object_get_string_len(value));
    if (json_object_is_type(value, json_type_array)) {
        for (size_t i = 0; i < json_object_array_length(value); i++)
            if (holds_nul(json_object_array_get_idx(value, i)))
                return true;
    } else if (json_object_is_type(value, json_type_object)) {
        json_object_object_foreach(value, key, member)
        {
            (void)key;
            if (holds_nul(member))
                return true;
        }
    }
    return false;
}

bool message_of_json(const std::string &text, blob_buf *message, std::string &error)
{
    const std::unique_ptr<json_tokener, closer> tokener(json_tokener_new());
    json_tokener_set_flags(tokener.get(), JSON_TOKENER_STRICT);
    // With its final NUL, so that the tokener sees the end of the text.
    const std::unique_ptr<json_object, closer> root(
        json_tokener_parse_ex(tokener.get(), text.c_str(), static_cast<int>(text.size() + 1)));
    const json_tokener_error fault = json_tokener_get_error(tokener.get());
    if (fault != json_tokener_success)
        error = std::string("not JSON: ") + json_tokener_error_desc(fault) + " at " +
                json_place(text, json_tokener_get_parse_end(tokener.get()));
    else if (!json_object_is_type(root.get(), json_type_object))
        error = "not a JSON object";
    else if (holds_nul(root.get()))
        error = "a text holds the character \\u0000, where the bus would end it";
    else if (blobmsg_buf_init(message) != 0 || !blobmsg_add_object(message, root.get()) ||
             blob_pad_len(message->head) > MESSAGE_MAX)
        error = "too large for the bus";
    else if (!zu_blobmsg_valid(message->head))
        error = "nested too deeply";
    return error.empty();
}

bool read_whole(const std::string &path, std::string &text, std::string &error)
{
    const std::unique_ptr<FILE, closer> file(path == "-" ? stdin : fopen(path.c_str(), "re"));
    if (!file) {
        error = strerror(errno);
        return false;
    }
    char chunk[64 * 1024];
    size_t count;
    text.clear();
    while ((count = fread(chunk, 1, sizeof(chunk), file.get())) > 0 && text.size() <= FILE_MAX)
        text.append(chunk, count);
    if (ferror(file.get()))
        error = strerror(errno);
    else if (text.size() > FILE_MAX)
        error = "larger than 16 MiB";
    return error.empty();
}

bool read_message(const std::string &path, blob_buf *message, std::string &error)
{
    std::string text;
    return read_whole(path, text, error) && message_of_json(text, message, error);
}

blob_attr *params_of(blob_buf *message)
{
    return zu_blobmsg_member(message->head, {"params", BLOBMSG_TYPE_TABLE});
}

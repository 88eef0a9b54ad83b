// JSON to blobmsg by way of json-c, and blobmsg to JSON text by hand: its layout is what scripts
// on the bus see, so every comma and tab is fixed.
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <json-c/json.h>
#include <libubox/blobmsg_json.h>

constexpr int INDENT_MAX = 16;     ///< tabs at the start of a line
constexpr int DEPTH_MAX = 1024;    ///< containers nested deeper are printed empty
constexpr size_t TEXT_START = 256; ///< first allocation of a text
constexpr size_t NUMBER_MAX = 400; ///< a double has up to 309 digits before its point

// --- blobmsg to text ---------------------------------------------------------------------------

struct json_writer {
    blobmsg_json_format_t cb;
    void *priv;
    int indent; ///< tabs of the current line; negative for no white space at all
    int depth = 0;
    char *text = nullptr;
    size_t len = 0;
    size_t size = 0;
    bool failed = false; ///< out of memory
};

static void write_element(json_writer *w, blob_attr *attr, bool named);

/// Room for `len` more bytes, or null.
static char *writer_reserve(json_writer *w, size_t len)
{
    if (w->len + len > w->size && !w->failed) {
        size_t size = w->size ? w->size * 2 : TEXT_START;
        while (size < w->len + len)
            size *= 2;
        auto *text = static_cast<char *>(realloc(w->text, size));
        w->failed = !text;
        w->text = text ? text : w->text;
        w->size = text ? size : w->size;
    }
    return w->failed ? nullptr : w->text + w->len;
}

static void write_bytes(json_writer *w, const char *bytes, size_t len)
{
    if (char *to = writer_reserve(w, len)) {
        memcpy(to, bytes, len);
        w->len += len;
    }
}

static void write_text(json_writer *w, const char *text)
{
    write_bytes(w, text, strlen(text));
}

static void write_line_start(json_writer *w)
{
    static constexpr char LINE[1 + INDENT_MAX + 1] = "\n\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t";
    if (w->indent >= 0)
        write_bytes(w, LINE,
                    1 + static_cast<size_t>(w->indent < INDENT_MAX ? w->indent : INDENT_MAX));
}

static void write_escape(json_writer *w, unsigned char c)
{
    static constexpr char SHORT[][3] = {"\"\"", "\\\\", "\bb", "\nn", "\tt", "\rr"};
    for (const char *pair : SHORT) {
        if (static_cast<unsigned char>(pair[0]) == c) {
            char escape[] = {'\\', pair[1]};
            write_bytes(w, escape, sizeof(escape));
            return;
        }
    }
    char escape[7];
    snprintf(escape, sizeof(escape), "\\u%04x", c);
    write_text(w, escape);
}

static void write_string(json_writer *w, const char *string)
{
    write_bytes(w, "\"", 1);
    const char *plain = string;
    for (; *string; string++) {
        auto c = static_cast<unsigned char>(*string);
        if (c >= 0x20 && c != '"' && c != '\\')
            continue;
        write_bytes(w, plain, static_cast<size_t>(string - plain));
        write_escape(w, c);
        plain = string + 1;
    }
    write_bytes(w, plain, static_cast<size_t>(string - plain));
    write_bytes(w, "\"", 1);
}

static void write_integer(json_writer *w, int64_t value)
{
    char digits[24];
    auto end = std::to_chars(digits, digits + sizeof(digits), value).ptr;
    write_bytes(w, digits, static_cast<size_t>(end - digits));
}

static void write_double(json_writer *w, double value)
{
    char digits[NUMBER_MAX];
    int len = snprintf(digits, sizeof(digits), "%f", value);
    write_bytes(w, digits, static_cast<size_t>(len));
}

static void write_children(json_writer *w, blob_attr *attr, bool array)
{
    write_bytes(w, array ? "[" : "{", 1);
    w->indent += w->indent >= 0;
    w->depth++;
    write_line_start(w);
    blob_attr *child;
    size_t rem;
    bool first = true;
    size_t len = w->depth <= DEPTH_MAX ? blobmsg_data_len(attr) : 0;
    __blob_for_each(child, blobmsg_data(attr), len, rem)
    {
        if (!first) {
            write_bytes(w, ",", 1);
            write_line_start(w);
        }
        first = false;
        // What is malformed leaves its comma behind and nothing else.
        if (blobmsg_check_attr_len(child, false, rem))
            write_element(w, child, !array);
    }
    w->depth--;
    w->indent -= w->indent >= 0;
    write_line_start(w);
    write_bytes(w, array ? "]" : "}", 1);
}

static void write_value(json_writer *w, blob_attr *attr)
{
    if (const char *instead = w->cb ? w->cb(w->priv, attr) : nullptr) {
        write_text(w, instead);
        return;
    }
    switch (blobmsg_type(attr)) {
    case BLOBMSG_TYPE_INT8:
        write_text(w, blobmsg_get_bool(attr) ? "true" : "false");
        break;
    case BLOBMSG_TYPE_INT16:
    case BLOBMSG_TYPE_INT32:
    case BLOBMSG_TYPE_INT64:
        write_integer(w, blobmsg_cast_s64(attr));
        break;
    case BLOBMSG_TYPE_DOUBLE:
        write_double(w, blobmsg_get_double(attr));
        break;
    case BLOBMSG_TYPE_STRING:
        write_string(w, blobmsg_get_string(attr));
        break;
    case BLOBMSG_TYPE_ARRAY:
    case BLOBMSG_TYPE_TABLE:
        write_children(w, attr, blobmsg_type(attr) == BLOBMSG_TYPE_ARRAY);
        break;
    default:
        write_text(w, "null");
        break;
    }
}

/// The name to print. A plain attribute has none, and what is printed for it is the text that
/// stands where a name would, as the bus tools show it.
static const char *printed_name(blob_attr *attr)
{
    if (blob_is_extended(attr))
        return blobmsg_name(attr);
    size_t len = blob_len(attr);
    size_t skip = sizeof(blobmsg_hdr);
    bool text = len > skip && memchr(attr->data + skip, '\0', len - skip);
    return text ? attr->data + skip : "";
}

/// `attr` has passed blobmsg_check_attr.
static void write_element(json_writer *w, blob_attr *attr, bool named)
{
    const char *name = named ? printed_name(attr) : "";
    if (*name) {
        write_string(w, name);
        write_text(w, w->indent < 0 ? ":" : ": ");
    }
    write_value(w, attr);
}

/// Terminates the text and hands it to the caller.
static char *writer_finish(json_writer *w)
{
    bool printed = w->len > 0;
    write_bytes(w, "", 1);
    if (w->failed || !printed) {
        free(w->text);
        return nullptr;
    }
    return w->text;
}

char *blobmsg_format_json_with_cb(blob_attr *attr, bool list, blobmsg_json_format_t cb, void *priv,
                                  int indent)
{
    json_writer w = {cb, priv, indent};
    if (list)
        write_children(&w, attr,
                       blob_is_extended(attr) && blobmsg_type(attr) == BLOBMSG_TYPE_ARRAY);
    else if (blobmsg_check_attr(attr, false))
        write_element(&w, attr, true);
    return writer_finish(&w);
}

char *blobmsg_format_json_value_with_cb(blob_attr *attr, blobmsg_json_format_t cb, void *priv,
                                        int indent)
{
    json_writer w = {cb, priv, indent};
    if (blobmsg_check_attr(attr, false))
        write_element(&w, attr, false);
    return writer_finish(&w);
}

// --- text to blobmsg ---------------------------------------------------------------------------

static bool add_array_elements(blob_buf *b, json_object *array)
{
    size_t count = json_object_array_length(array);
    for (size_t i = 0; i < count; i++) {
        if (!blobmsg_add_json_element(b, nullptr, json_object_array_get_idx(array, i)))
            return false;
    }
    return true;
}

static bool add_container(blob_buf *b, const char *name, json_object *obj, bool array)
{
    void *cookie = blobmsg_open_nested(b, name, array);
    if (!cookie)
        return false;
    bool ok = array ? add_array_elements(b, obj) : blobmsg_add_object(b, obj);
    blob_nest_end(b, cookie);
    return ok;
}

static int add_integer(blob_buf *b, const char *name, int64_t value)
{
    if (value < INT32_MIN || value > INT32_MAX)
        return blobmsg_add_u64(b, name, static_cast<uint64_t>(value));
    return blobmsg_add_u32(b, name, static_cast<uint32_t>(value));
}

bool blobmsg_add_json_element(blob_buf *b, const char *name, json_object *obj)
{
    switch (json_object_get_type(obj)) {
    case json_type_object:
        return add_container(b, name, obj, false);
    case json_type_array:
        return add_container(b, name, obj, true);
    case json_type_string:
        return blobmsg_add_string(b, name, json_object_get_string(obj)) == 0;
    case json_type_boolean:
        return blobmsg_add_u8(b, name, json_object_get_boolean(obj) ? 1 : 0) == 0;
    case json_type_int:
        return add_integer(b, name, json_object_get_int64(obj)) == 0;
    case json_type_double:
        return blobmsg_add_double(b, name, json_object_get_double(obj)) == 0;
    case json_type_null:
        return blobmsg_add_field(b, BLOBMSG_TYPE_UNSPEC, name, nullptr, 0) == 0;
    }
    return false;
}

bool blobmsg_add_object(blob_buf *b, json_object *obj)
{
    json_object_object_foreach(obj, key, value)
    {
        if (!blobmsg_add_json_element(b, key, value))
            return false;
    }
    return true;
}

/// Takes over the reference to `obj`, which may be null.
static bool add_document(blob_buf *b, json_object *obj)
{
    bool ok = json_object_is_type(obj, json_type_object) && blobmsg_add_object(b, obj);
    json_object_put(obj);
    return ok;
}

bool blobmsg_add_json_from_string(blob_buf *b, const char *str)
{
    return add_document(b, json_tokener_parse(str));
}

bool blobmsg_add_json_from_file(blob_buf *b, const char *file)
{
    return add_document(b, json_object_from_file(file));
}

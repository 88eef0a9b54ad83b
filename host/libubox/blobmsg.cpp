// blobmsg: named, typed attributes. Checking and taking apart received ones, building new ones;
// the bytes and the buffer are blob.cpp's, JSON is blobmsg_json.cpp's.
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <libubox/blobmsg.h>

#include "blob_internal.h"

constexpr size_t NAME_MAX_STORED = 0xffff; ///< the header's 16 bits
constexpr size_t NAME_MAX_MATCHED = 255;   ///< a policy never finds a longer name

static size_t payload_len(const blob_attr *attr)
{
    return blob_raw_len(attr) < sizeof(*attr) ? 0 : blob_len(attr);
}

static unsigned name_len(const blob_attr *attr)
{
    return blob_get_u16(attr);
}

/// Bytes of payload in front of the value; never more than there are, whatever the header says.
static size_t header_len(const blob_attr *attr)
{
    if (!blob_is_extended(attr))
        return 0;
    size_t payload = payload_len(attr);
    if (payload < sizeof(blobmsg_hdr))
        return payload;
    return std::min(payload, static_cast<size_t>(blobmsg_hdrlen(name_len(attr))));
}

void *blobmsg_data(const blob_attr *attr)
{
    return attr ? static_cast<char *>(blob_data(attr)) + header_len(attr) : nullptr;
}

size_t blobmsg_data_len(const blob_attr *attr)
{
    return attr ? payload_len(attr) - header_len(attr) : 0;
}

uint64_t blobmsg_cast_u64(blob_attr *attr)
{
    switch (blobmsg_type(attr)) {
    case BLOBMSG_TYPE_INT64:
        return blobmsg_get_u64(attr);
    case BLOBMSG_TYPE_INT32:
        return blobmsg_get_u32(attr);
    case BLOBMSG_TYPE_INT16:
        return blobmsg_get_u16(attr);
    case BLOBMSG_TYPE_INT8:
        return blobmsg_get_u8(attr);
    default:
        return 0;
    }
}

int64_t blobmsg_cast_s64(blob_attr *attr)
{
    switch (blobmsg_type(attr)) {
    case BLOBMSG_TYPE_INT64:
        return static_cast<int64_t>(blobmsg_get_u64(attr));
    case BLOBMSG_TYPE_INT32:
        return static_cast<int32_t>(blobmsg_get_u32(attr));
    case BLOBMSG_TYPE_INT16:
        return static_cast<int16_t>(blobmsg_get_u16(attr));
    case BLOBMSG_TYPE_INT8:
        return static_cast<int8_t>(blobmsg_get_u8(attr));
    default:
        return 0;
    }
}

/// The plain type whose rules a value of a blobmsg type must meet.
static int plain_type(int type)
{
    static constexpr int PLAIN[__BLOBMSG_TYPE_LAST] = {
        BLOB_ATTR_UNSPEC, BLOB_ATTR_NESTED, BLOB_ATTR_NESTED, BLOB_ATTR_STRING, BLOB_ATTR_INT64,
        BLOB_ATTR_INT32,  BLOB_ATTR_INT16,  BLOB_ATTR_INT8,   BLOB_ATTR_DOUBLE,
    };
    return type < __BLOBMSG_TYPE_LAST ? PLAIN[type] : BLOB_ATTR_LAST;
}

static bool name_is_sound(const blob_attr *attr, bool name)
{
    if (!blob_is_extended(attr))
        return !name;
    if (blob_len(attr) < sizeof(blobmsg_hdr))
        return false;
    unsigned len = name_len(attr);
    if (name && len == 0)
        return false;
    return static_cast<size_t>(blobmsg_hdrlen(len)) <= blob_len(attr) &&
           blobmsg_name(attr)[len] == '\0';
}

bool blobmsg_check_attr_len(const blob_attr *attr, bool name, size_t len)
{
    if (len < sizeof(*attr) || blob_raw_len(attr) < sizeof(*attr) || blob_raw_len(attr) > len)
        return false;
    return name_is_sound(attr, name) &&
           blob_check_type(blobmsg_data(attr), static_cast<unsigned>(blobmsg_data_len(attr)),
                           plain_type(blobmsg_type(attr)));
}

bool blobmsg_check_attr(const blob_attr *attr, bool name)
{
    return blobmsg_check_attr_len(attr, name, blob_raw_len(attr));
}

int blobmsg_check_array_len(const blob_attr *attr, int type, size_t len)
{
    if (!blobmsg_check_attr_len(attr, false, len))
        return -1;
    bool table = blobmsg_type(attr) == BLOBMSG_TYPE_TABLE;
    if (!table && blobmsg_type(attr) != BLOBMSG_TYPE_ARRAY)
        return -1;

    int count = 0;
    blob_attr *child;
    size_t rem;
    blobmsg_for_each_attr(child, attr, rem)
    {
        if (!blobmsg_check_attr_len(child, table, rem))
            return -1;
        if (type != BLOBMSG_TYPE_UNSPEC && blobmsg_type(child) != type)
            return -1;
        count++;
    }
    return count;
}

int blobmsg_check_array(const blob_attr *attr, int type)
{
    return blobmsg_check_array_len(attr, type, blob_raw_len(attr));
}

bool blobmsg_check_attr_list_len(const blob_attr *attr, int type, size_t len)
{
    return blobmsg_check_array_len(attr, type, len) >= 0;
}

bool blobmsg_check_attr_list(const blob_attr *attr, int type)
{
    return blobmsg_check_array(attr, type) >= 0;
}

static bool type_matches(int wanted, int type)
{
    if (wanted == BLOBMSG_CAST_INT64)
        return type >= BLOBMSG_TYPE_INT64 && type <= BLOBMSG_TYPE_INT8;
    return wanted == BLOBMSG_TYPE_UNSPEC || wanted == type;
}

/// The attribute's name may hold NULs, the policy's cannot: hence both comparisons.
static bool name_matches(const char *wanted, const blob_attr *attr)
{
    return strcmp(wanted, blobmsg_name(attr)) == 0 && strlen(wanted) == name_len(attr);
}

int blobmsg_parse(const blobmsg_policy *policy, int policy_len, blob_attr **tb, void *data,
                  unsigned int len)
{
    std::fill_n(tb, policy_len, nullptr);
    if (!data || !len)
        return -EINVAL;

    blob_attr *attr;
    size_t rem;
    __blob_for_each(attr, data, len, rem)
    {
        if (!blobmsg_check_attr_len(attr, false, rem))
            return -1;
        if (!blob_is_extended(attr) || name_len(attr) > NAME_MAX_MATCHED)
            continue;
        for (int i = 0; i < policy_len; i++) {
            if (!tb[i] && policy[i].name && type_matches(policy[i].type, blobmsg_type(attr)) &&
                name_matches(policy[i].name, attr))
                tb[i] = attr;
        }
    }
    return 0;
}

int blobmsg_parse_attr(const blobmsg_policy *policy, int policy_len, blob_attr **tb,
                       blob_attr *data)
{
    return blobmsg_parse(policy, policy_len, tb, blobmsg_data(data),
                         static_cast<unsigned>(blobmsg_data_len(data)));
}

int blobmsg_parse_array(const blobmsg_policy *policy, int policy_len, blob_attr **tb, void *data,
                        unsigned int len)
{
    std::fill_n(tb, policy_len, nullptr);
    int slot = 0;
    blob_attr *attr;
    size_t rem;
    __blob_for_each(attr, data, len, rem)
    {
        if (slot == policy_len)
            break;
        if (!blobmsg_check_attr_len(attr, false, rem))
            return -1;
        int wanted = policy[slot].type;
        if (wanted == BLOBMSG_TYPE_UNSPEC || wanted == blobmsg_type(attr))
            tb[slot++] = attr;
    }
    return 0;
}

int blobmsg_parse_array_attr(const blobmsg_policy *policy, int policy_len, blob_attr **tb,
                             blob_attr *data)
{
    return blobmsg_parse_array(policy, policy_len, tb, blobmsg_data(data),
                               static_cast<unsigned>(blobmsg_data_len(data)));
}

int blobmsg_buf_init(blob_buf *buf)
{
    return blob_buf_init(buf, BLOBMSG_TYPE_TABLE);
}

/// Adds an attribute with its name and room for `len` bytes of value.
static blob_attr *add_named(blob_buf *buf, int type, const char *name, size_t len)
{
    if (!name)
        name = "";
    size_t namelen = strlen(name);
    if (namelen > NAME_MAX_STORED || len > BLOB_ATTR_LEN_MASK)
        return nullptr;
    int header = blobmsg_hdrlen(static_cast<unsigned>(namelen));
    blob_attr *attr = blob_new(buf, type, header + static_cast<int>(len));
    if (!attr)
        return nullptr;

    attr->id_len |= cpu_to_be32(BLOB_ATTR_EXTENDED);
    uint16_t stored = cpu_to_be16(static_cast<uint16_t>(namelen));
    memset(attr->data, 0, static_cast<size_t>(header));
    memcpy(attr->data, &stored, sizeof(stored));
    memcpy(attr->data + sizeof(stored), name, namelen);
    return attr;
}

int blobmsg_add_field(blob_buf *buf, int type, const char *name, const void *data, unsigned int len)
{
    blob_attr *attr = add_named(buf, type, name, len);
    if (!attr)
        return -1;
    if (len > 0)
        memcpy(blobmsg_data(attr), data, len);
    return 0;
}

int blobmsg_add_blob(blob_buf *buf, blob_attr *attr)
{
    return blobmsg_add_field(buf, blobmsg_type(attr), blobmsg_name(attr), blobmsg_data(attr),
                             static_cast<unsigned>(blobmsg_data_len(attr)));
}

void *blobmsg_open_nested(blob_buf *buf, const char *name, bool array)
{
    size_t parent = blob_offset(buf, buf->head);
    blob_attr *attr = add_named(buf, array ? BLOBMSG_TYPE_ARRAY : BLOBMSG_TYPE_TABLE, name, 0);
    if (!attr)
        return nullptr;
    // Closing adds the whole payload to the parent, and the name is part of it.
    blob_set_raw_len(buf->head, static_cast<unsigned>(blob_raw_len(buf->head) - blob_len(attr)));
    buf->head = attr;
    return reinterpret_cast<void *>(parent + BLOB_COOKIE);
}

void *blobmsg_alloc_string_buffer(blob_buf *buf, const char *name, unsigned int maxlen)
{
    if (maxlen > BLOB_ATTR_LEN_MASK) // with 32 bits the sums below would start anew at 0
        return nullptr;
    blob_attr *attr = add_named(buf, BLOBMSG_TYPE_STRING, name, size_t{maxlen} + 1);
    if (!attr)
        return nullptr;
    blob_set_raw_len(buf->head,
                     static_cast<unsigned>(blob_raw_len(buf->head) - blob_pad_len(attr)));
    return blobmsg_data(attr);
}

void *blobmsg_realloc_string_buffer(blob_buf *buf, unsigned int maxlen)
{
    if (maxlen > BLOB_ATTR_LEN_MASK)
        return nullptr;
    blob_attr *attr = blob_next(buf->head);
    size_t text = blob_offset(buf, attr) + sizeof(*attr) + header_len(attr);
    if (!blob_buf_reserve(buf, text + maxlen + 1 + BLOB_ATTR_ALIGN - 1))
        return nullptr;
    return static_cast<char *>(buf->buf) + text;
}

void blobmsg_add_string_buffer(blob_buf *buf)
{
    blob_attr *attr = blob_next(buf->head);
    size_t header = sizeof(*attr) + header_len(attr);
    size_t text = strlen(reinterpret_cast<char *>(attr) + header) + 1;
    blob_set_raw_len(attr, static_cast<unsigned>(header + text));
    blob_fill_pad(attr);
    blob_set_raw_len(buf->head,
                     static_cast<unsigned>(blob_raw_len(buf->head) + blob_pad_len(attr)));
}

int blobmsg_vprintf(blob_buf *buf, const char *name, const char *format, va_list arg)
{
    va_list measure;
    va_copy(measure, arg);
    int len = vsnprintf(nullptr, 0, format, measure);
    va_end(measure);
    if (len < 0)
        return -1;
    auto *text =
        static_cast<char *>(blobmsg_alloc_string_buffer(buf, name, static_cast<unsigned>(len)));
    if (!text)
        return -1;
    vsnprintf(text, static_cast<size_t>(len) + 1, format, arg);
    blobmsg_add_string_buffer(buf);
    return len;
}

int blobmsg_printf(blob_buf *buf, const char *name, const char *format, ...)
{
    va_list arg;
    va_start(arg, format);
    int len = blobmsg_vprintf(buf, name, format, arg);
    va_end(arg);
    return len;
}

// Plain attributes: building them in a growing buffer, and sorting received ones by id. Names and
// types are blobmsg.cpp's.
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "blob_internal.h"

constexpr int GROW_STEP = 256;

static blob_attr *attr_at(const blob_buf *buf, size_t offset)
{
    return reinterpret_cast<blob_attr *>(static_cast<char *>(buf->buf) + offset);
}

void blob_set_raw_len(blob_attr *attr, unsigned int len)
{
    uint32_t word = be32_to_cpu(attr->id_len) & ~BLOB_ATTR_LEN_MASK;
    attr->id_len = cpu_to_be32(word | (len & BLOB_ATTR_LEN_MASK));
}

void blob_fill_pad(blob_attr *attr)
{
    size_t raw = blob_raw_len(attr);
    memset(reinterpret_cast<char *>(attr) + raw, 0, blob_pad_len(attr) - raw);
}

bool blob_attr_equal(const blob_attr *a1, const blob_attr *a2)
{
    if (!a1 || !a2)
        return a1 == a2;
    return blob_pad_len(a1) == blob_pad_len(a2) && memcmp(a1, a2, blob_pad_len(a1)) == 0;
}

blob_attr *blob_memdup(const blob_attr *attr)
{
    size_t size = blob_pad_len(attr);
    void *copy = malloc(size);
    if (copy)
        memcpy(copy, attr, size);
    return static_cast<blob_attr *>(copy);
}

static bool default_grow(blob_buf *buf, int minlen)
{
    int added = (minlen / GROW_STEP + 1) * GROW_STEP;
    void *memory = realloc(buf->buf, static_cast<size_t>(buf->buflen + added));
    if (!memory)
        return false;
    memset(static_cast<char *>(memory) + buf->buflen, 0, static_cast<size_t>(added));
    buf->buf = memory;
    buf->buflen += added;
    return true;
}

bool blob_buf_grow(blob_buf *buf, int required)
{
    if (static_cast<int64_t>(buf->buflen) + required > BLOB_ATTR_LEN_MASK)
        return false;
    size_t head = buf->head ? blob_offset(buf, buf->head) : 0;
    if (!buf->grow || !buf->grow(buf, required))
        return false;
    buf->head = attr_at(buf, head);
    return true;
}

bool blob_buf_reserve(blob_buf *buf, size_t end)
{
    // The last step of growth may reach past what 24 bits of length can say.
    if (end > BLOB_ATTR_LEN_MASK)
        return false;
    if (end <= static_cast<size_t>(buf->buflen))
        return true;
    return blob_buf_grow(buf, static_cast<int>(end) - buf->buflen);
}

/// Writes the header of an attribute at `offset` and zeroes its padding; no parent counts it yet.
static blob_attr *place(blob_buf *buf, size_t offset, int id, size_t payload)
{
    size_t raw = sizeof(blob_attr) + payload;
    size_t padded = (raw + BLOB_ATTR_ALIGN - 1) & ~size_t{BLOB_ATTR_ALIGN - 1};
    if (!blob_buf_reserve(buf, offset + padded))
        return nullptr;
    blob_attr *attr = attr_at(buf, offset);
    uint32_t id_bits = static_cast<uint32_t>(id) << BLOB_ATTR_ID_SHIFT & BLOB_ATTR_ID_MASK;
    attr->id_len = cpu_to_be32(id_bits | static_cast<uint32_t>(raw));
    blob_fill_pad(attr);
    return attr;
}

static blob_attr *add(blob_buf *buf, int id, size_t payload)
{
    blob_attr *attr = place(buf, blob_offset(buf, blob_next(buf->head)), id, payload);
    if (attr)
        blob_set_raw_len(buf->head,
                         static_cast<unsigned>(blob_pad_len(buf->head) + blob_pad_len(attr)));
    return attr;
}

int blob_buf_init(blob_buf *buf, int id)
{
    if (!buf->grow)
        buf->grow = default_grow;
    buf->head = static_cast<blob_attr *>(buf->buf);
    blob_attr *root = place(buf, 0, id, 0);
    if (!root)
        return -ENOMEM;
    buf->head = root;
    return 0;
}

void blob_buf_free(blob_buf *buf)
{
    free(buf->buf);
    buf->buf = nullptr;
    buf->head = nullptr;
    buf->buflen = 0;
}

blob_attr *blob_new(blob_buf *buf, int id, int payload)
{
    return payload < 0 ? nullptr : add(buf, id, static_cast<size_t>(payload));
}

blob_attr *blob_put(blob_buf *buf, int id, const void *ptr, unsigned int len)
{
    blob_attr *attr = add(buf, id, len);
    if (attr && len > 0)
        memcpy(blob_data(attr), ptr, len);
    return attr;
}

blob_attr *blob_put_raw(blob_buf *buf, const void *ptr, unsigned int len)
{
    if (len < sizeof(blob_attr))
        return nullptr;
    blob_attr *attr = place(buf, blob_offset(buf, blob_next(buf->head)), 0, len - sizeof(*attr));
    if (!attr)
        return nullptr;
    blob_set_raw_len(buf->head, static_cast<unsigned>(blob_pad_len(buf->head) + len));
    memcpy(attr, ptr, len);
    return attr;
}

void *blob_nest_start(blob_buf *buf, int id)
{
    size_t parent = blob_offset(buf, buf->head);
    buf->head = add(buf, id, 0);
    return buf->head ? reinterpret_cast<void *>(parent + BLOB_COOKIE) : nullptr;
}

void blob_nest_end(blob_buf *buf, void *cookie)
{
    blob_attr *parent = attr_at(buf, reinterpret_cast<size_t>(cookie) - BLOB_COOKIE);
    blob_set_raw_len(parent, static_cast<unsigned>(blob_raw_len(parent) + blob_len(buf->head)));
    buf->head = parent;
}

bool blob_check_type(const void *ptr, unsigned int len, int type)
{
    switch (type) {
    case BLOB_ATTR_UNSPEC:
    case BLOB_ATTR_NESTED:
    case BLOB_ATTR_BINARY:
        return true;
    case BLOB_ATTR_STRING:
        return len > 0 && static_cast<const char *>(ptr)[len - 1] == '\0';
    case BLOB_ATTR_INT8:
        return len == sizeof(uint8_t);
    case BLOB_ATTR_INT16:
        return len == sizeof(uint16_t);
    case BLOB_ATTR_INT32:
        return len == sizeof(uint32_t);
    case BLOB_ATTR_INT64:
        return len == sizeof(uint64_t);
    case BLOB_ATTR_DOUBLE:
        return len >= sizeof(double);
    default:
        return false;
    }
}

static bool fits(blob_attr *attr, const blob_attr_info *info)
{
    size_t raw = blob_raw_len(attr);
    if (raw < sizeof(*attr))
        return false;
    if (!info)
        return true;
    if (!blob_check_type(attr->data, static_cast<unsigned>(blob_len(attr)),
                         static_cast<int>(info->type)))
        return false;
    if ((info->minlen && raw < info->minlen) || (info->maxlen && raw > info->maxlen))
        return false;
    return !info->validate || info->validate(info, attr);
}

int blob_parse_untrusted(blob_attr *attr, size_t attr_len, blob_attr **data,
                         const blob_attr_info *info, int max)
{
    if (attr_len < sizeof(*attr) || attr_len < blob_raw_len(attr) ||
        blob_raw_len(attr) < sizeof(*attr))
        return 0;

    memset(data, 0, sizeof(*data) * static_cast<size_t>(max));
    int found = 0;
    blob_attr *pos;
    size_t rem;
    blob_for_each_attr(pos, attr, rem)
    {
        int id = static_cast<int>(blob_id(pos));
        if (id >= max || !fits(pos, info ? &info[id] : nullptr))
            continue;
        found += !data[id];
        data[id] = pos;
    }
    return found;
}

int blob_parse(blob_attr *attr, blob_attr **data, const blob_attr_info *info, int max)
{
    return blob_parse_untrusted(attr, blob_raw_len(attr), data, info, max);
}

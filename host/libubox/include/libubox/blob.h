/* Binary attributes, the carrier of everything on the bus.
 *
 * An attribute is one 32-bit big-endian word (extended flag, 7 bits of id, 24 bits of length
 * counting the word itself), its payload, and zero padding up to a multiple of 4. A container's
 * payload is the row of its padded children. Payloads sit on a 4-byte boundary at best. */
#pragma once

#include "utils.h"

#define BLOB_ATTR_EXTENDED 0x80000000u
#define BLOB_ATTR_ID_MASK 0x7f000000u
#define BLOB_ATTR_ID_SHIFT 24
#define BLOB_ATTR_LEN_MASK 0x00ffffffu
#define BLOB_ATTR_ALIGN 4
/* Added to the offset in a nest cookie, which therefore is never NULL. */
#define BLOB_COOKIE 0x01234567

/* What blob_parse can check a payload against; the id of a plain attribute does not tell. */
enum {
    BLOB_ATTR_UNSPEC,
    BLOB_ATTR_NESTED,
    BLOB_ATTR_BINARY,
    BLOB_ATTR_STRING,
    BLOB_ATTR_INT8,
    BLOB_ATTR_INT16,
    BLOB_ATTR_INT32,
    BLOB_ATTR_INT64,
    BLOB_ATTR_DOUBLE,
    BLOB_ATTR_LAST
};

struct blob_attr {
    uint32_t id_len;
    char data[];
} __packed;

struct blob_attr_info {
    unsigned int type;
    unsigned int minlen; /* of the raw length, header included; 0 checks nothing */
    unsigned int maxlen;
    bool (*validate)(const struct blob_attr_info *, struct blob_attr *);
};

/* A message under construction. Zero-initialise it before the first blob_buf_init. Whatever adds to
 * it may move `buf`: pointers to attributes do not survive, nest cookies do. */
struct blob_buf {
    struct blob_attr *head; /* the innermost open container */
    bool (*grow)(struct blob_buf *buf, int minlen);
    int buflen;
    void *buf;
};

#ifdef __cplusplus
extern "C" {
#endif

static inline void *blob_data(const struct blob_attr *attr)
{
    return (void *)attr->data;
}

static inline unsigned int blob_id(const struct blob_attr *attr)
{
    return (be32_to_cpu(attr->id_len) & BLOB_ATTR_ID_MASK) >> BLOB_ATTR_ID_SHIFT;
}

static inline bool blob_is_extended(const struct blob_attr *attr)
{
    return (be32_to_cpu(attr->id_len) & BLOB_ATTR_EXTENDED) != 0;
}

/* Length of the payload. Wraps on a malformed attribute whose length word is below 4. */
static inline size_t blob_len(const struct blob_attr *attr)
{
    return (be32_to_cpu(attr->id_len) & BLOB_ATTR_LEN_MASK) - sizeof(struct blob_attr);
}

/* Length with the header, without padding. */
static inline size_t blob_raw_len(const struct blob_attr *attr)
{
    return blob_len(attr) + sizeof(struct blob_attr);
}

/* Length with header and padding. */
static inline size_t blob_pad_len(const struct blob_attr *attr)
{
    return (blob_raw_len(attr) + BLOB_ATTR_ALIGN - 1) & ~(size_t)(BLOB_ATTR_ALIGN - 1);
}

static inline struct blob_attr *blob_next(const struct blob_attr *attr)
{
    return (struct blob_attr *)((char *)attr + blob_pad_len(attr));
}

static inline uint8_t blob_get_u8(const struct blob_attr *attr)
{
    return (uint8_t)attr->data[0];
}

static inline uint16_t blob_get_u16(const struct blob_attr *attr)
{
    uint16_t v;
    __builtin_memcpy(&v, attr->data, sizeof(v));
    return be16_to_cpu(v);
}

static inline uint32_t blob_get_u32(const struct blob_attr *attr)
{
    uint32_t v;
    __builtin_memcpy(&v, attr->data, sizeof(v));
    return be32_to_cpu(v);
}

static inline uint64_t blob_get_u64(const struct blob_attr *attr)
{
    uint64_t v;
    __builtin_memcpy(&v, attr->data, sizeof(v));
    return be64_to_cpu(v);
}

static inline int8_t blob_get_int8(const struct blob_attr *attr)
{
    return (int8_t)blob_get_u8(attr);
}

static inline int16_t blob_get_int16(const struct blob_attr *attr)
{
    return (int16_t)blob_get_u16(attr);
}

static inline int32_t blob_get_int32(const struct blob_attr *attr)
{
    return (int32_t)blob_get_u32(attr);
}

static inline int64_t blob_get_int64(const struct blob_attr *attr)
{
    return (int64_t)blob_get_u64(attr);
}

static inline const char *blob_get_string(const struct blob_attr *attr)
{
    return attr->data;
}

/* Sets the length (with header) and keeps id and flag. */
void blob_set_raw_len(struct blob_attr *attr, unsigned int len);
/* Zeroes the padding. */
void blob_fill_pad(struct blob_attr *attr);
/* Compares the padded bytes; two NULLs are equal. */
bool blob_attr_equal(const struct blob_attr *a1, const struct blob_attr *a2);
/* A malloc'ed copy, or NULL. */
struct blob_attr *blob_memdup(const struct blob_attr *attr);
/* True when `len` bytes at `ptr` are a payload of this BLOB_ATTR_ type. */
bool blob_check_type(const void *ptr, unsigned int len, int type);

/* Starts a new empty message, keeping the memory of an earlier one. 0 or -ENOMEM. */
int blob_buf_init(struct blob_buf *buf, int id);
void blob_buf_free(struct blob_buf *buf);
/* Makes room for `required` more bytes. False when memory runs out or the message would outgrow
 * the 24-bit length; the message is as before then. */
bool blob_buf_grow(struct blob_buf *buf, int required);

/* The adding functions return the new attribute, or NULL with the message unchanged. */
struct blob_attr *blob_new(struct blob_buf *buf, int id, int payload);
struct blob_attr *blob_put(struct blob_buf *buf, int id, const void *ptr, unsigned int len);
/* Copies whole, padded attributes as they are. NULL also when `len` is below 4. */
struct blob_attr *blob_put_raw(struct blob_buf *buf, const void *ptr, unsigned int len);
/* Opens a container; returns the cookie for blob_nest_end. After a refusal (NULL) the message must
 * be started anew. */
void *blob_nest_start(struct blob_buf *buf, int id);
void blob_nest_end(struct blob_buf *buf, void *cookie);

static inline struct blob_attr *blob_put_string(struct blob_buf *buf, int id, const char *str)
{
    return blob_put(buf, id, str, (unsigned int)__builtin_strlen(str) + 1);
}

static inline struct blob_attr *blob_put_u8(struct blob_buf *buf, int id, uint8_t val)
{
    return blob_put(buf, id, &val, sizeof(val));
}

static inline struct blob_attr *blob_put_u16(struct blob_buf *buf, int id, uint16_t val)
{
    val = cpu_to_be16(val);
    return blob_put(buf, id, &val, sizeof(val));
}

static inline struct blob_attr *blob_put_u32(struct blob_buf *buf, int id, uint32_t val)
{
    val = cpu_to_be32(val);
    return blob_put(buf, id, &val, sizeof(val));
}

static inline struct blob_attr *blob_put_u64(struct blob_buf *buf, int id, uint64_t val)
{
    val = cpu_to_be64(val);
    return blob_put(buf, id, &val, sizeof(val));
}

#define blob_put_int8 blob_put_u8
#define blob_put_int16 blob_put_u16
#define blob_put_int32 blob_put_u32
#define blob_put_int64 blob_put_u64

/* Sorts the children of `attr` into data[0..max-1] by id and returns how many ids were found.
 * Children that fail the check of info[id] are passed over; of two with one id the last wins.
 * Returns 0 and leaves `data` as it was when `attr_len` bytes do not hold the attribute. */
int blob_parse_untrusted(struct blob_attr *attr, size_t attr_len, struct blob_attr **data,
                         const struct blob_attr_info *info, int max);
int blob_parse(struct blob_attr *attr, struct blob_attr **data, const struct blob_attr_info *info,
               int max);

/* True when a whole attribute stands at `pos` with `rem` bytes left. */
static inline bool __blob_fits(const struct blob_attr *pos, size_t rem)
{
    return rem >= sizeof(*pos) && blob_pad_len(pos) >= sizeof(*pos) && blob_pad_len(pos) <= rem;
}

static inline struct blob_attr *__blob_first(const struct blob_attr *attr)
{
    return attr ? (struct blob_attr *)attr->data : NULL;
}

static inline size_t __blob_bytes(const struct blob_attr *attr)
{
    return attr ? blob_len(attr) : 0;
}

/* Walks `len` bytes of attributes at `first`; stops at the first that does not fit. */
#define __blob_for_each(pos, first, len, rem)                                                      \
    for (rem = (len), pos = (struct blob_attr *)(first); __blob_fits(pos, rem);                    \
         rem -= blob_pad_len(pos), pos = blob_next(pos))

/* Walks the children of a plain container, which may be NULL. `rem` is a size_t. */
#define blob_for_each_attr(pos, attr, rem)                                                         \
    __blob_for_each(pos, __blob_first(attr), __blob_bytes(attr), rem)

#ifdef __cplusplus
}
#endif

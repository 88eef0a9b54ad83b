/* Named, typed values in blob attributes: what settings documents and bus arguments are made of.
 *
 * The id of an extended attribute is its blobmsg type; its payload begins with the length of the
 * name, the name, a NUL and padding up to a multiple of 4, and then the value. */
#pragma once

#include <stdarg.h>

#include "blob.h"

enum blobmsg_type {
    BLOBMSG_TYPE_UNSPEC, /* JSON's null; in a policy: any type */
    BLOBMSG_TYPE_ARRAY,
    BLOBMSG_TYPE_TABLE,
    BLOBMSG_TYPE_STRING,
    BLOBMSG_TYPE_INT64,
    BLOBMSG_TYPE_INT32,
    BLOBMSG_TYPE_INT16,
    BLOBMSG_TYPE_INT8,
    BLOBMSG_TYPE_DOUBLE,
    __BLOBMSG_TYPE_LAST,
    BLOBMSG_TYPE_LAST = __BLOBMSG_TYPE_LAST - 1,
    BLOBMSG_TYPE_BOOL = BLOBMSG_TYPE_INT8,
    BLOBMSG_CAST_INT64 = __BLOBMSG_TYPE_LAST, /* in a policy: an integer of any width */
};

struct blobmsg_hdr {
    uint16_t namelen;
    uint8_t name[];
} __packed;

struct blobmsg_policy {
    const char *name;
    enum blobmsg_type type;
};

#ifdef __cplusplus
extern "C" {
#endif

/* Bytes a name of this length takes in front of the value. */
static inline int blobmsg_hdrlen(unsigned int namelen)
{
    return (int)((sizeof(struct blobmsg_hdr) + namelen + 1 + BLOB_ATTR_ALIGN - 1) &
                 ~(unsigned int)(BLOB_ATTR_ALIGN - 1));
}

/* Only an extended attribute has a name; of another one this reads payload bytes. */
static inline const char *blobmsg_name(const struct blob_attr *attr)
{
    return attr->data + sizeof(struct blobmsg_hdr);
}

static inline int blobmsg_type(const struct blob_attr *attr)
{
    return (int)blob_id(attr);
}

/* The value and its length; NULL gives NULL and 0. */
void *blobmsg_data(const struct blob_attr *attr);
size_t blobmsg_data_len(const struct blob_attr *attr);
static inline size_t blobmsg_len(const struct blob_attr *attr)
{
    return blobmsg_data_len(attr);
}

/* The getters neither check the type nor take NULL, except where said. */
static inline uint8_t blobmsg_get_u8(struct blob_attr *attr)
{
    return *(uint8_t *)blobmsg_data(attr);
}

static inline bool blobmsg_get_bool(struct blob_attr *attr)
{
    return blobmsg_get_u8(attr) != 0;
}

static inline uint16_t blobmsg_get_u16(struct blob_attr *attr)
{
    uint16_t v;
    __builtin_memcpy(&v, blobmsg_data(attr), sizeof(v));
    return be16_to_cpu(v);
}

static inline uint32_t blobmsg_get_u32(struct blob_attr *attr)
{
    uint32_t v;
    __builtin_memcpy(&v, blobmsg_data(attr), sizeof(v));
    return be32_to_cpu(v);
}

static inline uint64_t blobmsg_get_u64(struct blob_attr *attr)
{
    uint64_t v;
    __builtin_memcpy(&v, blobmsg_data(attr), sizeof(v));
    return be64_to_cpu(v);
}

static inline double blobmsg_get_double(struct blob_attr *attr)
{
    uint64_t bits = blobmsg_get_u64(attr);
    double v;
    __builtin_memcpy(&v, &bits, sizeof(v));
    return v;
}

/* NULL gives NULL. */
static inline char *blobmsg_get_string(struct blob_attr *attr)
{
    return (char *)blobmsg_data(attr);
}

/* Widen an integer of any width, without and with sign; other types give 0. */
uint64_t blobmsg_cast_u64(struct blob_attr *attr);
int64_t blobmsg_cast_s64(struct blob_attr *attr);

/* True when the attribute fits `len` bytes, its type is known, and name and value are well-formed;
 * containers are not looked into. With `name` it must have a non-empty name. */
bool blobmsg_check_attr(const struct blob_attr *attr, bool name);
bool blobmsg_check_attr_len(const struct blob_attr *attr, bool name, size_t len);
/* The number of children of a well-formed table or array whose children are all well-formed and,
 * unless UNSPEC is asked for, of that type; else -1. */
int blobmsg_check_array(const struct blob_attr *attr, int type);
int blobmsg_check_array_len(const struct blob_attr *attr, int type, size_t len);
bool blobmsg_check_attr_list(const struct blob_attr *attr, int type);
bool blobmsg_check_attr_list_len(const struct blob_attr *attr, int type, size_t len);

/* Fills tb[i] with the first child whose name and type are those of policy[i]; NULL where there is
 * none. Types must be equal: integers are not converted. 0; -1 at the first malformed child (slots
 * filled before it stay filled); -EINVAL without data. */
int blobmsg_parse(const struct blobmsg_policy *policy, int policy_len, struct blob_attr **tb,
                  void *data, unsigned int len);
int blobmsg_parse_attr(const struct blobmsg_policy *policy, int policy_len, struct blob_attr **tb,
                       struct blob_attr *data);
/* Fills the slots in order, passing over each element that is not of the current slot's type. */
int blobmsg_parse_array(const struct blobmsg_policy *policy, int policy_len, struct blob_attr **tb,
                        void *data, unsigned int len);
int blobmsg_parse_array_attr(const struct blobmsg_policy *policy, int policy_len,
                             struct blob_attr **tb, struct blob_attr *data);

/* Starts a new empty message whose root is a table. 0 or -ENOMEM. */
int blobmsg_buf_init(struct blob_buf *buf);

/* The adding functions return 0, or -1 with the message unchanged. A NULL name is an empty one. */
int blobmsg_add_field(struct blob_buf *buf, int type, const char *name, const void *data,
                      unsigned int len);
/* Copies a value with its name and type. */
int blobmsg_add_blob(struct blob_buf *buf, struct blob_attr *attr);

static inline int blobmsg_add_u8(struct blob_buf *buf, const char *name, uint8_t val)
{
    return blobmsg_add_field(buf, BLOBMSG_TYPE_INT8, name, &val, sizeof(val));
}

static inline int blobmsg_add_u16(struct blob_buf *buf, const char *name, uint16_t val)
{
    val = cpu_to_be16(val);
    return blobmsg_add_field(buf, BLOBMSG_TYPE_INT16, name, &val, sizeof(val));
}

static inline int blobmsg_add_u32(struct blob_buf *buf, const char *name, uint32_t val)
{
    val = cpu_to_be32(val);
    return blobmsg_add_field(buf, BLOBMSG_TYPE_INT32, name, &val, sizeof(val));
}

static inline int blobmsg_add_u64(struct blob_buf *buf, const char *name, uint64_t val)
{
    val = cpu_to_be64(val);
    return blobmsg_add_field(buf, BLOBMSG_TYPE_INT64, name, &val, sizeof(val));
}

static inline int blobmsg_add_double(struct blob_buf *buf, const char *name, double val)
{
    uint64_t bits;
    __builtin_memcpy(&bits, &val, sizeof(bits));
    bits = cpu_to_be64(bits);
    return blobmsg_add_field(buf, BLOBMSG_TYPE_DOUBLE, name, &bits, sizeof(bits));
}

static inline int blobmsg_add_string(struct blob_buf *buf, const char *name, const char *string)
{
    return blobmsg_add_field(buf, BLOBMSG_TYPE_STRING, name, string,
                             (unsigned int)__builtin_strlen(string) + 1);
}

/* Open a container; the result goes to the matching close. NULL, with the message unchanged, when
 * it does not fit. */
void *blobmsg_open_nested(struct blob_buf *buf, const char *name, bool array);

static inline void *blobmsg_open_array(struct blob_buf *buf, const char *name)
{
    return blobmsg_open_nested(buf, name, true);
}

static inline void *blobmsg_open_table(struct blob_buf *buf, const char *name)
{
    return blobmsg_open_nested(buf, name, false);
}

static inline void blobmsg_close_array(struct blob_buf *buf, void *cookie)
{
    blob_nest_end(buf, cookie);
}

static inline void blobmsg_close_table(struct blob_buf *buf, void *cookie)
{
    blob_nest_end(buf, cookie);
}

/* Room for a string of `maxlen` characters and its NUL behind the message, without making it part
 * of it; NULL when it does not fit. Nothing else may be added before the string is. */
void *blobmsg_alloc_string_buffer(struct blob_buf *buf, const char *name, unsigned int maxlen);
/* Enlarges that room, keeping its content; the string may move. */
void *blobmsg_realloc_string_buffer(struct blob_buf *buf, unsigned int maxlen);
/* Makes the string part of the message. */
void blobmsg_add_string_buffer(struct blob_buf *buf);

/* Add a formatted string; the printed length, or -1. */
int blobmsg_vprintf(struct blob_buf *buf, const char *name, const char *format, va_list arg)
    __attribute__((format(printf, 3, 0)));
int blobmsg_printf(struct blob_buf *buf, const char *name, const char *format, ...)
    __attribute__((format(printf, 3, 4)));

/* Walks the children of a container, which may be NULL. `rem` is a size_t. */
#define blobmsg_for_each_attr(pos, attr, rem)                                                      \
    __blob_for_each(pos, blobmsg_data(attr), blobmsg_data_len(attr), rem)

#ifdef __cplusplus
}
#endif

/* JSON text to and from blobmsg. */
#pragma once

#include "blobmsg.h"

struct json_object;

#ifdef __cplusplus
extern "C" {
#endif

/* Add the members of a JSON object to the open container. False when the text does not parse, its
 * top level is not an object (nothing is added then), or the message is full. */
bool blobmsg_add_object(struct blob_buf *b, struct json_object *obj);
bool blobmsg_add_json_element(struct blob_buf *b, const char *name, struct json_object *obj);
bool blobmsg_add_json_from_string(struct blob_buf *b, const char *str);
bool blobmsg_add_json_from_file(struct blob_buf *b, const char *file);

/* Asked for every element, containers included; a result replaces the value, letter for letter. */
typedef const char *(*blobmsg_json_format_t)(void *priv, struct blob_attr *attr);

/* JSON text, freed by the caller; NULL when there is nothing to print or memory runs out.
 * list: the children of `attr` in brackets; else `attr` itself with its name, if it has one.
 * indent: below 0 no white space at all, else the depth of the outermost line in tabs. */
char *blobmsg_format_json_with_cb(struct blob_attr *attr, bool list, blobmsg_json_format_t cb,
                                  void *priv, int indent);

static inline char *blobmsg_format_json(struct blob_attr *attr, bool list)
{
    return blobmsg_format_json_with_cb(attr, list, NULL, NULL, -1);
}

static inline char *blobmsg_format_json_indent(struct blob_attr *attr, bool list, int indent)
{
    return blobmsg_format_json_with_cb(attr, list, NULL, NULL, indent);
}

/* The value alone, without its name. */
char *blobmsg_format_json_value_with_cb(struct blob_attr *attr, blobmsg_json_format_t cb,
                                        void *priv, int indent);

static inline char *blobmsg_format_json_value(struct blob_attr *attr)
{
    return blobmsg_format_json_value_with_cb(attr, NULL, NULL, -1);
}

static inline char *blobmsg_format_json_value_indent(struct blob_attr *attr, int indent)
{
    return blobmsg_format_json_value_with_cb(attr, NULL, NULL, indent);
}

#ifdef __cplusplus
}
#endif

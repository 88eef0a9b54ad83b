/* Comparators for AVL trees. */
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

/* Orders NUL-terminated strings by byte value; `ptr` is not used. */
int avl_strcmp(const void *k1, const void *k2, void *ptr);

struct blob_attr;
/* Orders blob attributes by length and content, header included. */
int avl_blobcmp(const void *k1, const void *k2, void *ptr);

#ifdef __cplusplus
}
#endif

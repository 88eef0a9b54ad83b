/* AVL trees whose nodes live inside the sorted records, with an in-order list threaded through.
 *
 * Nodes with equal keys (when the tree allows them) form a run in the list, oldest first. Only the
 * first of a run, its leader, hangs in the tree. */
#pragma once

#include "list.h"

struct avl_node {
    struct list_head list; /* all nodes in key order; must stay the first member */
    struct avl_node *parent;
    struct avl_node *left;
    struct avl_node *right;
    const void *key;     /* set by the caller before avl_insert; must outlive the membership */
    signed char balance; /* height of the right branch minus height of the left one */
    bool leader;
};

/* Negative, 0 or positive as k1 sorts before, with or after k2; `ptr` is the tree's cmp_ptr. */
typedef int (*avl_tree_comp)(const void *k1, const void *k2, void *ptr);

struct avl_tree {
    struct list_head list_head;
    struct avl_node *root;
    unsigned int count;
    bool allow_dups;
    avl_tree_comp comp;
    void *cmp_ptr;
};

#ifdef __cplusplus
extern "C" {
#endif

void avl_init(struct avl_tree *tree, avl_tree_comp comp, bool allow_dups, void *ptr);
/* The first node of this key, or NULL. */
struct avl_node *avl_find(const struct avl_tree *tree, const void *key);
/* The first node whose key is not below `key`, or NULL. */
struct avl_node *avl_find_greaterequal(const struct avl_tree *tree, const void *key);
/* The last node whose key is not above `key`, or NULL. */
struct avl_node *avl_find_lessequal(const struct avl_tree *tree, const void *key);
/* 0, or -1 when the key is there already and the tree does not allow duplicates. */
int avl_insert(struct avl_tree *tree, struct avl_node *node);
/* `node` must be in the tree. */
void avl_delete(struct avl_tree *tree, struct avl_node *node);

#ifdef __cplusplus
}
#endif

/* clang-format off */
#define AVL_TREE_INIT(name, comp, allow_dups, cmp_ptr) \
    { LIST_HEAD_INIT((name).list_head), NULL, 0, allow_dups, comp, cmp_ptr }
/* clang-format on */
#define AVL_TREE(name, comp, allow_dups, cmp_ptr)                                                  \
    struct avl_tree name = AVL_TREE_INIT(name, comp, allow_dups, cmp_ptr)

static inline bool avl_is_empty(const struct avl_tree *tree)
{
    return tree->count == 0;
}

static inline bool avl_is_first(const struct avl_tree *tree, const struct avl_node *node)
{
    return tree->list_head.next == &node->list;
}

static inline bool avl_is_last(const struct avl_tree *tree, const struct avl_node *node)
{
    return tree->list_head.prev == &node->list;
}

static inline void *__avl_element(struct avl_node *node, size_t offset)
{
    return node ? (char *)node - offset : NULL;
}

/* The record of a node that was looked up, or NULL. `element` only names the type. */
#define __avl_find(function, tree, key, element, member)                                           \
    ((__typeof__(element))__avl_element(function(tree, key),                                       \
                                        offsetof(__typeof__(*(element)), member)))
#define avl_find_element(tree, key, element, member)                                               \
    __avl_find(avl_find, tree, key, element, member)
#define avl_find_ge_element(tree, key, element, member)                                            \
    __avl_find(avl_find_greaterequal, tree, key, element, member)
#define avl_find_le_element(tree, key, element, member)                                            \
    __avl_find(avl_find_lessequal, tree, key, element, member)

/* These four need a tree that is not empty, and a neighbour that exists. */
#define avl_first_element(tree, element, member)                                                   \
    list_first_entry(&(tree)->list_head, __typeof__(*(element)), member.list)
#define avl_last_element(tree, element, member)                                                    \
    list_last_entry(&(tree)->list_head, __typeof__(*(element)), member.list)
#define avl_next_element(element, member) list_next_entry(element, member.list)
#define avl_prev_element(element, member) list_prev_entry(element, member.list)

#define avl_for_element_range(first, last, element, member)                                        \
    for (element = (first); element->member.list.prev != &(last)->member.list;                     \
         element = avl_next_element(element, member))

#define avl_for_each_element(tree, element, member)                                                \
    list_for_each_entry(element, &(tree)->list_head, member.list)
#define avl_for_each_element_reverse(tree, element, member)                                        \
    list_for_each_entry_reverse(element, &(tree)->list_head, member.list)
/* The body may delete and free `element`. */
#define avl_for_each_element_safe(tree, element, member, ptr)                                      \
    list_for_each_entry_safe(element, ptr, &(tree)->list_head, member.list)

/* Empties the tree at once, then visits every former element so that the body can free it. */
#define avl_remove_all_elements(tree, element, member, ptr)                                        \
    for (element = avl_first_element(tree, element, member),                                       \
        ptr = avl_next_element(element, member), INIT_LIST_HEAD(&(tree)->list_head),               \
        (tree)->root = NULL, (tree)->count = 0;                                                    \
         &element->member.list != &(tree)->list_head;                                              \
         element = ptr, ptr = avl_next_element(ptr, member))

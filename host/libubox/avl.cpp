// AVL trees. The tree finds the place, the list threaded through it gives the order: neighbours,
// first and last need no walk. Of nodes with one key only the leader hangs in the tree.
#include <cstring>
#include <libubox/avl-cmp.h>
#include <libubox/avl.h>
#include <libubox/blob.h>

int avl_strcmp(const void *k1, const void *k2, void *)
{
    return strcmp(static_cast<const char *>(k1), static_cast<const char *>(k2));
}

int avl_blobcmp(const void *k1, const void *k2, void *)
{
    auto *a1 = static_cast<const blob_attr *>(k1);
    auto *a2 = static_cast<const blob_attr *>(k2);
    if (blob_raw_len(a1) != blob_raw_len(a2))
        return blob_raw_len(a1) < blob_raw_len(a2) ? -1 : 1;
    return memcmp(a1, a2, blob_raw_len(a1));
}

void avl_init(avl_tree *tree, avl_tree_comp comp, bool allow_dups, void *ptr)
{
    INIT_LIST_HEAD(&tree->list_head);
    tree->root = nullptr;
    tree->count = 0;
    tree->allow_dups = allow_dups;
    tree->comp = comp;
    tree->cmp_ptr = ptr;
}

static avl_node *&branch(avl_node *node, bool right)
{
    return right ? node->right : node->left;
}

/// The node after or before `node` in key order, or null at the end.
static avl_node *neighbour(const avl_tree *tree, avl_node *node, bool after)
{
    list_head *link = after ? node->list.next : node->list.prev;
    return link == &tree->list_head ? nullptr : list_entry(link, avl_node, list);
}

static avl_node *last_of_run(const avl_tree *tree, avl_node *leader)
{
    avl_node *last = leader;
    for (avl_node *next = neighbour(tree, last, true); next && !next->leader;
         next = neighbour(tree, last, true))
        last = next;
    return last;
}

/// The leader where the search for `key` ends: the one with that key (*order 0), or the one it
/// would hang below, left (*order negative) or right. Null in an empty tree.
static avl_node *search(const avl_tree *tree, const void *key, int *order)
{
    avl_node *node = tree->root;
    while (node) {
        *order = tree->comp(key, node->key, tree->cmp_ptr);
        avl_node *next = *order == 0 ? nullptr : branch(node, *order > 0);
        if (!next)
            break;
        node = next;
    }
    return node;
}

avl_node *avl_find(const avl_tree *tree, const void *key)
{
    int order;
    avl_node *node = search(tree, key, &order);
    return node && order == 0 ? node : nullptr;
}

avl_node *avl_find_greaterequal(const avl_tree *tree, const void *key)
{
    int order;
    avl_node *node = search(tree, key, &order);
    if (!node || order <= 0)
        return node;
    return neighbour(tree, last_of_run(tree, node), true);
}

avl_node *avl_find_lessequal(const avl_tree *tree, const void *key)
{
    int order;
    avl_node *node = search(tree, key, &order);
    if (!node)
        return nullptr;
    return order < 0 ? neighbour(tree, node, false) : last_of_run(tree, node);
}

/// Hangs `node` (or nothing) where `old` hangs.
static void replace(avl_tree *tree, const avl_node *old, avl_node *node)
{
    if (!old->parent)
        tree->root = node;
    else
        branch(old->parent, old->parent->right == old) = node;
    if (node)
        node->parent = old->parent;
}

static void hang(avl_node *parent, bool right, avl_node *child)
{
    branch(parent, right) = child;
    if (child)
        child->parent = parent;
}

/// Rotates the child on one side above `top`; returns it. Balances are the caller's.
static avl_node *lift(avl_tree *tree, avl_node *top, bool right)
{
    avl_node *child = branch(top, right);
    replace(tree, top, child);
    hang(top, right, branch(child, !right));
    hang(child, !right, top);
    return child;
}

/// Repairs a node whose branches differ by two; returns the branch's new top.
static avl_node *rebalance(avl_tree *tree, avl_node *top)
{
    bool right = top->balance > 0;
    signed char heavy = right ? 1 : -1;
    avl_node *child = branch(top, right);
    if (child->balance != -heavy) {
        bool even = child->balance == 0; // only a deletion leaves that: the height stays
        lift(tree, top, right);
        top->balance = even ? heavy : 0;
        child->balance = even ? -heavy : 0;
        return child;
    }
    avl_node *grandchild = lift(tree, child, !right);
    lift(tree, top, right);
    top->balance = grandchild->balance == heavy ? -heavy : 0;
    child->balance = grandchild->balance == -heavy ? heavy : 0;
    grandchild->balance = 0;
    return grandchild;
}

static void branch_grew(avl_tree *tree, avl_node *node)
{
    for (avl_node *top = node->parent; top; node = top, top = top->parent) {
        top->balance += top->right == node ? 1 : -1;
        if (top->balance == 0)
            return;
        if (top->balance != 1 && top->balance != -1) {
            rebalance(tree, top);
            return;
        }
    }
}

static void branch_shrank(avl_tree *tree, avl_node *top, bool right)
{
    while (top) {
        top->balance += right ? -1 : 1;
        if (top->balance == 1 || top->balance == -1)
            return;
        if (top->balance != 0 && (top = rebalance(tree, top))->balance != 0)
            return;
        avl_node *node = top;
        top = node->parent;
        right = top && top->right == node;
    }
}

static void make_leaf(avl_node *node, avl_node *parent, bool leader)
{
    node->parent = parent;
    node->left = node->right = nullptr;
    node->balance = 0;
    node->leader = leader;
}

int avl_insert(avl_tree *tree, avl_node *node)
{
    int order;
    avl_node *near = search(tree, node->key, &order);
    if (near && order == 0 && !tree->allow_dups)
        return -1;

    tree->count++;
    make_leaf(node, near, !near || order != 0);
    if (!near) {
        tree->root = node;
        list_add(&node->list, &tree->list_head);
        return 0;
    }
    if (order < 0)
        list_add_tail(&node->list, &near->list);
    else
        list_add(&node->list, &last_of_run(tree, near)->list);
    if (order == 0)
        return 0;
    branch(near, order > 0) = node;
    branch_grew(tree, node);
    return 0;
}

/// Lets `heir` stand in the tree exactly where `node` stood.
static void inherit(avl_tree *tree, avl_node *node, avl_node *heir)
{
    replace(tree, node, heir);
    hang(heir, false, node->left);
    hang(heir, true, node->right);
    heir->balance = node->balance;
    heir->leader = true;
}

/// Takes a leader without followers out of the tree.
static void unhang(avl_tree *tree, avl_node *node)
{
    if (node->left && node->right) {
        avl_node *heir = neighbour(tree, node, true);
        avl_node *top = heir->parent == node ? heir : heir->parent;
        bool right = heir->parent == node;
        replace(tree, heir, heir->right);
        inherit(tree, node, heir);
        branch_shrank(tree, top, right);
        return;
    }
    avl_node *parent = node->parent;
    bool right = parent && parent->right == node;
    replace(tree, node, node->left ? node->left : node->right);
    branch_shrank(tree, parent, right);
}

void avl_delete(avl_tree *tree, avl_node *node)
{
    avl_node *next = neighbour(tree, node, true);
    if (node->leader && next && !next->leader)
        inherit(tree, node, next);
    else if (node->leader)
        unhang(tree, node);
    list_del(&node->list);
    tree->count--;
}

/* Doubly linked circular lists whose links live inside the listed records. */
#pragma once

#include "utils.h"

struct list_head {
    struct list_head *next;
    struct list_head *prev;
};

#define prefetch(x)

/* <sys/queue.h> has a macro of this name with another meaning. */
#undef LIST_HEAD
/* clang-format off */
#define LIST_HEAD_INIT(name) { &(name), &(name) }
/* clang-format on */
#define LIST_HEAD(name) struct list_head name = LIST_HEAD_INIT(name)

static inline void INIT_LIST_HEAD(struct list_head *list)
{
    list->next = list->prev = list;
}

static inline bool list_empty(const struct list_head *head)
{
    return head->next == head;
}

static inline bool list_is_first(const struct list_head *list, const struct list_head *head)
{
    return list->prev == head;
}

static inline bool list_is_last(const struct list_head *list, const struct list_head *head)
{
    return list->next == head;
}

static inline void _list_add(struct list_head *_new, struct list_head *prev, struct list_head *next)
{
    next->prev = _new;
    _new->next = next;
    _new->prev = prev;
    prev->next = _new;
}

/* Adds at the front. */
static inline void list_add(struct list_head *_new, struct list_head *head)
{
    _list_add(_new, head, head->next);
}

static inline void list_add_tail(struct list_head *_new, struct list_head *head)
{
    _list_add(_new, head->prev, head);
}

static inline void _list_del(struct list_head *entry)
{
    entry->next->prev = entry->prev;
    entry->prev->next = entry->next;
}

/* Leaves NULL links behind, so that using a removed entry fails at once. */
static inline void list_del(struct list_head *entry)
{
    _list_del(entry);
    entry->next = entry->prev = NULL;
}

/* Leaves an empty list behind: the entry may be removed again. */
static inline void list_del_init(struct list_head *entry)
{
    _list_del(entry);
    INIT_LIST_HEAD(entry);
}

static inline void list_move(struct list_head *entry, struct list_head *head)
{
    _list_del(entry);
    list_add(entry, head);
}

static inline void list_move_tail(struct list_head *entry, struct list_head *head)
{
    _list_del(entry);
    list_add_tail(entry, head);
}

static inline void _list_splice(const struct list_head *list, struct list_head *prev,
                                struct list_head *next)
{
    if (list_empty(list))
        return;
    prev->next = list->next;
    list->next->prev = prev;
    next->prev = list->prev;
    list->prev->next = next;
}

/* Puts the entries of `list` in front of those of `head`; `list` itself is left stale. */
static inline void list_splice(const struct list_head *list, struct list_head *head)
{
    _list_splice(list, head, head->next);
}

static inline void list_splice_tail(struct list_head *list, struct list_head *head)
{
    _list_splice(list, head->prev, head);
}

static inline void list_splice_init(struct list_head *list, struct list_head *head)
{
    list_splice(list, head);
    INIT_LIST_HEAD(list);
}

static inline void list_splice_tail_init(struct list_head *list, struct list_head *head)
{
    list_splice_tail(list, head);
    INIT_LIST_HEAD(list);
}

#define list_entry(ptr, type, member) container_of(ptr, type, member)
#define list_first_entry(head, type, member) list_entry((head)->next, type, member)
#define list_last_entry(head, type, member) list_entry((head)->prev, type, member)
#define list_next_entry(pos, member) list_entry((pos)->member.next, __typeof__(*(pos)), member)
#define list_prev_entry(pos, member) list_entry((pos)->member.prev, __typeof__(*(pos)), member)

#define list_for_each(p, head) for (p = (head)->next; p != (head); p = p->next)

#define list_for_each_safe(p, n, head)                                                             \
    for (p = (head)->next, n = p->next; p != (head); p = n, n = p->next)

#define list_for_each_prev(p, head) for (p = (head)->prev; p != (head); p = p->prev)

#define list_for_each_prev_safe(p, n, head)                                                        \
    for (p = (head)->prev, n = p->prev; p != (head); p = n, n = p->prev)

#define list_for_each_entry(p, head, member)                                                       \
    for (p = list_first_entry(head, __typeof__(*p), member); &p->member != (head);                 \
         p = list_next_entry(p, member))

#define list_for_each_entry_reverse(p, head, member)                                               \
    for (p = list_last_entry(head, __typeof__(*p), member); &p->member != (head);                  \
         p = list_prev_entry(p, member))

/* The body may remove and free `p`, but not `n`. */
#define list_for_each_entry_safe(p, n, head, member)                                               \
    for (p = list_first_entry(head, __typeof__(*p), member), n = list_next_entry(p, member);       \
         &p->member != (head); p = n, n = list_next_entry(n, member))

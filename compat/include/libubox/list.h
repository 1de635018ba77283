/*
 * Doubly linked circular list. The head is a link like any other; a list is empty when its head points to itself.
 * Links are members of the records they chain and own nothing.
 */
#ifndef LIBUBOX_LIST_H
#define LIBUBOX_LIST_H

#include <stdbool.h>
#include <stddef.h>

struct list_head {
    struct list_head *next;
    struct list_head *prev;
};

#ifndef container_of
#define container_of(ptr, type, member) ((type *)(void *)((char *)(ptr)-offsetof(type, member)))
#endif

#ifndef LIST_HEAD_INIT
#define LIST_HEAD_INIT(name)                                                                                           \
    { &(name), &(name) }
#endif

#define list_entry(ptr, type, field) container_of(ptr, type, field)
#define list_first_entry(ptr, type, field) list_entry((ptr)->next, type, field)

#define list_for_each(p, head) for (p = (head)->next; p != (head); p = p->next)
#define list_for_each_safe(p, n, head) for (p = (head)->next, n = p->next; p != (head); p = n, n = p->next)

/* Makes `list` an empty list (or a link that is in none). */
static inline void INIT_LIST_HEAD(struct list_head *list) {
    list->next = list;
    list->prev = list;
}

/* Whether nothing is chained behind `head`. */
static inline bool list_empty(const struct list_head *head) {
    return head->next == head;
}

/* Puts `entry` behind `head`: first in the list when `head` is its head. */
static inline void list_add(struct list_head *entry, struct list_head *head) {
    entry->next = head->next;
    entry->prev = head;
    head->next->prev = entry;
    head->next = entry;
}

/* Puts `entry` before `head`: last in the list when `head` is its head. */
static inline void list_add_tail(struct list_head *entry, struct list_head *head) {
    list_add(entry, head->prev);
}

/* Takes `entry` out of its list; its own links are null afterwards. */
static inline void list_del(struct list_head *entry) {
    entry->next->prev = entry->prev;
    entry->prev->next = entry->next;
    entry->next = NULL;
    entry->prev = NULL;
}

/* Takes `entry` out of its list and leaves it an empty list of its own. */
static inline void list_del_init(struct list_head *entry) {
    list_del(entry);
    INIT_LIST_HEAD(entry);
}

#endif

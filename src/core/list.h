// Intrusive, circular, doubly linked list. A head is a link too; an empty list is a head that points at itself.
#pragma once

struct kolt_list {
    kolt_list *next = nullptr;
    kolt_list *prev = nullptr;
};

// Makes `head` an empty list.
inline void kolt_list_init(kolt_list *head) {
    head->next = head;
    head->prev = head;
}

// Puts `link` directly behind `head`, so that a list reads newest first.
inline void kolt_list_add(kolt_list *head, kolt_list *link) {
    link->next = head->next;
    link->prev = head;
    head->next->prev = link;
    head->next = link;
}

// Takes `link` out of its list and leaves both of its pointers null.
inline void kolt_list_delete(kolt_list *link) {
    link->prev->next = link->next;
    link->next->prev = link->prev;
    link->next = nullptr;
    link->prev = nullptr;
}

// Doubly linked intrusive lists: a list is any structure with head and tail
// pointers, a node any structure with next and prev pointers. The helpers
// only relink; the caller owns the nodes. Nothing here is exported.
#pragma once

namespace qv {

template <class List, class Node>
inline void list_push_back(List &list, Node *node) noexcept {
    node->next = nullptr;
    node->prev = list.tail;
    if (list.tail != nullptr)
        list.tail->next = node;
    else
        list.head = node;
    list.tail = node;
}

template <class List, class Node>
inline void list_push_front(List &list, Node *node) noexcept {
    node->prev = nullptr;
    node->next = list.head;
    if (list.head != nullptr)
        list.head->prev = node;
    else
        list.tail = node;
    list.head = node;
}

// Takes node out of list; its own links are cleared.
template <class List, class Node>
inline void list_unlink(List &list, Node *node) noexcept {
    if (node->prev != nullptr)
        node->prev->next = node->next;
    else
        list.head = node->next;
    if (node->next != nullptr)
        node->next->prev = node->prev;
    else
        list.tail = node->prev;
    node->next = nullptr;
    node->prev = nullptr;
}

}  // namespace qv

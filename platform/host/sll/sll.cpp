// The platform's singly linked list.
#include "sll.h"

extern "C" {

void SLL_Init(SLL_LIST *list) {
    list->first = SLL_HEAD_NODE(list);
    list->last = SLL_HEAD_NODE(list);
    list->count = 0;
}

void SLL_Insert_In_Middle(SLL_LIST *list, SLL_NODE *prev, SLL_NODE *node) {
    SLL_NODE *head = SLL_HEAD_NODE(list);
    // An empty list's head points at itself; the end of a non-empty list is the head too.
    SLL_NODE *next = (prev == list->last) ? head : prev->next;
    node->next = next;
    prev->next = node;
    if (prev == list->last) list->last = node;
    list->count++;
}

uint32_t SLL_Delete(SLL_LIST *list, SLL_NODE *node) {
    SLL_NODE *head = SLL_HEAD_NODE(list);
    SLL_NODE *prev = head;
    while (prev->next != head && prev->next != node)
        prev = prev->next;
    if (prev->next != node || node == head) return 1;
    prev->next = node->next;
    if (list->last == node) list->last = prev;
    list->count--;
    return 0;
}

void SLL_FreeAll(SLL_LIST *list, void (*freeNode)(SLL_NODE *node)) {
    SLL_NODE *head = SLL_HEAD_NODE(list);
    SLL_NODE *node = list->first;
    while (node != head) {
        SLL_NODE *next = node->next;
        if (freeNode != nullptr) freeNode(node);
        node = next;
    }
    SLL_Init(list);
}

} // extern "C"

/* The platform's singly linked list. A list head holds the first and the last node and a count;
 * an empty list's first and last both point at the head itself, so the head doubles as the
 * node before the first. Nodes embed SLL_NODE as their first member. */
#ifndef PLATFORM_SLL_H
#define PLATFORM_SLL_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct SLL_NODE {
    struct SLL_NODE *next;
} SLL_NODE;

typedef struct SLL_LIST {
    SLL_NODE *first;
    SLL_NODE *last;
    uint32_t count;
} SLL_LIST;

#define SLL_HEAD_NODE(list) ((SLL_NODE *)(void *)(list))

/* Makes the list empty without touching the nodes it held. */
void SLL_Init(SLL_LIST *list);
/* Links `node` after `prev` (the head to insert at the front, list->last to append). */
void SLL_Insert_In_Middle(SLL_LIST *list, SLL_NODE *prev, SLL_NODE *node);
/* Unlinks `node`; it stays allocated. Returns 0, or 1 when the node is not in the list. */
uint32_t SLL_Delete(SLL_LIST *list, SLL_NODE *node);
/* Unlinks every node and hands each to freeNode (which may be null); the list ends empty. */
void SLL_FreeAll(SLL_LIST *list, void (*freeNode)(SLL_NODE *node));

#ifdef __cplusplus
}
#endif

#endif

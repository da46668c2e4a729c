// Intrusive circular doubly linked list. A head is two words (first, last) laid out as a link,
// so an empty list's first and last both point at the head itself, as the exported tables declare.
#pragma once

namespace qav {

struct DLink {
    DLink *next;
    DLink *prev;
};

inline void DListInit(DLink *head) {
    head->next = head->prev = head;
}
inline bool DListEmpty(const DLink *head) {
    return head->next == head;
}
inline void DListInsertAfter(DLink *pos, DLink *link) {
    link->prev = pos;
    link->next = pos->next;
    pos->next->prev = link;
    pos->next = link;
}
inline void DListInsertBefore(DLink *pos, DLink *link) {
    DListInsertAfter(pos->prev, link);
}
inline void DListUnlink(DLink *link) {
    link->prev->next = link->next;
    link->next->prev = link->prev;
    link->next = link->prev = link;
}

} // namespace qav

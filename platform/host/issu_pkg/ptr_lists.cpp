// Pointer lists, containers, the doubly linked list and the package manager's text blocks.
#include <cstring>

#include "host.h"
#include "pat_pkg.h"
#include "pkg_internal.h"

namespace zakhost::pkgmgr {

char *host_strdup(const std::string &text) {
    auto *copy = static_cast<char *>(RPM_Os_Alloc(static_cast<uint32_t>(text.size() + 1)));
    if (copy != nullptr) std::memcpy(copy, text.c_str(), text.size() + 1);
    return copy;
}

} // namespace zakhost::pkgmgr

using zakhost::pkgmgr::host_delete;
using zakhost::pkgmgr::host_new;

extern "C" {

void *RPM_Os_Alloc(uint32_t size) {
    if (zakhost::injected("RPM_Os_Alloc")) return nullptr;
    return ZAK_Malloc_F(nullptr, 0, size, zakhost::pkgmgr::kSourceTag, __LINE__);
}

void RPM_Os_Free(void *block) {
    if (block != nullptr) ZAK_Free_F(block, zakhost::pkgmgr::kSourceTag, __LINE__);
}

ISSU_PTR_LIST *ISSU_PtrListCreate(void) {
    if (zakhost::injected("ISSU_PtrListCreate")) return nullptr;
    return host_new<ISSU_PTR_LIST>();
}

uint32_t ISSU_PtrListAppend(ISSU_PTR_LIST *list, void *item, ISSU_PTR_FREE_FUNC freeItem) {
    int64_t result = 1;
    if (zakhost::injected("ISSU_PtrListAppend", &result))
        return result == 0 ? 1 : static_cast<uint32_t>(result);
    if (list == nullptr) return 1;
    list->items.emplace_back(item, freeItem);
    return 0;
}

uint32_t ISSU_PtrListCountNum(const ISSU_PTR_LIST *list) {
    return list == nullptr ? 0 : static_cast<uint32_t>(list->items.size());
}

void *ISSU_PtrListGetNode(const ISSU_PTR_LIST *list, uint32_t index) {
    if (list == nullptr || index == 0 || index > list->items.size()) return nullptr;
    return list->items[index - 1].first;
}

void ISSU_PtrListFree(ISSU_PTR_LIST *list) {
    if (list == nullptr) return;
    for (auto &[item, freeItem] : list->items)
        if (freeItem != nullptr) freeItem(item);
    host_delete(list);
}

ISSU_CDT *ISSU_CDT_Create(void) {
    if (zakhost::injected("ISSU_CDT_Create")) return nullptr;
    return host_new<ISSU_CDT>();
}

void ISSU_CDT_Delete(ISSU_CDT *container) {
    host_delete(container);
}

uint32_t ISSU_CDT_Count(const ISSU_CDT *container) {
    return container == nullptr ? 0 : static_cast<uint32_t>(container->nodes.size());
}

QAV_RBT_NODE *QAV_RBT_FirstNode(ISSU_CDT *container) {
    if (container == nullptr || container->nodes.empty()) return nullptr;
    return &container->nodes.begin()->second.node;
}

QAV_RBT_NODE *QAV_RBT_NextNode(QAV_RBT_NODE *node) {
    if (node == nullptr) return nullptr;
    auto *held = reinterpret_cast<IssuCdtNode *>(node);
    auto next = held->owner->nodes.upper_bound(held->key);
    return next == held->owner->nodes.end() ? nullptr : &next->second.node;
}

void DLL_Init(DLL_LIST *list) {
    if (list == nullptr) return;
    list->first = nullptr;
    list->last = nullptr;
    list->count = 0;
}

void DLL_Add(DLL_LIST *list, DLL_NODE *node) {
    if (list == nullptr || node == nullptr) return;
    node->next = nullptr;
    node->prev = list->last;
    if (list->last != nullptr)
        list->last->next = node;
    else
        list->first = node;
    list->last = node;
    list->count++;
}

void DLL_FreeAll(DLL_LIST *list, void (*freeNode)(void *node)) {
    if (list == nullptr) return;
    DLL_NODE *node = list->first;
    while (node != nullptr) {
        DLL_NODE *next = node->next;
        if (freeNode != nullptr) freeNode(node);
        node = next;
    }
    DLL_Init(list);
}

} // extern "C"

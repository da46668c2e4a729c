// Port-ID assignment. Lookup deliberately answers the last node of a bucket when the id is not
// found there, so ids equal modulo 4096 share one cursor once the first has a node.
#include "state/port_ids.h"

#include "binding/script_frame.h"

#if UINTPTR_MAX == 0xFFFFFFFF
// The device's layout: a node is its two links and two words; the table is 4096 list heads and
// the mutex word.
static_assert(sizeof(OsNodeIndex) == 16);
static_assert(sizeof(QavAssignPortTable) == 4096 * 8 + 4);
#endif

namespace {

constexpr uint32_t kLogModule = 0x811101F;
constexpr uint32_t kFirstPos = 4;
constexpr uint32_t kLastPos = 128;
constexpr uint32_t kPortBase = 41000;
constexpr uint32_t kBadArgs = 2;
constexpr const char *kSourceTag = "qav_lua_assignport";

OsNodeIndex *FromLink(qav::DLink *link) {
    return reinterpret_cast<OsNodeIndex *>(link);
}

} // namespace

extern "C" {

QavAssignPortTable *g_pstAssignPortIDList = nullptr;

OsNodeIndex *qav_lua_NewOsNodeIndexList(void) {
    auto *node = static_cast<OsNodeIndex *>(
        ZAK_Malloc_F(g_pLocaHandleQav, g_aucZakMemPt, sizeof(OsNodeIndex), kSourceTag, __LINE__));
    if (node == nullptr) {
        QAV_STLOG(kLogModule, "QAV NewOsNodeIndexList Malloc cb failed, Malloc=%d.",
                  static_cast<int>(sizeof(OsNodeIndex)));
        return nullptr;
    }
    *node = OsNodeIndex{};
    return node;
}

void qav_Lua_InitOsNodeIndexList(OsNodeIndex *node) {
    node->curPos = kFirstPos;
}

OsNodeIndex *qav_Lua_GetOsNodeIndexList(uint32_t osNodeId) {
    qav::DLink *head = &g_pstAssignPortIDList->buckets[osNodeId & 0xFFF];
    if (qav::DListEmpty(head)) return nullptr;
    qav::DLink *link = head->next;
    while (FromLink(link)->osNodeId != osNodeId && link->next != head)
        link = link->next;
    return FromLink(link);
}

void qav_Lua_SetOsNodeIndexList(uint32_t osNodeId, OsNodeIndex *node) {
    node->osNodeId = osNodeId;
    qav::DListInsertAfter(&g_pstAssignPortIDList->buckets[osNodeId & 0xFFF], &node->link);
}

OsNodeIndex *qav_Lua_TryGetOsNodeIndexList(uint32_t osNodeId) {
    OsNodeIndex *node = qav_Lua_GetOsNodeIndexList(osNodeId);
    if (node != nullptr) return node;
    node = qav_lua_NewOsNodeIndexList();
    if (node == nullptr) return nullptr;
    qav_Lua_InitOsNodeIndexList(node);
    qav_Lua_SetOsNodeIndexList(osNodeId, node);
    return node;
}

// The position handed out, or 0 when no cursor could be had.
uint32_t qav_Lua_LockAssignPortID(uint32_t osNodeId) {
    if (g_pstAssignPortIDList == nullptr) return 0; // finalised, or its allocation failed at open
    NUK_MutexLock(g_pstAssignPortIDList->mutex);
    OsNodeIndex *node = qav_Lua_TryGetOsNodeIndexList(osNodeId);
    uint32_t pos = 0;
    if (node != nullptr) {
        uint32_t cur = node->curPos;
        if (cur - kFirstPos > kLastPos - kFirstPos) {
            QAV_STLOG(kLogModule, "qav LuaLock AssignPortID: Something has wrong, OsNodeId=%#x curPos=%d.",
                      osNodeId, static_cast<int>(cur));
            pos = kFirstPos;
            node->curPos = kFirstPos + 1;
        } else {
            pos = cur;
            node->curPos = (cur + 1 > kLastPos) ? kFirstPos : cur + 1;
        }
    }
    NUK_MutexUnlock(g_pstAssignPortIDList->mutex);
    return pos;
}

uint32_t qav_Lua_LockSetPortID(uint32_t osNodeId, uint32_t value) {
    bool ready = g_pstAssignPortIDList != nullptr;
    if (ready) NUK_MutexLock(g_pstAssignPortIDList->mutex);
    OsNodeIndex *node = ready ? qav_Lua_TryGetOsNodeIndexList(osNodeId) : nullptr;
    if (node == nullptr) {
        QAV_STLOG(kLogModule, "qav LuaLock SetPortId failed: Get OsNode Index wrong, OsNodeId=%#x SetPos=%d.",
                  osNodeId, static_cast<int>(value));
        if (ready) NUK_MutexUnlock(g_pstAssignPortIDList->mutex);
        return qav::kInvalidCall;
    }
    // The low byte is taken as the position, as scripts have always passed it.
    uint32_t pos = value & 0xFF;
    node->curPos = (pos >= kFirstPos && pos <= kLastPos) ? pos : kFirstPos;
    NUK_MutexUnlock(g_pstAssignPortIDList->mutex);
    return qav::kOk;
}

bool qav_Lua_CheckAssignPara(lua_State *state) {
    return qav::ArgCountIs(state, 1) && SYSDT_SPTI_IsNumber(state, 1);
}

bool qav_Lua_CheckSetIDPara(lua_State *state) {
    return qav::ArgCountIs(state, 2) && SYSDT_SPTI_IsNumber(state, 1) && SYSDT_SPTI_IsNumber(state, 2);
}

QAV_ENTRY_FUNCTION QAV_LuaAssignPortID(lua_State *state) {
    if (!qav_Lua_CheckAssignPara(state)) {
        // Bad arguments answer port 0, not a port of the range: nothing was assigned.
        SYSDT_SPTI_PushUInt(state, kBadArgs);
        SYSDT_SPTI_PushUInt(state, 0);
        return 2;
    }
    uint32_t pos = qav_Lua_LockAssignPortID(SYSDT_SPTI_ToUInt(state, 1));
    SYSDT_SPTI_PushUInt(state, pos == 0 ? qav::kFailed : qav::kOk);
    SYSDT_SPTI_PushUInt(state, kPortBase + pos);
    return 2;
}

QAV_ENTRY_FUNCTION QAV_LuaSetCurPortID(lua_State *state) {
    if (!qav_Lua_CheckSetIDPara(state)) return qav::ReturnUInt(state, kBadArgs);
    uint32_t osNodeId = SYSDT_SPTI_ToUInt(state, 1);
    uint32_t value = SYSDT_SPTI_ToUInt(state, 2);
    if (value == 0) return qav::ReturnUInt(state, kBadArgs);
    return qav::ReturnUInt(state, qav_Lua_LockSetPortID(osNodeId, value));
}

uint32_t QAV_LuaAssignPortID_Init(void) {
    if (g_pstAssignPortIDList != nullptr) {
        QAV_STLOG(kLogModule, "Warnning, QAV LuaAssign Port has Init already");
        return 0;
    }
    auto *table = static_cast<QavAssignPortTable *>(
        ZAK_Malloc_F(g_pLocaHandleQav, g_aucZakMemPt, sizeof(QavAssignPortTable), kSourceTag, __LINE__));
    if (table == nullptr) {
        QAV_STLOG(kLogModule, "QAV LuaLock_Init Port Malloc cb failed, Malloc=%d.",
                  static_cast<int>(sizeof(QavAssignPortTable)));
        return 1;
    }
    for (auto &bucket : table->buckets)
        qav::DListInit(&bucket);
    table->mutex = 0;
    NUK_MutexInit(&table->mutex, 0);
    g_pstAssignPortIDList = table;
    return 0;
}

uint32_t QAV_LuaAssignPortID_Fini(void) {
    if (g_pstAssignPortIDList == nullptr) return 0;
    NUK_MutexDestroy(g_pstAssignPortIDList->mutex);
    for (auto &bucket : g_pstAssignPortIDList->buckets) {
        while (!qav::DListEmpty(&bucket)) {
            qav::DLink *link = bucket.next;
            qav::DListUnlink(link);
            ZAK_Free_F(link, kSourceTag, __LINE__);
        }
    }
    ZAK_Free_F(g_pstAssignPortIDList, kSourceTag, __LINE__);
    g_pstAssignPortIDList = nullptr;
    return 0;
}

} // extern "C"

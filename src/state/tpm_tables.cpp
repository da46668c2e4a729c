// The TPM report and status caches: whole-table sets in key order with a sweep, paged gets with
// a staleness flag.
#include "state/tpm_tables.h"

#include <ctime>
#include <mutex>

#include "binding/script_frame.h"
#include "os_env.h"
#include "state/dropped_memory.h"
#include "state/sorted_list.h"
#include "state/state_clock.h"

extern "C" {
QavTpmQueryTable g_stTpmReportTable;
QavTpmQueryTable g_stTpmStatusTable;
}

QAV_DEVICE_LAYOUT(QavTpmQueryTable, 36)

namespace qav {

uint32_t MonotonicSeconds() {
    struct timespec now {};
    if (ZAK_OsClockGetTime(CLOCK_MONOTONIC, &now) != 0) return 0;
    return static_cast<uint32_t>(now.tv_sec);
}

} // namespace qav

namespace {

using qav::FieldKind;
using qav::ItemField;

constexpr uint32_t kStatusCompleted = 4;
constexpr uint32_t kStatusAgeing = 60;

const ItemField kReportFields[] = {
    {1, FieldKind::Int, offsetof(QavTpmReportData, key1), 0},
    {2, FieldKind::Int, offsetof(QavTpmReportData, key2), 0},
    {3, FieldKind::Text, offsetof(QavTpmReportData, text3), sizeof(QavTpmReportData::text3)},
    {4, FieldKind::Text, offsetof(QavTpmReportData, text4), sizeof(QavTpmReportData::text4)},
    {5, FieldKind::Text, offsetof(QavTpmReportData, text5), sizeof(QavTpmReportData::text5)},
    {6, FieldKind::Text, offsetof(QavTpmReportData, text6), sizeof(QavTpmReportData::text6)},
    {7, FieldKind::Int, offsetof(QavTpmReportData, number7), 0},
};

const ItemField kStatusFields[] = {
    {1, FieldKind::Int, offsetof(QavTpmStatusData, key), 0},
    {2, FieldKind::Text, offsetof(QavTpmStatusData, text2), sizeof(QavTpmStatusData::text2)},
    {3, FieldKind::Text, offsetof(QavTpmStatusData, text3), sizeof(QavTpmStatusData::text3)},
    {4, FieldKind::Text, offsetof(QavTpmStatusData, text4), sizeof(QavTpmStatusData::text4)},
    {5, FieldKind::Int, offsetof(QavTpmStatusData, number5), 0},
    {6, FieldKind::Int, offsetof(QavTpmStatusData, status), 0},
};

int32_t Order(int32_t a, int32_t b) {
    return a < b ? -1 : (a > b ? 1 : 0);
}

struct ReportTraits {
    using Data = QavTpmReportData;
    using Node = QavTpmReportEntry;
    static constexpr uint32_t kKeyFields = 0x3; // fids 1 and 2
    static int Compare(const Data &a, const Data &b) { return QAV_TPM_CommpareReportEntry(&a, &b); }
    static void Merge(Node *node, bool, Data &pulled, uint32_t) { node->data = pulled; }
};

struct StatusTraits {
    using Data = QavTpmStatusData;
    using Node = QavTpmStatusEntry;
    static constexpr uint32_t kKeyFields = 0x1; // fid 1
    static int Compare(const Data &a, const Data &b) { return QAV_TPM_CommpareStatusEntry(&a, &b); }
    static void Merge(Node *node, bool created, Data &pulled, uint32_t now) {
        // A status of 0 (or none) keeps what the entry had; new entries start at 1.
        if (pulled.status == static_cast<int32_t>(kStatusCompleted)) node->statusTime = now;
        if (pulled.status == 0) pulled.status = created ? 1 : node->data.status;
        node->data = pulled;
    }
};

template <typename Traits, size_t N>
int SetTable(lua_State *state, QavTpmQueryTable *table, const ItemField (&fields)[N]) {
    using Node = typename Traits::Node;
    if (SYSDT_SPTI_IsTable(state, 1) == 0) return qav::ReturnUInt(state, qav::kInvalidCall);
    qav::SortedSweepList<Node, Traits> list(&table->entries);
    uint32_t now = qav::MonotonicSeconds();
    for (int32_t i = 1;; ++i) {
        SYSDT_SPTI_PushInt(state, i);
        SYSDT_SPTI_GetTable(state, 1);
        int32_t entry = SYSDT_SPTI_GetTop(state);
        if (SYSDT_SPTI_IsTable(state, entry) == 0) {
            SYSDT_SPTI_Pop(state, 1);
            break;
        }
        typename Traits::Data pulled{};
        uint32_t seen = 0;
        (void)qav::PullItems(state, entry, fields, &pulled, &seen);
        SYSDT_SPTI_Pop(state, 1);
        // Entries without their key, and entries whose node cannot be allocated, are dropped.
        if ((seen & Traits::kKeyFields) != Traits::kKeyFields) continue;
        bool created = false;
        Node *node = list.FindOrInsert(pulled, &created);
        if (node == nullptr) continue;
        Traits::Merge(node, created, pulled, now);
        node->availFlag = 1;
    }
    list.Sweep();
    QAV_TPM_RecordTableNewRefreshTime(table);
    return qav::ReturnUInt(state, qav::kOk);
}

void PushHeader(lua_State *state, bool stale) {
    SYSDT_SPTI_PushUInt(state, qav::kOk);
    SYSDT_SPTI_PushBool(state, stale ? 1 : 0);
}

} // namespace

extern "C" {

uint32_t QAV_TPM_InitTpmQueryTable(QavTpmQueryTable *table, const char *semaName) {
    // Every open re-initialises the table; states opening at once take turns.
    static std::mutex initialising;
    std::lock_guard guard(initialising);
    RPM_LogToFile(qav::kUpgradeLogId, qav::kLogProgress, "TPM Init Tpm Query Table entry");
    if (table->lock.mutex == 0) NUK_MutexInit(&table->lock.mutex, 0);
    uint32_t rc = NUK_SemaCreate(semaName, 1, 0, &table->lock.semaId);
    if (rc != 0) {
        RPM_LogToFile(qav::kUpgradeLogId, qav::kLogFailure, "TPM Init Tpm Query Table failed, ret(%u)", rc);
        NUK_MutexDestroy(table->lock.mutex);
        table->lock.mutex = 0;
        return rc;
    }
    table->lock.count = 0;
    table->refreshTime = 0;
    table->refreshInterval = 5;
    table->forceRefresh = 1;
    for (qav::DLink *pos = table->entries.next; pos != nullptr && pos != &table->entries; pos = pos->next)
        qav::KeepDropped(pos);
    qav::DListInit(&table->entries);
    return 0;
}

uint32_t QAV_TPM_NeedRefreshTable(const QavTpmQueryTable *table) {
    if (table == nullptr) return 0;
    if (table->forceRefresh != 0) return 1;
    return qav::MonotonicSeconds() - table->refreshTime > table->refreshInterval ? 1 : 0;
}

void QAV_TPM_RecordTableNewRefreshTime(QavTpmQueryTable *table) {
    table->forceRefresh = 0;
    table->refreshTime = qav::MonotonicSeconds();
}

int32_t QAV_TPM_CommpareReportEntry(const QavTpmReportData *a, const QavTpmReportData *b) {
    int32_t first = Order(a->key1, b->key1);
    return first != 0 ? first : Order(a->key2, b->key2);
}

int32_t QAV_TPM_CommpareStatusEntry(const QavTpmStatusData *a, const QavTpmStatusData *b) {
    return Order(a->key, b->key);
}

} // extern "C"

QAV_ENTRY_FUNCTION QAV_SetTpmReportTable(lua_State *state) {
    return SetTable<ReportTraits>(state, &g_stTpmReportTable, kReportFields);
}

QAV_ENTRY_FUNCTION QAV_SetTpmStatusTable(lua_State *state) {
    return SetTable<StatusTraits>(state, &g_stTpmStatusTable, kStatusFields);
}

// The page of entries that starts at the given (first, second) key, inclusive.
QAV_ENTRY_FUNCTION QAV_GetTpmReportTable(lua_State *state) {
    QavTpmReportData from{};
    from.key1 = SYSDT_SPTI_ToInt(state, 1);
    from.key2 = SYSDT_SPTI_ToInt(state, 2);
    uint32_t pageSize = SYSDT_SPTI_ToUInt(state, 3);
    if (pageSize == 0) return qav::ReturnUInt(state, qav::kInvalidCall);
    PushHeader(state, QAV_TPM_NeedRefreshTable(&g_stTpmReportTable) != 0);
    qav::TableBuilder result{state};
    uint32_t appended = 0;
    qav::DLink *head = &g_stTpmReportTable.entries;
    for (qav::DLink *pos = head->next; pos != head && appended < pageSize; pos = pos->next) {
        const auto *node = qav::SortedSweepList<QavTpmReportEntry, ReportTraits>::NodeOf(pos);
        if (QAV_TPM_CommpareReportEntry(&node->data, &from) < 0) continue;
        SYSDT_SPTI_PushUInt(state, ++appended);
        qav::PushItems(state, kReportFields, &node->data);
        SYSDT_SPTI_SetTable(state, result.index);
    }
    return 3;
}

QAV_ENTRY_FUNCTION QAV_GetTpmStatusTable(lua_State *state) {
    bool stale = QAV_TPM_NeedRefreshTable(&g_stTpmStatusTable) != 0;
    QavTpmStatusData from{};
    from.key = SYSDT_SPTI_ToInt(state, 1);
    uint32_t pageSize = SYSDT_SPTI_ToUInt(state, 2);
    // A stale table is handed out whole so the script can refresh it in one go.
    if (stale) {
        from.key = 0;
        pageSize = 0;
    }
    PushHeader(state, stale);
    qav::TableBuilder result{state};
    uint32_t now = qav::MonotonicSeconds();
    uint32_t appended = 0;
    qav::DLink *head = &g_stTpmStatusTable.entries;
    for (qav::DLink *pos = head->next; pos != head; pos = pos->next) {
        const auto *node = qav::SortedSweepList<QavTpmStatusEntry, StatusTraits>::NodeOf(pos);
        if (QAV_TPM_CommpareStatusEntry(&node->data, &from) < 0) continue;
        bool entryStale = node->data.status != static_cast<int32_t>(kStatusCompleted) ||
                          now - node->statusTime > kStatusAgeing;
        SYSDT_SPTI_PushUInt(state, ++appended);
        qav::TableBuilder wrapped{state};
        SYSDT_SPTI_PushBool(state, entryStale ? 1 : 0);
        SYSDT_SPTI_SetField(state, wrapped.index, "needRefresh");
        qav::PushItems(state, kStatusFields, &node->data);
        SYSDT_SPTI_SetField(state, wrapped.index, "record");
        SYSDT_SPTI_SetTable(state, result.index);
        if (appended == pageSize) break; // a limit of 0 is never met
    }
    return 3;
}

// The patch error, flash sync and load-patch record tables. The three differ only in their item
// layout, capacity and a few set rules, so one group writer and one group reader serve them all.
#include "state/patch_records.h"

#include <cstring>

#include "binding/memory.h"
#include "binding/script_frame.h"
#include "securec.h"

extern "C" {
QavPatchErrTable g_stPatchErrTable;
QavFlhSyncTable g_stFlhSyncTable;
QavLoadPatchTable g_stLoadPatchTable;
}

namespace {

constexpr uint32_t kTextSize = 256;
constexpr uint32_t kPatchErrFirstAllocation = 200;
constexpr uint32_t kFlhSyncCapacity = 1000;
constexpr uint32_t kLoadPatchCapacity = 32;

// One record is a run of items, each a 32-bit fid followed by a 32-bit value or a 256-byte text.
struct ItemLayout {
    uint32_t items;
    uint32_t textItems; // bit k-1 set: item k is text

    bool IsText(uint32_t item) const { return (textItems >> (item - 1)) & 1u; }
    static uint32_t ValueSize(bool text) { return text ? kTextSize : sizeof(uint32_t); }
    uint32_t Offset(uint32_t item) const {
        uint32_t offset = 0;
        for (uint32_t k = 1; k < item; ++k)
            offset += sizeof(uint32_t) + ValueSize(IsText(k));
        return offset;
    }
    uint32_t RecordSize() const { return Offset(items + 1); }
};

constexpr ItemLayout kPatchErrLayout{5, 1u << 2};
constexpr ItemLayout kFlhSyncLayout{8, (1u << 3) | (1u << 4) | (1u << 5) | (1u << 6)};
constexpr ItemLayout kLoadPatchLayout{6, 1u << 3};

// Records really allocated behind each buffer. The patch error count may exceed the capacity on
// purpose; reads and copies stop at the allocation so such a count can never reach past it.
uint32_t g_patchErrAllocated = 0;

// Allocates a buffer of `records` records when the table has none; zeroed on request.
void *EnsureBuffer(void **buffer, uint32_t *count, uint32_t records, uint32_t recordSize, bool zeroed,
                   uint32_t *allocated) {
    if (*buffer == nullptr) {
        void *fresh = zeroed ? qav::HeapAllocZeroed(records, recordSize)
                             : qav::HeapAlloc(static_cast<size_t>(records) * recordSize);
        if (fresh == nullptr) return nullptr;
        *buffer = fresh;
        *count = 0;
        if (allocated != nullptr) *allocated = records;
    }
    return *buffer;
}

uint32_t AddrProc(void **buffer, uint32_t *tableCount, uint32_t records, uint32_t recordSize, bool zeroed,
                  uint32_t *allocated, uint32_t write, uint32_t *count, void **out) {
    *out = EnsureBuffer(buffer, tableCount, records, recordSize, zeroed, allocated);
    if (write != 0)
        *tableCount = *count;
    else
        *count = *tableCount;
    return 0;
}

// What differs between the three tables.
struct RecordTable {
    ItemLayout layout;
    uint32_t (*addrProc)(uint32_t write, uint32_t *count, void **records);
    uint32_t *count;
    uint32_t (*capacity)();       // records a set may write
    uint32_t (*allocatedCount)(); // records really behind the buffer
};

uint32_t PatchErrCapacity() {
    return g_stPatchErrTable.maxNum;
}
uint32_t PatchErrAllocated() {
    return g_stPatchErrTable.records == nullptr ? 0 : g_patchErrAllocated;
}
uint32_t FlhSyncCapacity() {
    return kFlhSyncCapacity;
}
uint32_t LoadPatchCapacity() {
    return kLoadPatchCapacity;
}

const RecordTable kPatchErr{kPatchErrLayout, QAV_PatchErrInfoAddrProc, &g_stPatchErrTable.count,
                            PatchErrCapacity, PatchErrAllocated};
const RecordTable kFlhSync{kFlhSyncLayout, QAV_FlhSyncInfoAddrProc, &g_stFlhSyncTable.count, FlhSyncCapacity,
                           FlhSyncCapacity};
const RecordTable kLoadPatch{kLoadPatchLayout, QAV_LoadPatchInfoAddrProc, &g_stLoadPatchTable.count,
                             LoadPatchCapacity, LoadPatchCapacity};

uint32_t Min(uint32_t a, uint32_t b) {
    return a < b ? a : b;
}

// Zeroes the first `records` records (bounded by the allocation).
void ZeroRecords(const RecordTable &table, void *buffer, uint32_t records) {
    size_t bytes = static_cast<size_t>(Min(records, table.allocatedCount())) * table.layout.RecordSize();
    if (bytes != 0) (void)memset_s(buffer, bytes, 0, bytes);
}

// Pushes element `position` of the table at `tableIndex`.
void PushElement(lua_State *state, int32_t tableIndex, uint32_t position) {
    int32_t absolute = tableIndex < 0 ? SYSDT_SPTI_GetTop(state) + tableIndex + 1 : tableIndex;
    SYSDT_SPTI_PushInt(state, static_cast<int32_t>(position));
    SYSDT_SPTI_GetTable(state, absolute);
}

// Reads one group (the table on top of the stack) into `record`. False on a missing item or a
// null text.
bool ReadGroup(lua_State *state, const ItemLayout &layout, unsigned char *record) {
    int32_t group = SYSDT_SPTI_GetTop(state);
    for (uint32_t item = 1; item <= layout.items; ++item) {
        PushElement(state, group, item);
        int32_t itemIndex = SYSDT_SPTI_GetTop(state);
        bool ok = SYSDT_SPTI_IsTable(state, itemIndex) != 0;
        if (ok) {
            unsigned char *field = record + layout.Offset(item);
            uint32_t fid = qav::FieldUInt(state, itemIndex, "fid");
            memcpy(field, &fid, sizeof fid);
            SYSDT_SPTI_GetField(state, itemIndex, "value");
            if (layout.IsText(item)) {
                const char *text = SYSDT_SPTI_ToString(state, -1);
                ok = text != nullptr;
                if (ok)
                    (void)strncpy_s(reinterpret_cast<char *>(field + sizeof fid), kTextSize, text,
                                    kTextSize - 1);
            } else {
                uint32_t value = SYSDT_SPTI_ToUInt(state, -1);
                memcpy(field + sizeof fid, &value, sizeof value);
            }
            SYSDT_SPTI_Pop(state, 1);
        }
        SYSDT_SPTI_Pop(state, 1);
        if (!ok) return false;
    }
    return true;
}

enum class BadArguments { EmptyTable, KeepTable };

// Set by group: the count first, then the groups table.
int SetByGroup(lua_State *state, const RecordTable &table, BadArguments onBad, bool rejectAboveCapacity) {
    bool argsOk = qav::ArgsMatch(state, "nt");
    uint32_t n = argsOk ? static_cast<uint32_t>(SYSDT_SPTI_ToInt(state, 1)) : 0;
    if (!argsOk || (rejectAboveCapacity && n > table.capacity())) {
        if (onBad == BadArguments::EmptyTable) *table.count = 0;
        return qav::ReturnUInt(state, qav::kInvalidCall);
    }
    void *buffer = nullptr;
    if (n == 0) {
        uint32_t zero = 0;
        table.addrProc(1, &zero, &buffer);
        if (buffer == nullptr) return qav::ReturnUInt(state, qav::kInvalidCall);
        ZeroRecords(table, buffer, table.capacity());
        return qav::ReturnUInt(state, qav::kOk);
    }
    // The count is stored before clamping, so a set above the capacity leaves the full count for
    // the query to read back, as the patch scripts expect.
    table.addrProc(1, &n, &buffer);
    if (buffer == nullptr) {
        *table.count = 0;
        return qav::ReturnUInt(state, qav::kInvalidCall);
    }
    uint32_t limit = Min(Min(n, table.capacity()), table.allocatedCount());
    uint32_t recordSize = table.layout.RecordSize();
    for (uint32_t i = 0; i < limit; ++i) {
        PushElement(state, 2, i + 1);
        bool ok = SYSDT_SPTI_IsTable(state, -1) != 0 &&
                  ReadGroup(state, table.layout,
                            static_cast<unsigned char *>(buffer) + static_cast<size_t>(i) * recordSize);
        SYSDT_SPTI_Pop(state, 1);
        if (!ok) {
            *table.count = i; // the groups already written stay
            return qav::ReturnUInt(state, qav::kInvalidCall);
        }
    }
    return qav::ReturnUInt(state, qav::kOk);
}

void PushItem(lua_State *state, const ItemLayout &layout, const unsigned char *record, uint32_t item) {
    const unsigned char *field = record + layout.Offset(item);
    uint32_t fid = 0;
    memcpy(&fid, field, sizeof fid);
    SYSDT_SPTI_PushUInt(state, item);
    qav::TableBuilder entry{state};
    entry.UInt("fid", fid);
    if (layout.IsText(item)) {
        const char *text = reinterpret_cast<const char *>(field + sizeof fid);
        SYSDT_SPTI_PushLString(state, text, static_cast<uint32_t>(strnlen(text, kTextSize)));
    } else {
        uint32_t value = 0;
        memcpy(&value, field + sizeof fid, sizeof value);
        SYSDT_SPTI_PushUInt(state, value);
    }
    SYSDT_SPTI_SetField(state, entry.index, "value");
    SYSDT_SPTI_SetTable(state, -3);
}

int QueryByGroup(lua_State *state, const RecordTable &table) {
    uint32_t count = 0;
    void *buffer = nullptr;
    table.addrProc(0, &count, &buffer);
    if (buffer == nullptr) return qav::ReturnUInt(state, qav::kInvalidCall);
    SYSDT_SPTI_PushUInt(state, qav::kOk);
    qav::TableBuilder groups{state};
    // The stored count is used as it is; only the allocation bounds what can be read.
    uint32_t readable = Min(count, table.allocatedCount());
    uint32_t recordSize = table.layout.RecordSize();
    for (uint32_t g = 0; g < readable; ++g) {
        const unsigned char *record =
            static_cast<const unsigned char *>(buffer) + static_cast<size_t>(g) * recordSize;
        SYSDT_SPTI_PushUInt(state, g + 1);
        qav::TableBuilder group{state};
        for (uint32_t item = 1; item <= table.layout.items; ++item)
            PushItem(state, table.layout, record, item);
        SYSDT_SPTI_SetTable(state, groups.index);
    }
    return 2;
}

} // namespace

extern "C" {

uint32_t QAV_PatchErrInfoAddrProc(uint32_t write, uint32_t *count, void **records) {
    return AddrProc(&g_stPatchErrTable.records, &g_stPatchErrTable.count, kPatchErrFirstAllocation,
                    kPatchErrLayout.RecordSize(), true, &g_patchErrAllocated, write, count, records);
}
uint32_t QAV_FlhSyncInfoAddrProc(uint32_t write, uint32_t *count, void **records) {
    return AddrProc(&g_stFlhSyncTable.records, &g_stFlhSyncTable.count, kFlhSyncCapacity,
                    kFlhSyncLayout.RecordSize(), false, nullptr, write, count, records);
}
uint32_t QAV_LoadPatchInfoAddrProc(uint32_t write, uint32_t *count, void **records) {
    return AddrProc(&g_stLoadPatchTable.records, &g_stLoadPatchTable.count, kLoadPatchCapacity,
                    kLoadPatchLayout.RecordSize(), false, nullptr, write, count, records);
}
uint32_t QAV_GetPatchErrMaxNum(void) {
    return g_stPatchErrTable.maxNum;
}
uint32_t QAV_GetFlhSyncNum(void) {
    return g_stFlhSyncTable.count;
}
uint32_t QAV_GetLoadPatchNum(void) {
    return g_stLoadPatchTable.count;
}

void QAV_SetPatchErrMaxNum(uint32_t n) {
    if (n > g_stPatchErrTable.maxNum) {
        size_t recordSize = kPatchErrLayout.RecordSize();
        void *grown = qav::HeapAllocZeroed(n, recordSize);
        if (grown == nullptr) return;
        void *old = g_stPatchErrTable.records;
        size_t bytes = static_cast<size_t>(g_stPatchErrTable.count) * recordSize;
        if (old != nullptr && bytes != 0) {
            // A count beyond what the old buffer holds cannot be copied: the growth fails.
            if (g_stPatchErrTable.count > g_patchErrAllocated ||
                memcpy_s(grown, static_cast<size_t>(n) * recordSize, old, bytes) != EOK) {
                qav::HeapFree(grown);
                return;
            }
        }
        qav::HeapFree(old);
        g_stPatchErrTable.records = grown;
        g_patchErrAllocated = n;
    }
    g_stPatchErrTable.maxNum = n;
}

} // extern "C"

QAV_ENTRY_FUNCTION QAV_SetPatErrInfoByGroup(lua_State *state) {
    return SetByGroup(state, kPatchErr, BadArguments::EmptyTable, false);
}
QAV_ENTRY_FUNCTION QAV_QueryPatErrInfoByGroup(lua_State *state) {
    return QueryByGroup(state, kPatchErr);
}
QAV_ENTRY_FUNCTION QAV_SetFlhSyncInfoByGroup(lua_State *state) {
    return SetByGroup(state, kFlhSync, BadArguments::KeepTable, true);
}
QAV_ENTRY_FUNCTION QAV_QueryFlhSyncInfoByGroup(lua_State *state) {
    return QueryByGroup(state, kFlhSync);
}
QAV_ENTRY_FUNCTION QAV_SetLoadPatchInfoByGroup(lua_State *state) {
    return SetByGroup(state, kLoadPatch, BadArguments::KeepTable, true);
}
QAV_ENTRY_FUNCTION QAV_QueryLoadPatchInfoByGroup(lua_State *state) {
    return QueryByGroup(state, kLoadPatch);
}

// The cleans push nothing although each declares one result; scripts ignore it.
QAV_ENTRY_FUNCTION QAV_CleanPatErrInfoByGroup(lua_State *) {
    uint32_t zero = 0;
    void *buffer = nullptr;
    QAV_PatchErrInfoAddrProc(1, &zero, &buffer);
    if (buffer != nullptr) ZeroRecords(kPatchErr, buffer, g_stPatchErrTable.maxNum);
    return 1;
}
QAV_ENTRY_FUNCTION QAV_CleanLoadPatInfoByGroup(lua_State *) {
    uint32_t zero = 0;
    void *buffer = nullptr;
    QAV_LoadPatchInfoAddrProc(1, &zero, &buffer);
    if (buffer != nullptr) ZeroRecords(kLoadPatch, buffer, kLoadPatchCapacity);
    return 1;
}

QAV_ENTRY_FUNCTION QAV_QueryPatErrTableNum(lua_State *state) {
    return qav::ReturnUIntPair(state, qav::kOk, QAV_GetPatchErrMaxNum());
}
QAV_ENTRY_FUNCTION QAV_SetPatErrTableNum(lua_State *state) {
    if (!qav::ArgsMatch(state, "n")) return qav::ReturnUInt(state, qav::kFailed);
    QAV_SetPatchErrMaxNum(SYSDT_SPTI_ToUInt(state, 1));
    return qav::ReturnUInt(state, qav::kOk);
}
QAV_ENTRY_FUNCTION QAV_QueryFlhSyncRecordNum(lua_State *state) {
    return qav::ReturnUIntPair(state, qav::kOk, QAV_GetFlhSyncNum());
}
QAV_ENTRY_FUNCTION QAV_QueryLoadPatchRecordNum(lua_State *state) {
    return qav::ReturnUIntPair(state, qav::kOk, QAV_GetLoadPatchNum());
}

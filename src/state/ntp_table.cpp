// The NTP unicast server cache: the sorted-list-with-sweep mechanism keyed by server name.
#include "state/ntp_table.h"

#include <cstring>

#include "binding/script_frame.h"
#include "state/sorted_list.h"

extern "C" {
QavNtpUCastTable g_stNTPUCastTable;
}

QAV_DEVICE_LAYOUT(QavNtpUCastTable, 24)

namespace {

using qav::FieldKind;
using qav::ItemField;

constexpr uint32_t kNameSize = 64;

struct NtpData {
    char name[kNameSize];
    uint32_t number;
    uint32_t flag7;
    uint32_t flag12;
};

struct NtpEntry {
    qav::DLink link;
    uint32_t availFlag;
    NtpData data;
};

// Item order of a get result: the name first.
const ItemField kNtpFields[] = {
    {20, FieldKind::Text, offsetof(NtpData, name), kNameSize},
    {1, FieldKind::StrictUInt, offsetof(NtpData, number), 0},
    {7, FieldKind::StrictBool, offsetof(NtpData, flag7), 0},
    {12, FieldKind::StrictBool, offsetof(NtpData, flag12), 0},
};
constexpr uint32_t kNamed = 0x1;

struct NtpTraits {
    using Data = NtpData;
    static int Compare(const Data &a, const Data &b) {
        int order = strncmp(a.name, b.name, kNameSize);
        return order < 0 ? -1 : (order > 0 ? 1 : 0);
    }
};

using NtpList = qav::SortedSweepList<NtpEntry, NtpTraits>;

// Reads one entry (the table at `entry`) into its node. 0; the item-type code; -1 for an entry
// without a name. A failed node allocation loses the entry but still counts as read.
uint32_t PullEntry(lua_State *state, int32_t entry, NtpList *list) {
    NtpData pulled{};
    uint32_t seen = 0;
    uint32_t rc = qav::PullItems(state, entry, kNtpFields, &pulled, &seen);
    if (rc != 0) return rc;
    if ((seen & kNamed) == 0) return qav::kInvalidCall;
    bool created = false;
    NtpEntry *node = list->FindOrInsert(pulled, &created);
    if (node != nullptr) {
        node->data = pulled;
        node->availFlag = 1;
    }
    return 0;
}

} // namespace

QAV_ENTRY_FUNCTION QAV_NtpSetUCastInfo(lua_State *state) {
    if (SYSDT_SPTI_IsTable(state, 1) == 0) return qav::ReturnUInt(state, qav::kInvalidCall);
    NtpList list(&g_stNTPUCastTable.entries);
    for (int32_t i = 1;; ++i) {
        SYSDT_SPTI_PushInt(state, i);
        SYSDT_SPTI_GetTable(state, 1);
        int32_t entry = SYSDT_SPTI_GetTop(state);
        bool stop = SYSDT_SPTI_IsTable(state, entry) == 0 || PullEntry(state, entry, &list) != 0;
        SYSDT_SPTI_Pop(state, 1);
        if (stop) break;
    }
    // The sweep runs after an early stop too: entries not reached are gone afterwards.
    list.Sweep();
    return qav::ReturnUInt(state, qav::kOk);
}

QAV_ENTRY_FUNCTION QAV_NtpGetUCastInfo(lua_State *state) {
    if (!qav::ArgsMatch(state, "s")) return qav::ReturnInt(state, -1);
    NtpData wanted{};
    const char *name = SYSDT_SPTI_ToString(state, 1);
    if (name == nullptr) return qav::ReturnInt(state, -1);
    (void)strncpy_s(wanted.name, kNameSize, name, kNameSize - 1);
    SYSDT_SPTI_PushUInt(state, qav::kOk);
    qav::TableBuilder result{state};
    qav::DLink *head = &g_stNTPUCastTable.entries;
    for (qav::DLink *pos = head->next; pos != nullptr && pos != head; pos = pos->next) {
        const NtpEntry *node = NtpList::NodeOf(pos);
        if (NtpTraits::Compare(node->data, wanted) != 0) continue;
        SYSDT_SPTI_PushUInt(state, 1);
        qav::PushItems(state, kNtpFields, &node->data);
        SYSDT_SPTI_SetTable(state, result.index);
        break;
    }
    // Three results for the two pushed: the name argument below them is the first, as the NTP
    // scripts read it.
    return 3;
}

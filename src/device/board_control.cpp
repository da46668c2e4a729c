// Board and process control for scripts: hardware identity, CPU ticks, the process path, a board
// reset for an NPU mode switch, process requests (validated and logged only: this build starts
// and stops no process), the component states of a board, and the version directory test.
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "binding/memory.h"
#include "binding/script_frame.h"
#include "cmf_db.h"
#include "device/process_request.h"
#include "nuk_string.h"
#include "qav_board.h"
#include "rpm_device.h"
#include "securec.h"
#include "zak_device.h"

// The platform fills the hardware record in place: 40 bytes on every target.
static_assert(sizeof(ZAK_HARD_INFO) == 40);

namespace qav {

void FillProcessRequest(ProcessRequest *request, const char *name, uint32_t instanceId, const char *path,
                        const char *argv) {
    (void)memset_s(request, sizeof *request, 0, sizeof *request);
    request->instanceId = instanceId;
    if (name != nullptr) (void)strncpy_s(request->name, sizeof request->name, name, sizeof request->name - 1);
    if (path != nullptr) (void)strncpy_s(request->path, sizeof request->path, path, sizeof request->path - 1);
    if (argv != nullptr) (void)strncpy_s(request->argv, sizeof request->argv, argv, sizeof request->argv - 1);
}

} // namespace qav

namespace {

constexpr uint32_t kWordsPerEntry = 4;
constexpr uint32_t kEntriesPerNode = 2;
constexpr int32_t kNoProcessLogBelow = 4;
constexpr int32_t kNoDeleteLogBelow = 6;
constexpr const char *kSemlsFunction = "QAV_GetSemlsStateByOsnode";

int PushHardType(lua_State *state, uint32_t (*get)(ZAK_HARD_INFO *)) {
    ZAK_HARD_INFO info;
    (void)memset_s(&info, sizeof info, 0, sizeof info);
    uint32_t ret = get(&info);
    return qav::ReturnUIntPair(state, ret, info.uiBoardHardType);
}

// "chassis/board" or "board" (chassis 1), both unsigned decimal.
bool ParseBoardText(char *text, uint32_t *chassis, uint32_t *board) {
    char *slash = std::strchr(text, '/');
    if (slash == nullptr) {
        *chassis = 1;
        return NUK_StrToUint32(text, board) == 0;
    }
    *slash = '\0';
    return NUK_StrToUint32(text, chassis) == 0 && NUK_StrToUint32(slash + 1, board) == 0;
}

// The address entries of every component on the nodes, two entries of room per node; false on
// any failure of the database or the address service.
bool CollectComponentEntries(const uint32_t *nodes, uint32_t count, DMS_COMP_ADDR_INFO *entries,
                             uint32_t *filled) {
    uint32_t n = 0;
    for (uint32_t i = 0; i < count; ++i) {
        int32_t pid = 0;
        if (CMF_GetPIDByOsNode(2, nodes[i], &pid) != 0) return false;
        if (pid < 0) {
            if (DMS_CamCompAddrInfoGetByCpi(pid, &entries[n]) != 0) return false;
            ++n;
            continue;
        }
        uint32_t got = 0;
        if (DMS_CamCompAddrInfoGetByCsi(pid, &got, &entries[n]) != 0 || got < 1 || got > kEntriesPerNode)
            return false;
        n += got;
    }
    *filled = n;
    return true;
}

void PushComponentTable(lua_State *state, const DMS_COMP_ADDR_INFO *entries, uint32_t count) {
    SYSDT_SPTI_CreateTable(state, 0, 0);
    for (uint32_t j = 0; j < count; ++j) {
        const uint32_t words[kWordsPerEntry] = {entries[j].uiCompType, entries[j].uiCompId,
                                                entries[j].uiOsNode, entries[j].uiState};
        SYSDT_SPTI_PushUInt(state, j + 1);
        SYSDT_SPTI_CreateTable(state, 0, 0);
        for (uint32_t k = 0; k < kWordsPerEntry; ++k) {
            SYSDT_SPTI_PushUInt(state, k + 1);
            qav::TableBuilder item(state);
            item.UInt("fid", k + 1).UInt("value", words[k]);
            SYSDT_SPTI_SetTable(state, -3);
        }
        SYSDT_SPTI_SetTable(state, -3);
    }
}

} // namespace

QAV_ENTRY_FUNCTION QAV_ZAK_GetHardType(lua_State *state) {
    return PushHardType(state, ZAK_GetHard_Info);
}

QAV_ENTRY_FUNCTION QAV_ZAK_GetHardType_Inner(lua_State *state) {
    return PushHardType(state, RPM_GetHardInfo_Inner);
}

QAV_ENTRY_FUNCTION QAV_ZAK_GetCpuTick(lua_State *state) {
    uint32_t first = 0;
    uint32_t second = 0;
    (void)ZAK_GetCpuTick(&first, &second);
    return qav::ReturnUIntPair(state, first, second);
}

QAV_ENTRY_FUNCTION QAV_GetCurrentProcessPath(lua_State *state) {
    char path[256] = {0};
    uint32_t ret = ZAK_GetProcessCurrentPath(path, sizeof path);
    path[sizeof path - 1] = '\0';
    return qav::ReturnUIntText(state, ret, path, static_cast<uint32_t>(std::strlen(path)));
}

QAV_ENTRY_FUNCTION qav_ResetBoardForNpuModeSwitch(lua_State *state) {
    // A wrong count returns 0xFFFFFFFF as the result count, pushing nothing; callers never read
    // results of this function, and the count is kept as the device's engine receives it.
    if (!qav::ArgsMatch(state, ".")) return static_cast<int>(qav::kInvalidCall);
    int32_t mode = SYSDT_SPTI_ToInt(state, 1);
    QAV_STLOG(qav::kDiagModule, "Reset Board by NPU switch mode %#x)", static_cast<uint32_t>(mode));
    (void)QAV_ResetBoard(static_cast<uint32_t>(mode));
    return 0;
}

// Validated and logged; the request goes nowhere: this build starts no process.
QAV_ENTRY_FUNCTION QAV_CreateProcess(lua_State *state) {
    if (!qav::ArgsMatch(state, "s.ss")) return qav::ReturnUInt(state, qav::kInvalidCall);
    const char *name = SYSDT_SPTI_ToString(state, 1);
    int32_t instance = SYSDT_SPTI_ToInt(state, 2);
    const char *path = SYSDT_SPTI_ToString(state, 3);
    const char *argv = SYSDT_SPTI_ToString(state, 4);
    if (g_iLogLevel < kNoProcessLogBelow)
        ha_log(3,
               "[%s]:process name:%s,instanceId:%d,program path:%s,process argv:%s,uiRet=%d,iRetCount=%d.\n",
               "QAV_CreateProcess", name, instance, path, argv, 0, 1);
    qav::ProcessRequest request;
    qav::FillProcessRequest(&request, name, static_cast<uint32_t>(instance), path, argv);
    return qav::ReturnUInt(state, qav::kOk);
}

// Validated and logged; nothing is stopped.
QAV_ENTRY_FUNCTION QAV_DeleteProcess(lua_State *state) {
    if (!qav::ArgsMatch(state, "s.")) return qav::ReturnUInt(state, qav::kInvalidCall);
    const char *name = SYSDT_SPTI_ToString(state, 1);
    int32_t instance = SYSDT_SPTI_ToInt(state, 2);
    if (g_iLogLevel < kNoDeleteLogBelow)
        ha_log(5, "[%s]: process name: %s, instanceId:%d.\n", "QAV_DeleteProcess", name, instance);
    qav::ProcessRequest request;
    qav::FillProcessRequest(&request, name, static_cast<uint32_t>(instance), nullptr, nullptr);
    return qav::ReturnUInt(state, qav::kOk);
}

QAV_ENTRY_FUNCTION QAV_GetSemlsStateByOsnode(lua_State *state) {
    if (!qav::ArgsMatch(state, "s")) return qav::ReturnUInt(state, qav::kInvalidCall);
    char text[16] = {0};
    if (strcpy_s(text, sizeof text, SYSDT_SPTI_ToString(state, 1)) != EOK) {
        if (g_iLogLevel < kNoProcessLogBelow) ha_log(3, "%s strcpy failed.\n", kSemlsFunction);
        return qav::ReturnUInt(state, qav::kInvalidCall);
    }
    uint32_t chassis = 0;
    uint32_t board = 0;
    if (!ParseBoardText(text, &chassis, &board)) return qav::ReturnUInt(state, qav::kInvalidCall);

    uint32_t count = 0;
    uint32_t *nodes = nullptr;
    if (QAV_GetOsNodeListByBoardId(chassis, board, &count, &nodes) != 0 || nodes == nullptr) {
        qav::PlatformFree(nodes);
        return qav::ReturnUInt(state, qav::kInvalidCall);
    }
    DMS_COMP_ADDR_INFO *entries = nullptr;
    if (count != 0) {
        entries = static_cast<DMS_COMP_ADDR_INFO *>(
            qav::PlatformAllocZeroed(count * kEntriesPerNode * sizeof(DMS_COMP_ADDR_INFO)));
        if (entries == nullptr) {
            qav::PlatformFree(nodes);
            return qav::ReturnUInt(state, qav::kInvalidCall);
        }
    }
    uint32_t filled = 0;
    bool ok = CollectComponentEntries(nodes, count, entries, &filled);
    if (ok) {
        SYSDT_SPTI_PushUInt(state, qav::kOk);
        PushComponentTable(state, entries, filled);
    }
    qav::PlatformFree(entries);
    qav::PlatformFree(nodes);
    return ok ? 2 : qav::ReturnUInt(state, qav::kInvalidCall);
}

// Substring test on the working directory: "V1" matches "/opt/pkg/V100" on purpose, since the
// scripts pass version prefixes.
QAV_ENTRY_FUNCTION QAV_SU_IsCurDirVerSame(lua_State *state) {
    constexpr uint32_t kSame = 0;
    constexpr uint32_t kDifferent = 1;
    constexpr uint32_t kError = 2;
    const char *version = qav::TextArg(state, 1);
    if (version == nullptr) return qav::ReturnUInt(state, kError);
    char *cwd = get_current_dir_name();
    if (cwd == nullptr) return qav::ReturnUInt(state, kError);
    uint32_t result = std::strstr(cwd, version) != nullptr ? kSame : kDifferent;
    qav::HeapFree(cwd); // the C library's block
    return qav::ReturnUInt(state, result);
}

// Exported for other platform libraries, not registered: fills the table argument.
QAV_ENTRY_FUNCTION QAV_GetHardinfo(lua_State *state) {
    if (!qav::ArgsMatch(state, "t")) return qav::ReturnUInt(state, qav::kInvalidCall);
    ZAK_HARD_INFO info;
    (void)memset_s(&info, sizeof info, 0, sizeof info);
    uint32_t ret = ZAK_GetHard_Info(&info);
    if (ret == 0) {
        const struct {
            const char *key;
            uint32_t value;
        } fields[] = {{"usShelfID", info.usShelfID},
                      {"usChassisID", info.usChassisID},
                      {"usBoardID", info.usBoardID},
                      {"usCpuID", info.usCpuID},
                      {"uiBoardHardType", info.uiBoardHardType},
                      {"uiBoardHardExtType", info.uiBoardHardExtType},
                      {"uiMacAddrLen", info.uiMacAddrLen}};
        for (const auto &field : fields) {
            SYSDT_SPTI_PushUInt(state, field.value);
            SYSDT_SPTI_SetField(state, 1, field.key);
        }
        // the whole 16-byte field, whatever the length word says
        SYSDT_SPTI_PushLString(state, reinterpret_cast<const char *>(info.aucMacAddr),
                               sizeof info.aucMacAddr);
        SYSDT_SPTI_SetField(state, 1, "acMacAddr");
    }
    return qav::ReturnUInt(state, ret);
}

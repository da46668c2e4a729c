// Board and process services of the host: the CPU tick counter (from the monotonic clock, so
// `zakhost.clock_advance` moves it), the process directory, board resets (recorded, never
// carried out: `zakhost.board_resets()`), and the OS nodes of a board from the configuration
// database.
#include <unistd.h>

#include <cstring>
#include <ctime>
#include <mutex>
#include <vector>

extern "C" {
#include <lauxlib.h>
}

#include "cmf_db.h"
#include "host.h"
#include "os_env.h"
#include "qav_board.h"
#include "qav_event.h"
#include "zak_device.h"
#include "zak_memory.h"

namespace {

std::mutex g_resetLock;
std::vector<uint32_t> g_resets;

// zakhost.board_resets([clear]): the NPU modes of every board reset asked for, oldest first;
// a true argument forgets them after answering.
int lua_board_resets(lua_State *state) {
    bool clear = lua_toboolean(state, 1) != 0;
    std::lock_guard lock(g_resetLock);
    lua_createtable(state, static_cast<int>(g_resets.size()), 0);
    for (size_t i = 0; i < g_resets.size(); ++i) {
        lua_pushinteger(state, static_cast<lua_Integer>(g_resets[i]));
        lua_rawseti(state, -2, static_cast<int>(i + 1));
    }
    if (clear) g_resets.clear();
    return 1;
}
const zakhost::ControlFunction kBoardResets{"board_resets", &lua_board_resets};

uint32_t injected_code(const char *service, uint32_t fallback) {
    int64_t result = 0;
    if (!zakhost::injected(service, &result)) return 0;
    return result == 0 ? fallback : static_cast<uint32_t>(result);
}

constexpr const char *kSourceTag = "zakhost_boards";
constexpr uint32_t kFailed = 0xFFFFFFFF;
constexpr uint32_t kOsNodeFields = 7;

} // namespace

extern "C" {

uint32_t ZAK_GetCpuTick(uint32_t *first, uint32_t *second) {
    if (uint32_t code = injected_code("ZAK_GetCpuTick", 1)) return code;
    if (first == nullptr || second == nullptr) return 1;
    timespec now{};
    if (ZAK_OsClockGetTime(CLOCK_MONOTONIC, &now) != 0) return 1;
    // at most 2^32 ticks a second keeps both products within 64 bits for any uptime below
    // about 136 years, also where no 128-bit type exists (32-bit ARM)
    int64_t configured = zakhost::profile_int("device", "cpu_tick_hz", 1000000);
    uint64_t hz =
        configured < 1 ? 1 : (configured > (int64_t{1} << 32) ? uint64_t{1} << 32 : uint64_t(configured));
    uint64_t ticks =
        static_cast<uint64_t>(now.tv_sec) * hz + static_cast<uint64_t>(now.tv_nsec) * hz / 1000000000u;
    *first = static_cast<uint32_t>(ticks >> 32);
    *second = static_cast<uint32_t>(ticks);
    return 0;
}

uint32_t ZAK_GetProcessCurrentPath(char *path, uint32_t size) {
    if (uint32_t code = injected_code("ZAK_GetProcessCurrentPath", 1)) return code;
    if (path == nullptr || size == 0) return 1;
    std::string configured = zakhost::profile_string("device", "process_path");
    if (configured.empty()) return getcwd(path, size) != nullptr ? 0 : 1;
    std::string full = zakhost::in_root(configured);
    if (full.size() >= size) return 1;
    std::memcpy(path, full.c_str(), full.size() + 1);
    return 0;
}

uint32_t QAV_ResetBoard(uint32_t npuMode) {
    if (uint32_t code = injected_code("QAV_ResetBoard", 1)) return code;
    std::lock_guard lock(g_resetLock);
    g_resets.push_back(npuMode);
    return 0;
}

uint32_t QAV_GetOsNodeListByBoardId(uint32_t chassis, uint32_t board, uint32_t *count, uint32_t **list) {
    if (uint32_t code = injected_code("QAV_GetOsNodeListByBoardId", kFailed)) return code;
    if (count == nullptr || list == nullptr) return kFailed;
    *count = 0;
    *list = nullptr;
    ZAK_HARD_INFO local{};
    if (uint32_t code = ZAK_GetHard_Info(&local)) return code;
    uint32_t dbId = 0;
    if (ZAK_GetEnvValue(2, &dbId) != 0) return kFailed;
    uint32_t table = 0;
    if (uint32_t code = CMF_GetTabIdByClassId(CMF_CLASS_OSNODE, &table)) return code;
    CMF_DB_COND cond{};
    cond.uiDbId = dbId;
    cond.uiKeyNum = 2;
    cond.astKey[0] = {CMF_OSNODE_FIELD_SHELF, 4, local.usShelfID};
    cond.astKey[1] = {CMF_OSNODE_FIELD_BOARD, 4, board};
    uint32_t records = 0;
    if (uint32_t code = CMF_DBGetRecNum(table, &cond, &records)) return code;
    std::vector<uint32_t> rows(static_cast<size_t>(records) * kOsNodeFields);
    uint32_t selected = 0;
    if (records != 0) {
        uint32_t code = CMF_DBSelectAllRec(table, &cond, rows.data(), kOsNodeFields * sizeof(uint32_t),
                                           records, &selected);
        if (code != 0) return code;
    }
    // Room for one id even when the board has none: an empty board is a valid, empty answer.
    auto *ids = static_cast<uint32_t *>(ZAK_Malloc_F(
        nullptr, g_aucZakMemPt, (selected == 0 ? 1 : selected) * sizeof(uint32_t), kSourceTag, __LINE__));
    if (ids == nullptr) return kFailed;
    uint32_t n = 0;
    for (uint32_t i = 0; i < selected; ++i) {
        const uint32_t *row = &rows[static_cast<size_t>(i) * kOsNodeFields];
        if (row[CMF_OSNODE_FIELD_CHASSIS - 1] == chassis) ids[n++] = row[CMF_OSNODE_FIELD_NODE - 1];
    }
    *count = n;
    *list = ids;
    return 0;
}

} // extern "C"

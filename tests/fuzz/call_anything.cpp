// The call-anything harness (see call_anything.h and docs/conformance.md). Generated strings never
// start with '/' and never contain "..", so no path leaves the scratch sandbox; directory streams
// are passed only as null or as streams the library returned and nobody closed yet.
#include "call_anything.h"

#include <dirent.h>
#include <ftw.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <fstream>
#include <initializer_list>
#include <limits>
#include <optional>
#include <set>
#include <string>
#include <utility>

extern "C" {
#include <lauxlib.h>
#include <lualib.h>
int luaopen_libqavluacommon(lua_State *state);
}

#include "binding/registry.h"
#include "host.h"

namespace qavfuzz {
namespace {

// clang-format off
const lua_Integer kIntegers[] = {
    0, -1, 1, 2, 7, 100, 255, 65535, 2147483647LL, 2147483648LL, -2147483648LL, 4294967295LL, 4294967296LL,
    9007199254740993LL, std::numeric_limits<lua_Integer>::max(), std::numeric_limits<lua_Integer>::min(),
    41000, 1970, 2038, 12, 31, 24, 60, 999, 0x29371B3C, -5,
};

const double kFloats[] = {0.5, -0.5, std::nan(""), -std::nan(""), HUGE_VAL, -HUGE_VAL, 1e300, -1e300,
                          4294967296.5, 2147483648.0, -2147483649.0, -0.0, 1e-310, 9.3e18, -9.3e18, 3.0};
// clang-format on

// Words that the functions treat specially, paths inside the work directory, file modes, lock
// and semaphore names, format directives and long or binary texts.
const std::vector<std::string> &Words() {
    // clang-format off
    static const std::vector<std::string> words = {
        "", "work", "work/f.txt", "work/dir", "work/dir/g.txt", "work/empty", "work/new",
        "work/new/deeper/still", "work/link", "work/f.txt.copy", "f.txt", "g.txt", "../data/zakcfg.ini",
        "../data", "vercfg.xml", "r", "w", "a", "rb", "wb", "r+", "a+", "w+", "set", "cur", "end",
        "%s%n%d%x%p%s%s%s%s%s", "%n%n%n%n", "%99999999d", "%.2147483647s", "%ls%c%hhn", std::string(255, 'A'),
        std::string(256, 'B'), std::string(1024, 'C'), std::string(4097, 'D'), "work" + std::string(300, '/') + "f.txt",
        std::string(70000, 'E'), std::string("\0\x01\xFF\x80\0tail", 10), std::string("a\0b", 3),
        "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80", "0", "-1", "1", "4294967295", "0x1F", "1e400", "nan",
        "V100R001C00SPC100", "V1.0.0", "1.0.0", "cpu", "CPU", "MPU", "root", "user", "guest",
        "patlocksema", "tpmreportsema", "ntpucastsema", "lock1", "UTC", "DST", "Asia/Shanghai",
        "GMT+08:00", "2026-11-22 02:00:00", "year", "date", "fid", "value", "true", "nil",
        "work/f.txt,work/dir", "1;2;3", "a b c", "\n\r\t",
    };
    // clang-format on
    return words;
}

// Keys the functions read from table arguments.
// clang-format off
const char *const kKeys[] = {
    "year", "month", "date", "day", "hour", "minute", "second", "week", "millSec", "uSecond", "fid",
    "value", "path", "time", "startTime", "curTime", "timeFlag", "startFlag", "slotId", "isDstEnabled",
    "funcName", "compName", "userID", "userLevel", "userGroup", "userLrID", "userVrID", "startWeekNum",
    "startWeekDay", "startMonth", "endWeekNum", "endWeekDay", "endMonth", "startDay", "endDay", "lrId",
    "dstName", "dstOffset", "timeZoneName", "timeZoneOffset", "type", "cid", "oper", "option", "record",
    "sessionId", "errorCode", "detailType", "policyDeliverType", "usBoardID", "usChassisID", "usShelfID",
    "usCpuID", "uiBoardHardType", "startYear", "endYear", "startDate", "endDate", "needRefresh",
    "operAllow",
};
// clang-format on

struct Reader {
    const uint8_t *data;
    size_t size;
    size_t pos = 0;
    bool More() const { return pos < size; }
    uint8_t Byte() { return pos < size ? data[pos++] : 0; }
};

// Directory streams the library handed out and nobody closed yet.
std::deque<void *> g_streams;
constexpr size_t kMaxStreams = 16;
int g_closeDir = -1;
int g_openDir = -1;

lua_State *g_shared = nullptr;
std::string g_root;
std::string g_work; // the current directory: R/zakv8/main/bin

[[noreturn]] void Finding(const char *script, const std::string &what) {
    std::fprintf(stderr, "call-anything finding: %s: %s\n", script, what.c_str());
    std::fflush(stderr);
    std::abort();
}

// A finding about a call. With QAVFUZZ_COLLECT=1 each distinct one is printed once and the run
// goes on (for surveying), else it stops the run.
void CallFinding(const char *script, const std::string &kind, const std::string &what) {
    static const bool collect = std::getenv("QAVFUZZ_COLLECT") != nullptr;
    if (!collect) Finding(script, what);
    static std::set<std::string> seen;
    if (seen.insert(std::string(script) + "|" + kind).second)
        std::fprintf(stderr, "call-anything finding: %s: %s\n", script, what.c_str());
}

bool IsOpenStream(void *p) {
    return std::find(g_streams.begin(), g_streams.end(), p) != g_streams.end();
}

void ForgetStream(void *p) {
    auto it = std::find(g_streams.begin(), g_streams.end(), p);
    if (it != g_streams.end()) g_streams.erase(it);
}

void KeepStream(void *p) {
    if (p == nullptr || IsOpenStream(p)) return;
    g_streams.push_back(p);
    if (g_streams.size() > kMaxStreams) {
        closedir(static_cast<DIR *>(g_streams.front()));
        g_streams.pop_front();
    }
}

std::string Sanitised(std::string text) {
    if (!text.empty() && text[0] == '/') text[0] = '_';
    for (size_t at = text.find(".."); at != std::string::npos; at = text.find("..", at))
        text[at + 1] = '_';
    return text;
}

// Integer, float and dictionary-word values: at arguments and at table fields alike.
void PushInteger(lua_State *L, Reader &in) {
    lua_pushinteger(L, kIntegers[in.Byte() % std::size(kIntegers)]);
}
void PushFloat(lua_State *L, Reader &in) {
    lua_pushnumber(L, kFloats[in.Byte() % std::size(kFloats)]);
}
void PushWord(lua_State *L, Reader &in) {
    const std::string &w = Words()[in.Byte() % Words().size()];
    lua_pushlstring(L, w.data(), w.size());
}

void PushScalarForTable(lua_State *L, Reader &in, uint8_t selector) {
    switch (selector % 5) {
    case 0:
        return PushInteger(L, in);
    case 1:
        return PushFloat(L, in);
    case 2:
        return PushWord(L, in);
    case 3:
        return lua_pushboolean(L, in.Byte() & 1);
    default: // one level of nesting: the item form {{fid=..., value=...}}
        lua_createtable(L, 1, 0);
        lua_createtable(L, 0, 2);
        PushInteger(L, in);
        lua_setfield(L, -2, "fid");
        PushInteger(L, in);
        lua_setfield(L, -2, "value");
        lua_rawseti(L, -2, 1);
    }
}

// Pushes one decoded argument. `earlier` is the index of a table holding the previous call's
// results (or 0).
void PushArgument(lua_State *L, Reader &in, int earlier) {
    switch (int kind = in.Byte() % kKinds) {
    case kNil:
        return lua_pushnil(L);
    case kFalse:
    case kTrue:
        return lua_pushboolean(L, kind == kTrue);
    case kInteger:
        return PushInteger(L, in);
    case kFloat:
        return PushFloat(L, in);
    case kWord:
        return PushWord(L, in);
    case kRawString: {
        size_t length = std::min<size_t>(in.Byte(), in.size - std::min(in.pos, in.size));
        std::string text(reinterpret_cast<const char *>(in.data + in.pos), length);
        in.pos += length;
        text = Sanitised(text);
        lua_pushlstring(L, text.data(), text.size());
        break;
    }
    case kEmptyTable:
        return lua_newtable(L);
    case kFieldTable: {
        uint8_t shape = in.Byte();
        int fields = shape & 7;
        lua_createtable(L, 2, fields);
        for (int i = 0; i < fields; ++i) {
            uint8_t field = in.Byte();
            PushScalarForTable(L, in, static_cast<uint8_t>(shape >> 3) + static_cast<uint8_t>(i));
            if (field & 0x80)
                lua_rawseti(L, -2, (field & 0x7F) % 4 + 1);
            else
                lua_setfield(L, -2, kKeys[field % std::size(kKeys)]);
        }
        break;
    }
    case kNullPointer:
        return lua_pushlightuserdata(L, nullptr);
    case kHandle: {
        uint8_t pick = in.Byte();
        return lua_pushlightuserdata(L, g_streams.empty() ? nullptr : g_streams[pick % g_streams.size()]);
    }
    default: { // kEarlierResult
        uint8_t pick = in.Byte();
        lua_Integer count = earlier == 0 ? 0 : static_cast<lua_Integer>(lua_rawlen(L, earlier));
        if (count == 0) return lua_pushnil(L);
        lua_rawgeti(L, earlier, pick % count + 1);
        // A stream closed since it was returned must not be passed again.
        if (lua_type(L, -1) == LUA_TLIGHTUSERDATA && lua_touserdata(L, -1) != nullptr &&
            !IsOpenStream(lua_touserdata(L, -1))) {
            lua_pop(L, 1);
            lua_pushnil(L);
        }
        break;
    }
    }
}

bool Listed(const char *script, std::initializer_list<const char *> names) {
    for (const char *name : names)
        if (std::strcmp(script, name) == 0) return true;
    return false;
}

// Functions whose result count is deliberately not what they pushed on some paths (the reasons:
// docs/conformance.md); the engine's dispatcher clamps a count beyond the stack to its height.
bool MayReturnBadCount(const char *script) {
    return Listed(script,
                  {"qav_spt_SysLocalTimeGet", "qav_ResetBoardForNpuModeSwitch",
                   "qav_spt_SysGmt2LocalTimeByTzDst", "qav_GetAppointmentTimeOffset",
                   "qav_SU_SetRstRollbackTimerLock", "qav_SU_SetUpgradeLockTime", "qav_SU_SetUpgradeState"});
}

// Functions that leave the table values they read below their results, which scripts never see.
bool MayLeaveReadValues(const char *script) {
    return Listed(script,
                  {"qav_spt_SysLocalTime2Gmt", "qav_spt_SysGmt2LocalTime", "qav_spt_SysLocalTime2GmtByTzDst",
                   "qav_trap_UTCclockchange", "qav_trap_sysreload", "qav_spt_SysGmt2LocalTimeByTzDst",
                   "qav_GetAppointmentTimeOffset", "qav_systimerelseccal", "qav_systimereldaycal",
                   "qav_SystimeCompare", "qav_SystimeAddMilliSeconds", "qav_set_pat_lock_info"});
}
// Even those stay within this many values above their arguments.
constexpr int kMostLeftValues = 40;

// Calls the entry function (upvalue 1) directly, so that its own result count is seen before
// any engine adjustment, and checks that count against the stack it left.
int Probe(lua_State *L) {
    auto function = reinterpret_cast<lua_CFunction>(lua_touserdata(L, lua_upvalueindex(1)));
    const char *script = lua_tostring(L, lua_upvalueindex(2));
    const int arguments = lua_gettop(L);
    const int declared = function(L);
    const int height = lua_gettop(L);
    if ((declared < 0 || declared > height + 1) && !MayReturnBadCount(script))
        CallFinding(script, "count",
                    "result count " + std::to_string(declared) + " with " + std::to_string(height) +
                        " values on the stack");
    // What the engine's dispatcher takes: a count beyond the stack becomes the stack height, and
    // one more than the stack holds would hand back the called function's own slot.
    int taken = declared >= 0 && declared <= height ? declared : height;
    int grown = height - arguments;
    if (grown > taken && (!MayLeaveReadValues(script) || grown > kMostLeftValues))
        CallFinding(script, "growth",
                    "left " + std::to_string(grown) + " new values on the stack but returned " +
                        std::to_string(declared));
    return taken;
}

// The process's standard descriptors (device and inode) as they were at the start: no call may close
// or replace them (a script hands descriptor numbers in as plain integers).
using Described = std::optional<std::pair<dev_t, ino_t>>;
Described g_standard[3];

Described Describe(int fd) {
    struct stat record {};
    if (fstat(fd, &record) != 0) return std::nullopt;
    return std::pair{record.st_dev, record.st_ino};
}

void CheckStandardDescriptors(const char *script) {
    for (int fd = 0; fd < 3; ++fd)
        if (g_standard[fd] && Describe(fd) != g_standard[fd])
            CallFinding(script, "descriptor", "closed or replaced standard descriptor " + std::to_string(fd));
}

lua_State *NewState() {
    lua_State *L = luaL_newstate();
    luaL_openlibs(L);
    luaL_requiref(L, "libqavluacommon", luaopen_libqavluacommon, 1);
    lua_pop(L, 1);
    return L;
}

int RemoveEntry(const char *path, const struct stat *, int, struct FTW *) {
    // Trees made by the functions may lack write or search permission for their owner.
    chmod(path, 0700);
    return remove(path);
}

void RemoveTree(const std::string &path) {
    // Pre-order pass to open up permissions, then the depth-first removal.
    nftw(
        path.c_str(),
        [](const char *p, const struct stat *, int type, struct FTW *) {
            if (type == FTW_D || type == FTW_DNR) chmod(p, 0700);
            return 0;
        },
        16, FTW_PHYS);
    nftw(path.c_str(), RemoveEntry, 16, FTW_DEPTH | FTW_PHYS);
}

// The work directory as every input finds it: a file, a directory with a file, an empty
// directory and a symbolic link inside the tree.
void ResetWorkDirectory() {
    if (chdir(g_root.c_str()) != 0) Finding("harness", "sandbox root vanished");
    RemoveTree(g_work);
    // The rest of the sandbox is laid out again only when a call removed part of it.
    struct stat st {};
    if (stat((g_root + "/zakv8/main/data").c_str(), &st) != 0 || stat((g_root + "/etc").c_str(), &st) != 0 ||
        stat((g_root + "/zakhost.ini").c_str(), &st) != 0 || mkdir(g_work.c_str(), 0755) != 0) {
        std::string error = zakhost::init_sandbox(g_root);
        if (!error.empty()) Finding("harness", "sandbox init: " + error);
    }
    if (chdir(g_work.c_str()) != 0) Finding("harness", "cannot enter " + g_work);
    umask(022);
    mkdir("work", 0755);
    mkdir("work/dir", 0755);
    mkdir("work/empty", 0755);
    std::ofstream("work/f.txt") << "first line\nsecond line\n12345 67.5\n";
    std::ofstream("work/dir/g.txt") << std::string("binary\0data\n", 12);
    symlink("dir", "work/link");
}

void ResetHost() {
    zakhost::inject_clear();
    // External commands are not run: each reports a failure at once, so the functions that call
    // them take their failure paths without spawning processes.
    for (const char *service : {"ZAK_OsRunShellCommand", "Frame_System", "RPM_SU_MountRpg_HOOK"})
        zakhost::inject(service, 1, 0, std::numeric_limits<uint32_t>::max());
}

int PositionOf(const std::string &script) {
    for (size_t i = 0; i < qav::kRegistryEntries; ++i)
        if (script == qav::kRegistry[i].name) return static_cast<int>(i);
    return -1;
}

} // namespace

size_t FunctionCount() {
    return qav::kRegistryEntries;
}

// Every text the harness can produce stays relative and inside the sandbox: no dictionary word is
// absolute, and only the two data paths climb out of the work directory (to R/zakv8/main/data).
void CheckWords() {
    for (const std::string &w : Words()) {
        bool climbs = w.find("..") != std::string::npos;
        if ((!w.empty() && w[0] == '/') || (climbs && w != "../data/zakcfg.ini" && w != "../data"))
            Finding("harness", "dictionary word leaves the sandbox: " + w.substr(0, 40));
    }
}

void Setup() {
    if (!g_root.empty()) return;
    CheckWords();
    // A memory file system when there is one: every input lays out its work directory again.
    const char *tmp = std::getenv("QAVFUZZ_TMPDIR");
    if (tmp == nullptr || *tmp == '\0')
        tmp = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : std::getenv("TMPDIR");
    std::string pattern = std::string(tmp != nullptr && *tmp != '\0' ? tmp : "/tmp") + "/qavfuzz.XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) Finding("harness", "mkdtemp failed");
    g_root = pattern;
    g_work = g_root + "/zakv8/main/bin";
    setenv("ZAKHOST_ROOT", g_root.c_str(), 1);
    unsetenv("ZAKHOST_LOG_DIR");
    unsetenv("ZAKHOST_PROFILE");
    unsetenv("ZAKHOST_TRACE");
    zakhost::reset_environment();
    ResetWorkDirectory();
    ResetHost();
    g_openDir = PositionOf("luafs_opendir");
    g_closeDir = PositionOf("luafs_closedir");
    g_shared = NewState();
    for (int fd = 0; fd < 3; ++fd)
        g_standard[fd] = Describe(fd);
}

void Teardown() {
    for (void *p : g_streams)
        closedir(static_cast<DIR *>(p));
    g_streams.clear();
    if (g_shared != nullptr) lua_close(g_shared);
    g_shared = nullptr;
    if (chdir("/") == 0 && !g_root.empty()) RemoveTree(g_root);
    g_root.clear();
    zakhost::inject_clear();
    zakhost::log_clear();
}

void RunInput(const uint8_t *data, size_t size) {
    Reader in{data, size};
    uint8_t flags = in.Byte();
    bool shared = (flags & kSharedStateFlag) != 0;
    ResetWorkDirectory();
    lua_State *L = shared ? g_shared : NewState();
    lua_settop(L, 0);
    lua_newtable(L); // 1: the previous call's results
    int earlier = 1;

    for (size_t call = 0; call < kMaxCalls && in.More(); ++call) {
        size_t position = (in.Byte() | static_cast<size_t>(in.Byte()) << 8) % qav::kRegistryEntries;
        int count = static_cast<int>(in.Byte() % (kMaxArgs + 1));
        const SCRIPT_REG_ENTRY &entry = qav::kRegistry[position];

        int base = lua_gettop(L);
        lua_pushlightuserdata(L, reinterpret_cast<void *>(entry.func));
        lua_pushstring(L, entry.name);
        lua_pushcclosure(L, Probe, 2);
        for (int i = 0; i < count; ++i)
            PushArgument(L, in, earlier);
        if (static_cast<int>(position) == g_closeDir && lua_type(L, base + 2) == LUA_TLIGHTUSERDATA)
            ForgetStream(lua_touserdata(L, base + 2));

        // A named lock already held would wait out a whole 5 s slice before taking it over; one
        // timed-out slice is injected so the take-over path runs at once. A free lock just
        // waits again and gets it.
        zakhost::inject("NUK_SemaP", 1, 0, 1);
        int status = lua_pcall(L, count, LUA_MULTRET, 0);
        zakhost::inject("NUK_SemaP", 0, 0, 0);
        CheckStandardDescriptors(entry.name);
        // Running out of memory is the allocator's limit, not the function's fault: the runners
        // cap single allocations (as the device's memory pool does), and the interpreter raises
        // its memory error when one of its own allocations is refused.
        if (status != LUA_OK && status != LUA_ERRMEM) {
            const char *message = lua_tostring(L, -1);
            CallFinding(entry.name, "error",
                        std::string("raised a script error: ") + (message ? message : "(not a string)"));
        }

        // Keep the results for the next call; remember directory streams.
        int results = lua_gettop(L) - base;
        lua_createtable(L, results, 0);
        for (int i = 1; i <= results; ++i) {
            lua_pushvalue(L, base + i);
            if (static_cast<int>(position) == g_openDir && lua_type(L, -1) == LUA_TLIGHTUSERDATA)
                KeepStream(lua_touserdata(L, -1));
            lua_rawseti(L, -2, i);
        }
        lua_replace(L, earlier);
        lua_settop(L, earlier);
    }
    lua_settop(L, 0);
    if (!shared) lua_close(L);
    zakhost::log_clear();
}

} // namespace qavfuzz

// What the runner adds around each script state: line coverage, and for sweep runs the cut
// points of power-cut sweeps, the counting window of fault sweeps and the run's record of how it
// ended. Without --coverage and without a sweep's instructions nothing here touches a state.
#include "script_hooks.h"

#include <dlfcn.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <unordered_map>

extern "C" {
#include <lauxlib.h>
#include <lualib.h>
}

#include "host.h"
#include "sweep.h"

namespace qavlua {
namespace {

// ---- Coverage --------------------------------------------------------------------------------

struct SourceLines {
    bool counted = false; // a script's file, not an interpreter library or a string chunk
    std::string name;
    LineHits hits;
};

struct StateCoverage {
    std::unordered_map<std::string, SourceLines> sources; // by the chunk's source ("@file")
    SourceLines *last = nullptr;
    std::string lastSource;
};

std::mutex g_coverageLock;
std::string g_coverageFile;
bool g_coverageUsed = false;
Coverage g_coverage;
std::vector<StateCoverage *> g_running; // states whose script has not ended
thread_local StateCoverage *t_coverage = nullptr;

// The interpreter's own modules and tools (busted, luassert, ...) are not the scripts under test.
bool system_file(const std::string &path) {
    for (const char *prefix : {"/usr/share/lua/", "/usr/local/share/lua/", "/usr/lib/", "/usr/bin/"})
        if (path.rfind(prefix, 0) == 0) return true;
    return false;
}

int append_dump(lua_State *, const void *bytes, size_t size, void *out) {
    static_cast<std::string *>(out)->append(static_cast<const char *>(bytes), size);
    return 0;
}

// Every line holding code in the chunk, so that lines never reached are reported with 0 hits.
// A file's first line event comes from its main chunk, which holds all its functions.
void list_lines(lua_State *state, lua_Debug *ar, SourceLines &source) {
    if (lua_getinfo(state, "f", ar) == 0) return;
    std::optional<std::set<int>> lines;
    if (std::strcmp(ar->what, "main") == 0 && lua_type(state, -1) == LUA_TFUNCTION) {
        std::string dump;
#if LUA_VERSION_NUM >= 503
        lua_dump(state, append_dump, &dump, 0);
#else
        lua_dump(state, append_dump, &dump);
#endif
        lines = chunk_lines(dump);
    }
    lua_pop(state, 1);
    if (!lines) {
        // Only this function's own lines are known.
        if (lua_getinfo(state, "L", ar) == 0) return;
        lines.emplace();
        lua_pushnil(state);
        while (lua_next(state, -2) != 0) {
            if (lua_type(state, -2) == LUA_TNUMBER) lines->insert(static_cast<int>(lua_tointeger(state, -2)));
            lua_pop(state, 1);
        }
        lua_pop(state, 1);
    }
    for (int line : *lines)
        source.hits.emplace(line, 0);
}

void line_hook(lua_State *state, lua_Debug *ar) {
    StateCoverage *coverage = t_coverage;
    if (coverage == nullptr || ar->event != LUA_HOOKLINE || lua_getinfo(state, "S", ar) == 0) return;
    SourceLines *source = coverage->last;
    if (source == nullptr || coverage->lastSource != ar->source) {
        auto [it, fresh] = coverage->sources.try_emplace(ar->source);
        source = &it->second;
        if (fresh && ar->source[0] == '@') {
            source->name = ar->source + 1;
            if (source->name[0] != '/') {
                char cwd[PATH_MAX];
                if (getcwd(cwd, sizeof cwd) != nullptr) source->name = std::string(cwd) + "/" + source->name;
            }
            source->counted = !system_file(source->name);
            if (source->counted) list_lines(state, ar, *source);
        }
        coverage->last = source;
        coverage->lastSource = ar->source;
    }
    if (source->counted) ++source->hits[ar->currentline];
}

// Adds a state's counts to the process's; the caller holds g_coverageLock.
void merge_state(StateCoverage *coverage) {
    for (auto &[raw, source] : coverage->sources) {
        if (!source.counted) continue;
        LineHits &into = g_coverage[source.name];
        for (const auto &[line, hits] : source.hits)
            into[line] += hits;
    }
}

// ---- Cut points ---------------------------------------------------------------------------------

// A string argument without the sandbox's root in front, so that labels read alike in every copy.
std::string describe(lua_State *state, int index) {
    if (lua_type(state, index) == LUA_TNUMBER) return lua_tostring(state, index);
    if (lua_type(state, index) != LUA_TSTRING) return luaL_typename(state, index);
    std::string text = lua_tostring(state, index);
    std::string root = zakhost::root();
    if (!root.empty() && text.rfind(root + "/", 0) == 0) text.erase(0, root.size());
    if (text.size() > 48) text = text.substr(0, 45) + "...";
    std::string shown = "\"";
    for (char c : text)
        shown +=
            c == '\n' ? std::string("\\n") : std::string(1, static_cast<unsigned char>(c) < 0x20 ? '?' : c);
    return shown + "\"";
}

std::string caller(lua_State *state) {
    lua_Debug ar;
    if (lua_getstack(state, 1, &ar) == 0 || lua_getinfo(state, "Sl", &ar) == 0 || ar.currentline <= 0)
        return "?";
    const char *slash = std::strrchr(ar.short_src, '/');
    return std::string(slash != nullptr ? slash + 1 : ar.short_src) + ":" + std::to_string(ar.currentline);
}

// Upvalues: the wrapped function, its name, and whether it is a library call (whose file-engine
// steps are cut points of their own).
int cut_wrapper(lua_State *state) {
    const char *name = lua_tostring(state, lua_upvalueindex(2));
    bool library = lua_toboolean(state, lua_upvalueindex(3)) != 0;
    int count = lua_gettop(state);
    std::string label = name;
    label += "(";
    for (int i = 1, shown = 0; i <= count && shown < 2; ++i) {
        if (lua_type(state, i) == LUA_TUSERDATA) continue; // the file of a method call
        label += (shown++ > 0 ? ", " : "") + describe(state, i);
    }
    label += ") at " + caller(state);
    zakhost::cut_point("before " + label);
    if (library) zakhost::cut_context(label);
    lua_pushvalue(state, lua_upvalueindex(1));
    lua_insert(state, 1);
    int status = lua_pcall(state, count, LUA_MULTRET, 0);
    if (library) zakhost::cut_context("");
    if (status != LUA_OK) return lua_error(state);
    return lua_gettop(state);
}

// Wraps the named functions of the table on top of the stack (all functions when `names` is
// empty); each wrapper is called by `prefix` + name in labels.
void wrap(lua_State *state, const char *prefix, std::initializer_list<const char *> names, bool library) {
    std::vector<std::string> keys;
    if (names.size() == 0) {
        lua_pushnil(state);
        while (lua_next(state, -2) != 0) {
            if (lua_type(state, -2) == LUA_TSTRING && lua_type(state, -1) == LUA_TFUNCTION)
                keys.emplace_back(lua_tostring(state, -2));
            lua_pop(state, 1);
        }
    } else {
        keys.assign(names.begin(), names.end());
    }
    for (const std::string &key : keys) {
        lua_getfield(state, -1, key.c_str());
        if (lua_type(state, -1) != LUA_TFUNCTION) {
            lua_pop(state, 1);
            continue;
        }
        lua_pushstring(state, (prefix + key).c_str());
        lua_pushboolean(state, library ? 1 : 0);
        lua_pushcclosure(state, cut_wrapper, 3);
        lua_setfield(state, -2, key.c_str());
    }
}

void wrap_for_cuts(lua_State *state) {
    lua_getglobal(state, "libqavluacommon");
    if (lua_istable(state, -1)) wrap(state, "", {}, true);
    lua_pop(state, 1);
    lua_getglobal(state, "io");
    if (lua_istable(state, -1)) wrap(state, "io.", {"open", "close", "write", "output", "popen"}, false);
    lua_pop(state, 1);
    lua_getglobal(state, "os");
    if (lua_istable(state, -1)) wrap(state, "os.", {"remove", "rename", "execute", "tmpname"}, false);
    lua_pop(state, 1);
    // The methods of open files (their metatable's __index: itself before 5.4).
    luaL_getmetatable(state, LUA_FILEHANDLE);
    if (lua_istable(state, -1)) {
        lua_getfield(state, -1, "__index");
        if (lua_istable(state, -1)) wrap(state, "file:", {"write", "close", "flush"}, false);
        lua_pop(state, 1);
    }
    lua_pop(state, 1);
}

// ---- How the run ended -------------------------------------------------------------------------

// The exported lock tables: symbol, and where the holder count of the table's lock record lies
// (every offset comes before the first pointer of the table, so it is the same on 32-bit
// targets). The record's count is 0 when free, 1 when held.
struct LockWord {
    const char *name;
    const char *symbol;
    size_t offset;
};
constexpr LockWord kNamedLocks[] = {
    {"patch lock", "g_stPatchLockTable", 4},
    {"download lock", "g_stDownLoadLockTable", 0},
    {"NV patch lock", "g_stNvPatchLockTable", 0},
    {"patch-debug lock", "g_stPatchDbgLockTable", 0},
    {"collect-log lock", "g_stCollectLogLockTable", 0},
    {"CRL lock", "g_stCrlLockTable", 4},
    {"patch error table lock", "g_stPatchErrTable", 8},
    {"flash sync table lock", "g_stFlhSyncTable", 0},
    {"load-patch table lock", "g_stLoadPatchTable", 4},
    {"NTP unicast table lock", "g_stNTPUCastTable", 0},
    {"TPM report table lock", "g_stTpmReportTable", 12},
    {"TPM status table lock", "g_stTpmStatusTable", 12},
};

std::vector<std::string> held_locks() {
    std::vector<std::string> held;
    for (const LockWord &lock : kNamedLocks) {
        auto *table = static_cast<const char *>(dlsym(RTLD_DEFAULT, lock.symbol));
        if (table == nullptr) continue;
        int32_t count =
            __atomic_load_n(reinterpret_cast<const int32_t *>(table + lock.offset), __ATOMIC_RELAXED);
        if (count > 0) held.emplace_back(lock.name);
    }
    // The upgrade lock's first word is its state: 0 idle, 1 write-locked, 2 read-locked.
    if (auto *upgrade = static_cast<const uint32_t *>(dlsym(RTLD_DEFAULT, "g_stUpgradeLock"))) {
        uint32_t state = __atomic_load_n(upgrade, __ATOMIC_RELAXED);
        if (state == 1) held.emplace_back("upgrade lock (write)");
        if (state == 2) held.emplace_back("upgrade lock (read)");
    }
    return held;
}

bool g_recording = false;
std::once_flag g_setup;
int g_open = 0; // scripts begun and not ended

std::string escaped(const std::string &text) {
    std::string out;
    for (char c : text) {
        if (c == '\\')
            out += "\\\\";
        else if (c == '\n')
            out += "\\n";
        else
            out += c;
    }
    return out;
}

void record_end(const std::string &how) {
    zakhost::sweep_record("end " + how);
    for (const std::string &lock : held_locks())
        zakhost::sweep_record("lock " + lock);
}

// At process exit: a script that called os.exit never reached script_end.
void finish() {
    std::lock_guard lock(g_coverageLock);
    if (g_open > 0) {
        zakhost::sweep_arm(false);
        if (g_recording) record_end("exit");
        g_open = 0;
    }
    // States still running (os.exit from one of several) are counted as far as they got; they
    // stay allocated, as another thread may still be in its line hook.
    for (StateCoverage *coverage : g_running)
        merge_state(coverage);
    if (g_coverageUsed && !g_coverageFile.empty() && !lcov_write(g_coverageFile, g_coverage))
        std::fprintf(stderr, "qavlua: cannot write the coverage file %s\n", g_coverageFile.c_str());
}

void setup() {
    g_recording = std::getenv("ZAKHOST_RECORD") != nullptr;
    const char *device = std::getenv("ZAKHOST_COVERAGE");
    std::lock_guard lock(g_coverageLock);
    if (device != nullptr && *device != '\0' && g_coverageFile.empty())
        g_coverageFile = zakhost::in_root(device);
    if (g_recording || !g_coverageFile.empty()) std::atexit(finish);
}

} // namespace

void coverage_to(const std::string &file) {
    std::lock_guard lock(g_coverageLock);
    g_coverageFile = file;
}

void script_begin(lua_State *state) {
    std::call_once(g_setup, setup);
    {
        std::lock_guard lock(g_coverageLock);
        ++g_open;
        if (!g_coverageFile.empty()) {
            g_coverageUsed = true;
            t_coverage = new StateCoverage;
            g_running.push_back(t_coverage);
            lua_sethook(state, line_hook, LUA_MASKLINE, 0);
        }
    }
    if (zakhost::cut_plan_set()) wrap_for_cuts(state);
    zakhost::sweep_arm(true);
}

void script_end(lua_State *state, int status) {
    zakhost::sweep_arm(false);
    std::lock_guard lock(g_coverageLock);
    if (g_open > 0) --g_open;
    if (g_recording) {
        const char *message = status == LUA_OK ? nullptr : lua_tostring(state, -1);
        record_end(status == LUA_OK
                       ? "ok"
                       : "error " + escaped(message != nullptr ? message : "(error object is not a string)"));
    }
    if (t_coverage != nullptr) {
        lua_sethook(state, nullptr, 0, 0);
        merge_state(t_coverage);
        g_running.erase(std::find(g_running.begin(), g_running.end(), t_coverage));
        delete t_coverage;
        t_coverage = nullptr;
    }
}

} // namespace qavlua

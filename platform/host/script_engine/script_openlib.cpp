// Script_OpenLib: registers a library's entry functions in a module table. Every entry is reached
// through a guard that keeps the interpreter safe from result counts it cannot honour. With
// ZAKHOST_TRACE=1 when a state opens the library, its entries go through a tracer instead, which
// also prints every call with its arguments and results (secrets shown as <secret>).
//
// The common path is as short as the interpreter allows: each (name, entry function) pair gets a
// plain C function of its own from a fixed set, which knows its entry by its position in a
// host table. The module's values are then light C functions: opening a state allocates no
// closure, and a call reads no upvalue. Pairs beyond the fixed set, and traced entries, are C
// closures with one upvalue (the pair's record).
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "host.h"
#include "platform_logs.h"
#include "script_engine.h"

namespace {

constexpr uint32_t At(std::initializer_list<int> positions) {
    uint32_t mask = 0;
    for (int position : positions)
        mask |= 1u << (position - 1);
    return mask;
}

// Script functions whose arguments or results are secrets: passwords, keys, IVs, plain and cipher
// texts. The mask names the secret argument positions; every text result of these functions is a
// secret too (plain and cipher texts, digests, hashes, random bytes). Kept by script name: the
// host does not see the library's headers.
const struct {
    const char *name;
    uint32_t arguments;
} kSecrets[] = {
    {"qav_DecryptPassword_Enh", At({1})},
    {"qav_DecryptPassword_EnhExp", At({1})},
    {"qav_CRYPT_Decrypt", At({1})},
    {"qav_CRYPT_Decrypt_Enhance", At({1, 5})},
    {"qav_EncryptPassword_EnhExp", At({1})},
    {"qav_CRYPT_Encrypt", At({1})},
    {"qav_CRYPT_Encrypt_Enhance", At({1, 5})},
    {"qav_CRYPT_Encrypt_Enhance_IV", At({1, 5, 6})},
    {"qav_CRYPT_IsCipher", At({1})},
    {"qav_CRYPT_IsPlainTextSame", At({1, 4})},
    {"qav_CRYPT_IsPlainTextSame_Enhance", At({1, 4, 5, 8})},
    {"qav_Crypt_Digest", At({1})},
    {"qav_SHA_Digest", At({1})},
    {"qav_VerifySystemPassword", At({1, 2})},
    {"qav_generate_randnum", 0},
    {"qav_CRYPT_Decrypt_Ext", At({2, 4, 6})},
    {"qav_MK_CheckHashHit", At({1})},
    {"qav_MK_CheckInputMkIsRight", At({1})},
    {"qav_MK_VerifySystemPassword", At({1, 2, 3})},
    {"qav_MK_InputKeyIsSecurity", At({1})},
    {"qav_MK_GetMKHashValue", 0},
    {"qav_VerifyAndSetGuestOSKey", At({2, 3})},
};

// One registered (name, entry function) pair. Records live as long as the process: the module
// tables of every state reach them.
struct Entry {
    lua_CFunction function;
    std::string name;
    bool secret = false;
    uint32_t secretArguments = 0;
    lua_CFunction direct = nullptr; // its own plain C function, when one was left
};

constexpr size_t kDirect = 512;
// The record behind each plain C function; written once, under the registrations' lock, before
// any state can reach that function.
std::array<const Entry *, kDirect> g_direct{};

[[gnu::cold, gnu::noinline]] int clamped(int count, int height, const Entry &entry) {
    QAV_syslog("result count %d of %s clamped to the stack height %d", count, entry.name.c_str(), height);
    return height;
}

// One more than the stack holds reads the called function's own slot, which the interpreter
// allows; anything beyond would read outside this call's frame.
inline int guarded(lua_State *state, const Entry &entry) {
    int count = entry.function(state);
    int height = lua_gettop(state);
    if (static_cast<unsigned>(count) <= static_cast<unsigned>(height) + 1u) return count;
    return clamped(count, height, entry);
}

template <size_t I> int direct(lua_State *state) {
    return guarded(state, *g_direct[I]);
}

template <size_t... I>
constexpr std::array<lua_CFunction, sizeof...(I)> DirectSet(std::index_sequence<I...>) {
    return {direct<I>...};
}
constexpr std::array<lua_CFunction, kDirect> kDirectFunctions =
    DirectSet(std::make_index_sequence<kDirect>{});

const Entry &upvalue_entry(lua_State *state) {
    return *static_cast<const Entry *>(lua_touserdata(state, lua_upvalueindex(1)));
}

int through_upvalue(lua_State *state) {
    return guarded(state, upvalue_entry(state));
}

std::string describe(lua_State *state, int index) {
    switch (lua_type(state, index)) {
    case LUA_TNIL:
        return "nil";
    case LUA_TBOOLEAN:
        return lua_toboolean(state, index) ? "true" : "false";
    case LUA_TNUMBER: {
        lua_pushvalue(state, index);
        std::string text = lua_tostring(state, -1);
        lua_pop(state, 1);
        return text;
    }
    case LUA_TSTRING: {
        size_t len = 0;
        const char *text = lua_tolstring(state, index, &len);
        std::string quoted = "\"";
        for (size_t i = 0; i < len && i < 80; ++i) {
            unsigned char c = static_cast<unsigned char>(text[i]);
            if (c >= 0x20 && c < 0x7F && c != '"' && c != '\\') {
                quoted += static_cast<char>(c);
            } else {
                char esc[8];
                std::snprintf(esc, sizeof esc, "\\x%02X", c);
                quoted += esc;
            }
        }
        return quoted + (len > 80 ? "...\"" : "\"");
    }
    default:
        return lua_typename(state, lua_type(state, index));
    }
}

// Stack values from..to as the trace shows them. A value at a secret argument position is hidden;
// after the call (`results`) so is every text of a function with secrets, which covers values the
// entry converted in place and results pushed anywhere on the stack.
std::string describe_range(lua_State *state, int from, int to, const Entry &entry, int arguments,
                           bool results) {
    std::string out;
    for (int i = from; i <= to; ++i) {
        bool hidden = entry.secret && !lua_isnil(state, i) &&
                      ((i <= arguments && i <= 32 && (entry.secretArguments >> (i - 1) & 1u) != 0) ||
                       (results && lua_type(state, i) == LUA_TSTRING));
        out += (i > from ? ", " : "") + (hidden ? std::string("<secret>") : describe(state, i));
    }
    return out;
}

int traced(lua_State *state) {
    const Entry &entry = upvalue_entry(state);
    int arguments = lua_gettop(state);
    std::string args = describe_range(state, 1, arguments, entry, arguments, false);
    int count = guarded(state, entry);
    int height = lua_gettop(state);
    std::string results = count <= height
                              ? describe_range(state, height - count + 1, height, entry, arguments, true)
                              : "<function>" + std::string(height ? ", " : "") +
                                    describe_range(state, 1, height, entry, arguments, true);
    std::fprintf(stderr, "[trace] %s(%s) -> %s\n", entry.name.c_str(), args.c_str(), results.c_str());
    return count;
}

bool tracing() {
    const char *env = std::getenv("ZAKHOST_TRACE");
    return env != nullptr && *env != '\0' && *env != '0';
}

// Every pair registered in this process, found by its entry function.
class Registrations {
  public:
    // The records of a registry, in its order. Every script state opens the same registry, so
    // each entry is first compared with the record at its position last time.
    void resolve(const SCRIPT_REG_ENTRY *registry, std::vector<const Entry *> &out) {
        std::lock_guard guard(lock_);
        out.clear();
        for (const SCRIPT_REG_ENTRY *entry = registry; entry->name != nullptr; ++entry) {
            if (entry->func == nullptr) continue;
            size_t at = out.size();
            bool same = at < last_.size() && last_[at]->function == entry->func &&
                        std::strcmp(last_[at]->name.c_str(), entry->name) == 0;
            out.push_back(same ? last_[at] : &find(entry->func, entry->name));
        }
        last_ = out;
    }

  private:
    const Entry &find(lua_CFunction function, const char *name) {
        std::vector<Entry *> &same = byFunction_[function];
        for (Entry *entry : same)
            if (entry->name == name) return *entry;
        auto &entry = *entries_.emplace_back(std::make_unique<Entry>(Entry{function, name}));
        for (const auto &secret : kSecrets) {
            if (entry.name != secret.name) continue;
            entry.secret = true;
            entry.secretArguments = secret.arguments;
        }
        if (entries_.size() <= kDirect) {
            g_direct[entries_.size() - 1] = &entry;
            entry.direct = kDirectFunctions[entries_.size() - 1];
        }
        same.push_back(&entry);
        return entry;
    }

    std::mutex lock_;
    std::vector<std::unique_ptr<Entry>> entries_;
    std::unordered_map<lua_CFunction, std::vector<Entry *>> byFunction_;
    std::vector<const Entry *> last_;
};

Registrations &registrations() {
    static auto *all = new Registrations();
    return *all;
}

} // namespace

namespace zakhost {

lua_CFunction entry_function(lua_State *state, int index) {
    lua_CFunction value = lua_tocfunction(state, index);
    if (value == nullptr) return nullptr;
    if (value == through_upvalue || value == traced) {
        if (lua_getupvalue(state, index, 1) == nullptr) return nullptr;
        lua_CFunction function = static_cast<const Entry *>(lua_touserdata(state, -1))->function;
        lua_pop(state, 1);
        return function;
    }
    for (size_t i = 0; i < kDirect; ++i)
        if (kDirectFunctions[i] == value) return g_direct[i] != nullptr ? g_direct[i]->function : nullptr;
    return nullptr;
}

} // namespace zakhost

extern "C" int32_t Script_OpenLib(lua_State *state, const char *moduleName,
                                  const SCRIPT_REG_ENTRY *registry) {
    if (state == nullptr || moduleName == nullptr || registry == nullptr) return 1;
    int entries = 0;
    for (const SCRIPT_REG_ENTRY *entry = registry; entry->name != nullptr; ++entry)
        ++entries;
    bool trace = tracing();
    // The records are found first, under the lock, and pushed after it: a push may raise an
    // out-of-memory error, which must not leave the lock held.
    thread_local std::vector<const Entry *> found;
    registrations().resolve(registry, found);
    lua_createtable(state, 0, entries);
    for (const Entry *entry : found) {
        // The name is made once and is the key; the function needs no copy of it.
        lua_pushlstring(state, entry->name.data(), entry->name.size());
        if (entry->direct != nullptr && !trace) {
            lua_pushcfunction(state, entry->direct);
        } else {
            lua_pushlightuserdata(state, const_cast<Entry *>(entry));
            lua_pushcclosure(state, trace ? traced : through_upvalue, 1);
        }
        lua_rawset(state, -3);
    }
    // package.loaded[moduleName] = module; _G[moduleName] = module
    lua_getglobal(state, "package");
    if (lua_istable(state, -1)) {
        lua_getfield(state, -1, "loaded");
        if (lua_istable(state, -1)) {
            lua_pushvalue(state, -3);
            lua_setfield(state, -2, moduleName);
        }
        lua_pop(state, 1);
    }
    lua_pop(state, 1);
    lua_pushvalue(state, -1);
    lua_setglobal(state, moduleName);
    return 0;
}

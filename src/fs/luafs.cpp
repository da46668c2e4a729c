// Script functions over the file engine (remove, copy, move, make directory, all in the
// placeholder-slot form) and plain directory listing.
#include <dirent.h>
#include <sys/stat.h>

#include <cstring>
#include <mutex>
#include <new>
#include <string>
#include <unordered_set>

#include "binding/script_frame.h"
#include "fs/vfm.h"
#include "loc.h"

namespace {

constexpr int32_t kWrongCount = -2;
constexpr int32_t kNotString = -3;
constexpr int32_t kFirstCopyFailed = -4;
constexpr int32_t kSecondCopyFailed = -5;
constexpr int32_t kModeOutOfRange = -5;
// Permissions are written as the octal digits read as a decimal number, so 777 is the largest.
constexpr int32_t kLargestPermission = 777;

// Path copies the engine may change in place; freed when the call ends.
struct PathCopy {
    char *text = nullptr;
    PathCopy() = default;
    PathCopy(const PathCopy &) = delete;
    PathCopy &operator=(const PathCopy &) = delete;
    ~PathCopy() {
        if (text != nullptr) vfm_free(text);
    }
    bool From(const char *source) {
        text = vfm_strdup(source);
        return text != nullptr;
    }
};

bool IsDotOrDotDot(const char *name) {
    return std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0;
}

} // namespace

QAV_ENTRY_FUNCTION l_fs_rm(lua_State *state) {
    qav::PlaceholderSlot slot(state);
    if (slot.ArgCount() != 2) return slot.Finish(kWrongCount);
    const char *path = luaL_checkstring(state, 1);
    if (path == nullptr) return slot.Finish(kNotString);
    PathCopy copy;
    if (!copy.From(path)) return slot.Finish(kFirstCopyFailed);
    auto flags = static_cast<uint32_t>(SYSDT_SPTI_ToInt(state, 2));
    if (IsDotOrDotDot(vfm_get_last_dir(copy.text))) {
        // Refused, yet reported to the script as done: scripts clean up with "dir/.." patterns.
        vfm_record_errmsg("can't remove '.' or '..'");
        return slot.Finish(0);
    }
    return slot.Finish(vfm_remove_file(copy.text, flags));
}

QAV_ENTRY_FUNCTION l_fs_cp(lua_State *state) {
    qav::PlaceholderSlot slot(state);
    if (slot.ArgCount() != 3) return slot.Finish(kWrongCount);
    const char *source = luaL_checkstring(state, 1);
    const char *destination = luaL_checkstring(state, 2);
    if (source == nullptr || destination == nullptr) return slot.Finish(kNotString);
    PathCopy sourceCopy;
    if (!sourceCopy.From(source)) return slot.Finish(kFirstCopyFailed);
    PathCopy destinationCopy;
    if (!destinationCopy.From(destination)) return slot.Finish(kSecondCopyFailed);
    auto flags = static_cast<uint32_t>(SYSDT_SPTI_ToInt(state, 3));
    return slot.Finish(vfm_copy(sourceCopy.text, destinationCopy.text, flags));
}

// The move counts its codes from -2 where the copy counts from -3; scripts test these values.
QAV_ENTRY_FUNCTION l_fs_mv(lua_State *state) {
    qav::PlaceholderSlot slot(state);
    if (slot.ArgCount() != 3) return slot.Finish(kWrongCount);
    const char *source = luaL_checkstring(state, 1);
    const char *destination = luaL_checkstring(state, 2);
    if (source == nullptr || destination == nullptr) return slot.Finish(kWrongCount);
    PathCopy sourceCopy;
    if (!sourceCopy.From(source)) return slot.Finish(kNotString);
    PathCopy destinationCopy;
    if (!destinationCopy.From(destination)) return slot.Finish(kFirstCopyFailed);
    auto flags = static_cast<uint32_t>(SYSDT_SPTI_ToInt(state, 3));
    return slot.Finish(vfm_move(sourceCopy.text, destinationCopy.text, flags));
}

QAV_ENTRY_FUNCTION l_fs_mkdir(lua_State *state) {
    qav::PlaceholderSlot slot(state);
    if (slot.ArgCount() != 3) return slot.Finish(kWrongCount);
    const char *path = luaL_checkstring(state, 1);
    if (path == nullptr) return slot.Finish(kNotString);
    PathCopy copy;
    if (!copy.From(path)) return slot.Finish(kFirstCopyFailed);
    int32_t permission = SYSDT_SPTI_ToInt(state, 2);
    // Negative values pass: -1 asks for no permission change.
    if (permission > kLargestPermission) return slot.Finish(kModeOutOfRange);
    auto flags = static_cast<uint32_t>(SYSDT_SPTI_ToInt(state, 3));
    return slot.Finish(vfm_make_directory(copy.text, static_cast<uint32_t>(permission), flags));
}

// The directory streams handed out by "luafs_opendir" and not yet closed, shared by every script
// state of the process. A handle not in the set (closed, never opened, any other value) is
// answered as the null handle is, so a script mistake is a result code rather than a use of freed
// memory. The lock is held across readdir and closedir so that no stream is read while it closes.
namespace {
class DirectoryStreams {
  public:
    static DirectoryStreams &Get() {
        static auto *streams = new DirectoryStreams; // outlives threads still running at exit
        return *streams;
    }
    // False when the stream could not be recorded; the caller closes it.
    bool Add(DIR *directory) {
        std::lock_guard lock(mutex_);
        try {
            open_.insert(directory);
            return true;
        } catch (const std::bad_alloc &) {
            return false;
        }
    }
    // The next entry's name, or false at the end or for a handle not handed out.
    bool Read(DIR *directory, std::string *name) {
        std::lock_guard lock(mutex_);
        if (open_.count(directory) == 0) return false;
        dirent *entry = readdir(directory);
        if (entry == nullptr) return false;
        try {
            name->assign(entry->d_name);
            return true;
        } catch (const std::bad_alloc &) {
            return false;
        }
    }
    // The result of closedir, or 0 for a handle not handed out.
    int Close(DIR *directory) {
        std::lock_guard lock(mutex_);
        if (open_.erase(directory) == 0) return 0;
        return closedir(directory);
    }

  private:
    std::mutex mutex_;
    std::unordered_set<DIR *> open_;
};
} // namespace

QAV_ENTRY_FUNCTION l_open_dir(lua_State *state) {
    const char *path = SYSDT_SPTI_ToString(state, 1);
    DIR *directory = path != nullptr ? opendir(path) : nullptr;
    if (directory != nullptr && !DirectoryStreams::Get().Add(directory)) {
        (void)closedir(directory);
        directory = nullptr;
    }
    if (directory == nullptr) RPM_LogToFile(qav::kUpgradeLogId, qav::kLogFailure, "opendir's return null!");
    lua_pushlightuserdata(state, directory);
    return 1;
}

// Only a light user data can be a directory stream; anything else reads as no handle.
static DIR *DirectoryArg(lua_State *state) {
    if (lua_type(state, 1) != LUA_TLIGHTUSERDATA) return nullptr;
    return static_cast<DIR *>(lua_touserdata(state, 1));
}

QAV_ENTRY_FUNCTION l_read_dir(lua_State *state) {
    DIR *directory = DirectoryArg(state);
    std::string name;
    if (directory == nullptr || !DirectoryStreams::Get().Read(directory, &name))
        return qav::ReturnInt(state, -1);
    SYSDT_SPTI_PushInt(state, 0);
    SYSDT_SPTI_PushString(state, name.c_str(), static_cast<uint32_t>(name.size() + 1));
    return 2;
}

QAV_ENTRY_FUNCTION l_close_dir(lua_State *state) {
    DIR *directory = DirectoryArg(state);
    return qav::ReturnInt(state, directory == nullptr ? 0 : DirectoryStreams::Get().Close(directory));
}

QAV_ENTRY_FUNCTION l_is_dir(lua_State *state) {
    const char *path = SYSDT_SPTI_ToString(state, 1);
    struct stat record {};
    bool isDirectory = path != nullptr && stat(path, &record) == 0 && S_ISDIR(record.st_mode);
    SYSDT_SPTI_PushBool(state, isDirectory ? 1 : 0);
    return 1;
}

QAV_ENTRY_FUNCTION l_get_osNodeId(lua_State *state) {
    return qav::ReturnInt(state, static_cast<int32_t>(LOC_GetNodeId()));
}

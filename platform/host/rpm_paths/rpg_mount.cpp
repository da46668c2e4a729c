// RPG images: a tar archive holding rpg.rinfo and the image's files. Mounting unpacks the
// archive into the mount point; unmounting removes what was unpacked. The host keeps the set
// of mounted directories of this process.
#include <dirent.h>
#include <sys/stat.h>

#include <fstream>
#include <mutex>
#include <set>
#include <string>

#include "host.h"
#include "rpm_paths.h"

namespace {

std::mutex g_mountLock;
std::set<std::string> &mounted() {
    static std::set<std::string> table;
    return table;
}

std::string key_of(const char *dir) {
    std::string text = dir;
    while (text.size() > 1 && text.back() == '/')
        text.pop_back();
    return text;
}

bool empty_directory(const std::string &dir) {
    DIR *d = opendir(dir.c_str());
    if (d == nullptr) return false;
    bool ok = true;
    while (struct dirent *entry = readdir(d)) {
        std::string name = entry->d_name;
        if (name == "." || name == "..") continue;
        if (!zakhost::remove_tree(dir + "/" + name)) ok = false;
    }
    closedir(d);
    return ok;
}

// rpg.rinfo: "key=value" lines; RpgName, RpgVersion and RpgType fill the record in that order.
bool read_rinfo(const char *file, RPM_RPG_INFO *info) {
    std::ifstream in(file);
    if (!in) return false;
    std::string values[3];
    bool seen[3] = {false, false, false};
    const char *keys[3] = {"RpgName", "RpgVersion", "RpgType"};
    std::string line;
    while (std::getline(in, line)) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        size_t eq = line.find('=');
        if (eq == std::string::npos) continue;
        for (int i = 0; i < 3; ++i) {
            if (line.compare(0, eq, keys[i]) == 0 && eq == std::string(keys[i]).size()) {
                values[i] = line.substr(eq + 1);
                seen[i] = true;
            }
        }
    }
    if (!seen[0] || !seen[1] || !seen[2]) return false;
    return zakhost::copy_out(values[0], info->szRpgName, sizeof(info->szRpgName)) &&
           zakhost::copy_out(values[1], info->szRpgVersion, sizeof(info->szRpgVersion)) &&
           zakhost::copy_out(values[2], info->szRpgType, sizeof(info->szRpgType));
}

int lua_mounts(lua_State *state) {
    std::lock_guard<std::mutex> guard(g_mountLock);
    lua_createtable(state, static_cast<int>(mounted().size()), 0);
    int i = 0;
    for (const auto &dir : mounted()) {
        lua_pushstring(state, dir.c_str());
        lua_rawseti(state, -2, ++i);
    }
    return 1;
}
const zakhost::ControlFunction kMounts{"mounts", &lua_mounts};

} // namespace

using zakhost::injected_code;

extern "C" {

uint32_t RPM_SU_GetRpgInfo_HOOK(const char *rinfoFile, RPM_RPG_INFO *info) {
    if (uint32_t code = 0; injected_code("RPM_SU_GetRpgInfo_HOOK", &code)) return code;
    if (rinfoFile == nullptr || info == nullptr) return 1;
    return read_rinfo(rinfoFile, info) ? 0 : 2;
}

uint32_t RPM_SU_MountRpg_HOOK(const char *image, const char *mountPoint) {
    if (uint32_t code = 0; injected_code("RPM_SU_MountRpg_HOOK", &code)) return code;
    if (image == nullptr || mountPoint == nullptr || *mountPoint == '\0') return 1;
    struct stat st {};
    if (stat(image, &st) != 0 || !S_ISREG(st.st_mode)) return 2;
    std::string key = key_of(mountPoint);
    std::lock_guard<std::mutex> guard(g_mountLock);
    if (mounted().count(key) != 0) return 3;
    if (!zakhost::make_dirs(key).empty()) return 4;
    const char *argv[] = {"tar", "-xf", image, "-C", key.c_str(), nullptr};
    if (zakhost::run_command(argv) != 0) {
        empty_directory(key);
        return 5;
    }
    mounted().insert(key);
    return 0;
}

uint32_t RPMFS_UnMount(const char *mountPoint) {
    if (uint32_t code = 0; injected_code("RPMFS_UnMount", &code)) return code;
    if (mountPoint == nullptr) return 1;
    std::string key = key_of(mountPoint);
    std::lock_guard<std::mutex> guard(g_mountLock);
    if (mounted().erase(key) == 0) return 2;
    return empty_directory(key) ? 0 : 3;
}

uint32_t RPM_IsDirMounted_HOOK(const char *dir) {
    if (uint32_t code = 0; injected_code("RPM_IsDirMounted_HOOK", &code)) return 0;
    if (dir == nullptr) return 0;
    std::lock_guard<std::mutex> guard(g_mountLock);
    return mounted().count(key_of(dir)) != 0 ? 1 : 0;
}

} // extern "C"

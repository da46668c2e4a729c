// ISSU operations: one script function dispatching on a command word to the package, NE type,
// product type, RPG image and key check item queries of the running or a named version.
#include <dirent.h>
#include <fnmatch.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

#include "binding/script_frame.h"
#include "frame_cmd.h"
#include "pkg/vercfg.h"
#include "rpm_ini.h"
#include "rpm_paths.h"
#include "rpm_vercfg.h"
#include "securec.h"

using namespace qav::vercfg;

namespace {

constexpr uint8_t kRegularFileType = 8;
constexpr const char *kDesFileEnv = "VNFC_DES_FILE_EVN";
constexpr const char *kRunningRinfo = "../pkg_pool/program/current/rpg.rinfo";
constexpr const char *kMountPoint = "pkg_pool/program/next";

bool MakeDirs(const char *path) {
    char partial[256] = {0};
    const size_t length = std::strlen(path);
    if (length == 0 || length >= sizeof(partial)) return false;
    for (size_t i = 1; i <= length; ++i) {
        if (i != length && path[i] != '/') continue;
        if (strncpy_s(partial, sizeof(partial), path, i) != EOK) return false;
        if (mkdir(partial, 0750) != 0 && errno != EEXIST) return false;
    }
    struct stat st {};
    return stat(path, &st) == 0 && S_ISDIR(st.st_mode);
}

bool DirExists(const char *path) {
    struct stat st {};
    return stat(path, &st) == 0 && S_ISDIR(st.st_mode);
}

// The running version's startup value from zakcfg.ini.
uint32_t ReadCurrentStartup(char *value, uint32_t size) {
    return RPM_GetProfileString(kZakcfgFile, kStartupSection, kCurrentKey, value, size);
}

// Resolves a startup value into its full path (384) and its base path field (128).
int32_t ResolveStartupValue(const char *value, char *fullPath, char *basePath) {
    if (RPMFS_CheckFileName(value) != 0) return -1;
    if (ZAK_InputPathCheck(value) != 0) {
        if (RPM_GetPktFullName(value, fullPath, 384) != 0) return -1;
        const char *home = std::strstr(fullPath, "home/");
        if (home == nullptr) return -1;
        (void)snprintf_truncated_s(basePath, 128, "%s", home + std::strlen("home/"));
        return 0;
    }
    if (std::strlen(value) < kDevicePrefixLength) return -1;
    (void)snprintf_truncated_s(basePath, 128, "%s", value + kDevicePrefixLength);
    return ZAK_ZakPathToLinuxPath(value, fullPath, 384) == 0 ? 0 : -1;
}

int PushFailure(lua_State *state) {
    return qav::ReturnUInt(state, qav::kFailed);
}

} // namespace

extern "C" {

// The package of a version: its file name, base path and full path.
struct QAV_ISSU_PKG_INFO {
    char szName[128];
    char szBasePath[128];
    char szFullPath[384];
};

typedef int (*QAV_ISSU_OPER_FUNC)(lua_State *state);
struct QAV_ISSU_OPER_PROC {
    uint32_t uiCmdWord;
    uint32_t uiArgNum;
    QAV_ISSU_OPER_FUNC pfnProc;
};
#if UINTPTR_MAX == 0xFFFFFFFF
// The exported table keeps the device's layout: three words a row.
static_assert(sizeof(QAV_ISSU_OPER_PROC) == 12);
#endif

int QAV_ProcIssuGetPkgInfo(lua_State *state);
int QAV_ProcIssuGetNEType(lua_State *state);
int QAV_ProcIssuGetProductType(lua_State *state);
int QAV_ProcIssuGetRpgInfo(lua_State *state);
int QAV_ProcIssuGetCheckItems(lua_State *state);

__attribute__((visibility("default"))) QAV_ISSU_OPER_PROC g_astIssuOperProcTbl[6] = {
    {1, 2, QAV_ProcIssuGetPkgInfo}, {2, 2, QAV_ProcIssuGetNEType},     {3, 2, QAV_ProcIssuGetProductType},
    {4, 2, QAV_ProcIssuGetRpgInfo}, {5, 2, QAV_ProcIssuGetCheckItems}, {6, 0, nullptr},
};

QAV_ISSU_OPER_FUNC QAV_GetIssuOperFuncByCmdWord(uint32_t cmdWord, uint32_t *argNum) {
    for (const QAV_ISSU_OPER_PROC &row : g_astIssuOperProcTbl) {
        if (row.uiCmdWord == cmdWord && row.pfnProc != nullptr) {
            if (argNum != nullptr) *argNum = row.uiArgNum;
            return row.pfnProc;
        }
    }
    return nullptr;
}

QAV_ENTRY_FUNCTION QAV_ProcIssuOper(lua_State *state) {
    int32_t argc = qav::ArgCount(state);
    if (argc == 0) return qav::ReturnUInt(state, qav::kBadArgument);
    uint32_t argNum = 0;
    QAV_ISSU_OPER_FUNC handler = QAV_GetIssuOperFuncByCmdWord(SYSDT_SPTI_ToUInt(state, 1), &argNum);
    if (handler == nullptr) return qav::ReturnUInt(state, kUnknownCommand);
    if (static_cast<int32_t>(argNum) != argc) return qav::ReturnUInt(state, qav::kBadArgument);
    return handler(state);
}

int32_t QAV_GetBasePathByVersion(const char *version, char *out, uint32_t size) {
    char relative[256] = {0};
    if (version == nullptr || out == nullptr ||
        snprintf_s(relative, sizeof(relative), sizeof(relative) - 1, "home/%s/base", version) < 0)
        return -1;
    if (RPM_GetFullPath(relative, out, size, RPM_PATH_COMMON) != 0) return -1;
    // Description files are joined to the base path directly, so it ends in a separator.
    return RPM_ChgPath2Standad(out, size) == 0 ? 0 : -1;
}

int32_t QAV_GetCurrVersionBasePath(const char *value, char *out, uint32_t size) {
    if (value == nullptr || out == nullptr || size < 2) return -1;
    char fullPath[384] = {0};
    char basePath[128] = {0};
    if (ResolveStartupValue(value, fullPath, basePath) != 0) return -1;
    char dir[256] = {0};
    if (QAV_SplitPathFileName(fullPath, dir, nullptr, 0) != 1 || dir[0] == '\0') return -1;
    if (strcpy_s(out, size, dir) != EOK) return -1;
    return RPM_ChgPath2Standad(out, size < 256 ? size : 256) == 0 ? 0 : -1;
}

int32_t QAV_GetPkgNameAndPath(const char *value, QAV_ISSU_PKG_INFO *info) {
    if (value == nullptr || info == nullptr) return -1;
    (void)memset_s(info, sizeof(*info), 0, sizeof(*info));
    char fullPath[384] = {0};
    if (ResolveStartupValue(value, fullPath, info->szBasePath) != 0) return -1;
    (void)QAV_SplitPathFileName(fullPath, nullptr, info->szName, sizeof(info->szName));
    (void)snprintf_truncated_s(info->szFullPath, sizeof(info->szFullPath), "%s", fullPath);
    return 0;
}

int32_t QAV_GetCurrPkgInfo(QAV_ISSU_PKG_INFO *info) {
    char value[256] = {0};
    uint32_t rc = ReadCurrentStartup(value, sizeof(value));
    if (rc != 0) return static_cast<int32_t>(rc);
    return QAV_GetPkgNameAndPath(value, info);
}

int32_t QAV_GetPkgInfoByVersion(const char *version, QAV_ISSU_PKG_INFO *info) {
    if (version == nullptr || info == nullptr) return -1;
    (void)memset_s(info, sizeof(*info), 0, sizeof(*info));
    char desFile[128] = {0};
    uint32_t flags = 0;
    if (RPM_GetCurrDesFile_HOOK(kDesFileEnv, desFile, sizeof(desFile), &flags) != 0) return -1;
    char basePath[256] = {0};
    if (QAV_GetBasePathByVersion(version, basePath, sizeof(basePath)) != 0) return -1;
    char xml[384] = {0};
    if (snprintf_s(xml, sizeof(xml), sizeof(xml) - 1, "%s%s", basePath, desFile) < 0 ||
        RPMFS_ProcIsFileExist(xml) == 0)
        return -1;
    uint32_t count = 0;
    if (RPM_ParseXmlDstTypeCodeFileNodeNum_HOOK(xml, kBaseSoftwareCode, &count) != 0 || count == 0) return -1;
    NodeArray nodes(count);
    if (nodes.get() == nullptr ||
        RPM_ParseXmlDstTypeCodeFileNodeInfo_HOOK(xml, kBaseSoftwareCode, nodes.get(), count) != 0)
        return -1;
    const char *name = nodes[0].szFileName;
    (void)snprintf_truncated_s(info->szName, sizeof(info->szName), "%s", name);
    (void)snprintf_truncated_s(info->szBasePath, sizeof(info->szBasePath), "%s/base/%s", version, name);
    (void)snprintf_truncated_s(info->szFullPath, sizeof(info->szFullPath), "%s%s", basePath, name);
    return 0;
}

int32_t QAV_SU_GetPkgInfoByVersion(const char *version, QAV_ISSU_PKG_INFO *info) {
    if (version == nullptr || info == nullptr) return -1;
    if (version[0] == '\0') return QAV_GetCurrPkgInfo(info) == 0 ? 0 : -1;
    return QAV_GetPkgInfoByVersion(version, info);
}

int QAV_ProcIssuGetPkgInfo(lua_State *state) {
    const char *version = SYSDT_SPTI_ToString(state, 2);
    QAV_ISSU_PKG_INFO info{};
    if (version == nullptr || QAV_SU_GetPkgInfoByVersion(version, &info) != 0) return PushFailure(state);
    SYSDT_SPTI_PushUInt(state, qav::kOk);
    SYSDT_SPTI_PushString(state, info.szName, sizeof(info.szName));
    SYSDT_SPTI_PushString(state, info.szBasePath, sizeof(info.szBasePath));
    SYSDT_SPTI_PushString(state, info.szFullPath, sizeof(info.szFullPath));
    return 4;
}

int32_t QAV_GetNETypeFromVercfg(const char *xml, char *out, uint32_t size) {
    return RPM_ParseXmlElementNodeValue_HOOK(xml, "NeType", out, size) == 0 ? 0 : -1;
}

int32_t QAV_GetProductTypeFromVercfg(const char *xml, char *out) {
    RPM_VNF_INFO vnf{};
    if (RPM_ParseXmlGetVnfInfo_HOOK(xml, &vnf) != 0) return -1;
    (void)snprintf_truncated_s(out, 64, "%s", vnf.szProductType);
    return 0;
}

// The description file of the version named at position 2 (empty: the running version).
static int32_t DescriptionFileOfArgument(lua_State *state, char *xml, uint32_t size) {
    const char *version = SYSDT_SPTI_ToString(state, 2);
    if (version == nullptr) return -1;
    char desFile[128] = {0};
    uint32_t flags = 0;
    if (RPM_GetCurrDesFile_HOOK(kDesFileEnv, desFile, sizeof(desFile), &flags) != 0) return -1;
    char basePath[256] = {0};
    if (version[0] == '\0') {
        char value[256] = {0};
        if (ReadCurrentStartup(value, sizeof(value)) != 0 ||
            QAV_GetCurrVersionBasePath(value, basePath, sizeof(basePath)) != 0)
            return -1;
    } else if (QAV_GetBasePathByVersion(version, basePath, sizeof(basePath)) != 0) {
        return -1;
    }
    return snprintf_s(xml, size, size - 1, "%s%s", basePath, desFile) >= 0 ? 0 : -1;
}

int QAV_ProcIssuGetNEType(lua_State *state) {
    char xml[384] = {0};
    char neType[64] = {0};
    if (DescriptionFileOfArgument(state, xml, sizeof(xml)) != 0 ||
        QAV_GetNETypeFromVercfg(xml, neType, sizeof(neType)) != 0)
        return PushFailure(state);
    return qav::ReturnUIntText(state, qav::kOk, neType, sizeof(neType));
}

int QAV_ProcIssuGetProductType(lua_State *state) {
    char xml[384] = {0};
    char productType[64] = {0};
    if (DescriptionFileOfArgument(state, xml, sizeof(xml)) != 0 ||
        QAV_GetProductTypeFromVercfg(xml, productType) != 0)
        return PushFailure(state);
    return qav::ReturnUIntText(state, qav::kOk, productType, sizeof(productType));
}

bool QAV_IsFileMatch(const char *pattern, const char *name) {
    return pattern != nullptr && name != nullptr && fnmatch(pattern, name, FNM_NOESCAPE) == 0;
}

int32_t QAV_GetFileType(const char *name, const char *dir, uint8_t *type) {
    char path[384] = {0};
    if (name == nullptr || dir == nullptr || type == nullptr ||
        snprintf_s(path, sizeof(path), sizeof(path) - 1, "%s/%s", dir, name) < 0)
        return -1;
    struct stat st {};
    if (lstat(path, &st) != 0) return -1;
    *type = S_ISREG(st.st_mode) ? kRegularFileType : 0;
    return 0;
}

int32_t QAV_SearchDirAndGetRpgFile(const char *dir, char *name, uint32_t size) {
    DIR *handle = dir != nullptr ? opendir(dir) : nullptr;
    if (handle == nullptr) return -1;
    int32_t result = -1;
    while (struct dirent *entry = readdir(handle)) {
        uint8_t type = 0;
        if (entry->d_type != DT_UNKNOWN)
            type = entry->d_type == DT_REG ? kRegularFileType : 0;
        else if (QAV_GetFileType(entry->d_name, dir, &type) != 0)
            continue;
        if (type == kRegularFileType && QAV_IsFileMatch("*.rpg", entry->d_name)) {
            result = strcpy_s(name, size, entry->d_name) == EOK ? 0 : -1;
            break;
        }
    }
    closedir(handle);
    return result;
}

int32_t QAV_DecompressPkg(const char *package, const char *dir) {
    char command[512] = {0};
    if (package == nullptr || dir == nullptr ||
        snprintf_s(command, sizeof(command), sizeof(command) - 1, "tar -mzxf %s --directory=%s", package,
                   dir) < 0)
        return -1;
    if (Frame_CommandFilter(2, package, dir) != 0) return -1;
    return Frame_System(command) == 0 ? 0 : -1;
}

int32_t QAV_SearchRpgAndMount(const char *dir, char *mountPoint, uint32_t size) {
    char image[128] = {0};
    if (QAV_SearchDirAndGetRpgFile(dir, image, sizeof(image)) != 0) return -1;
    if (RPM_GetFullPath(kMountPoint, mountPoint, size, RPM_PATH_PROGRAM) != 0) return -1;
    char imagePath[384] = {0};
    if (snprintf_s(imagePath, sizeof(imagePath), sizeof(imagePath) - 1, "%s/%s", dir, image) < 0) return -1;
    return static_cast<int32_t>(RPM_SU_MountRpg_HOOK(imagePath, mountPoint));
}

int32_t QAV_SU_GetRpgInfoByVersion(const char *package, RPM_RPG_INFO *info) {
    char name[128] = {0};
    if (package == nullptr || info == nullptr ||
        QAV_SplitPathFileName(package, nullptr, name, sizeof(name)) != 1 || name[0] == '\0')
        return -1;
    char relative[256] = {0};
    char scratch[256] = {0};
    if (snprintf_s(relative, sizeof(relative), sizeof(relative) - 1, "../%s", name) < 0 ||
        RPM_GetFullPath(relative, scratch, sizeof(scratch), RPM_PATH_COMMON) != 0)
        return -1;
    bool madeHere = false;
    bool ready = true;
    if (!DirExists(scratch)) {
        if (!MakeDirs(scratch)) return -1;
        madeHere = true;
        ready = QAV_DecompressPkg(package, scratch) == 0;
    }
    char mountPoint[256] = {0};
    if (ready && QAV_SearchRpgAndMount(scratch, mountPoint, sizeof(mountPoint)) == 0) {
        char rinfo[384] = {0};
        if (snprintf_s(rinfo, sizeof(rinfo), sizeof(rinfo) - 1, "%s/%s", mountPoint, "rpg.rinfo") >= 0 &&
            RPM_SU_GetRpgInfo_HOOK(rinfo, info) == 0) {
            (void)RPMFS_UnMount(mountPoint);
            (void)RPM_RmParentDir(mountPoint, 1);
            if (madeHere) (void)RPM_RmParentDir(scratch, 1);
            return 0;
        }
    }
    // Undo whatever this call set up, whichever step failed.
    if (mountPoint[0] == '\0')
        (void)RPM_GetFullPath(kMountPoint, mountPoint, sizeof(mountPoint), RPM_PATH_PROGRAM);
    if (RPM_IsDirMounted_HOOK(mountPoint) != 0) (void)RPMFS_UnMount(mountPoint);
    if (DirExists(mountPoint)) (void)RPM_RmParentDir(mountPoint, 1);
    if (madeHere) (void)RPM_RmParentDir(scratch, 1);
    return -1;
}

int QAV_ProcIssuGetRpgInfo(lua_State *state) {
    const char *argument = SYSDT_SPTI_ToString(state, 2);
    if (argument == nullptr) return PushFailure(state);
    RPM_RPG_INFO info{};
    if (argument[0] == '\0') {
        if (RPM_SU_GetRpgInfo_HOOK(kRunningRinfo, &info) != 0) return PushFailure(state);
    } else {
        char package[384] = {0};
        if (RPM_GetPktFullName(argument, package, sizeof(package)) != 0 ||
            QAV_SU_GetRpgInfoByVersion(package, &info) != 0)
            return PushFailure(state);
    }
    SYSDT_SPTI_PushUInt(state, qav::kOk);
    SYSDT_SPTI_PushString(state, info.szRpgName, sizeof(info.szRpgName));
    SYSDT_SPTI_PushString(state, info.szRpgVersion, sizeof(info.szRpgVersion));
    SYSDT_SPTI_PushString(state, info.szRpgType, sizeof(info.szRpgType));
    return 4;
}

int QAV_ProcIssuGetCheckItems(lua_State *state) {
    const char *xml = SYSDT_SPTI_ToString(state, 2);
    RPM_KEY_NODE_INFO keys{};
    if (xml == nullptr || RPM_ParseXmlGetKeyNodeInfo_HOOK(xml, &keys) != 0) return PushFailure(state);
    SYSDT_SPTI_PushUInt(state, qav::kOk);
    SYSDT_SPTI_PushString(state, keys.szItem1, sizeof(keys.szItem1));
    SYSDT_SPTI_PushString(state, keys.szItem4, sizeof(keys.szItem4));
    SYSDT_SPTI_PushString(state, keys.szItem2, sizeof(keys.szItem2));
    SYSDT_SPTI_PushString(state, keys.szItem3, sizeof(keys.szItem3));
    SYSDT_SPTI_PushString(state, keys.szItem5, sizeof(keys.szItem5));
    SYSDT_SPTI_PushString(state, keys.szItem6, sizeof(keys.szItem6));
    return 7;
}

} // extern "C"

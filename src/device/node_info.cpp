// Node, board and NE facts for scripts: INI values, the installer's leftover paths (consumed
// when read), VNF, VNFC and NE identity, the node's interface identifier and resource-manager
// version, package versions, the backup state, the NPS disk configuration and two conversions.
#include "device/node_info.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "binding/script_frame.h"
#include "nuk_string.h"
#include "os_env.h"
#include "rpm_device.h"
#include "rpm_ini.h"
#include "rpm_paths.h"
#include "rpm_vercfg.h"
#include "securec.h"

namespace {

constexpr uint32_t kDiagLevel = 5;

constexpr const char *kVnfdIni = "../../../zakv8/data/vnfd_path_info.ini";
constexpr const char *kMmbIni = "..//bootfile/mmbftppath.ini";
constexpr const char *kDiskCfgIni = "/boot/disk_cfg.ini";
constexpr const char *kVercfgName = "vercfg.xml";

bool Exists(const char *path) {
    struct stat st {};
    return lstat(path, &st) == 0;
}

void PushEmpty(lua_State *state, int count) {
    for (int i = 0; i < count; ++i)
        SYSDT_SPTI_PushString(state, "", 1);
}

// Reads one element of a version file; a failure is written to the diagnostic log under
// `module` as "Get node <element> value from file(path) fail! RetCode:code.".
bool ReadXmlNode(const char *xmlPath, const char *element, char *out, uint32_t size, uint32_t module,
                 bool upgradeLog) {
    uint32_t ret = RPM_ParseXmlElementNodeValueByPath_HOOK(xmlPath, element, out, size);
    if (ret == 0) return true;
    if (upgradeLog)
        RPM_LogToFile(qav::kUpgradeLogId, qav::kLogFailure,
                      "Get node <%s> value from file(%s) fail! RetCode:%u.", element, xmlPath, ret);
    else
        QAV_STDiagLogToFile(module, kDiagLevel, "Get node <%s> value from file(%s) fail! RetCode:%u.",
                            element, xmlPath, ret);
    return false;
}

// The version file of the running package: the directory of CC_PKG_NAME, taken as absolute or
// relative to the "home/" storage root.
bool CurrentPackageVercfg(char *xmlPath, size_t size) {
    const char *variable = std::getenv("CC_PKG_NAME");
    char package[256] = {0};
    if (variable == nullptr || strncpy_s(package, sizeof package, variable, sizeof package - 1) != EOK)
        return false;
    char *slash = std::strrchr(package, '/');
    if (slash == nullptr) return false;
    *slash = '\0';
    if (package[0] == '/') return snprintf_s(xmlPath, size, size - 1, "%s/%s", package, kVercfgName) > 0;
    char home[256] = {0};
    if (RPM_GetFullPath("home/", home, sizeof home, 3) != 0) return false;
    return snprintf_s(xmlPath, size, size - 1, "%s/%s/%s", home, package, kVercfgName) > 0;
}

} // namespace

extern "C" {

uint32_t QAV_GetProductType(char *out) {
    if (out == nullptr) {
        RPM_LogToFile(qav::kUpgradeLogId, qav::kLogFailure, "The input is NULL.\n");
        return 1;
    }
    (void)memset_s(out, 32, 0, 32);
    char xmlPath[384] = {0};
    if (RPM_GetVercfgFileName_HOOK(xmlPath, sizeof xmlPath) != 0) {
        RPM_LogToFile(qav::kUpgradeLogId, qav::kLogFailure, "The input is NULL.\n");
        return 1;
    }
    return ReadXmlNode(xmlPath, "Product/VNF/ProductType", out, 32, 0, true) ? 0 : 1;
}

uint32_t QAV_CheckDiskCfgExistence(void) {
    char path[512];
    if (ZAK_OsDevicePath(kDiskCfgIni, path, sizeof path) == nullptr) return 1;
    return access(path, R_OK) != 0 ? 1 : 0;
}

} // extern "C"

QAV_ENTRY_FUNCTION QAV_GetIniValue(lua_State *state) {
    int32_t count = qav::ArgCount(state);
    if (count != 3) {
        RPM_LogToFile(qav::kUpgradeLogId, qav::kLogFailure, "Format path ParaNum %d wrong.", count);
        return qav::ReturnUInt(state, qav::kFailed);
    }
    char section[256] = {0};
    char key[256] = {0};
    char file[384] = {0};
    static constexpr const char *kMissing[] = {"get section name failed.", "get acKey name failed.",
                                               "get acFilename name failed."};
    char *buffers[] = {section, key, file};
    const size_t sizes[] = {sizeof section, sizeof key, sizeof file};
    for (int32_t i = 0; i < 3; ++i) {
        if (!qav::CopyTextArg(state, i + 1, buffers[i], sizes[i], "QAV_GetIniValue", __LINE__)) {
            RPM_LogToFile(qav::kUpgradeLogId, qav::kLogFailure, "%s", kMissing[i]);
            return qav::ReturnUInt(state, qav::kFailed);
        }
    }
    char value[256] = {0};
    uint32_t ret = RPM_GetProfileString(file, section, key, value, sizeof value);
    if (ret != 0) {
        RPM_LogToFile(qav::kUpgradeLogId, qav::kLogFailure, "get value failed, %u.", ret);
        return qav::ReturnUInt(state, qav::kFailed);
    }
    return qav::ReturnUIntText(state, qav::kOk, value, sizeof value);
}

// The descriptor path the installer leaves behind is read once: the file is removed after
// reading, whatever the read gave.
QAV_ENTRY_FUNCTION QAV_GetVnfdPath(lua_State *state) {
    char path[256] = {0};
    uint32_t ret = 0;
    if (Exists(kVnfdIni)) {
        ret = RPM_GetProfileString(kVnfdIni, "[vnfd_path_info]", "vnfd_path", path, sizeof path);
        (void)RPMFS_DelFile(kVnfdIni);
        if (ret != 0) path[0] = '\0';
    }
    return qav::ReturnUIntText(state, ret, path, sizeof path);
}

QAV_ENTRY_FUNCTION QAV_GetMMBDLDHandle(lua_State *state) {
    if (!qav::ArgsMatch(state, ".")) {
        SYSDT_SPTI_PushUInt(state, qav::kFailed);
        PushEmpty(state, 1);
        return 2;
    }
    uint32_t mode = SYSDT_SPTI_ToUInt(state, 1);
    char path[384] = {0};
    if (mode != 1) {
        char home[256] = {0};
        if (RPM_GetCommHomePath_HOOK(home, sizeof home, qav::kUpgradeLogId) != 0 ||
            snprintf_s(path, sizeof path, sizeof path - 1, "%s/%s", home, kVercfgName) < 0) {
            SYSDT_SPTI_PushUInt(state, qav::kFailed);
            PushEmpty(state, 1);
            return 2;
        }
        return qav::ReturnUIntText(state, qav::kOk, path, sizeof path);
    }
    if (!Exists(kMmbIni)) {
        SYSDT_SPTI_PushUInt(state, qav::kFailed);
        PushEmpty(state, 1);
        return 2;
    }
    char companion[64] = {0};
    (void)snprintf_s(companion, sizeof companion, sizeof companion - 1, "%s-", kMmbIni);
    // The key is written with one trailing blank in the installer's file.
    uint32_t ret = RPM_GetProfileString(kMmbIni, "[download section]", "mmb_path ", path, 128);
    (void)RPMFS_DelFile(kMmbIni);
    (void)RPMFS_DelFile(companion);
    if (ret != 0) path[0] = '\0';
    return qav::ReturnUIntText(state, ret, path, 128);
}

// The VNF and VNFC queries: the hook's code decides between 0 and the texts it filled, or the
// failure code (logged) and as many empty texts.
template <size_t Count>
int PushHookTexts(lua_State *state, uint32_t ret, const char *hook, const char (&texts)[Count][32]) {
    if (ret != 0) {
        QAV_STDiagLogToFile(qav::kVnfDiagModule, kDiagLevel, "%s fail! RetCode:%u.", hook, ret);
        SYSDT_SPTI_PushUInt(state, qav::kFailed);
        PushEmpty(state, Count);
    } else {
        SYSDT_SPTI_PushUInt(state, qav::kOk);
        for (const auto &text : texts)
            SYSDT_SPTI_PushString(state, text, sizeof text);
    }
    return Count + 1;
}

QAV_ENTRY_FUNCTION QAV_GetCurVNFInfo(lua_State *state) {
    char texts[4][32] = {};
    uint32_t ret = RPM_GetVNFInfo_HOOK(texts[0], 32, texts[1], 32, texts[2], 32, texts[3], 32);
    return PushHookTexts(state, ret, "RPM_GetVNFInfo_HOOK", texts);
}

QAV_ENTRY_FUNCTION QAV_GetCurVNFCInfo(lua_State *state) {
    char texts[3][32] = {};
    uint32_t ret = RPM_GetVNFCInfo_HOOK(texts[0], 32, texts[1], 32, texts[2], 32);
    return PushHookTexts(state, ret, "RPM_GetVNFCInfo_HOOK", texts);
}

QAV_ENTRY_FUNCTION QAV_GetCurNEInfo(lua_State *state) {
    char neId[32] = {0};
    char neName[32] = {0};
    uint32_t ret = RPM_GetCurNEResInfo_HOOK(neId, neName, sizeof neId);
    if (ret != 0) neId[0] = neName[0] = '\0';
    SYSDT_SPTI_PushUInt(state, ret);
    SYSDT_SPTI_PushString(state, neId, sizeof neId);
    SYSDT_SPTI_PushString(state, neName, sizeof neName);
    return 3;
}

// Without VNFC_TYPE nothing is pushed, yet one result is reported: the caller receives whatever
// lies on top of its stack. Scripts rely on the variable being set, so this stays.
QAV_ENTRY_FUNCTION QAV_GetNEType(lua_State *state) {
    const char *type = std::getenv("VNFC_TYPE");
    if (type != nullptr) {
        char text[40] = {0};
        (void)strncpy_s(text, sizeof text, type, sizeof text - 1);
        SYSDT_SPTI_PushString(state, text, sizeof text);
    }
    return 1;
}

QAV_ENTRY_FUNCTION QAV_GetCurNodeInfo(lua_State *state) {
    char xmlPath[384] = {0};
    char interfaceId[32] = {0};
    char nermVersion[32] = {0};
    bool ok =
        CurrentPackageVercfg(xmlPath, sizeof xmlPath) &&
        ReadXmlNode(xmlPath, "Product/InterfaceId", interfaceId, sizeof interfaceId, qav::kDiagModule,
                    false) &&
        ReadXmlNode(xmlPath, "Product/NermVersion", nermVersion, sizeof nermVersion, qav::kDiagModule, false);
    if (!ok) {
        SYSDT_SPTI_PushUInt(state, qav::kFailed);
        PushEmpty(state, 2);
        return 3;
    }
    SYSDT_SPTI_PushUInt(state, qav::kOk);
    SYSDT_SPTI_PushString(state, interfaceId, sizeof interfaceId);
    SYSDT_SPTI_PushString(state, nermVersion, sizeof nermVersion);
    return 3;
}

// 1 means success here: the flag tells whether the platform converted the address.
QAV_ENTRY_FUNCTION QAV_Belto_IpAddrToStr(lua_State *state) {
    if (!qav::ArgsMatch(state, ".")) {
        SYSDT_SPTI_PushUInt(state, 0);
        PushEmpty(state, 1);
        return 2;
    }
    char text[16] = {0};
    uint32_t ret = NUK_IpAddrToStr(SYSDT_SPTI_ToUInt(state, 1), text);
    text[sizeof text - 1] = '\0';
    return qav::ReturnUIntText(state, ret == 0 ? 1 : 0, text, sizeof text);
}

QAV_ENTRY_FUNCTION QAV_Belto_BinToAsc(lua_State *state) {
    uint32_t length = 0;
    const char *bytes = qav::ArgsMatch(state, "...") ? SYSDT_SPTI_ToLString(state, 1, &length) : nullptr;
    if (bytes == nullptr) {
        SYSDT_SPTI_PushUInt(state, 0);
        PushEmpty(state, 1);
        return 2;
    }
    // The converter reads as many bytes as it is told; never more than the script gave.
    int32_t count = SYSDT_SPTI_ToInt(state, 2);
    if (count > 0 && static_cast<uint32_t>(count) > length) count = static_cast<int32_t>(length);
    char text[45] = {0};
    uint32_t ret =
        NUK_BinToAsc(reinterpret_cast<const uint8_t *>(bytes), count, text, SYSDT_SPTI_ToUInt(state, 3));
    text[44] = '\0';
    return qav::ReturnUIntText(state, ret, text, sizeof text);
}

QAV_ENTRY_FUNCTION QAV_GetBackupInfoState(lua_State *state) {
    if (QAV_ExistZAK_GetBackupInfoState() == 0) {
        SYSDT_SPTI_PushUInt(state, qav::kFailed);
        SYSDT_SPTI_PushUInt(state, 2);
        SYSDT_SPTI_PushUInt(state, 2);
        return 3;
    }
    uint16_t state1 = 0;
    uint16_t state2 = 0;
    uint32_t ret = QAV_ZAKGetBackupInfoState(&state1, &state2);
    SYSDT_SPTI_PushUInt(state, ret);
    SYSDT_SPTI_PushUInt(state, state1);
    SYSDT_SPTI_PushUInt(state, state2);
    return 3;
}

// The pushed version carries its terminating NUL (length + 1): scripts compare against texts
// built the same way, so the length stays.
QAV_ENTRY_FUNCTION QAV_GetLastPkgInfo(lua_State *state) {
    char version[128] = {0};
    if (RPM_GetLastRpgVersion(version, sizeof version) != 0) return qav::ReturnInt(state, -1);
    SYSDT_SPTI_PushInt(state, 0);
    SYSDT_SPTI_PushLString(state, version, static_cast<uint32_t>(strnlen(version, sizeof version - 1) + 1));
    return 2;
}

QAV_ENTRY_FUNCTION QAV_GetCurPkgVersion(lua_State *state) {
    char version[64] = {0};
    uint32_t ret = RPM_GetCurPkgVersion(sizeof version, version);
    if (ret != 0) return qav::ReturnUInt(state, ret);
    return qav::ReturnUIntText(state, qav::kOk, version, sizeof version);
}

QAV_ENTRY_FUNCTION QAV_GetNPSDiskSizeInfo(lua_State *state) {
    using namespace qav::device;
    char value[256] = {0};
    uint32_t code = qav::kOk;
    char section[64] = {0};
    char key[128] = {0};
    char path[512] = {0};
    if (QAV_CheckDiskCfgExistence() != 0) {
        code = kNoDiskConfig;
    } else if (!qav::ArgsMatch(state, "..") ||
               !qav::CopyTextArg(state, 1, section, "QAV_GetNPSDiskSizeInfo", __LINE__) ||
               !qav::CopyTextArg(state, 2, key, "QAV_GetNPSDiskSizeInfo", __LINE__)) {
        code = kDiskBadArguments;
    } else if (ZAK_OsDevicePath(kDiskCfgIni, path, sizeof path) == nullptr ||
               RPM_GetProfileString(path, section, key, value, sizeof value) != 0) {
        value[0] = '\0';
        code = kDiskReadFailed;
    }
    return qav::ReturnUIntText(state, code, value, sizeof value);
}

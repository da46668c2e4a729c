// Arguments are read before the placeholder is pushed, so that a missing argument reads as
// missing rather than as the placeholder.
//
// Patch package and patch metadata queries: real patch file names, board types, digests,
// custom patch versions, package headers and hot-patch descriptors, startup patch validity,
// package-in-package checks, the CRL path, cold-patch hard-reset hardware types, the ISSU log.
#include <cstdio>
#include <cstring>

#include "binding/memory.h"
#include "binding/script_frame.h"
#include "issu_pkg.h"
#include "pat_pkg.h"
#include "securec.h"

namespace {

constexpr const char *kRpgInfoFile = "../pkg_pool/program/current/rpg.rinfo";
constexpr uint32_t kNameBuffer = 256;
constexpr uint32_t kDigestBuffer = 48;
constexpr uint32_t kCustomVersionBuffer = 64;
constexpr uint32_t kCrlPathBuffer = 256;
// Codes of the startup patch validity test.
using qav::pkg::kStartupMissing;
using qav::pkg::kStartupNoPath;

uint32_t Le32(const uint8_t *bytes) {
    return static_cast<uint32_t>(bytes[0]) | static_cast<uint32_t>(bytes[1]) << 8 |
           static_cast<uint32_t>(bytes[2]) << 16 | static_cast<uint32_t>(bytes[3]) << 24;
}

// A zeroed header buffer from the library's heap; released by the destructor on every path.
class HeaderBuffer {
  public:
    HeaderBuffer() : bytes_(static_cast<uint8_t *>(qav::PlatformAllocZeroed(PAT_PKG_HEAD_LEN))) {}
    ~HeaderBuffer() { qav::PlatformFree(bytes_); }
    HeaderBuffer(const HeaderBuffer &) = delete;
    HeaderBuffer &operator=(const HeaderBuffer &) = delete;
    uint8_t *get() const { return bytes_; }

  private:
    uint8_t *bytes_;
};

void PushBoundedText(lua_State *state, const char *text, uint32_t bound) {
    SYSDT_SPTI_PushString(state, text, bound);
}

// A fixed-width text field of the header as a NUL-terminated copy.
struct FieldText {
    char text[PAT_PKG_NAME_LEN + 1] = {};
    FieldText(const uint8_t *field, size_t width) { (void)memcpy_s(text, sizeof text, field, width); }
};

void PushDescriptor(lua_State *state, const uint8_t *desc) {
    FieldText version(desc, PAT_DESC_SUBVER_LEN);
    qav::TableBuilder(state)
        .String("SubFileVer", version.text, PAT_DESC_SUBVER_LEN)
        .UInt("PatchType", Le32(desc + PAT_DESC_TYPE_OFFSET))
        .UInt("BoardType", Le32(desc + PAT_DESC_BOARD_OFFSET))
        .UInt("Offset", Le32(desc + PAT_DESC_OFFSET_OFFSET))
        .UInt("Length", Le32(desc + PAT_DESC_LENGTH_OFFSET));
}

} // namespace

extern "C" {

// "rpm_getrealpatfile": code 0 with the patch's file name and full path, or -1.
QAV_ENTRY_FUNCTION l_get_realpat(lua_State *state) {
    const char *name = SYSDT_SPTI_ToString(state, 1);
    qav::PlaceholderSlot slot(state);
    char fileName[kNameBuffer] = {};
    char fullPath[kNameBuffer] = {};
    if (name == nullptr ||
        RPM_GetRealPatchFileName(name, fileName, sizeof fileName, fullPath, sizeof fullPath, 0) != 0)
        return slot.Finish(-1);
    PushBoundedText(state, fileName, kNameBuffer);
    PushBoundedText(state, fullPath, kNameBuffer);
    return slot.Finish(0, 2);
}

// "pat_getpkgboardtype": the board type alone, without a placeholder.
QAV_ENTRY_FUNCTION l_get_pat_board_type(lua_State *state) {
    return qav::ReturnUInt(state, PAT_GetPatPkgBoardType(SYSDT_SPTI_ToString(state, 1)));
}

// "pat_calcpatpkgmd5": code 0 and the package's MD5 digest, or -1.
QAV_ENTRY_FUNCTION l_calc_pat_md5(lua_State *state) {
    const char *path = SYSDT_SPTI_ToString(state, 1);
    qav::PlaceholderSlot slot(state);
    char digest[kDigestBuffer] = {};
    if (path == nullptr || RPM_MD5_HashFile_ForPatPkg(path, digest, sizeof digest) != 0)
        return slot.Finish(-1);
    PushBoundedText(state, digest, kDigestBuffer);
    return slot.Finish(0, 1);
}

// "rpm_getpatcustomver": the patch's custom version after the running package's pattern.
QAV_ENTRY_FUNCTION l_get_pat_customver(lua_State *state) {
    const char *name = SYSDT_SPTI_ToString(state, 1);
    qav::PlaceholderSlot slot(state);
    ISSU_PKGINFO *info = name != nullptr ? ISSU_PKGINFO_Open(kRpgInfoFile) : nullptr;
    if (info == nullptr) return slot.Finish(-1);
    char version[kCustomVersionBuffer] = {};
    int32_t code = 0;
    const char *pattern = info->pcCustomPatchVersionPattern;
    if (pattern == nullptr)
        code = -2;
    else if (isPatFullPatternCorrect(pattern) == 0)
        code = -3;
    else if (RPM_GetPatchCustomVersion(name, pattern, version, sizeof version) != 0)
        code = -4;
    ISSU_PKGINFO_Delete(info);
    if (code != 0) return slot.Finish(code);
    PushBoundedText(state, version, kCustomVersionBuffer);
    return slot.Finish(0, 1);
}

// "pat_gethpglistinpat": code 0 and the hot-patch descriptors, or the header reader's code.
QAV_ENTRY_FUNCTION l_get_pat_hpg_list(lua_State *state) {
    const char *path = SYSDT_SPTI_ToString(state, 1);
    qav::PlaceholderSlot slot(state);
    HeaderBuffer header;
    if (header.get() == nullptr) return slot.Early();
    uint32_t rc = PAT_GetPatPkgHeaderInfo(path, header.get());
    if (rc != 0) return slot.FinishUInt(rc);
    qav::TableBuilder table(state);
    uint32_t number = 0;
    for (uint32_t i = 0; i < PAT_PKG_DESC_NUM; i++) {
        const uint8_t *desc = header.get() + PAT_PKG_DESC_OFFSET + i * PAT_PKG_DESC_LEN;
        if (Le32(desc + PAT_DESC_TYPE_OFFSET) != PAT_TYPE_HOT) continue;
        FieldText version(desc, PAT_DESC_SUBVER_LEN);
        std::printf("patch header desc info: %s, %u\r\n", version.text, Le32(desc + PAT_DESC_BOARD_OFFSET));
        SYSDT_SPTI_PushUInt(state, ++number);
        PushDescriptor(state, desc);
        SYSDT_SPTI_SetTable(state, table.index);
    }
    std::fflush(stdout);
    return slot.FinishUInt(0, 1);
}

// "pat_getpatpkghead": code 0 and the header table, or a code.
QAV_ENTRY_FUNCTION l_get_pat_pkg_head(lua_State *state) {
    const char *path = SYSDT_SPTI_ToString(state, 1);
    qav::PlaceholderSlot slot(state);
    HeaderBuffer header;
    if (header.get() == nullptr) return slot.FinishUInt(qav::kInvalidCall);
    uint32_t rc = PAT_GetPatPkgHeaderInfo(path, header.get());
    if (rc != 0) return slot.FinishUInt(rc);
    uint32_t cmsInfo = 0;
    (void)PAT_GetPatPkgHeadCmsInfo(header.get(), &cmsInfo);

    FieldText name(header.get(), PAT_PKG_NAME_LEN);
    FieldText patchVersion(header.get() + PAT_PKG_PATCHVER_OFFSET, PAT_PKG_PATCHVER_LEN);
    size_t nameLength = std::strlen(name.text);
    qav::TableBuilder table(state);
    if (nameLength > PAT_PKG_MAINVER_LEN + 1) {
        // The name is the RPG name followed by the 8-character main version.
        size_t split = nameLength - PAT_PKG_MAINVER_LEN;
        table.String("acRpgName", name.text, static_cast<uint32_t>(split));
        table.String("acMainVer", name.text + split, PAT_PKG_MAINVER_LEN + 1);
    } else {
        table.String("acMainVer", name.text, sizeof name.text);
    }
    table.String("acPatchVer", patchVersion.text, sizeof patchVersion.text)
        .UInt("uiPatchType", Le32(header.get() + PAT_PKG_TYPE_OFFSET))
        .UInt("uiPatchNum", Le32(header.get() + PAT_PKG_NUM_OFFSET))
        .UInt("uiFileLen", Le32(header.get() + PAT_PKG_FILELEN_OFFSET))
        .UInt("uiCmsInfo", cmsInfo);
    return slot.FinishUInt(0, 1);
}

// "pat_startuppatchvalid": code 0 and 1 (a bare patch file), 0 (a sound package) or 2 (a
// package whose length differs from its header), or a failure code.
QAV_ENTRY_FUNCTION l_verify_startuppatch(lua_State *state) {
    const char *path = SYSDT_SPTI_ToString(state, 1);
    if (path == nullptr) {
        RPM_LogToFile(qav::kUpgradeLogId, qav::kLogFailure, "filename is null!\n");
        // The code lands in the first stack position and the function reports no results.
        qav::StoreIntAt(state, 1, kStartupNoPath);
        return 0;
    }
    qav::PlaceholderSlot slot(state);
    if (PAT_IsFileExist(path) == 0) {
        RPM_LogToFile(qav::kUpgradeLogId, qav::kLogFailure, "%s not exist!\n", path);
        return slot.Finish(kStartupMissing);
    }
    uint32_t isPackage = 1;
    if (PAT_IsPatchFile(path, &isPackage) != 0 && isPackage == 0) {
        SYSDT_SPTI_PushInt(state, 1);
        return slot.Finish(0, 1);
    }
    HeaderBuffer header;
    if (header.get() == nullptr) return slot.Finish(qav::pkg::kPatchNoMemory);
    // 5006: a package whose length differs from its header.
    constexpr uint32_t kHeaderLengthMismatch = 5006;
    uint32_t rc = PAT_GetPatPkgHeaderInfo(path, header.get());
    if (rc != 0 && rc != kHeaderLengthMismatch)
        return slot.Finish(static_cast<int32_t>(qav::kGenericFailure));
    SYSDT_SPTI_PushInt(state, rc == 0 ? 0 : 2);
    return slot.Finish(0, 1);
}

// "pat_check_inrpkg": 0, both patch numbers and both flags (five results), or the code alone.
QAV_ENTRY_FUNCTION l_check_pat_inrpkg(lua_State *state) {
    uint32_t firstNum = 0, secondNum = 0, sameBase = 0, contains = 0;
    uint32_t rc = PAT_CheckInrPkg(SYSDT_SPTI_ToString(state, 1), SYSDT_SPTI_ToString(state, 2), &firstNum,
                                  &secondNum, &sameBase, &contains);
    if (rc != 0) return qav::ReturnUInt(state, rc);
    SYSDT_SPTI_PushUInt(state, 0);
    SYSDT_SPTI_PushUInt(state, firstNum);
    SYSDT_SPTI_PushUInt(state, secondNum);
    SYSDT_SPTI_PushBool(state, static_cast<int32_t>(sameBase));
    SYSDT_SPTI_PushBool(state, static_cast<int32_t>(contains));
    return 5;
}

// "pat_GetCrlPath": code 0 and the CRL root path; code 0 alone when the platform has no CRL
// path service; -1 when the service fails.
QAV_ENTRY_FUNCTION l_Pat_GetCrlPath(lua_State *state) {
    qav::PlaceholderSlot slot(state);
    RPM_CmsLogToFile(qav::kLogProgress, "Get crl path is enter");
    ZAK_CRL_ROOT_PATH_FUNC getCrlPath = ZAK_FindCRLFileRootPath();
    if (getCrlPath == nullptr) {
        RPM_CmsLogToFile(qav::kLogStateChange, "Get crl file path func is null");
        return slot.Finish(0);
    }
    char path[kCrlPathBuffer] = {};
    if (getCrlPath(path, sizeof path) != 0) {
        RPM_CmsLogToFile(qav::kLogFailure, "Get crl file path failed");
        return slot.Finish(-1);
    }
    PushBoundedText(state, path, kCrlPathBuffer);
    RPM_CmsLogToFile(qav::kLogProgress, "Get crl path: %s ", path);
    return slot.Finish(0, 1);
}

// "pat_GetHardtypeOfColdPatHardRst": code 0 and the array of hardware types, or -1.
QAV_ENTRY_FUNCTION l_get_hardtypeOfColdPatHardRst(lua_State *state) {
    RPM_LogToFile(qav::kUpgradeLogId, qav::kLogStateChange,
                  "Get hardtypes of cold pat using hard reset policy func enter");
    if (state == nullptr) {
        RPM_LogToFile(qav::kUpgradeLogId, qav::kLogFailure,
                      "Get hardtypes of cold pat using hard reset policy func, pstSc is null");
        return 0;
    }
    const char *patch = SYSDT_SPTI_ToString(state, 1);
    const char *rpgName = SYSDT_SPTI_ToString(state, 2);
    const char *rpgVersion = SYSDT_SPTI_ToString(state, 3);
    qav::PlaceholderSlot slot(state);
    if (patch == nullptr || rpgName == nullptr || rpgVersion == nullptr) {
        RPM_LogToFile(qav::kUpgradeLogId, qav::kLogFailure,
                      "Get hardtypes of cold pat using hard reset policy err, param is null, %p-%p-%p",
                      static_cast<const void *>(patch), static_cast<const void *>(rpgName),
                      static_cast<const void *>(rpgVersion));
        return slot.Finish(-1);
    }
    RPM_LogToFile(
        qav::kUpgradeLogId, qav::kLogStateChange,
        "Get hardtypes of cold pat using hard reset policy, patch( %s ), rpg name( %s ), rpg version( %s )",
        patch, rpgName, rpgVersion);
    DLL_LIST list;
    DLL_Init(&list);
    if (PAT_GetHardTypeOfColdPatHardRst(patch, rpgName, rpgVersion, &list) != 0) {
        RPM_LogToFile(qav::kUpgradeLogId, qav::kLogFailure, "get hard type of cold pat rst return error");
        DLL_FreeAll(&list, RPM_Os_Free);
        return slot.Finish(-1);
    }
    qav::TableBuilder table(state);
    uint32_t number = 0;
    for (DLL_NODE *node = list.first; node != nullptr; node = node->next) {
        uint32_t hardType = reinterpret_cast<PAT_HARDTYPE_NODE *>(node)->uiHardType;
        SYSDT_SPTI_PushUInt(state, ++number);
        SYSDT_SPTI_PushUInt(state, hardType);
        SYSDT_SPTI_SetTable(state, table.index);
        RPM_LogToFile(qav::kUpgradeLogId, qav::kLogStateChange, "Get hardtype(0x%x) need hard rst ",
                      hardType);
    }
    RPM_LogToFile(qav::kUpgradeLogId, qav::kLogStateChange, "number of hardtype is %u", number);
    DLL_FreeAll(&list, RPM_Os_Free);
    return slot.Finish(0, 1);
}

// "rpm_issulog": writes the text to the ISSU log; no results.
QAV_ENTRY_FUNCTION l_issu_log(lua_State *state) {
    if (state == nullptr) {
        RPM_LogToFile(qav::kUpgradeLogId, qav::kLogFailure, "print issu log func, pstSc is null");
        return 1;
    }
    uint32_t level = SYSDT_SPTI_ToUInt(state, 1);
    const char *text = SYSDT_SPTI_ToString(state, 2);
    qav::PlaceholderSlot slot(state);
    if (text == nullptr) {
        RPM_LogToFile(qav::kUpgradeLogId, qav::kLogFailure, "print issu log failed");
        // The placeholder is the one result.
        return 1;
    }
    RPM_IssuLogToFile(qav::kUpgradeLogId, level, "%s", text);
    // No result: the placeholder goes too, so nothing is left above the arguments.
    return slot.Drop();
}

} // extern "C"

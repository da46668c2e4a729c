// Package integrity: the files vercfg.xml lists against their recorded SHA-256 values, the
// version type against the file nodes, patch package digests and the script digest queries.
#include <cstring>

#include "binding/script_frame.h"
#include "loc.h"
#include "nuk_digest.h"
#include "pkg/vercfg.h"
#include "rpm_paths.h"
#include "rpm_vercfg.h"
#include "securec.h"

using namespace qav::vercfg;

namespace {

constexpr uint32_t kDirSize = 256;
constexpr uint32_t kHexLength = 64;

bool IsSeparator(char c) {
    return c == '/' || c == '\\';
}

} // namespace

extern "C" {

// The credentials area's digest function, which "qav_SHA_Digest" also names.
int QAV_DESLUA_EncryptSystemPassword(lua_State *state);

uint32_t QAV_SplitPathFileName(const char *path, char *dir, char *name, uint32_t nameSize) {
    if (dir != nullptr) dir[0] = '\0';
    if (name != nullptr && nameSize > 0) name[0] = '\0';
    if (path == nullptr || path[0] == '\0') return 0;
    const size_t length = std::strlen(path);
    auto copyDir = [&](size_t count) {
        if (dir == nullptr) return;
        errno_t rc = strncpy_s(dir, kDirSize, path, count);
        if (rc != EOK) qav::LogCallFailure("QAV_SplitPathFileName", rc, __LINE__);
    };
    auto copyName = [&](const char *text) {
        if (name == nullptr || nameSize == 0) return;
        errno_t rc = strcpy_s(name, nameSize, text);
        if (rc != EOK) qav::LogCallFailure("QAV_SplitPathFileName", rc, __LINE__);
    };
    if (IsSeparator(path[length - 1])) {
        copyDir(length);
        return 1;
    }
    for (size_t i = length - 1; i-- > 0;) {
        if (IsSeparator(path[i])) {
            copyDir(i + 1);
            copyName(path + i + 1);
            return 1;
        }
    }
    copyName(path);
    return 1;
}

uint32_t QAV_UPG_CheckFiles(const char *xmlPath) {
    if (xmlPath == nullptr) {
        PatLog(qav::kLogFailure, "pcFilePath is NULL!");
        return 0;
    }
    char xml[384] = {0};
    errno_t copied = strcpy_s(xml, sizeof(xml), xmlPath);
    if (copied != EOK) {
        qav::LogCallFailure("QAV_UPG_CheckFiles", copied, __LINE__);
        return 0;
    }
    uint32_t count = 0;
    uint32_t rc = RPM_ParseXmlDstTypeCodeFileNodeNum_HOOK(xml, RPM_ALL_TYPE_CODE, &count);
    if (rc != 0) {
        PatLog(qav::kLogFailure, "[UPG]call RPM_ParseXmlDstTypeCodeFileNodeNum_HOOK failed! ret = %d", rc);
        return 0;
    }
    if (count == 0) {
        // A package without file nodes passes; the message reads otherwise and is kept.
        PatLog(qav::kLogNotice, "[UPG]uiNum = %d!, return FALSE", count);
        return 1;
    }
    char dir[kDirSize] = {0};
    char name[128] = {0};
    (void)QAV_SplitPathFileName(xml, dir, name, sizeof(name));
    NodeArray nodes(count);
    if (nodes.get() == nullptr) {
        PatLog(qav::kLogFailure, "[UPG]RPM_MALLOC failed!");
        return 0;
    }
    if (RPM_ParseXmlDstTypeCodeFileNodeInfo_HOOK(xml, RPM_ALL_TYPE_CODE, nodes.get(), count) != 0) {
        PatLog(qav::kLogFailure, "[UPG]call RPM_ParseXmlDstTypeCodeFileNodeInfo_HOOK failed!");
        return 0;
    }
    // One byte more than the digest so that the text logged below is always terminated.
    char digest[kHexLength + 1] = {0};
    const bool digestsCarried = LOC_IsMorlo() != 0;
    for (uint32_t i = 0; i < count; ++i) {
        const RPM_FILE_NODE_INFO &node = nodes[i];
        if (node.uiNodeType == kSkippedNodeType) continue;
        char file[383] = {0};
        if (snprintf_s(file, sizeof(file), sizeof(file) - 1, "%s/%s", dir, node.szFileName) < 0) {
            qav::LogCallFailure("QAV_UPG_CheckFiles", -1, __LINE__);
            return 0;
        }
        if (digestsCarried) {
            uint32_t length = kHexLength;
            if (NUK_Crypt_Digest_Ex_HOOK(file, digest, &length) != 0) {
                PatLog(qav::kLogFailure, "NUK_Crypt_Digest_Ex failed, acSoftwareName = %s", node.szFileName);
                return 0;
            }
        }
        if (std::strncmp(node.szSha256, digest, kHexLength) != 0) {
            // The two labels read crosswise; the log readers know them so.
            PatLog(qav::kLogFailure, "[UPG]local file is not correct!");
            PatLog(qav::kLogFailure, "acSoftwareName = %s", node.szFileName);
            PatLog(qav::kLogFailure, "local software SHAValue = %s", node.szSha256);
            PatLog(qav::kLogFailure, "acDigest = %s, in xml", digest);
            return 0;
        }
    }
    return 1;
}

uint32_t SU_TypeCodeCheckInXml(const char *xmlPath) {
    char versionType[128] = {0};
    if (RPM_ParseXmlElementNodeValue_HOOK(xmlPath, "VersionType", versionType, sizeof(versionType)) != 0) {
        PatLog(qav::kLogFailure, "[UPG]Parse VersionType fail from %s.", xmlPath);
        return 0;
    }
    uint32_t typeCode = 0;
    if (!TypeCodeOfVersionType(versionType, &typeCode)) {
        PatLog(qav::kLogFailure, "[UPG]Get node <VersionType> value from file(%s) fail! RetCode:%u.", xmlPath,
               0u);
        return 0;
    }
    uint32_t count = 0;
    if (RPM_ParseXmlDstTypeCodeFileNodeNum_HOOK(xmlPath, typeCode, &count) != 0) {
        PatLog(qav::kLogFailure, "[UPG]Get files' number failed, vercfg is %s, file type is %d!", xmlPath,
               typeCode);
        return 0;
    }
    if (count != 1) {
        PatLog(qav::kLogFailure, "[UPG]TypeCode is inconsistent with SoftwareType in %s!", xmlPath);
        return 0;
    }
    return 1;
}

uint32_t QAV_CheckPatPkgSha(const char *xmlPath, const char *fileName, const char *expected) {
    if (xmlPath == nullptr || fileName == nullptr || expected == nullptr) return 1;
    char path[384] = {0};
    char name[128] = {0};
    (void)QAV_SplitPathFileName(xmlPath, path, name, sizeof(name));
    PatLog(qav::kLogDetail, "The patch pkg path name is %s.", path);
    const size_t used = std::strlen(path);
    (void)strncat_s(path, sizeof(path), fileName, sizeof(path) - 1 - used);
    PatLog(qav::kLogDetail, "The patch pkg file and path name is %s.", path);
    if (PAT_IsFileExist(path) == 0) {
        PatLog(qav::kLogFailure, "%s not exist!\n", path);
        return 1;
    }
    char digest[128] = {0};
    uint32_t length = sizeof(digest);
    if (LOC_IsMorlo() != 0) {
        uint32_t rc = NUK_Crypt_Digest_Ex_HOOK(path, digest, &length);
        if (rc != 0) {
            PatLog(qav::kLogFailure, "get patch pkg sha value failed, uiRet = %u !", rc);
            return 1;
        }
    }
    PatLog(qav::kLogDetail, "get patch pkg sha value = %s, sha lenth = %u!", digest, length);
    if (std::strcmp(expected, digest) != 0) {
        PatLog(qav::kLogFailure, "get patch pkg sha value failed!");
        return 1;
    }
    return 0;
}

QAV_ENTRY_FUNCTION QAV_RpmGetPatPkgInfo(lua_State *state) {
    auto pushCodeText = [state](uint32_t code, const char *text) {
        return qav::ReturnUIntText(state, code, text, 128);
    };
    char xml[128] = {0};
    if (!qav::ArgsMatch(state, "..") || !qav::CopyTextArg(state, 1, xml, "QAV_RpmGetPatPkgInfo", __LINE__))
        return pushCodeText(qav::kFailed, "");
    uint32_t kind = SYSDT_SPTI_ToUInt(state, 2);
    if (kind > 1) return pushCodeText(qav::kFailed, "");
    char name[128] = {0};
    char sha[128] = {0};
    if (QAV_GetPatNameInfo(xml, name, sha, kind == 0 ? kHotPatchCode : kColdPatchCode) != 0)
        return pushCodeText(qav::kFailed, "");
    PatLog(qav::kLogDetail, "The patch pkg name is %s, SHA value = %s.", name, sha);
    if (QAV_CheckPatPkgSha(xml, name, sha) != 0) {
        PatLog(qav::kLogFailure, "QAV_CheckPatPkgSha failed!");
        return pushCodeText(qav::kFailed, "");
    }
    return pushCodeText(qav::kOk, name);
}

QAV_ENTRY_FUNCTION QAV_GetFileSha256Sum(lua_State *state) {
    uint32_t length = 0;
    const char *path = qav::ArgsMatch(state, "s") ? SYSDT_SPTI_ToLString(state, 1, &length) : nullptr;
    if (path == nullptr || length == 0 || length > 256) return qav::ReturnUInt(state, qav::kBadArgument);
    char digest[kHexLength + 1] = {0};
    uint32_t size = sizeof(digest);
    uint32_t rc = NUK_Crypt_Digest_Ex_HOOK(path, digest, &size);
    if (rc != 0) return qav::ReturnUInt(state, rc);
    return qav::ReturnUIntText(state, qav::kOk, digest, static_cast<uint32_t>(std::strlen(digest)));
}

QAV_ENTRY_FUNCTION QAV_SHA_Digest(lua_State *state) {
    return QAV_DESLUA_EncryptSystemPassword(state);
}

} // extern "C"

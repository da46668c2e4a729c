// Script queries over a package's vercfg.xml and the startup-software section of zakcfg.ini.
#include <cstdarg>
#include <cstring>

#include "binding/memory.h"
#include "binding/script_frame.h"
#include "pkg/vercfg.h"
#include "rpm_ini.h"
#include "rpm_vercfg.h"
#include "securec.h"

namespace qav::vercfg {

bool TypeCodeOfVersionType(const char *versionType, uint32_t *typeCode) {
    if (versionType == nullptr) return false;
    if (std::strcmp(versionType, "HotPatch") == 0) {
        *typeCode = kHotPatchCode;
    } else if (std::strcmp(versionType, "ColdPatch") == 0) {
        *typeCode = kColdPatchCode;
    } else if (std::strcmp(versionType, "BaseSoftware") == 0) {
        *typeCode = kBaseSoftwareCode;
    } else {
        return false;
    }
    return true;
}

NodeArray::NodeArray(uint32_t count) {
    if (count == 0 || count > UINT32_MAX / sizeof(RPM_FILE_NODE_INFO)) return;
    auto size = static_cast<uint32_t>(count * sizeof(RPM_FILE_NODE_INFO));
    nodes_ = static_cast<RPM_FILE_NODE_INFO *>(PlatformAllocZeroed(size));
    if (nodes_ != nullptr) count_ = count;
}

NodeArray::~NodeArray() {
    PlatformFree(nodes_);
}

void PatLog(uint32_t level, const char *format, ...) {
    char message[1024];
    va_list values;
    va_start(values, format);
    (void)vsnprintf_s(message, sizeof(message), sizeof(message) - 1, format, values);
    va_end(values);
    PAT_LogToFile(0, level, 1, "%s", message);
}

} // namespace qav::vercfg

using namespace qav::vercfg;

namespace {

constexpr uint32_t kDiagLevel = 5;
constexpr size_t kXmlPathSize = 384;

// A code and an empty text; the failure form of the version queries.
int PushCodeEmpty(lua_State *state, uint32_t code) {
    return qav::ReturnUIntText(state, code, "", 1);
}

// Reads `count` records of the nodes a reader selects into `nodes`; false on allocation failure
// (nodes.get() is null) or a reader error (*code).
template <class Read> bool ReadNodes(NodeArray &nodes, uint32_t *code, Read read) {
    if (nodes.get() == nullptr) return false;
    *code = read(nodes.get(), nodes.count());
    return *code == 0;
}

// The file nodes a query selects: those of one type code, or, when it is given, those of one
// destination object type.
struct NodeSelection {
    uint32_t typeCode;
    const char *destObjType;
};

// How a query for the first selected file node judges the count and reports its failures. The
// logged texts read "<what>, vercfg is <xml>, <the selection>!".
struct FirstNodeQuery {
    bool exactlyOne; // else at least one node
    bool logged;     // the count, count check and read failures go to the patch log
    const char *badCountText = nullptr;
    const char *noMemoryText = "[RPMLS_DLD_ALLInVnfcFiles]malloc failed!";
    bool passCountCode = false; // a failed count gives the hook's own code, not 1
    uint32_t readFailure = qav::kFailed;
};

constexpr FirstNodeQuery kPatchNameQuery{
    .exactlyOne = false, .logged = true, .badCountText = "xml file TypeCode is inconsistent with patch type"};
constexpr FirstNodeQuery kRiskCheckPackageQuery{.exactlyOne = true,
                                                .logged = true,
                                                .badCountText =
                                                    "xml file TypeCode is inconsistent with patch type",
                                                .noMemoryText = "[QAV_GetRiskCheckPkgPath]malloc failed!"};
constexpr FirstNodeQuery kVersionTypeFileQuery{.exactlyOne = true,
                                               .logged = true,
                                               .badCountText = "File number is not only one",
                                               .passCountCode = true,
                                               .readFailure = kNodeInfoFailed};
constexpr FirstNodeQuery kFileInfoQuery{.exactlyOne = true, .logged = false};

void LogSelectionFailure(const FirstNodeQuery &query, const char *what, const char *xml,
                         const NodeSelection &selection) {
    if (!query.logged) return;
    if (selection.destObjType != nullptr)
        PatLog(qav::kLogFailure, "%s, vercfg is %s, DestObjType is %s!", what, xml, selection.destObjType);
    else
        PatLog(qav::kLogFailure, "%s, vercfg is %s, file type is %d!", what, xml, selection.typeCode);
}

// Counts the selected nodes, checks the count, reads them all and hands back the first; 0, or the
// query's failure code.
uint32_t ReadFirstNode(const FirstNodeQuery &query, const char *xml, const NodeSelection &selection,
                       RPM_FILE_NODE_INFO *first) {
    const bool byObjType = selection.destObjType != nullptr;
    uint32_t count = 0;
    uint32_t rc = byObjType ? RPM_ParseXmlDstObjTypeFileNodeNum_HOOK(xml, selection.destObjType, &count)
                            : RPM_ParseXmlDstTypeCodeFileNodeNum_HOOK(xml, selection.typeCode, &count);
    if (rc != 0) {
        LogSelectionFailure(query, "Get files' number failed", xml, selection);
        return query.passCountCode ? rc : qav::kFailed;
    }
    if (query.exactlyOne ? count != 1 : count == 0) {
        LogSelectionFailure(query, query.badCountText, xml, selection);
        return qav::kFailed;
    }
    NodeArray nodes(count);
    if (nodes.get() == nullptr) {
        PatLog(qav::kLogFailure, "%s", query.noMemoryText);
        return qav::kFailed;
    }
    rc = byObjType ? RPM_ParseXmlDstObjTypeFileNodeInfo_HOOK(xml, selection.destObjType, nodes.get(), count)
                   : RPM_ParseXmlDstTypeCodeFileNodeInfo_HOOK(xml, selection.typeCode, nodes.get(), count);
    if (rc != 0) {
        LogSelectionFailure(query, "Get files' info failed", xml, selection);
        return query.readFailure;
    }
    *first = nodes[0];
    return 0;
}

// "%s/%s" of a directory and "vercfg.xml" into out[size]; false when it does not fit.
bool VercfgPathOf(const char *dir, char *out, size_t size) {
    return snprintf_s(out, size, size - 1, "%s/%s", dir, "vercfg.xml") >= 0;
}

} // namespace

extern "C" {

int32_t QAV_GetZakcfgVersionInfo(const char *key, char *out, uint32_t outSize) {
    if (key == nullptr || out == nullptr || outSize == 0) return 1;
    char value[256] = {0};
    if (RPM_GetProfileString(kZakcfgFile, kStartupSection, key, value, sizeof(value)) != 0) return 1;
    if (std::strlen(value) < kDevicePrefixLength) return -1;
    const char *start = value + kDevicePrefixLength;
    const char *slash = std::strchr(start, '/');
    if (slash == nullptr) return -1;
    size_t length = static_cast<size_t>(slash - start);
    if (length > outSize - 1) length = outSize - 1;
    (void)strncpy_s(out, outSize, start, length);
    return 0;
}

uint32_t QAV_GetPatNameInfo(const char *xmlPath, char *outName, char *outSha, uint32_t typeCode) {
    RPM_FILE_NODE_INFO first{};
    if (ReadFirstNode(kPatchNameQuery, xmlPath, {typeCode, nullptr}, &first) != 0) return 1;
    (void)snprintf_truncated_s(outName, 128, "%s", first.szFileName);
    (void)snprintf_truncated_s(outSha, 128, "%s", first.szSha256);
    return 0;
}

uint32_t QAV_GetRiskCheckPkgPath(const char *xmlPath, char *out, uint32_t outSize, const char *destObjType) {
    RPM_FILE_NODE_INFO first{};
    if (ReadFirstNode(kRiskCheckPackageQuery, xmlPath, {0, destObjType}, &first) != 0) return 1;
    (void)snprintf_truncated_s(out, outSize, "%s", first.szFileName);
    return 0;
}

uint32_t QAV_GetFileNameByeVersionType(const char *xmlPath, char *outName, const char *versionType) {
    uint32_t typeCode = 0;
    if (!TypeCodeOfVersionType(versionType, &typeCode)) return kVersionFailed;
    RPM_FILE_NODE_INFO first{};
    uint32_t rc = ReadFirstNode(kVersionTypeFileQuery, xmlPath, {typeCode, nullptr}, &first);
    if (rc != 0) return rc;
    (void)snprintf_truncated_s(outName, 128, "%s", first.szFileName);
    return 0;
}

char *QAV_GetDirName(char *name) {
    if (name == nullptr) return nullptr;
    char *dot = std::strchr(name, '.');
    if (dot != nullptr) *dot = '\0';
    return name;
}

QAV_ENTRY_FUNCTION QAV_RpmGetVersionInfo(lua_State *state) {
    char xmlPath[kXmlPathSize] = {0};
    if (!qav::ArgsMatch(state, "..") ||
        !qav::CopyTextArg(state, 1, xmlPath, "QAV_RpmGetVersionInfo", __LINE__))
        return PushCodeEmpty(state, qav::kFailed);
    uint32_t kind = SYSDT_SPTI_ToUInt(state, 2);
    QAV_STDiagLogToFile(qav::kDiagModule, kDiagLevel, "acXmlPath = %s\n", xmlPath);

    char text[384] = {0};
    uint32_t rc = 0;
    switch (kind) {
    case 1:
    case 3: {
        rc = RPM_ParseXmlElementNodeValue_HOOK(xmlPath, kind == 1 ? "PackageType" : "VersionType", text, 128);
        if (rc != 0) {
            PatLog(qav::kLogFailure, "QAV_RpmGetPkgInfoGetInput failed, ret is %u.", rc);
            return PushCodeEmpty(state, rc);
        }
        break;
    }
    case 4:
    case 5: {
        const bool version = kind == 4;
        rc = RPM_ParseXmlElementNodeValue_HOOK(xmlPath, version ? "Version" : "BaseVersion", text,
                                               version ? 32 : 128);
        if (rc == 0) rc = RPM_ReplaceSrcChar2Dst_HOOK(text, ' ', '_');
        if (rc != 0) {
            PatLog(qav::kLogFailure,
                   version ? "QAV_RpmGetPkgInfoGetInput failed, ret is %u."
                           : "[UPG]QAV_RpmGetPkgInfoGetInput failed, ret is %u.",
                   rc);
            return PushCodeEmpty(state, rc);
        }
        break;
    }
    case 2:
    case 10: {
        auto *app = static_cast<RPM_APP_INFO *>(qav::PlatformAllocZeroed(sizeof(RPM_APP_INFO)));
        if (app == nullptr) {
            // Reported as success with an empty text, as the scripts have always seen it.
            PatLog(qav::kLogFailure, "malloc failed, ret is %u.", 0u);
            return PushCodeEmpty(state, qav::kOk);
        }
        rc = RPM_ParseXmlGetAppInfo_HOOK(xmlPath, app);
        if (rc == 0)
            (void)snprintf_truncated_s(text, sizeof(text), "%s", kind == 2 ? app->szAppType : app->szAppInfo);
        qav::PlatformFree(app);
        if (rc != 0) {
            PatLog(qav::kLogFailure, "RPM_ParseXmlGetAppInfo_HOOK failed, ret is %u.", rc);
            return PushCodeEmpty(state, rc);
        }
        break;
    }
    case 6:
        (void)strcpy_s(text, sizeof(text),
                       QAV_UPG_CheckFiles(xmlPath) == 1 && SU_TypeCodeCheckInXml(xmlPath) == 1 ? "TRUE"
                                                                                               : "FALSE");
        break;
    case 7:
        (void)strcpy_s(text, sizeof(text), QAV_UPG_CheckFiles(xmlPath) == 1 ? "TRUE" : "FALSE");
        break;
    case 8:
        rc = RPM_ParseXmlElementNodeValueByPath_HOOK(xmlPath, "Product/VNF/InterfaceId", text, 128);
        if (rc != 0) {
            PatLog(qav::kLogFailure,
                   "Get InterfaceId node <Product/VNF/InterfaceId> value from file(%s) fail! RetCode:%u.",
                   xmlPath, rc);
            return PushCodeEmpty(state, rc);
        }
        break;
    case 9:
        rc = RPM_ParseXmlElementNodeValueByPath_HOOK(xmlPath, "Product/VNF/ProductType", text, 128);
        if (rc != 0) {
            RPM_LogToFile(qav::kVercfgLogId, qav::kLogFailure,
                          "Get node <Product/VNF/ProductType> value from file(%s) fail! RetCode:%u.", xmlPath,
                          rc);
            return PushCodeEmpty(state, rc);
        }
        break;
    default:
        PatLog(qav::kLogFailure, "[UPG]uiDotype is %d.", kind);
        return PushCodeEmpty(state, qav::kFailed);
    }
    QAV_STDiagLogToFile(qav::kDiagModule, kDiagLevel, "acPackageName = %s\n", text);
    return qav::ReturnUIntText(state, qav::kOk, text, sizeof(text));
}

QAV_ENTRY_FUNCTION QAV_RpmGetPkgInfo(lua_State *state) {
    if (!qav::ArgsMatch(state, ".")) return PushCodeEmpty(state, qav::kFailed);
    uint32_t kind = SYSDT_SPTI_ToUInt(state, 1);
    char value[256] = {0};
    char result[128] = {0};
    if (kind == 0) {
        if (RPM_GetProfileString(kZakcfgFile, kStartupSection, kStartLoadKey, value, sizeof(value)) != 0)
            return PushCodeEmpty(state, qav::kFailed);
        (void)snprintf_truncated_s(result, sizeof(result), "%s", value);
    } else if (kind == 1) {
        if (RPM_GetProfileString(kZakcfgFile, kStartupSection, kLastKey, value, sizeof(value)) != 0)
            return PushCodeEmpty(state, qav::kFailed);
        if (value[0] == '\0' &&
            RPM_GetProfileString(kZakcfgFile, kStartupSection, kCurrentKey, value, sizeof(value)) != 0)
            return PushCodeEmpty(state, qav::kFailed);
        if (std::strlen(value) > kDevicePrefixLength)
            (void)snprintf_truncated_s(result, sizeof(result), "%s", value + kDevicePrefixLength);
    } else {
        return PushCodeEmpty(state, qav::kFailed);
    }
    return qav::ReturnUIntText(state, qav::kOk, result, sizeof(result));
}

QAV_ENTRY_FUNCTION QAV_GetZakcfgInfo(lua_State *state) {
    const char *keys[] = {kCurrentKey, kLastKey, kNextKey};
    for (const char *key : keys) {
        char version[256] = {0};
        if (QAV_GetZakcfgVersionInfo(key, version, sizeof(version)) != 0) version[0] = '\0';
        SYSDT_SPTI_PushString(state, version, sizeof(version));
    }
    return 3;
}

QAV_ENTRY_FUNCTION QAV_GetFileNameFromVercfg(lua_State *state) {
    char xmlPath[kXmlPathSize] = {0};
    int32_t argc = qav::ArgCount(state);
    bool inputOk = true;
    if (argc != 3) {
        PatLog(qav::kLogFailure, "Format path ParaNum %d wrong.", argc);
        inputOk = false;
    } else if (!qav::CopyTextArg(state, 1, xmlPath, "QAV_GetFileNameFromVercfg", __LINE__)) {
        PatLog(qav::kLogFailure, "get xmlFile name failed.");
        inputOk = false;
    }
    if (!inputOk) {
        PatLog(qav::kLogFailure, "QAV_GetFileNameFromVercfgGetInput failed, ret is %u.", qav::kFailed);
        return PushCodeEmpty(state, qav::kFailed);
    }
    uint32_t typeCode = SYSDT_SPTI_ToUInt(state, 2);
    uint32_t check = SYSDT_SPTI_ToUInt(state, 3);
    char name[128] = {0};
    char sha[128] = {0};
    uint32_t rc = QAV_GetPatNameInfo(xmlPath, name, sha, typeCode);
    if (rc != 0) {
        PatLog(qav::kLogFailure, "QAV_RpmGetPatPkgInfo failed, ret is %u.", rc);
        return PushCodeEmpty(state, qav::kFailed);
    }
    if (check != 0) {
        rc = QAV_CheckPatPkgSha(xmlPath, name, sha);
        if (rc != 0) {
            PatLog(qav::kLogFailure, "QAV_CheckPatPkgSha failed, ret is %u.", rc);
            return PushCodeEmpty(state, qav::kFailed);
        }
    }
    return qav::ReturnUIntText(state, qav::kOk, name, sizeof(name));
}

QAV_ENTRY_FUNCTION QAV_GetFileNameFromVercfgByDestObjType(lua_State *state) {
    static const char *const kFunction = "QAV_GetFileNameFromVercfgByDestObjType";
    char xmlPath[kXmlPathSize] = {0};
    char destObjType[128] = {0};
    if (!qav::ArgsMatch(state, "..") || !qav::CopyTextArg(state, 1, xmlPath, kFunction, __LINE__) ||
        !qav::CopyTextArg(state, 2, destObjType, kFunction, __LINE__)) {
        PatLog(qav::kLogFailure, "QAV_GetFileNameFromVercfgByDestObjTypeGetInput failed, ret is %u.",
               qav::kFailed);
        return PushCodeEmpty(state, qav::kFailed);
    }
    char name[128] = {0};
    uint32_t rc = QAV_GetRiskCheckPkgPath(xmlPath, name, sizeof(name), destObjType);
    if (rc != 0) {
        PatLog(qav::kLogFailure, "QAV_GetRiskCheckPkgPath failed, ret is %u.", rc);
        return PushCodeEmpty(state, qav::kFailed);
    }
    return qav::ReturnUIntText(state, qav::kOk, name, sizeof(name));
}

QAV_ENTRY_FUNCTION QAV_GetInfoFromXml(lua_State *state) {
    PatLog(qav::kLogStep, "===Get info from vercfg.xml===");
    struct {
        char packageType[64];
        char versionType[64];
        char appType[65];
        char version[33];
        char baseVersion[32];
        char fileName[128];
        char neType[40];
    } info{};
    auto pushAll = [&](uint32_t code) {
        SYSDT_SPTI_PushUInt(state, code);
        const bool ok = code == 0;
        SYSDT_SPTI_PushString(state, ok ? info.packageType : "", sizeof(info.packageType));
        SYSDT_SPTI_PushString(state, ok ? info.versionType : "", sizeof(info.versionType));
        SYSDT_SPTI_PushString(state, ok ? info.appType : "", sizeof(info.appType));
        SYSDT_SPTI_PushString(state, ok ? info.version : "", sizeof(info.version));
        SYSDT_SPTI_PushString(state, ok ? info.baseVersion : "", sizeof(info.baseVersion));
        SYSDT_SPTI_PushString(state, ok ? info.fileName : "", sizeof(info.fileName));
        SYSDT_SPTI_PushString(state, ok ? info.neType : "", sizeof(info.neType));
        return 8;
    };
    int32_t argc = qav::ArgCount(state);
    if (argc != 2) {
        // A wrong call reads as code 0 with empty texts; the scripts test the texts.
        PatLog(qav::kLogFailure, "Format path ParaNum %d wrong.", argc);
        return pushAll(qav::kOk);
    }
    const char *dir = SYSDT_SPTI_ToString(state, 1);
    if (dir == nullptr) {
        PatLog(qav::kLogFailure, "String Param is null.");
        return pushAll(qav::kOk);
    }
    const bool wantFileName = SYSDT_SPTI_ToBoolean(state, 2) != 0;
    char xml[256] = {0};
    if (!VercfgPathOf(dir, xml, sizeof(xml))) return pushAll(qav::kFailed);

    if (RPM_ParseXmlElementNodeValue_HOOK(xml, "PackageType", info.packageType, sizeof(info.packageType)) !=
        0)
        return pushAll(kPackageTypeFailed);
    if (RPM_ParseXmlElementNodeValue_HOOK(xml, "VersionType", info.versionType, sizeof(info.versionType)) !=
        0)
        return pushAll(kVersionFailed);
    if (RPM_ParseXmlElementNodeValueByPath_HOOK(xml, "Product/APPList/APP/APPType", info.appType,
                                                sizeof(info.appType)) != 0)
        return pushAll(kAppTypeFailed);
    if (RPM_ParseXmlElementNodeValue_HOOK(xml, "Version", info.version, sizeof(info.version)) != 0)
        return pushAll(kVersionFailed);
    if (RPM_ParseXmlElementNodeValue_HOOK(xml, "BaseVersion", info.baseVersion, sizeof(info.baseVersion)) !=
        0)
        return pushAll(kVersionFailed);
    if (wantFileName) {
        uint32_t rc = QAV_GetFileNameByeVersionType(xml, info.fileName, info.versionType);
        if (rc != 0) return pushAll(rc);
    }
    if (RPM_ParseXmlElementNodeValue_HOOK(xml, "NeType", info.neType, sizeof(info.neType)) != 0)
        return pushAll(kNeTypeFailed);
    return pushAll(qav::kOk);
}

QAV_ENTRY_FUNCTION QAV_GetFileInfoFromXml(lua_State *state) {
    if (!qav::ArgsMatch(state, "...")) return PushCodeEmpty(state, qav::kFailed);
    uint32_t typeCode = SYSDT_SPTI_ToUInt(state, 1);
    const char *dir = SYSDT_SPTI_ToString(state, 2);
    uint32_t mode = SYSDT_SPTI_ToUInt(state, 3);
    char xml[256] = {0};
    if (dir == nullptr || !VercfgPathOf(dir, xml, sizeof(xml)) || RPMFS_ProcIsFileExist(xml) == 0)
        return PushCodeEmpty(state, qav::kFailed);
    RPM_FILE_NODE_INFO first{};
    if (ReadFirstNode(kFileInfoQuery, xml, {typeCode, nullptr}, &first) != 0)
        return PushCodeEmpty(state, qav::kFailed);
    if (mode == 1) return qav::ReturnUIntText(state, qav::kOk, first.szFileName, sizeof(first.szFileName));
    if (mode == 2) return qav::ReturnUIntPair(state, qav::kOk, first.uiAttr);
    return PushCodeEmpty(state, qav::kFailed);
}

QAV_ENTRY_FUNCTION QAV_GetMimNumFromXml(lua_State *state) {
    int32_t argc = qav::ArgCount(state);
    if (argc != 1) {
        PatLog(qav::kLogFailure, "Format path ParaNum %d wrong.", argc);
        return qav::ReturnUIntPair(state, qav::kOk, 0);
    }
    const char *dir = SYSDT_SPTI_ToString(state, 1);
    if (dir == nullptr) {
        RPM_LogToFile(qav::kVercfgLogId, qav::kLogFailure, "pcFilePath is null.");
        return qav::ReturnUIntPair(state, kNodeCountFailed, 0);
    }
    char xml[256] = {0};
    uint32_t count = 0;
    uint32_t rc =
        VercfgPathOf(dir, xml, sizeof(xml)) ? RPM_ParseXmlDstTypeCodeFileNodeNum(xml, kMimCode, &count) : 1;
    if (rc != 0) {
        RPM_LogToFile(qav::kVercfgLogId, qav::kLogFailure,
                      "Get destination type %u file node number from file(%s) fail! RetCode:%u.", kMimCode,
                      xml, rc);
        return qav::ReturnUIntPair(state, kNodeCountFailed, 0);
    }
    return qav::ReturnUIntPair(state, qav::kOk, count);
}

// The list queries: code 0 and a text of every selected name followed by ';', or code 1 alone.
static int PushNameList(lua_State *state, bool vnfcPaths) {
    const char *xml = qav::ArgsMatch(state, "s") ? SYSDT_SPTI_ToString(state, 1) : nullptr;
    if (xml == nullptr) return qav::ReturnUInt(state, qav::kFailed);
    const uint32_t typeCode = vnfcPaths ? kBaseSoftwareCode : RPM_ALL_TYPE_CODE;
    uint32_t count = 0;
    if (RPM_ParseXmlDstTypeCodeFileNodeNum_HOOK(xml, typeCode, &count) != 0)
        return qav::ReturnUInt(state, qav::kFailed);
    if (count == 0) return PushCodeEmpty(state, qav::kOk);
    if (count > (UINT32_MAX - 1) / 129) return qav::ReturnUInt(state, qav::kFailed);
    NodeArray nodes(count);
    uint32_t rc = 0;
    bool read = ReadNodes(nodes, &rc, [&](RPM_FILE_NODE_INFO *records, uint32_t n) {
        return vnfcPaths ? RPM_ParseXmlDstTypeCodeFileNodeInfo_HOOK(xml, typeCode, records, n)
                         : RPM_ParseXmlAllFileNodeInfo_HOOK(xml, records, n);
    });
    if (!read) return qav::ReturnUInt(state, qav::kFailed);
    const uint32_t size = count * 129 + (vnfcPaths ? 1 : 0);
    auto *list = static_cast<char *>(qav::PlatformAllocZeroed(size));
    if (list == nullptr) return qav::ReturnUInt(state, qav::kFailed);
    bool fits = true;
    size_t used = 0;
    for (uint32_t i = 0; i < count && fits; ++i) {
        char *name = nodes[i].szFileName;
        if (vnfcPaths) QAV_GetDirName(name);
        int written = snprintf_s(list + used, size - used, size - used - 1, "%s;", name);
        fits = written >= 0;
        if (fits) used += static_cast<size_t>(written);
    }
    int results =
        fits ? qav::ReturnUIntText(state, qav::kOk, list, size) : qav::ReturnUInt(state, qav::kFailed);
    qav::PlatformFree(list);
    return results;
}

QAV_ENTRY_FUNCTION QAV_GetFileListFromVerCfgXml(lua_State *state) {
    return PushNameList(state, false);
}

QAV_ENTRY_FUNCTION QAV_GetVnfcPathListFromVercfgXml(lua_State *state) {
    return PushNameList(state, true);
}

QAV_ENTRY_FUNCTION QAV_IsVnfcVercfgXml(lua_State *state) {
    const char *xml = qav::ArgsMatch(state, "s") ? SYSDT_SPTI_ToString(state, 1) : nullptr;
    if (xml == nullptr) return qav::ReturnUInt(state, qav::kFailed);
    uint32_t count = 0;
    if (RPM_ParseXmlDstTypeCodeFileNodeNum_HOOK(xml, kBaseSoftwareCode, &count) != 0)
        return qav::ReturnUInt(state, qav::kFailed);
    bool vnfc = true;
    if (count != 0) {
        NodeArray nodes(count);
        uint32_t rc = 0;
        if (!ReadNodes(nodes, &rc, [&](RPM_FILE_NODE_INFO *records, uint32_t n) {
                return RPM_ParseXmlDstTypeCodeFileNodeInfo_HOOK(xml, kBaseSoftwareCode, records, n);
            }))
            return qav::ReturnUInt(state, qav::kFailed);
        vnfc = false;
        for (uint32_t i = 0; i < count && !vnfc; ++i)
            vnfc = std::strchr(nodes[i].szFileName, '.') != nullptr &&
                   std::strstr(nodes[i].szFileName, ".zip") == nullptr;
    }
    SYSDT_SPTI_PushUInt(state, qav::kOk);
    SYSDT_SPTI_PushBool(state, vnfc ? 1 : 0);
    return 2;
}

} // extern "C"

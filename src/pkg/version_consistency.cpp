// Consistency of a package's vercfg.xml with the deployment: NE type, application type and
// version form, file integrity and the version type's file node.
#include <cstdlib>
#include <cstring>

#include "binding/script_frame.h"
#include "pkg/vercfg.h"
#include "rpm_vercfg.h"
#include "securec.h"

using namespace qav::vercfg;

namespace {

// The NE type of the package must be the deployment's VNFC type.
uint32_t CheckNeType(const char *xml, bool logDifference) {
    const char *vnfcType = std::getenv("VNFC_TYPE");
    char neType[40] = {0};
    if (vnfcType == nullptr || RPM_ParseXmlElementNodeValue_HOOK(xml, "NeType", neType, sizeof(neType)) != 0)
        return kNeTypeFailed;
    if (std::strncmp(neType, vnfcType, sizeof(neType)) != 0) {
        if (logDifference) PatLog(qav::kLogFailure, "Get NE type failed.");
        return kNeTypeFailed;
    }
    return 0;
}

uint32_t CheckFilesAndTypeCode(const char *xml, uint32_t flag) {
    if (QAV_UPG_CheckFiles(xml) != 1) return kCheckFailed;
    if (flag == 1 && SU_TypeCodeCheckInXml(xml) != 1) return kCheckFailed;
    return 0;
}

// Reads the two arguments of the check functions; the xml path on success.
bool ReadCheckInput(lua_State *state, char *xml, size_t size, uint32_t *flag) {
    int32_t argc = qav::ArgCount(state);
    if (argc != 2) {
        PatLog(qav::kLogFailure, "Format path ParaNum %d wrong.", argc);
        return false;
    }
    const char *dir = SYSDT_SPTI_ToString(state, 1);
    if (dir == nullptr) {
        PatLog(qav::kLogFailure, "String param is null.");
        return false;
    }
    *flag = SYSDT_SPTI_ToBoolean(state, 2) != 0 ? 1 : 0;
    return snprintf_s(xml, size, size - 1, "%s/%s", dir, "vercfg.xml") >= 0;
}

// The two check functions: the banner, the arguments, the check and its failure line, whose text
// is the same for both so that one log search finds either.
int RunXmlCheck(lua_State *state, const char *banner, uint32_t (*check)(const char *xmlPath, uint32_t flag)) {
    PatLog(qav::kLogStep, "%s", banner);
    char xml[256] = {0};
    uint32_t flag = 0;
    if (!ReadCheckInput(state, xml, sizeof(xml), &flag)) return qav::ReturnUInt(state, qav::kFailed);
    uint32_t rc = check(xml, flag);
    if (rc != 0) PatLog(qav::kLogFailure, "QAV_CheckXmlInfo failed, ret is %u.", rc);
    return qav::ReturnUInt(state, rc);
}

} // namespace

extern "C" {

uint32_t QAV_CheckXmlInfo(const char *xmlPath, uint32_t flag) {
    uint32_t rc = CheckNeType(xmlPath, false);
    return rc != 0 ? rc : CheckFilesAndTypeCode(xmlPath, flag);
}

uint32_t QAV_CheckModXmlInfo(const char *xmlPath, uint32_t flag) {
    uint32_t rc = CheckNeType(xmlPath, true);
    if (rc != 0) return rc;
    char appType[65] = {0};
    if (RPM_ParseXmlElementNodeValueByPath_HOOK(xmlPath, "Product/APPList/APP/APPType", appType,
                                                sizeof(appType)) != 0 ||
        std::strlen(appType) >= 64) {
        PatLog(qav::kLogFailure, "Get appType failed or appType is too long in xml.");
        return kAppTypeFailed;
    }
    char version[33] = {0};
    if (RPM_ParseXmlElementNodeValue_HOOK(xmlPath, "Version", version, sizeof(version)) != 0 ||
        std::strlen(version) >= 32) {
        // The text names the application type for a version failure too; kept as the logs show it.
        PatLog(qav::kLogFailure, "Get appType failed or versionID is too long in xml.");
        return kVersionFailed;
    }
    return CheckFilesAndTypeCode(xmlPath, flag);
}

QAV_ENTRY_FUNCTION QAV_CheckInfoFromXml(lua_State *state) {
    return RunXmlCheck(state, "===Check info from vercfg.xml===", QAV_CheckXmlInfo);
}

QAV_ENTRY_FUNCTION QAV_CheckModInfoFromXml(lua_State *state) {
    return RunXmlCheck(state, "===Check Mod info from vercfg.xml===", QAV_CheckModXmlInfo);
}

uint32_t QAV_GetAndCheckInfoFromXmlGetInput(lua_State *state, char *xml, uint32_t size) {
    int32_t argc = qav::ArgCount(state);
    if (argc != 1) {
        PatLog(qav::kLogFailure, "Format path ParaNum %d wrong.", argc);
        return qav::kFailed;
    }
    if (SYSDT_SPTI_ToString(state, 1) == nullptr) {
        PatLog(qav::kLogFailure, "String param 1 is null");
        return qav::kFailed;
    }
    return qav::CopyTextArg(state, 1, xml, size, "QAV_GetAndCheckInfoFromXmlGetInput", __LINE__)
               ? 0
               : qav::kFailed;
}

QAV_ENTRY_FUNCTION QAV_GetSoftwareNumFromXml(lua_State *state) {
    PatLog(qav::kLogStep, "===Get Software Num From Xml===");
    char xml[256] = {0};
    uint32_t rc = QAV_GetAndCheckInfoFromXmlGetInput(state, xml, sizeof(xml));
    if (rc != 0) {
        PatLog(qav::kLogFailure, "QAV_GetAndCheckInfoFromXmlGetInput failed, ret is %u.", rc);
        return qav::ReturnUIntPair(state, qav::kFailed, 0);
    }
    char versionType[64] = {0};
    uint32_t typeCode = 0;
    if (RPM_ParseXmlElementNodeValue_HOOK(xml, "VersionType", versionType, sizeof(versionType)) != 0 ||
        !TypeCodeOfVersionType(versionType, &typeCode))
        return qav::ReturnUIntPair(state, kVersionTypeUnknown, 0);
    uint32_t count = 0;
    rc = RPM_ParseXmlDstTypeCodeFileNodeNum_HOOK(xml, typeCode, &count);
    return qav::ReturnUIntPair(state, rc, count);
}

} // extern "C"

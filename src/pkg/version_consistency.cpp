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

constexpr uint32_t kStepLevel = 6;
constexpr uint32_t kVersionTypeUnknown = 12724;

// The NE type of the package must be the deployment's VNFC type.
uint32_t CheckNeType(const char *xml, bool logDifference) {
    const char *vnfcType = std::getenv("VNFC_TYPE");
    char neType[40] = {0};
    if (vnfcType == nullptr || RPM_ParseXmlElementNodeValue_HOOK(xml, "NeType", neType, sizeof(neType)) != 0)
        return kNeTypeFailed;
    if (std::strncmp(neType, vnfcType, sizeof(neType)) != 0) {
        if (logDifference) PatLog(3, "Get NE type failed.");
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
    int32_t argc = SYSDT_SPTI_GetTop(state);
    if (argc != 2) {
        PatLog(3, "Format path ParaNum %d wrong.", argc);
        return false;
    }
    const char *dir = SYSDT_SPTI_ToString(state, 1);
    if (dir == nullptr) {
        PatLog(3, "String param is null.");
        return false;
    }
    *flag = SYSDT_SPTI_ToBoolean(state, 2) != 0 ? 1 : 0;
    return snprintf_s(xml, size, size - 1, "%s/%s", dir, "vercfg.xml") >= 0;
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
        PatLog(3, "Get appType failed or appType is too long in xml.");
        return kAppTypeFailed;
    }
    char version[33] = {0};
    if (RPM_ParseXmlElementNodeValue_HOOK(xmlPath, "Version", version, sizeof(version)) != 0 ||
        std::strlen(version) >= 32) {
        // The text names the application type for a version failure too; kept as the logs show it.
        PatLog(3, "Get appType failed or versionID is too long in xml.");
        return kVersionFailed;
    }
    return CheckFilesAndTypeCode(xmlPath, flag);
}

QAV_ENTRY_FUNCTION QAV_CheckInfoFromXml(lua_State *state) {
    PatLog(kStepLevel, "===Check info from vercfg.xml===");
    char xml[256] = {0};
    uint32_t flag = 0;
    if (!ReadCheckInput(state, xml, sizeof(xml), &flag)) return qav::ReturnUInt(state, qav::kFailed);
    uint32_t rc = QAV_CheckXmlInfo(xml, flag);
    if (rc != 0) PatLog(3, "QAV_CheckXmlInfo failed, ret is %u.", rc);
    return qav::ReturnUInt(state, rc);
}

QAV_ENTRY_FUNCTION QAV_CheckModInfoFromXml(lua_State *state) {
    PatLog(kStepLevel, "===Check Mod info from vercfg.xml===");
    char xml[256] = {0};
    uint32_t flag = 0;
    if (!ReadCheckInput(state, xml, sizeof(xml), &flag)) return qav::ReturnUInt(state, qav::kFailed);
    uint32_t rc = QAV_CheckModXmlInfo(xml, flag);
    // The same text as the other check: one log search finds both.
    if (rc != 0) PatLog(3, "QAV_CheckXmlInfo failed, ret is %u.", rc);
    return qav::ReturnUInt(state, rc);
}

uint32_t QAV_GetAndCheckInfoFromXmlGetInput(lua_State *state, char *xml, uint32_t size) {
    int32_t argc = SYSDT_SPTI_GetTop(state);
    if (argc != 1) {
        PatLog(3, "Format path ParaNum %d wrong.", argc);
        return qav::kFailed;
    }
    if (SYSDT_SPTI_ToString(state, 1) == nullptr) {
        PatLog(3, "String param 1 is null");
        return qav::kFailed;
    }
    return qav::CopyStringArg(state, 1, xml, size, "QAV_GetAndCheckInfoFromXmlGetInput", __LINE__)
               ? 0
               : qav::kFailed;
}

QAV_ENTRY_FUNCTION QAV_GetSoftwareNumFromXml(lua_State *state) {
    PatLog(kStepLevel, "===Get Software Num From Xml===");
    auto pushCodeCount = [state](uint32_t code, uint32_t count) {
        SYSDT_SPTI_PushUInt(state, code);
        SYSDT_SPTI_PushUInt(state, count);
        return 2;
    };
    char xml[256] = {0};
    uint32_t rc = QAV_GetAndCheckInfoFromXmlGetInput(state, xml, sizeof(xml));
    if (rc != 0) {
        PatLog(3, "QAV_GetAndCheckInfoFromXmlGetInput failed, ret is %u.", rc);
        return pushCodeCount(qav::kFailed, 0);
    }
    char versionType[64] = {0};
    uint32_t typeCode = 0;
    if (RPM_ParseXmlElementNodeValue_HOOK(xml, "VersionType", versionType, sizeof(versionType)) != 0 ||
        !TypeCodeOfVersionType(versionType, &typeCode))
        return pushCodeCount(kVersionTypeUnknown, 0);
    uint32_t count = 0;
    rc = RPM_ParseXmlDstTypeCodeFileNodeNum_HOOK(xml, typeCode, &count);
    return pushCodeCount(rc, count);
}

} // extern "C"

// The risk-check report: an XML file per NE ("RiskCheck" root, the "NeName" element, result
// groups of numbered "Items" with four "Item" children), the package parameter check and the
// risk-check event.
#include <cstring>

#include "binding/script_frame.h"
#include "event/component_id.h"
#include "qav_event.h"
#include "pkg/vercfg.h"
#include "rpm_paths.h"
#include "rpm_vercfg.h"
#include "securec.h"
#include "zak_xml.h"

using qav::vercfg::PatLog;

namespace {

constexpr const char *kRootName = "RiskCheck";
constexpr const char *kEncoding = "UTF-8";
constexpr uint32_t kPackageMismatch = 12738;
constexpr uint32_t kPackageUnreadable = 12740;
constexpr uint32_t kRiskEventId = 0xD181004;
constexpr uint16_t kEventBufferSize = 1024;

const xmlChar *X(const char *text) {
    return reinterpret_cast<const xmlChar *>(text);
}

// Copies `text` cut to `size - 1` bytes; a cut never splits a UTF-8 character, so the saved report
// stays well-formed. Bytes that are not UTF-8 are cut where they fall (at most three are dropped).
void CopyCutUtf8(char *buffer, size_t size, const char *text) {
    size_t length = std::strlen(text);
    if (length >= size) {
        length = size - 1;
        for (int back = 0;
             back < 3 && length > 0 && (static_cast<unsigned char>(text[length]) & 0xC0) == 0x80; ++back)
            --length;
    }
    (void)memcpy_s(buffer, size, text, length);
    buffer[length] = '\0';
}

} // namespace

extern "C" {

// The result record passed from the input reader to the tree builder.
struct QAV_RISK_CHECK_RESULT {
    char szCheckItem[128];
    char szDescription[1024];
    char szActionType[128];
    char szSolution[1024];
};
static_assert(sizeof(QAV_RISK_CHECK_RESULT) == 2304);

xmlNodePtr QAV_XmlNewChild(xmlNodePtr parent, const char *name, const char *text) {
    return ZAK_Adapt_xmlNewChild(parent, nullptr, X(name), X(text));
}

xmlAttrPtr QAV_XmlSetProp(xmlNodePtr node, const char *name, const char *value) {
    return ZAK_Adapt_xmlSetProp(node, X(name), X(value));
}

uint32_t QAV_CreateRiskCheckXmlFile(const char *path, const char *neName, const char *neItemName,
                                    const char *rootName) {
    xmlDocPtr doc = ZAK_Adapt_xmlNewDoc(X("1.0"));
    if (doc == nullptr) return qav::kFailed;
    xmlNodePtr root = ZAK_Adapt_xmlNewNode(nullptr, X(rootName));
    if (root == nullptr) {
        ZAK_Adapt_xmlFreeDoc(doc);
        return qav::kFailed;
    }
    (void)ZAK_Adapt_xmlDocSetRootElement(doc, root);
    xmlNodePtr ne = QAV_XmlNewChild(root, "NeName", neName);
    if (ne == nullptr || QAV_XmlSetProp(ne, "name", neItemName) == nullptr) {
        ZAK_Adapt_xmlFreeDoc(doc);
        return qav::kFailed;
    }
    int saved = ZAK_Adapt_xmlSaveFormatFileEnc(path, doc, kEncoding, 1);
    ZAK_Adapt_xmlFreeDoc(doc);
    if (saved < 0) {
        PatLog(qav::kLogFailure, "xmlSaveFile failed, ret is %u.", static_cast<uint32_t>(saved));
        return qav::kFailed;
    }
    if (P_ZAK_Chown2ZAK(path, 0) != 0)
        PatLog(qav::kLogMinorFailure, "Failed to change owner. File:%s.", path);
    return qav::kOk;
}

// The parsed report when its root is `rootName`; null (and the reason logged) otherwise.
xmlDocPtr QAV_ParseAndCheckXmlFile(const char *path, const char *rootName, xmlNodePtr *root) {
    xmlDocPtr doc = nullptr;
    if (RPM_ParseXmlFile_HOOK(path, &doc) != 0 || doc == nullptr) {
        PatLog(qav::kLogFailure, "There is no xml:(%s)!", path);
        return nullptr;
    }
    xmlNodePtr top = ZAK_Adapt_xmlDocGetRootElement(doc);
    if (top == nullptr) {
        PatLog(qav::kLogFailure, "Get root node fail from xml file(%s)!", path);
    } else if (xmlStrcmp(top->name, X(rootName)) != 0) {
        PatLog(qav::kLogFailure, "Root element name error, '%s' should be '%s'!",
               reinterpret_cast<const char *>(top->name), rootName);
    } else {
        *root = top;
        return doc;
    }
    ZAK_Adapt_xmlFreeDoc(doc);
    return nullptr;
}

uint32_t QAV_GetChildrenNum(xmlNodePtr group) {
    uint32_t count = 0;
    for (xmlNodePtr c = group->children; c != nullptr; c = c->next)
        if (xmlStrcmp(c->name, X("Items")) == 0) ++count;
    return count;
}

uint32_t QAV_AddCheckResultItem(xmlNodePtr group, const QAV_RISK_CHECK_RESULT *result) {
    char index[16] = {0};
    (void)snprintf_s(index, sizeof(index), sizeof(index) - 1, "%u", QAV_GetChildrenNum(group) + 1);
    xmlNodePtr items = QAV_XmlNewChild(group, "Items", nullptr);
    if (items == nullptr || QAV_XmlSetProp(items, "index", index) == nullptr) return qav::kFailed;
    const struct {
        const char *name;
        const char *text;
    } rows[] = {{"Check Item", result->szCheckItem},
                {"Description", result->szDescription},
                {"Action Type", result->szActionType},
                {"Solution", result->szSolution}};
    for (const auto &row : rows) {
        xmlNodePtr item = QAV_XmlNewChild(items, "Item", row.text);
        if (item == nullptr || QAV_XmlSetProp(item, "name", row.name) == nullptr) return qav::kFailed;
    }
    return qav::kOk;
}

uint32_t QAV_AddCheckResult(xmlNodePtr root, const char *groupName, const QAV_RISK_CHECK_RESULT *result) {
    xmlNodePtr group = nullptr;
    for (xmlNodePtr c = root->children; c != nullptr && group == nullptr; c = c->next)
        if (c->type == XML_ELEMENT_NODE && xmlStrcmp(c->name, X(groupName)) == 0) group = c;
    if (group == nullptr) group = QAV_XmlNewChild(root, groupName, nullptr);
    if (group == nullptr) return qav::kFailed;
    return QAV_AddCheckResultItem(group, result);
}

uint32_t QAV_GetAndCheckXmlFileInitInfoFromInput(lua_State *state, char *path, char *neName,
                                                 char *neItemName) {
    int32_t argc = SYSDT_SPTI_GetTop(state);
    if (argc != 3) {
        PatLog(qav::kLogFailure, "Format path ParaNum %d wrong.", argc);
        return qav::kFailed;
    }
    struct {
        char *buffer;
        size_t size;
        const char *missing;
    } args[] = {{path, 256, "get xml path failed."},
                {neName, 128, "get NeName failed."},
                {neItemName, 128, "get NeItemName failed."}};
    for (int i = 0; i < 3; ++i) {
        const char *text = SYSDT_SPTI_ToString(state, i + 1);
        if (text == nullptr) {
            PatLog(qav::kLogFailure, "%s", args[i].missing);
            return qav::kFailed;
        }
        // A text too long for its buffer is reported and the call goes on with what the copy left.
        errno_t rc = strcpy_s(args[i].buffer, args[i].size, text);
        if (rc != EOK) qav::LogCallFailure("QAV_GetAndCheckXmlFileInitInfoFromInput", rc, __LINE__);
    }
    return qav::kOk;
}

QAV_ENTRY_FUNCTION QAV_InitRiskCheckXmlFile(lua_State *state) {
    char path[256] = {0};
    char neName[128] = {0};
    char neItemName[128] = {0};
    uint32_t rc = QAV_GetAndCheckXmlFileInitInfoFromInput(state, path, neName, neItemName);
    if (rc != 0) {
        PatLog(qav::kLogFailure, "QAV_GetAndCheckXmlFileInitInfoFromInput failed, ret is %u.", rc);
        return qav::ReturnUInt(state, qav::kFailed);
    }
    rc = QAV_CreateRiskCheckXmlFile(path, neName, neItemName, kRootName);
    if (rc != 0) {
        PatLog(qav::kLogFailure, "QAV_CreateRiskCheckXmlFile failed, ret is %u.", rc);
        return qav::ReturnUInt(state, qav::kFailed);
    }
    return qav::ReturnUInt(state, qav::kOk);
}

uint32_t QAV_SetXmlNodeContentGetInput(lua_State *state, char *path, char *group,
                                       QAV_RISK_CHECK_RESULT *result) {
    int32_t argc = SYSDT_SPTI_GetTop(state);
    if (argc != 6) {
        PatLog(qav::kLogFailure, "Format path ParaNum %d wrong.", argc);
        return qav::kFailed;
    }
    struct {
        char *buffer;
        size_t size;
        const char *missing;
        bool cut;
    } args[] = {{path, 256, "get xml path failed.", false},
                {group, 128, "get xml node name failed.", false},
                {result->szCheckItem, sizeof(result->szCheckItem), "get xml check item failed.", true},
                {result->szDescription, sizeof(result->szDescription), "get xml description failed.", true},
                {result->szActionType, sizeof(result->szActionType), "get xml action type failed.", true},
                {result->szSolution, sizeof(result->szSolution), "get xml solution failed.", true}};
    for (int i = 0; i < 6; ++i) {
        const char *text = SYSDT_SPTI_ToString(state, i + 1);
        if (text == nullptr) {
            PatLog(qav::kLogFailure, "%s", args[i].missing);
            return qav::kFailed;
        }
        // The texts of a result are stored cut to their buffers; the file and the group must fit whole.
        if (args[i].cut) {
            CopyCutUtf8(args[i].buffer, args[i].size, text);
        } else if (errno_t rc = strcpy_s(args[i].buffer, args[i].size, text); rc != EOK) {
            qav::LogCallFailure("QAV_SetXmlNodeContentGetInput", rc, __LINE__);
            return qav::kFailed;
        }
    }
    return qav::kOk;
}

QAV_ENTRY_FUNCTION QAV_AddRiskCheckResult(lua_State *state) {
    auto *result = static_cast<QAV_RISK_CHECK_RESULT *>(ZAK_Malloc_F(
        g_pLocaHandleQav, g_aucZakMemPt, sizeof(QAV_RISK_CHECK_RESULT), qav::kSourceTag, __LINE__));
    if (result == nullptr) {
        PatLog(qav::kLogFailure, "malloc failed!");
        return qav::ReturnUInt(state, qav::kFailed);
    }
    (void)memset_s(result, sizeof(*result), 0, sizeof(*result));
    char path[256] = {0};
    char group[128] = {0};
    uint32_t code = qav::kFailed;
    uint32_t rc = QAV_SetXmlNodeContentGetInput(state, path, group, result);
    if (rc != 0) {
        PatLog(qav::kLogFailure, "QAV_SetXmlNodeContentGetInput failed, ret is %u.", rc);
    } else {
        xmlNodePtr root = nullptr;
        xmlDocPtr doc = QAV_ParseAndCheckXmlFile(path, kRootName, &root);
        if (doc == nullptr) {
            PatLog(qav::kLogFailure, "Check xml file(%s) fail!", path);
        } else {
            rc = QAV_AddCheckResult(root, group, result);
            if (rc != 0) {
                PatLog(qav::kLogFailure, "QAV_AddCheckResult failed, ret is %u.", rc);
            } else {
                xmlChar *memory = nullptr;
                int size = 0;
                ZAK_Adapt_xmlDocDumpFormatMemoryEnc(doc, &memory, &size, kEncoding, 1);
                if (memory != nullptr) ZAK_Adapt_xmlFree(memory);
                int saved = ZAK_Adapt_xmlSaveFormatFileEnc(path, doc, kEncoding, 1);
                if (saved < 0)
                    PatLog(qav::kLogFailure, "xmlSaveFile failed, ret is %u.", static_cast<uint32_t>(saved));
                else
                    code = qav::kOk;
            }
            ZAK_Adapt_xmlFreeDoc(doc);
        }
    }
    (void)ZAK_Free_F(result, qav::kSourceTag, __LINE__);
    return qav::ReturnUInt(state, code);
}

// The expected texts stay on the stack for the call; they are compared over the lengths the
// check uses, so longer texts are accepted as they are.
uint32_t QAV_RiskCheckParaCheckGetInput(lua_State *state, char *xml, const char **packageType,
                                        const char **version) {
    int32_t argc = SYSDT_SPTI_GetTop(state);
    if (argc != 3) {
        PatLog(qav::kLogFailure, "Format path ParaNum %d wrong.", argc);
        return qav::kFailed;
    }
    const char *texts[3];
    for (int i = 0; i < 3; ++i) {
        texts[i] = SYSDT_SPTI_ToString(state, i + 1);
        if (texts[i] == nullptr) {
            PatLog(qav::kLogFailure, "String param %d is null", i + 1);
            return qav::kFailed;
        }
    }
    if (!qav::CopyStringArg(state, 1, xml, 256, "QAV_RiskCheckParaCheckGetInput", __LINE__))
        return qav::kFailed;
    *packageType = texts[1];
    *version = texts[2];
    return qav::kOk;
}

QAV_ENTRY_FUNCTION QAV_RiskCheckParaCheck(lua_State *state) {
    char xml[256] = {0};
    const char *expectedType = nullptr;
    const char *expectedVersion = nullptr;
    uint32_t rc = QAV_RiskCheckParaCheckGetInput(state, xml, &expectedType, &expectedVersion);
    if (rc != 0) {
        PatLog(qav::kLogFailure, "QAV_RiskCheckParaCheckGetInput failed, ret is %u.", rc);
        return qav::ReturnUInt(state, qav::kFailed);
    }
    char packageType[64] = {0};
    rc =
        RPM_ParseXmlElementNodeValueByPath_HOOK(xml, "Product/PackageType", packageType, sizeof(packageType));
    if (rc != 0) {
        PatLog(qav::kLogFailure, "Get PackageType from file(%s) fail! RetCode:%u.", xml, rc);
        return qav::ReturnUInt(state, kPackageUnreadable);
    }
    if (std::strncmp(expectedType, packageType, 64) != 0) {
        PatLog(qav::kLogFailure, "the PackageType(%s) is diff from vercfg.xml(%s)", expectedType,
               packageType);
        return qav::ReturnUInt(state, kPackageMismatch);
    }
    char version[64] = {0};
    rc = RPM_ParseXmlElementNodeValueByPath_HOOK(xml, "Product/Version", version, sizeof(version));
    if (rc != 0) {
        PatLog(qav::kLogFailure, "Get Version from file(%s) fail! RetCode:%u.", xml, rc);
        return qav::ReturnUInt(state, kPackageUnreadable);
    }
    if (std::strncmp(expectedVersion, version, 32) != 0) {
        PatLog(qav::kLogFailure, "the Version(%s) is diff from vercfg.xml(%s)", expectedVersion, version);
        return qav::ReturnUInt(state, kPackageMismatch);
    }
    return qav::ReturnUInt(state, qav::kOk);
}

uint32_t QAV_SCH_ReportProcessGetInput(lua_State *state, uint32_t *code, char *text1, char *text2) {
    int32_t argc = SYSDT_SPTI_GetTop(state);
    if (argc != 3) {
        PatLog(qav::kLogFailure, "Format path ParaNum %d wrong.", argc);
        return qav::kFailed;
    }
    *code = SYSDT_SPTI_ToUInt(state, 1);
    const char *first = SYSDT_SPTI_ToString(state, 2);
    if (first == nullptr) {
        PatLog(qav::kLogFailure, "String param 2 is null");
        return qav::kFailed;
    }
    const char *second = SYSDT_SPTI_ToString(state, 3);
    if (second == nullptr) {
        PatLog(qav::kLogFailure, "String param 3 is null");
        return qav::kFailed;
    }
    (void)snprintf_truncated_s(text1, 256, "%s", first);
    (void)snprintf_truncated_s(text2, 256, "%s", second);
    return qav::kOk;
}

QAV_ENTRY_FUNCTION QAV_RiskCheckReport(lua_State *state) {
    uint32_t checkCode = 0;
    char text1[256] = {0};
    char text2[256] = {0};
    uint32_t rc = QAV_SCH_ReportProcessGetInput(state, &checkCode, text1, text2);
    if (rc != 0) {
        // The message names the reader of another report; the log searches expect it.
        PatLog(qav::kLogFailure, "QAV_SCH_ReportProcessGetInput failed, ret is %u.", rc);
        return qav::ReturnUInt(state, qav::kFailed);
    }
    auto *control = static_cast<QAV_EVENT_CTRL *>(
        ZAK_Malloc_F(g_pLocaHandleQav, g_aucZakMemPt, sizeof(QAV_EVENT_CTRL), qav::kSourceTag, __LINE__));
    if (control == nullptr) return qav::ReturnUInt(state, qav::kFailed);
    control->pucBuffer = static_cast<uint8_t *>(
        ZAK_Malloc_F(g_pLocaHandleQav, g_aucZakMemPt, kEventBufferSize, qav::kSourceTag, __LINE__));
    if (control->pucBuffer == nullptr) {
        (void)ZAK_Free_F(control, qav::kSourceTag, __LINE__);
        return qav::ReturnUInt(state, qav::kFailed);
    }
    (void)memset_s(control->pucBuffer, kEventBufferSize, 0, kEventBufferSize);
    control->usUsedLen = 0;
    control->usCapacity = kEventBufferSize;
    const uint16_t element[3] = {1, 2, static_cast<uint16_t>(checkCode & 0xFFFF)};
    (void)memcpy_s(control->pucBuffer + control->usUsedLen, control->usCapacity - control->usUsedLen, element,
                   sizeof(element));
    control->usUsedLen = static_cast<uint16_t>(control->usUsedLen + sizeof(element));
    uint32_t cid = 0;
    (void)QAV_GetEcmCid(&cid);
    rc = QAV_EventLogCtrl(cid, control, kRiskEventId, "%s%s", text1, text2);
    (void)ZAK_Free_F(control->pucBuffer, qav::kSourceTag, __LINE__);
    (void)ZAK_Free_F(control, qav::kSourceTag, __LINE__);
    return qav::ReturnUInt(state, rc);
}

QAV_ENTRY_FUNCTION QAV_RiskGetOSUpdMode(lua_State *state) {
    // The OS update mode is not reported by the update script on any device: always 0.
    RPM_LogToFile(qav::kUpgradeLogId, qav::kLogStateChange,
                  "[RiskCheck_OSMode]The result of Upd_mode from .sh is %u.", 0u);
    return qav::ReturnUInt(state, 0);
}

} // extern "C"

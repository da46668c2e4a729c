// Script log functions: lines into the diagnostic, service-deployment, patch and trace logs, and
// small report helpers (log paths, stamp texts, dictionaries, HA faults).
#include <cstring>

#include "binding/script_frame.h"
#include "rpm_trace.h"
#include "securec.h"

QAV_ENTRY_FUNCTION QAV_WriteLog(lua_State *state) {
    int32_t count = qav::ArgCount(state);
    if (count != 2) return qav::ReturnUInt(state, qav::kFailed);
    const char *text = qav::TextArg(state, 2);
    // A text that is not a string answers with the argument count, 2.
    if (text == nullptr) return qav::ReturnUInt(state, static_cast<uint32_t>(count));
    QAV_STDiagLogToFile(qav::kDiagModule, 4, "[lua-log]%s\n", text);
    return qav::ReturnUInt(state, qav::kOk);
}

QAV_ENTRY_FUNCTION QAV_SDMWriteLog(lua_State *state) {
    if (!qav::ArgsMatch(state, ".")) return qav::ReturnUInt(state, qav::kFailed);
    const char *text = qav::TextArg(state, 1);
    if (text == nullptr) return qav::ReturnUInt(state, 2);
    QAV_STLogToFile(13, "[sdm-log]%s\n", text); // the software-management log
    return qav::ReturnUInt(state, qav::kOk);
}

QAV_ENTRY_FUNCTION QAV_PAT_WriteLog(lua_State *state) {
    if (!qav::ArgsMatch(state, "..")) return qav::ReturnUInt(state, qav::kGenericFailure);
    uint32_t length = 0;
    const char *text = qav::ValueIs(state, 2, 's') ? SYSDT_SPTI_ToLString(state, 2, &length) : nullptr;
    if (text == nullptr) return qav::ReturnUInt(state, qav::event::kNotText);
    // A long text is cut in place: the zero byte lands in the script's own string, which the
    // patch scripts then see shortened as well.
    constexpr size_t kPatchLineLimit = 299;
    if (length > kPatchLineLimit) const_cast<char *>(text)[kPatchLineLimit] = '\0';
    PAT_LogToFile(1, static_cast<uint32_t>(SYSDT_SPTI_ToInt(state, 1)), 1, "%s", text);
    return qav::ReturnUInt(state, qav::kOk);
}

QAV_ENTRY_FUNCTION QAV_PAT_WriteTraceLog(lua_State *state) {
    if (!qav::ArgsMatch(state, ".")) return qav::ReturnUInt(state, qav::kGenericFailure);
    const char *text = qav::TextArg(state, 1);
    if (text == nullptr) return qav::ReturnUInt(state, qav::event::kNotText);
    if (RPM_IsTracePatchOn(text) == 1) (void)RPM_SavePerformTraceFileToFile(2, "%s", text);
    return qav::ReturnUInt(state, qav::kOk);
}

QAV_ENTRY_FUNCTION QAV_RPM_ParseLog(lua_State *state) {
    const char *text = qav::ArgsMatch(state, "s") ? SYSDT_SPTI_ToString(state, 1) : nullptr;
    if (text == nullptr) return qav::ReturnUInt(state, qav::kBadArgument);
    char path[300] = {};
    (void)RPM_LogParseLinuxPath(text, path, sizeof path);
    return qav::ReturnUIntText(state, qav::kOk, path, sizeof path);
}

QAV_ENTRY_FUNCTION QAV_CreateShowStrByInfoCode(lua_State *state) {
    char shown[64] = {};
    const char *text = qav::ArgsMatch(state, ".s") ? SYSDT_SPTI_ToString(state, 2) : nullptr;
    if (text == nullptr) return qav::ReturnUIntText(state, qav::kFailed, shown, sizeof shown);
    uint32_t infoCode = SYSDT_SPTI_ToUInt(state, 1);
    uint32_t status = ZAK_GetStampShowStrByInfoCode(infoCode, text, sizeof shown, shown);
    // 515 (no text of its own) still gives a usable text.
    if (status != 0 && status != ZAK_STAMP_NO_TEXT)
        (void)snprintf_s(shown, sizeof shown, sizeof shown - 1, "ERR! infoCode = %#x retCode = %u", infoCode,
                         status);
    shown[sizeof shown - 1] = '\0';
    return qav::ReturnUIntText(state, status, shown, sizeof shown);
}

QAV_ENTRY_FUNCTION QAV_FreeMemoryOfDictionary(lua_State *state) {
    if (!qav::ArgsMatch(state, ".")) return qav::ReturnUInt(state, qav::kFailed);
    (void)ZAK_FreeMemoryOfDictionary(SYSDT_SPTI_ToInt(state, 1));
    return qav::ReturnUInt(state, qav::kOk);
}

QAV_ENTRY_FUNCTION QAV_SU_RecordExceptionLog(lua_State *state) {
    // No count check: missing arguments read as 0.
    uint32_t faultType = SYSDT_SPTI_ToUInt(state, 1);
    uint32_t instanceId = SYSDT_SPTI_ToUInt(state, 2);
    uint32_t osNode = SYSDT_SPTI_ToUInt(state, 3);
    QAV_Log(0, qav::kBaseLogCode,
            "QAV_SU_RecordExceptionLog uiHafaultype=%d, uiInstancdId=%d, uiOsnode=%d.\n",
            static_cast<int32_t>(faultType), static_cast<int32_t>(instanceId), static_cast<int32_t>(osNode));
    (void)ISSU_RecHaFault(faultType, instanceId, osNode);
    return 0;
}

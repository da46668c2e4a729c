#include "event/component_id.h"

#include "binding/memory.h"
#include "binding/script_frame.h"
#include "cmf_db.h"
#include "qav_event.h"

namespace {
constexpr uint32_t kEcmComponentType = 204;
constexpr uint32_t kDbIdKind = 2;
constexpr uint32_t kResultSize = 32;
} // namespace

extern "C" {

// The id of the first component of `type` in the configuration database (component table, keyed
// by the component type).
uint32_t QAV_GetCompCidByCompType(uint32_t type, uint32_t *componentId) {
    if (componentId == nullptr) {
        ZAK_Assert(qav::kSourceTag, __LINE__, 0);
        return qav::kInvalidCall;
    }
    uint32_t dbId = 0;
    if (ZAK_GetEnvValue(kDbIdKind, &dbId) != 0) {
        ha_log(5, "In %s ZAK_GetEnvValue for DB_ID failed.\r\n", "QAV_GetCompCidByCompType");
        return qav::kInvalidCall;
    }
    auto *cond = static_cast<CMF_DB_COND *>(qav::PlatformAlloc(sizeof(CMF_DB_COND)));
    auto *result = static_cast<uint32_t *>(qav::PlatformAlloc(kResultSize));
    uint32_t rc = qav::kInvalidCall;
    if (cond != nullptr && result != nullptr) {
        *cond = CMF_DB_COND{};
        cond->uiDbId = dbId;
        cond->uiMatchNum = 1;
        cond->uiKeyNum = 1;
        cond->astKey[0] = {CMF_COMP_FIELD_TYPE, sizeof(uint32_t), type};
        rc = CMF_DBSelectFirstRec(CMF_TAB_COMPONENT, cond, result, kResultSize);
        if (rc == 0) *componentId = result[0];
    }
    qav::PlatformFree(cond);
    qav::PlatformFree(result);
    return rc;
}

// Always 0: the lookup's own result is not passed on, so callers' failure branches stay unused.
uint32_t QAV_GetEcmCid(uint32_t *componentId) {
    (void)QAV_GetCompCidByCompType(kEcmComponentType, componentId);
    QAV_Log(0, 0, "CMF_GetCIDInLocByType proc fail. uiRet = %d\n", 0);
    return 0;
}

} // extern "C"

#include "event/component_id.h"

#include "platform_logs.h"

// Defined once the configuration database is available; until then the id stays 0.
extern "C" uint32_t QAV_GetCompCidByCompType(uint32_t type, uint32_t *componentId) __attribute__((weak));

namespace {
constexpr uint32_t kEcmComponentType = 204;
}

extern "C" uint32_t QAV_GetEcmCid(uint32_t *componentId) {
    if (QAV_GetCompCidByCompType != nullptr) (void)QAV_GetCompCidByCompType(kEcmComponentType, componentId);
    QAV_Log(0, 0, "CMF_GetCIDInLocByType proc fail. uiRet = %d\n", 0);
    return 0;
}

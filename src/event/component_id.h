// The component id under which this library files its event records.
#pragma once

#include <cstdint>

extern "C" {
// Always 0: the lookup's own result is not passed on, so callers' failure branches stay unused.
uint32_t QAV_GetEcmCid(uint32_t *componentId);
}

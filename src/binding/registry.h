// The function registry: every script function in registration order, ended by a null entry.
#pragma once

#include <cstddef>

#include "script_engine.h"

namespace qav {
// One per row of registry.def.
inline constexpr size_t kRegistryEntries = 0
#define QAV_ENTRY(name, function) +1
#include "binding/registry.def"
#undef QAV_ENTRY
    ;
// kRegistryEntries entries and the terminator.
extern const SCRIPT_REG_ENTRY kRegistry[kRegistryEntries + 1];
} // namespace qav

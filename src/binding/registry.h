// The function registry: every script function in registration order, ended by a null entry.
#pragma once

#include <cstddef>

#include "script_engine.h"

namespace qav {
inline constexpr size_t kRegistryEntries = 309;
// kRegistryEntries entries and the terminator.
extern const SCRIPT_REG_ENTRY kRegistry[kRegistryEntries + 1];
} // namespace qav

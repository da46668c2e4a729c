// Clock readings shared by the state tables.
#pragma once

#include <cstdint>

namespace qav {

// Whole seconds of CLOCK_MONOTONIC; 0 when the clock cannot be read.
uint32_t MonotonicSeconds();

} // namespace qav

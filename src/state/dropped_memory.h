// Blocks that the shared-state tables drop on purpose without freeing them (a re-initialised
// table forgets its buffer, an expired upgrade lock forgets its VM lists). The leak checker of
// sanitizer builds is told so; elsewhere this does nothing.
#pragma once

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

namespace qav {

inline void KeepDropped(const void *block) {
#if defined(__SANITIZE_ADDRESS__)
    if (block != nullptr) __lsan_ignore_object(block);
#else
    (void)block;
#endif
}

} // namespace qav

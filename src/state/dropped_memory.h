// Blocks that the shared-state tables drop on purpose without freeing them (a re-initialised
// table forgets its buffer, an expired upgrade lock forgets its VM lists). The leak checker of
// sanitizer builds is told so; elsewhere this does nothing.
#pragma once

// gcc announces AddressSanitizer with __SANITIZE_ADDRESS__, clang through __has_feature.
#if defined(__SANITIZE_ADDRESS__)
#define QAV_LEAK_CHECKER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define QAV_LEAK_CHECKER 1
#endif
#endif
#if defined(QAV_LEAK_CHECKER)
#include <sanitizer/lsan_interface.h>
#endif

namespace qav {

inline void KeepDropped(const void *block) {
#if defined(QAV_LEAK_CHECKER)
    if (block != nullptr) __lsan_ignore_object(block);
#else
    (void)block;
#endif
}

} // namespace qav

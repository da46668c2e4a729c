// Helpers shared by the host's package-manager services.
#pragma once

#include <cstdint>
#include <string>

#include "host.h"

namespace zakhost::pkg {

// True when the next call of `service` is made to fail; *code is the injected result (1 when
// the injection gave 0).
inline bool injected_code(const char *service, uint32_t *code) {
    int64_t result = 0;
    if (!zakhost::injected(service, &result)) return false;
    *code = result != 0 ? static_cast<uint32_t>(result) : 1;
    return true;
}

// Copies text into out[size] whole; false when it does not fit.
bool copy_out(const std::string &text, char *out, uint32_t size);
// Removes a tree; true when nothing is left.
bool remove_tree(const std::string &path);

} // namespace zakhost::pkg

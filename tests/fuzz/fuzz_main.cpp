// libFuzzer entry points of the call-anything harness.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "call_anything.h"

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    qavfuzz::Setup();
    std::atexit(qavfuzz::Teardown);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    qavfuzz::RunInput(data, size);
    return 0;
}

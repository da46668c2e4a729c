// The request record of the process calls: what a process manager would be sent.
#pragma once

#include <cstdint>

namespace qav {

struct ProcessRequest {
    uint32_t instanceId;
    char name[33];  // at most 32 characters, longer names are cut
    char path[256]; // creation only
    char argv[256]; // creation only
};

// Fills the record; texts are cut to fit, a null text leaves its field empty.
void FillProcessRequest(ProcessRequest *request, const char *name, uint32_t instanceId, const char *path,
                        const char *argv);

} // namespace qav

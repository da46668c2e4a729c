// Command execution: the filter that keeps shell syntax out of command arguments, and the shell.
#include <cstdarg>
#include <cstring>

#include "frame_cmd.h"
#include "host.h"

namespace {

// Anything a POSIX shell would treat as syntax, expansion, quoting or a word break.
constexpr const char *kShellCharacters = "|&;<>()$`\\\"' \t\n\r*?[]#~!{}^";

bool safe_argument(const char *text) {
    if (text == nullptr || *text == '\0') return false;
    for (const char *p = text; *p != '\0'; ++p)
        if (std::strchr(kShellCharacters, *p) != nullptr || static_cast<unsigned char>(*p) < 0x20)
            return false;
    return true;
}

} // namespace

extern "C" {

uint32_t Frame_CommandFilter(uint32_t count, ...) {
    if (uint32_t code = 0; zakhost::injected_code("Frame_CommandFilter", &code)) return code;
    va_list args;
    va_start(args, count);
    uint32_t result = 0;
    for (uint32_t i = 0; i < count; ++i)
        if (!safe_argument(va_arg(args, const char *))) result = 1;
    va_end(args);
    return result;
}

int32_t Frame_System(const char *command) {
    if (uint32_t code = 0; zakhost::injected_code("Frame_System", &code)) return static_cast<int32_t>(code);
    if (command == nullptr) return -1;
    const char *argv[] = {"/bin/sh", "-c", command, nullptr};
    return zakhost::run_command(argv);
}

} // extern "C"

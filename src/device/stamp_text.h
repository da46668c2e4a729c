// Formats a script's text used as a format: each conversion is interpreted, but none reads an
// argument - numbers print as zero, texts as empty, pointers as null, "%n" writes nothing - so no
// script text can read or write memory through the formatter.
#pragma once

#include <cstddef>

namespace qav {

// Writes at most size - 1 characters and a NUL into out; returns the length written.
size_t FormatWithoutArguments(const char *format, char *out, size_t size);

} // namespace qav

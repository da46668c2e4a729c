#include "device/stamp_text.h"

#include <cstdio>
#include <cstring>
#include <string>

namespace qav {
namespace {

constexpr const char *kFlags = "-+ #0'I";
constexpr const char *kLengths = "hlLqjzZt";

// One conversion printed with a zero (or empty, or null) argument; `conversionSpec` has no '*' and no
// length modifier left.
std::string PrintZero(const std::string &conversionSpec, char conversion) {
    char buffer[512];
    int length = -1;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
    switch (conversion) {
    case 'd':
    case 'i':
    case 'c':
        length = std::snprintf(buffer, sizeof buffer, conversionSpec.c_str(), 0);
        break;
    case 'u':
    case 'o':
    case 'x':
    case 'X':
        length = std::snprintf(buffer, sizeof buffer, conversionSpec.c_str(), 0u);
        break;
    case 's':
        length = std::snprintf(buffer, sizeof buffer, conversionSpec.c_str(), "");
        break;
    case 'p':
        length = std::snprintf(buffer, sizeof buffer, conversionSpec.c_str(), static_cast<void *>(nullptr));
        break;
    default: // e, E, f, F, g, G, a, A
        length = std::snprintf(buffer, sizeof buffer, conversionSpec.c_str(), 0.0);
        break;
    }
#pragma GCC diagnostic pop
    if (length < 0) return {};
    size_t size =
        static_cast<size_t>(length) < sizeof buffer ? static_cast<size_t>(length) : sizeof buffer - 1;
    return std::string(buffer, size); // a "%c" of zero yields a NUL, which ends the text
}

} // namespace

size_t FormatWithoutArguments(const char *format, char *out, size_t size) {
    if (out == nullptr || size == 0) return 0;
    std::string text;
    const char *p = format != nullptr ? format : "";
    while (*p != '\0' && text.find('\0') == std::string::npos && text.size() < size) {
        if (*p != '%') {
            text += *p++;
            continue;
        }
        const char *start = p++;
        std::string conversionSpec = "%";
        while (*p != '\0' && std::strchr(kFlags, *p) != nullptr)
            conversionSpec += *p++;
        if (*p == '*') {
            ++p; // a width taken from an argument: as if zero
        } else {
            while (*p >= '0' && *p <= '9')
                conversionSpec += *p++;
        }
        if (*p == '.') {
            conversionSpec += *p++;
            if (*p == '*') {
                ++p;
                conversionSpec += '0';
            } else {
                while (*p >= '0' && *p <= '9')
                    conversionSpec += *p++;
            }
        }
        while (*p != '\0' && std::strchr(kLengths, *p) != nullptr)
            ++p;
        char conversion = *p;
        if (conversion == '%') {
            text += '%';
            ++p;
        } else if (conversion == 'n') {
            ++p; // stores a count through an argument: nothing is printed or stored
        } else if (conversion != '\0' && std::strchr("diouxXcspeEfFgGaA", conversion) != nullptr) {
            text += PrintZero(conversionSpec + conversion, conversion);
            ++p;
        } else {
            // Not a conversion: the text stands as written.
            text.append(start, static_cast<size_t>(p - start));
        }
    }
    size_t length = std::strlen(text.c_str());
    if (length > size - 1) length = size - 1;
    std::memcpy(out, text.data(), length);
    out[length] = '\0';
    return length;
}

} // namespace qav

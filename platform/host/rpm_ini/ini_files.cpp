// RPM_GetProfileString / RPM_WriteProfileString over plain INI files.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "host.h"
#include "rpm_ini.h"
#include "securec.h"

namespace {

std::string header_of(const char *section) {
    std::string s = section;
    return (!s.empty() && s.front() == '[') ? s : "[" + s + "]";
}

std::string trimmed(const std::string &line) {
    size_t a = line.find_first_not_of(" \t");
    size_t b = line.find_last_not_of(" \t\r");
    return a == std::string::npos ? std::string() : line.substr(a, b - a + 1);
}

bool read_lines(const char *file, std::vector<std::string> *lines) {
    std::ifstream in(file);
    if (!in) return false;
    std::string line;
    while (std::getline(in, line)) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        lines->push_back(line);
    }
    return true;
}

} // namespace

extern "C" {

uint32_t RPM_GetProfileString(const char *file, const char *section, const char *key, char *buffer,
                              uint32_t size) {
    if (file == nullptr || section == nullptr || key == nullptr || buffer == nullptr || size == 0) return 2;
    if (zakhost::injected("RPM_GetProfileString")) return 1;
    std::vector<std::string> lines;
    if (!read_lines(file, &lines)) return 1;
    std::string header = header_of(section);
    bool inSection = false;
    for (const auto &line : lines) {
        std::string t = trimmed(line);
        if (!t.empty() && t.front() == '[') {
            inSection = t == header;
            continue;
        }
        if (!inSection) continue;
        size_t eq = line.find('=');
        if (eq == std::string::npos || line.compare(0, eq, key) != 0 || std::string(key).size() != eq)
            continue;
        std::string value = line.substr(eq + 1);
        value.erase(0, value.find_first_not_of(" \t"));
        return strcpy_s(buffer, size, value.c_str()) == EOK ? 0 : 2;
    }
    return 1;
}

uint32_t RPM_WriteProfileString(const char *file, const char *section, const char *key, const char *value) {
    if (file == nullptr || section == nullptr || key == nullptr || value == nullptr) return 2;
    if (zakhost::injected("RPM_WriteProfileString")) return 1;
    std::vector<std::string> lines;
    // A file that exists but cannot be read is not replaced by one holding only the new entry.
    if (!read_lines(file, &lines) && access(file, F_OK) == 0) return 1;
    std::string header = header_of(section);
    std::string entry = std::string(key) + "=" + value;
    long sectionAt = -1;
    size_t insertAt = lines.size();
    bool done = false;
    for (size_t i = 0; i < lines.size() && !done; ++i) {
        std::string t = trimmed(lines[i]);
        if (!t.empty() && t.front() == '[') {
            if (sectionAt >= 0) {
                insertAt = i;
                break;
            }
            if (t == header) sectionAt = static_cast<long>(i);
            continue;
        }
        if (sectionAt < 0) continue;
        size_t eq = lines[i].find('=');
        if (eq != std::string::npos && lines[i].compare(0, eq, key) == 0 && std::string(key).size() == eq) {
            lines[i] = entry;
            done = true;
        }
    }
    if (!done) {
        if (sectionAt < 0) {
            lines.push_back(header);
            lines.push_back(entry);
        } else {
            // after the section's last non-blank line
            size_t at = insertAt;
            while (at > static_cast<size_t>(sectionAt) + 1 && trimmed(lines[at - 1]).empty())
                --at;
            lines.insert(lines.begin() + static_cast<long>(at), entry);
        }
    }
    std::string content;
    for (const auto &line : lines)
        content += line + '\n';
    return zakhost::replace_file(file, content) ? 0 : 1;
}

} // extern "C"

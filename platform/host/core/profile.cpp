// The device profile (an INI file) and the persistent state file, both under the sandbox root.
// INI rules: "[section]" lines; "key=value" lines where the key is the text before the first '='
// exactly as written and the value loses its leading blanks and its line end.
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <charconv>
#include <climits>
#include <cstdlib>
#include <fstream>
#include <mutex>
#include <sstream>

#include "host.h"

namespace zakhost {
namespace {

struct Entry {
    std::string section, key, value;
};
using Entries = std::vector<Entry>;

// Every key the host reads, with its default, in the order of profile_defaults.def.
const std::vector<Entry> &defaults() {
    static const std::vector<Entry> table = {
#define PROFILE_DEFAULT(section, key, value) {section, key, value},
#include "profile_defaults.def"
#undef PROFILE_DEFAULT
    };
    return table;
}

std::mutex g_profileLock;
Entries g_profile;
Entries g_overrides; // set by zakhost.profile_set; win over the file
bool g_profileRead = false;

Entries parse_ini(std::istream &in) {
    Entries entries;
    std::string section, line;
    while (std::getline(in, line)) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        size_t first = line.find_first_not_of(" \t");
        if (first == std::string::npos || line[first] == ';' || line[first] == '#') continue;
        if (line[first] == '[') {
            size_t close = line.find(']', first);
            if (close != std::string::npos) section = line.substr(first + 1, close - first - 1);
            continue;
        }
        size_t eq = line.find('=');
        if (eq == std::string::npos) continue;
        std::string value = line.substr(eq + 1);
        value.erase(0, value.find_first_not_of(" \t"));
        entries.push_back({section, line.substr(0, eq), value});
    }
    return entries;
}

Entries read_ini(const std::string &path) {
    std::ifstream in(path);
    return in ? parse_ini(in) : Entries{};
}

const Entry *find(const Entries &entries, std::string_view section, std::string_view key) {
    for (const auto &e : entries)
        if (e.section == section && e.key == key) return &e;
    return nullptr;
}

std::string profile_path() {
    const char *env = std::getenv("ZAKHOST_PROFILE");
    return env != nullptr && *env != '\0' ? std::string(env) : in_root("/zakhost.ini");
}

const Entries &profile_locked() {
    if (!g_profileRead) {
        g_profile = read_ini(profile_path());
        g_profileRead = true;
    }
    return g_profile;
}

std::string state_path() {
    return in_root("/zakhost_state.ini");
}

// Serialises state-file updates between processes sharing one sandbox.
struct FileLock {
    int fd;
    explicit FileLock(const std::string &path)
        : fd(::open((path + ".lock").c_str(), O_CREAT | O_RDWR, 0644)) {
        if (fd >= 0) flock(fd, LOCK_EX);
    }
    ~FileLock() {
        if (fd >= 0) ::close(fd);
    }
};

} // namespace

void profile_override(std::string_view section, std::string_view key, std::optional<std::string> value) {
    std::lock_guard lock(g_profileLock);
    for (auto it = g_overrides.begin(); it != g_overrides.end(); ++it) {
        if (it->section == section && it->key == key) {
            g_overrides.erase(it);
            break;
        }
    }
    if (value) g_overrides.push_back({std::string(section), std::string(key), *value});
}

void profile_reload() {
    std::lock_guard lock(g_profileLock);
    g_profileRead = false;
}

std::optional<std::string> profile_value(std::string_view section, std::string_view key) {
    {
        std::lock_guard lock(g_profileLock);
        if (const Entry *e = find(g_overrides, section, key)) return e->value;
        if (const Entry *e = find(profile_locked(), section, key)) return e->value;
    }
    if (const Entry *e = find(defaults(), section, key)) return e->value;
    return std::nullopt;
}

std::string profile_string(std::string_view section, std::string_view key) {
    return profile_value(section, key).value_or("");
}

std::optional<int64_t> parse_int(std::string_view text) {
    size_t first = text.find_first_not_of(" \t");
    if (first == std::string_view::npos) return std::nullopt;
    text = text.substr(first, text.find_last_not_of(" \t") + 1 - first);
    bool negative = text[0] == '-';
    if (negative || text[0] == '+') text.remove_prefix(1);
    int base = 10;
    if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
        base = 16;
        text.remove_prefix(2);
    }
    // from_chars takes no sign or prefix of its own, so "0x-1" and "--1" stay unparsable; a
    // leading zero is not an octal prefix for it.
    uint64_t magnitude = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), magnitude, base);
    if (text.empty() || error != std::errc{} || end != text.data() + text.size()) return std::nullopt;
    constexpr uint64_t kMax = static_cast<uint64_t>(INT64_MAX);
    if (magnitude > kMax + (negative ? 1 : 0)) return std::nullopt;
    return negative ? static_cast<int64_t>(0 - magnitude) : static_cast<int64_t>(magnitude);
}

int64_t profile_int(std::string_view section, std::string_view key, int64_t fallback) {
    auto value = profile_value(section, key);
    return value ? parse_int(*value).value_or(fallback) : fallback;
}

bool profile_bool(std::string_view section, std::string_view key) {
    std::string v = profile_string(section, key);
    return v == "1" || v == "true" || v == "yes" || v == "on";
}

std::vector<std::pair<std::string, std::string>> profile_section(std::string_view section) {
    std::vector<std::pair<std::string, std::string>> out;
    auto add = [&](const Entries &entries) {
        for (const auto &e : entries) {
            if (e.section != section) continue;
            bool seen = false;
            for (const auto &o : out)
                seen = seen || o.first == e.key;
            if (!seen) out.emplace_back(e.key, e.value);
        }
    };
    {
        std::lock_guard lock(g_profileLock);
        add(g_overrides);
        add(profile_locked());
    }
    add(defaults());
    return out;
}

std::vector<std::tuple<std::string, std::string, std::string>> profile_defaults() {
    std::vector<std::tuple<std::string, std::string, std::string>> out;
    for (const auto &e : defaults())
        out.emplace_back(e.section, e.key, e.value);
    return out;
}

std::optional<std::string> state_value(std::string_view section, std::string_view key) {
    FileLock lock(state_path());
    Entries entries = read_ini(state_path());
    if (const Entry *e = find(entries, section, key)) return e->value;
    return std::nullopt;
}

bool set_state_value(std::string_view section, std::string_view key, std::string_view value) {
    FileLock lock(state_path());
    Entries entries = read_ini(state_path());
    bool replaced = false;
    for (auto &e : entries) {
        if (e.section == section && e.key == key) {
            e.value = value;
            replaced = true;
        }
    }
    if (!replaced) entries.push_back({std::string(section), std::string(key), std::string(value)});
    std::ostringstream out;
    std::string current;
    bool first = true;
    // Group by section in first-seen order.
    std::vector<std::string> sections;
    for (const auto &e : entries) {
        bool seen = false;
        for (const auto &s : sections)
            seen = seen || s == e.section;
        if (!seen) sections.push_back(e.section);
    }
    for (const auto &s : sections) {
        out << (first ? "" : "\n") << '[' << s << "]\n";
        first = false;
        for (const auto &e : entries)
            if (e.section == s) out << e.key << '=' << e.value << '\n';
    }
    return replace_file(state_path(), out.str());
}

} // namespace zakhost

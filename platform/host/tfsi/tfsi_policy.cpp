// The file access policy of the host and the canonical path form.
//
// Rules come from the profile's [tfsi] section, one a key starting with "rule":
//     ruleN = <path prefix> <minimum user level> <groups> <access>
// groups is "*" or a comma list of group numbers; access is letters of r (read), w (write),
// x (execute), d (delete), or "-" for none. A path is covered by a rule when the rule's prefix
// (made canonical) is the path or one of its leading directories. For each path the rules with
// the longest covering prefix decide: the first of them whose level (user level >= minimum)
// and group the user meets gives the access. Paths no rule covers get [tfsi] default_access.
#include <cstring>
#include <string>
#include <vector>

#include "host.h"
#include "tfsi.h"

namespace {

struct Rule {
    std::string prefix;
    uint32_t minLevel = 0;
    bool anyGroup = true;
    std::vector<uint32_t> groups;
    uint32_t access = 0;
};

uint32_t parse_access(const std::string &letters) {
    uint32_t access = 0;
    for (char c : letters) {
        if (c == 'r') access |= TFSI_ACCESS_READ;
        if (c == 'w') access |= TFSI_ACCESS_WRITE;
        if (c == 'x') access |= TFSI_ACCESS_EXEC;
        if (c == 'd') access |= TFSI_ACCESS_DELETE;
    }
    return access;
}

// The canonical form, or an error code.
uint32_t canonical(const std::string &path, bool isDirectory, std::string *out) {
    if (path.empty()) return TFSI_ERR_PATH;
    size_t colon = path.find(':');
    size_t slash = path.find('/');
    size_t restStart = 0;
    std::string result;
    if (colon != std::string::npos && (slash == std::string::npos || colon < slash)) {
        result = path.substr(0, colon + 1);
        restStart = colon + 1;
    }
    std::vector<std::string> parts;
    size_t pos = restStart;
    while (pos <= path.size()) {
        size_t end = path.find('/', pos);
        std::string part = path.substr(pos, end == std::string::npos ? std::string::npos : end - pos);
        if (part == "..") {
            if (parts.empty()) return TFSI_ERR_PATH;
            parts.pop_back();
        } else if (!part.empty() && part != ".") {
            parts.push_back(part);
        }
        if (end == std::string::npos) break;
        pos = end + 1;
    }
    result += '/';
    for (size_t i = 0; i < parts.size(); ++i)
        result += (i == 0 ? "" : "/") + parts[i];
    if (isDirectory && !parts.empty()) result += '/';
    if (result.size() >= TFSI_PATH_MAX) return TFSI_ERR_TOO_LONG;
    *out = std::move(result);
    return TFSI_OK;
}

std::vector<Rule> rules() {
    std::vector<Rule> out;
    for (const auto &[key, value] : zakhost::profile_section("tfsi")) {
        if (key.rfind("rule", 0) != 0) continue;
        std::vector<std::string> words;
        size_t pos = 0;
        while (pos < value.size()) {
            size_t start = value.find_first_not_of(" \t", pos);
            if (start == std::string::npos) break;
            size_t end = value.find_first_of(" \t", start);
            words.push_back(value.substr(start, end == std::string::npos ? std::string::npos : end - start));
            pos = end == std::string::npos ? value.size() : end;
        }
        Rule rule;
        if (words.size() != 4 || canonical(words[0], false, &rule.prefix) != TFSI_OK) continue; // ignored
        rule.minLevel = static_cast<uint32_t>(zakhost::parse_int(words[1]).value_or(0));
        rule.anyGroup = words[2] == "*";
        for (size_t p = 0; !rule.anyGroup && p <= words[2].size();) {
            size_t comma = words[2].find(',', p);
            rule.groups.push_back(
                static_cast<uint32_t>(zakhost::parse_int(words[2].substr(p, comma - p)).value_or(0)));
            if (comma == std::string::npos) break;
            p = comma + 1;
        }
        rule.access = parse_access(words[3]);
        out.push_back(std::move(rule));
    }
    return out;
}

bool covers(const std::string &prefix, const std::string &path) {
    if (path.compare(0, prefix.size(), prefix) != 0) return false;
    return path.size() == prefix.size() || prefix.back() == '/' || path[prefix.size()] == '/';
}

struct Decision {
    uint32_t access;
    uint32_t detail; // TFSI_DETAIL_NO_RULE, _LEVEL, _GROUP, or _ALLOWED when a rule applied
};

Decision decide(const std::vector<Rule> &all, const TFSI_USER_INFO &user, const std::string &path) {
    size_t longest = 0;
    bool any = false;
    for (const Rule &rule : all) {
        if (covers(rule.prefix, path) && (!any || rule.prefix.size() > longest)) {
            longest = rule.prefix.size();
            any = true;
        }
    }
    if (!any) return {parse_access(zakhost::profile_string("tfsi", "default_access")), TFSI_DETAIL_NO_RULE};
    bool levelMet = false;
    for (const Rule &rule : all) {
        if (rule.prefix.size() != longest || !covers(rule.prefix, path)) continue;
        if (user.uiUserLevel < rule.minLevel) continue;
        levelMet = true;
        bool groupMet = rule.anyGroup;
        for (uint32_t g : rule.groups)
            groupMet = groupMet || g == user.uiUserGroup;
        if (groupMet) return {rule.access, TFSI_DETAIL_ALLOWED};
    }
    return {0, levelMet ? TFSI_DETAIL_GROUP : TFSI_DETAIL_LEVEL};
}

std::string parent_of(const std::string &path) {
    size_t slash = path.find_last_of('/');
    size_t rootSlash = path.find('/');
    if (slash == std::string::npos || slash == rootSlash) return path.substr(0, rootSlash + 1);
    return path.substr(0, slash);
}

} // namespace

extern "C" {

uint32_t TFSI_FilesAccessOfOneUserQuery(const TFSI_USER_INFO *user, uint32_t count,
                                        TFSI_PATH_ACCESS *entries) {
    int64_t result = 0;
    if (zakhost::injected("TFSI_FilesAccessOfOneUserQuery", &result))
        return result == 0 ? TFSI_ERR_PARA : static_cast<uint32_t>(result);
    if (user == nullptr || entries == nullptr || count == 0 || user->uiPolicyDeliverType > 1)
        return TFSI_ERR_PARA;
    for (uint32_t i = 0; i < count; ++i)
        if (entries[i].pcPath == nullptr) return TFSI_ERR_PARA;
    std::vector<Rule> all = rules();
    for (uint32_t i = 0; i < count; ++i) {
        TFSI_PATH_ACCESS &entry = entries[i];
        std::string path;
        if (canonical(entry.pcPath, false, &path) != TFSI_OK) {
            entry.uiFileAccess = entry.uiPathAccess = entry.uiOperAllow = 0;
            entry.uiDetailType = TFSI_DETAIL_BAD_PATH;
            continue;
        }
        Decision file = decide(all, *user, path);
        Decision dir = decide(all, *user, parent_of(path));
        entry.uiFileAccess = file.access;
        entry.uiPathAccess = dir.access;
        entry.uiOperAllow = (entry.uiOper & ~file.access) == 0 ? 1 : 0;
        entry.uiDetailType = file.detail;
        if (file.detail == TFSI_DETAIL_ALLOWED && entry.uiOperAllow == 0)
            entry.uiDetailType = TFSI_DETAIL_OPER_DENIED;
    }
    return TFSI_OK;
}

uint32_t TFSI_FormatPath(const char *path, uint32_t isDirectory, char *out) {
    int64_t result = 0;
    if (zakhost::injected("TFSI_FormatPath", &result))
        return result == 0 ? TFSI_ERR_PARA : static_cast<uint32_t>(result);
    if (path == nullptr || out == nullptr) return TFSI_ERR_PARA;
    std::string formatted;
    uint32_t code = canonical(path, isDirectory != 0, &formatted);
    if (code != TFSI_OK) return code;
    std::memcpy(out, formatted.c_str(), formatted.size() + 1);
    return TFSI_OK;
}

} // extern "C"

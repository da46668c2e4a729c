// Versions and requirement relations: parsing, ordering and text forms.
#include <string>

#include "host.h"
#include "pkg_internal.h"
#include "versions.h"

namespace zakhost::pkgmgr {

bool parse_version(const std::string &text, ISSU_VER *version) {
    *version = ISSU_VER{};
    if (text.empty()) return true; // set, without a text form
    size_t pos = 0;
    while (true) {
        if (version->uiPartNum == ISSU_VER_MAX_PARTS) return false;
        size_t end = pos;
        uint64_t value = 0;
        while (end < text.size() && text[end] >= '0' && text[end] <= '9') {
            value = value * 10 + static_cast<uint64_t>(text[end] - '0');
            if (value > 0xFFFFFFFFULL) return false;
            end++;
        }
        if (end == pos) return false;
        version->auiPart[version->uiPartNum++] = static_cast<uint32_t>(value);
        if (end == text.size()) return true;
        if (text[end] != '.') return false;
        pos = end + 1;
    }
}

bool parse_relation(const std::string &text, uint32_t *op) {
    static const std::pair<const char *, uint32_t> kOps[] = {
        {"=", ISSU_REL_EQ},  {"==", ISSU_REL_EQ}, {">=", ISSU_REL_GE},
        {"<=", ISSU_REL_LE}, {">", ISSU_REL_GT},  {"<", ISSU_REL_LT},
    };
    for (const auto &[name, value] : kOps)
        if (text == name) {
            *op = value;
            return true;
        }
    return false;
}

const char *relation_text(uint32_t op) {
    switch (op) {
    case ISSU_REL_EQ:
        return "=";
    case ISSU_REL_GE:
        return ">=";
    case ISSU_REL_LE:
        return "<=";
    case ISSU_REL_GT:
        return ">";
    case ISSU_REL_LT:
        return "<";
    default:
        return nullptr;
    }
}

bool satisfies(const ISSU_VER *have, const ISSU_REL &rel) {
    if (rel.uiOp == ISSU_REL_ANY) return true;
    if (have == nullptr || rel.pstVersion == nullptr) return false;
    int32_t order = ISSU_VER_Compare(have, rel.pstVersion);
    switch (rel.uiOp) {
    case ISSU_REL_EQ:
        return order == 0;
    case ISSU_REL_GE:
        return order >= 0;
    case ISSU_REL_LE:
        return order <= 0;
    case ISSU_REL_GT:
        return order > 0;
    case ISSU_REL_LT:
        return order < 0;
    default:
        return false;
    }
}

std::string version_text(const ISSU_VER &version) {
    std::string text;
    for (uint32_t i = 0; i < version.uiPartNum && i < ISSU_VER_MAX_PARTS; i++) {
        if (i > 0) text += '.';
        text += std::to_string(version.auiPart[i]);
    }
    return text;
}

} // namespace zakhost::pkgmgr

extern "C" {

int32_t ISSU_VER_Compare(const ISSU_VER *first, const ISSU_VER *second) {
    ISSU_VER none{};
    if (first == nullptr) first = &none;
    if (second == nullptr) second = &none;
    for (uint32_t i = 0; i < ISSU_VER_MAX_PARTS; i++) {
        uint32_t a = i < first->uiPartNum ? first->auiPart[i] : 0;
        uint32_t b = i < second->uiPartNum ? second->auiPart[i] : 0;
        if (a != b) return a < b ? -1 : 1;
    }
    return 0;
}

char *ISSU_VER_ToString(const ISSU_VER *version) {
    if (zakhost::injected("ISSU_VER_ToString")) return nullptr;
    if (version == nullptr || version->uiPartNum == 0 || version->uiPartNum > ISSU_VER_MAX_PARTS)
        return nullptr;
    return zakhost::pkgmgr::host_strdup(zakhost::pkgmgr::version_text(*version));
}

char *ISSU_REL_ToString(const ISSU_REL *relation) {
    if (zakhost::injected("ISSU_REL_ToString")) return nullptr;
    if (relation == nullptr || relation->pcName == nullptr) return nullptr;
    std::string text = relation->pcName;
    if (relation->uiOp != ISSU_REL_ANY) {
        const char *op = zakhost::pkgmgr::relation_text(relation->uiOp);
        if (op == nullptr || relation->pstVersion == nullptr || relation->pstVersion->uiPartNum == 0)
            return nullptr;
        text += std::string(" ") + op + " " + zakhost::pkgmgr::version_text(*relation->pstVersion);
    }
    return zakhost::pkgmgr::host_strdup(text);
}

} // extern "C"

// Version and relation helpers of the host package manager.
#pragma once

#include <string>

#include "issu_pkg.h"

namespace zakhost::pkgmgr {

// "1.2.10" into a version; "" gives a set version without parts. False for anything else.
bool parse_version(const std::string &text, ISSU_VER *version);
// "=", "==", ">=", "<=", ">", "<".
bool parse_relation(const std::string &text, uint32_t *op);
const char *relation_text(uint32_t op);
// Whether an entity at version `have` meets the requirement.
bool satisfies(const ISSU_VER *have, const ISSU_REL &rel);
std::string version_text(const ISSU_VER &version);

} // namespace zakhost::pkgmgr

// Package descriptions built from command-line entity options; shared by `pkgdesc` and
// `entitydb`.
#pragma once

#include <string>
#include <vector>

namespace qavpkg {

// Builds a package description from the options (see `qavpkg help`) and saves it to `path`.
// Returns an empty string, or what went wrong.
std::string write_package_description(const std::vector<std::string> &options, size_t first,
                                      const std::string &path);

// " (N entities)": what a description written from the options holds, for the success line.
std::string entity_count(const std::vector<std::string> &options, size_t first);

extern const char *const kEntityOptionsHelp;

} // namespace qavpkg

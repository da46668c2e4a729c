// Helpers shared by the package-building subcommands of qavpkg.
#pragma once

#include <string>
#include <vector>

namespace qavpkg::util {

// SHA-256 of a file as 64 lower-case hexadecimal characters; empty when it cannot be read.
std::string sha256_file(const std::string &path);
// Runs a program without a shell; true when it exits with 0.
bool run(const std::vector<std::string> &argv);
// A new empty directory under TMPDIR; empty on failure.
std::string temp_dir();
bool remove_tree(const std::string &path);
bool make_dirs(const std::string &path);
bool write_file(const std::string &path, const std::string &content);
// Sets key=value in a section ("[name]") of an INI file, creating what is missing.
bool ini_set(const std::string &file, const std::string &section, const std::string &key,
             const std::string &value);

} // namespace qavpkg::util

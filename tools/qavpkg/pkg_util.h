// Helpers shared by the package-building subcommands of qavpkg.
#pragma once

#include <libxml/tree.h>

#include <cstdint>
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
// Whether the directory a file at `path` would go in exists.
bool parent_is_directory(const std::string &path);
// Saves an XML document (UTF-8, indented); libxml2's own messages are kept off the terminal, as
// the caller reports a failure itself.
bool save_xml(xmlDoc *doc, const std::string &path);
// Why `path` could not be written: names its directory when that is missing, else the system's
// reason (errno of the failed call).
std::string cannot_write(const std::string &path);
// A number as the device reads it from package files: decimal or 0x hexadecimal, 32 bits.
bool to_u32(const std::string &text, uint32_t *value);
bool make_dirs(const std::string &path);
bool write_file(const std::string &path, const std::string &content);
// Sets key=value in a section ("[name]") of an INI file, creating what is missing.
bool ini_set(const std::string &file, const std::string &section, const std::string &key,
             const std::string &value);

} // namespace qavpkg::util

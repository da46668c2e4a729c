// qavpkg: builds device packages and fixtures for script authors and tests. Each subcommand
// lives in its own source file in this folder and registers itself:
//     static const qavpkg::Command kVercfg{"vercfg", "DIR [options]  build vercfg.xml for DIR", &run_vercfg};
// A command gets its arguments after the subcommand name and returns the process exit code.
#pragma once

#include <string>
#include <vector>

namespace qavpkg {

using CommandFunction = int (*)(const std::vector<std::string> &args);

struct Command {
    Command(const char *name, const char *usage, CommandFunction run);
};

// Prints "qavpkg NAME: message" to stderr and returns 1, for commands' error exits.
int fail(const char *command, const std::string &message);
// Prints the one line "qavpkg NAME: wrote WHAT" to stdout and returns 0, for commands' success exits.
int wrote(const char *command, const std::string &what);
// "1 file", "2 files": a count with its noun for those lines.
std::string counted(size_t count, const char *one, const char *many);

} // namespace qavpkg

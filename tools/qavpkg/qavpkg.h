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

} // namespace qavpkg

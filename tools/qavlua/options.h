// The command line of qavlua, shared by the runner (`qavlua`, which builds the device jail) and the
// engine it starts inside the jail (`qavlua-engine`, the Lua interpreter with the library).
#pragma once

#include <string>
#include <vector>

namespace qavlua {

extern const char *const kUsage;
// The most script states one run may have: each is a thread of the engine's process.
constexpr long kMaxJobs = 256;

enum class Command { Run, Init, Help, Version, Error };

struct Options {
    Command command = Command::Error;
    std::string error; // with Command::Error: what is wrong
    std::string root;  // as given (--root, else ZAKHOST_ROOT)
    std::string profile;
    long jobs = 0;
    bool noJail = false;
    std::string coverage;              // --coverage FILE, absolute
    std::vector<std::string> readOnly; // --ro-bind paths
    std::vector<std::string> scripts;  // absolute
    std::vector<std::string> args;     // the script's arguments, as given
};

Options ParseCommandLine(const std::vector<std::string> &words);
// Answers --help, --version and a usage error: the exit status; -1 for a command to carry out.
int Answer(const Options &o);
// Prints the error and the usage; returns the exit status 2.
int UsageError(const std::string &why);

std::string Absolute(const std::string &path);
// Absolute with symbolic links resolved, where the path exists.
std::string Resolved(const std::string &path);
std::string DirectoryOf(const std::string &path);
bool Exists(const std::string &path);

} // namespace qavlua

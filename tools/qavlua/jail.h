// The device jail: qavlua runs scripts in a bubblewrap sandbox whose root file system is the
// device root R, so that the device's absolute paths are R's and nothing outside R is writable.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace qavlua {

// Exit status of a run whose jail could not be built (after one line saying why and the fix).
constexpr int kJailUnavailable = 2;

struct JailPlan {
    std::string root;                  // R on this machine: absolute, symbolic links resolved
    std::vector<std::string> readOnly; // host paths that stay visible, read-only, at their own path
    std::vector<std::string> writable; // host directories that stay writable at their own path
    std::vector<std::pair<std::string, std::string>> env; // set inside the jail
    std::string workdir;                                  // inside the jail
    std::vector<std::string> command;                     // program and arguments run inside
};

// Runs plan.command in the jail and waits: its exit status, 128 + the signal that killed it, or
// kJailUnavailable. Runs on one R are serialised (a second waits for the first).
int RunInJail(const JailPlan &plan);

} // namespace qavlua

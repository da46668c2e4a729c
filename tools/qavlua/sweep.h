// `qavlua sweep`: fault sweeps, power-cut sweeps and their reports (see docs/sweeps.md), and the
// line-coverage files that plain runs and sweeps write.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace qavlua {

// `qavlua sweep faults|power-cut|merge ...`; `args` are the words after "sweep".
int sweep_main(const std::vector<std::string> &args);

// ---- Coverage files (sweep_lcov.cpp) --------------------------------------------------------
using LineHits = std::map<int, uint64_t>;         // line -> hits; 0 for a line of code never reached
using Coverage = std::map<std::string, LineHits>; // source file -> its lines
// The lines holding code in every function of a chunk dumped by string.dump (lua_dump, not
// stripped) of Lua 5.2, 5.3 or 5.4; nullopt when the dump cannot be read.
std::optional<std::set<int>> chunk_lines(std::string_view dump);
// Adds a tracefile's counts to `into`; false when it cannot be read.
bool lcov_read(const std::string &file, Coverage &into);
bool lcov_write(const std::string &file, const Coverage &coverage);

// ---- Sandbox trees (sweep_tree.cpp) ---------------------------------------------------------
// What the sweep keeps in a sandbox copy for itself (run records, coverage): never copied, never
// compared. Its device path is kSweepDir.
inline constexpr const char *kSweepDir = "/.qavlua-sweep";
// Copies the tree as `cp -a` does (types, modes, times, ownership when run as root; files
// cloned where the file system allows), leaving out the sweep's own directory. "" or the error.
std::string copy_tree(const std::string &from, const std::string &to);
void remove_tree(const std::string &path);
// A file's contents ("" when unreadable); with `tail`, only its last `tail` bytes after "...".
std::string read_text(const std::string &path, size_t tail = 0);
// What differs between two sandboxes, one line per path (device paths): "+ p" only in `state`,
// "- p" only in `reference`, "~ p (what)" in both but different. Logs and the sweep's own
// directory are left out.
std::vector<std::string> diff_trees(const std::string &state, const std::string &reference);

// ---- Reports (sweep_report.cpp) --------------------------------------------------------------
struct SweepRun {
    uint64_t index = 0;  // the call or cut point (1-based); for power cuts, total + 1 is the uncut end
    std::string point;   // the service failed, or the cut point's label
    std::string status;  // see docs/sweeps.md
    std::string message; // first line of what went wrong
    std::string detail;  // traceback, output tail
    std::vector<std::string> locks; // locks held at the end
    std::vector<std::string> diff;  // file state against the uncut run
    uint64_t ms = 0;                // wall time of the run's processes
    uint64_t copy_us = 0;           // of which the sandbox copies, in microseconds
    bool failed() const;
    bool skipped() const; // the planned call or cut point was not reached
};

struct SweepReport {
    std::string kind; // "faults" or "power-cut"
    std::string script;
    std::vector<std::string> args;
    std::string recover, check;
    uint64_t total = 0;   // calls or cut points the first run recorded
    uint64_t sampled = 0; // of them swept (all shards), after --limit
    int shard = 1, shards = 1;
    std::vector<int> merged_shards; // the shards a merged report holds
    uint64_t ms = 0;
    int jobs = 1;
    std::vector<SweepRun> runs;
};

std::string base_name(const std::string &path);
void print_summary(const SweepReport &report);
bool write_json(const std::string &file, const SweepReport &report);
bool write_junit(const std::string &file, const SweepReport &report);
// Reads one JSON report; "" or what is wrong with it.
std::string read_json(const std::string &file, SweepReport &report);
// `qavlua sweep merge [--json F] [--junit F] REPORT.json...`
int sweep_merge(const std::vector<std::string> &args);

} // namespace qavlua

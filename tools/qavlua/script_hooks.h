// What the runner adds around each script state: line coverage (`--coverage FILE`), and for
// sweep runs the cut points of power-cut sweeps, the counting window of fault sweeps and the
// run's report of how it ended (see sweep.h).
#pragma once

#include <string>

extern "C" {
#include <lua.h>
}

namespace qavlua {

// Line coverage of every script state of this process, written to `file` (an LCOV tracefile)
// when the process ends, os.exit included. A sweep run gets ZAKHOST_COVERAGE instead: a device
// path under the sandbox root.
void coverage_to(const std::string &file);

// Around one script: after the library is loaded and before the script's chunk runs; and after
// it ended with `status` (a lua_pcall result; on failure the error object is on top).
void script_begin(lua_State *state);
void script_end(lua_State *state, int status);

} // namespace qavlua

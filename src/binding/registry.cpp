// The registry lists all script functions in their registration order. The library is built area
// by area, so each entry function is referenced weakly: an area not yet part of the build leaves
// its entries with a null function, which the open function leaves out of the module table.
#include "binding/registry.h"

#define QAV_ENTRY(name, function) extern "C" int function(lua_State *) __attribute__((weak));
#include "binding/registry.def"
#undef QAV_ENTRY

namespace qav {
#define QAV_ENTRY(name, function) {name, function},
const SCRIPT_REG_ENTRY kRegistry[kRegistryEntries + 1] = {
#include "binding/registry.def"
    {nullptr, nullptr}};
#undef QAV_ENTRY
} // namespace qav

// The registry lists all script functions in their registration order.
#include "binding/registry.h"

#define QAV_ENTRY(name, function) extern "C" int function(lua_State *);
#include "binding/registry.def"
#undef QAV_ENTRY

namespace qav {
#define QAV_ENTRY(name, function) {name, function},
const SCRIPT_REG_ENTRY kRegistry[kRegistryEntries + 1] = {
#include "binding/registry.def"
    {nullptr, nullptr}};
#undef QAV_ENTRY
} // namespace qav

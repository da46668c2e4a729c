// Functions that host families add to the `zakhost` control module.
#include <mutex>

#include "host.h"

namespace zakhost {
namespace {
std::vector<std::pair<const char *, lua_CFunction>> &registry() {
    static std::vector<std::pair<const char *, lua_CFunction>> table;
    return table;
}
} // namespace

ControlFunction::ControlFunction(const char *name, lua_CFunction function) {
    registry().emplace_back(name, function);
}

const std::vector<std::pair<const char *, lua_CFunction>> &control_functions() {
    return registry();
}

} // namespace zakhost

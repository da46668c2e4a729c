// The result codes entry functions push, one name per meaning, listed in result_codes.def: the
// shared ones in namespace qav, each area's own in qav::<area>.
#pragma once

#include <cstdint>

namespace qav::shared {}
namespace qav {
using namespace qav::shared;
}

#define QAV_RESULT_CODE(area, name, type, value)                                                             \
    namespace qav::area {                                                                                    \
    inline constexpr type name = value;                                                                      \
    }
#include "binding/result_codes.def"
#undef QAV_RESULT_CODE

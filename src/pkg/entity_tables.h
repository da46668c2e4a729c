// The entity table form every package query returns an entity in, and the "Required" form of
// the entities that require it.
#pragma once

#include "binding/script_frame.h"
#include "issu_pkg.h"

extern "C" {
// Pushes one entity table.
void l_push_entity(lua_State *state, const ISSU_ENTITY *entity);
// Sets key = the version's text in the table on top; nothing for a null version.
void l_push_entity_version(lua_State *state, const ISSU_VER *version, const char *key);
// Sets "File" in the table on top; nothing for a null or empty list.
void l_push_entity_filename(lua_State *state, const ISSU_PTR_LIST *files);
// Pushes the entity table with its "Required" array and appends the names of the requiring
// entities to `names`. 0, or the failing call's code.
int32_t l_whatrequired(lua_State *state, ISSU_PKG *package, const ISSU_ENTITY *entity, ISSU_PTR_LIST *names);
}

namespace qav {
// The section of installable entities; records of other sections are not listed as requirers
// or group members.
bool IsEntitySection(const ISSU_ENTITY *entity);
} // namespace qav

// "rpm_listcpt", "rpm_depend", "rpm_whorequire": queries over the device's current entity
// database, one answer per entity name argument.
#include <cstring>

#include "pkg/entity_tables.h"

namespace {

constexpr const char *kEntityDatabase = "c_entity";

// Opens the entity database in a new package object; null when it cannot be created or loaded.
ISSU_PKG *OpenEntityDatabase() {
    ISSU_PKG *package = ISSU_PKG_CreatePkg();
    if (package == nullptr) return nullptr;
    if (ISSU_PKG_Load(package, kEntityDatabase) != 0) {
        ISSU_PKG_DeletePkg(package);
        return nullptr;
    }
    return package;
}

// The "matched" array of one entry. False when an entity of the list cannot be queried; the
// half-built array is then on top.
bool PushMatched(lua_State *state, ISSU_PKG *package, ISSU_PTR_LIST *matched) {
    SYSDT_SPTI_CreateTable(state, 0, 0);
    uint32_t count = ISSU_PtrListCountNum(matched);
    for (uint32_t i = 1; i <= count; i++) {
        auto *relation = static_cast<ISSU_REL *>(ISSU_PtrListGetNode(matched, i));
        ISSU_ENTITY *entity = relation != nullptr ? ISSU_PKG_QueryEntity(package, relation->pcName) : nullptr;
        if (entity == nullptr) return false;
        SYSDT_SPTI_PushUInt(state, i);
        l_push_entity(state, entity);
        SYSDT_SPTI_SetTable(state, -3);
    }
    return true;
}

// The "mismatched" array of one entry: the relation texts. False when a text cannot be formed.
bool PushMismatched(lua_State *state, ISSU_PTR_LIST *mismatched) {
    SYSDT_SPTI_CreateTable(state, 0, 0);
    uint32_t count = ISSU_PtrListCountNum(mismatched);
    for (uint32_t i = 1; i <= count; i++) {
        char *text = ISSU_REL_ToString(static_cast<ISSU_REL *>(ISSU_PtrListGetNode(mismatched, i)));
        if (text == nullptr) return false;
        SYSDT_SPTI_PushUInt(state, i);
        SYSDT_SPTI_PushString(state, text, static_cast<uint32_t>(std::strlen(text) + 1));
        SYSDT_SPTI_SetTable(state, -3);
        RPM_Os_Free(text);
    }
    return true;
}

// Hands each text among the `count` arguments, in order, to `answer` until it returns false; the
// other arguments are skipped.
template <class Answer> void ForEachName(lua_State *state, int32_t count, Answer answer) {
    for (int32_t i = 1; i <= count; i++) {
        const char *name = qav::TextArg(state, i);
        if (name != nullptr && !answer(name)) return;
    }
}

// A name as the queries push it, its terminating NUL counted in the bound.
void PushName(lua_State *state, const char *name) {
    SYSDT_SPTI_PushString(state, name, static_cast<uint32_t>(std::strlen(name) + 1));
}

} // namespace

extern "C" {

// "rpm_listcpt": an array of the entity tables of the named entities that exist.
QAV_ENTRY_FUNCTION l_list_cpt(lua_State *state) {
    const int32_t count = qav::ArgCount(state);
    ISSU_PKG *package = OpenEntityDatabase();
    if (package == nullptr) return 0;
    qav::TableBuilder result(state);
    uint32_t number = 0;
    ForEachName(state, count, [&](const char *name) {
        ISSU_ENTITY *entity = ISSU_PKG_QueryEntity(package, name);
        if (entity == nullptr) return true;
        // The mark stays on the database record for later queries of this package object.
        entity->ucChangeFlag = ISSU_CHANGE_MODIFIED;
        SYSDT_SPTI_PushUInt(state, ++number);
        l_push_entity(state, entity);
        SYSDT_SPTI_SetTable(state, result.index);
        return true;
    });
    ISSU_PKG_DeletePkg(package);
    return 1;
}

// "rpm_depend": per name {matched = entity tables, mismatched = relation texts}.
QAV_ENTRY_FUNCTION l_dep_depend(lua_State *state) {
    const int32_t count = qav::ArgCount(state);
    ISSU_PKG *package = OpenEntityDatabase();
    if (package == nullptr) return 0;
    qav::TableBuilder result(state);
    ForEachName(state, count, [&](const char *name) {
        PushName(state, name);
        int32_t entry = (SYSDT_SPTI_CreateTable(state, 0, 0), SYSDT_SPTI_GetTop(state));
        ISSU_PTR_LIST *matched = ISSU_PtrListCreate();
        ISSU_PTR_LIST *mismatched = ISSU_PtrListCreate();
        (void)ISSU_PKG_CheckDep(package, name, matched, mismatched);
        bool complete = PushMatched(state, package, matched);
        if (complete) {
            SYSDT_SPTI_SetField(state, entry, "matched");
            complete = PushMismatched(state, mismatched);
        }
        // Both lists only borrow the database's records, so they are released before the early
        // return as well; the script still gets the half-built array on top.
        ISSU_PtrListFree(matched);
        ISSU_PtrListFree(mismatched);
        if (!complete) return false;
        SYSDT_SPTI_SetField(state, entry, "mismatched");
        SYSDT_SPTI_SetTable(state, result.index);
        return true;
    });
    ISSU_PKG_DeletePkg(package);
    return 1;
}

// "rpm_whorequire": per name the entity table with its "Required" array.
QAV_ENTRY_FUNCTION l_whorequire(lua_State *state) {
    const int32_t count = qav::ArgCount(state);
    ISSU_PKG *package = OpenEntityDatabase();
    if (package == nullptr) return 0;
    ISSU_PTR_LIST *names = ISSU_PtrListCreate();
    SYSDT_SPTI_CreateTable(state, 0, 0);
    ForEachName(state, count, [&](const char *name) {
        PushName(state, name);
        ISSU_ENTITY *entity = ISSU_PKG_QueryEntity(package, name);
        if (entity != nullptr) (void)l_whatrequired(state, package, entity, names);
        // With no such entity only the name was pushed, so this stores it under the result table
        // in whatever lies below on the stack; kept as the scripts have always seen it.
        SYSDT_SPTI_SetTable(state, -3);
        return true;
    });
    ISSU_PtrListFree(names);
    ISSU_PKG_DeletePkg(package);
    return 1;
}

} // extern "C"

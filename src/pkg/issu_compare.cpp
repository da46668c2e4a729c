// "issu": the compatibility comparison of a running and a candidate package description, and the
// entity table form shared by every package query.
#include <cstring>

#include "binding/memory.h"
#include "pkg/entity_tables.h"

namespace qav {

bool IsEntitySection(const ISSU_ENTITY *entity) {
    return entity != nullptr && entity->pcSection != nullptr && std::strcmp(entity->pcSection, "entity") == 0;
}

} // namespace qav

namespace {

void PushText(lua_State *state, int32_t table, const char *key, const char *text) {
    if (text == nullptr) return;
    SYSDT_SPTI_PushString(state, text, static_cast<uint32_t>(std::strlen(text) + 1));
    SYSDT_SPTI_SetField(state, table, key);
}

// Pushes the entities of one comparison list into the difference table on top, numbered on from
// `*number`, each under its change flag for the duration of the push.
void PushChangedList(lua_State *state, ISSU_PKG *first, ISSU_PTR_LIST *list, uint8_t changeFlag,
                     ISSU_PTR_LIST *names, uint32_t *number) {
    uint32_t count = ISSU_PtrListCountNum(list);
    for (uint32_t i = 1; i <= count; i++) {
        auto *entity = static_cast<ISSU_ENTITY *>(ISSU_PtrListGetNode(list, i));
        if (entity == nullptr) continue;
        uint8_t ownFlag = entity->ucChangeFlag;
        entity->ucChangeFlag = changeFlag;
        SYSDT_SPTI_PushUInt(state, (*number)++);
        (void)l_whatrequired(state, first, entity, names);
        SYSDT_SPTI_SetTable(state, -3);
        entity->ucChangeFlag = ownFlag;
    }
}

// Pushes the group table: each group's "entity"-section members in tree order; groups without
// such a member take no number.
void PushGroups(lua_State *state, ISSU_PTR_LIST *groups) {
    qav::TableBuilder table(state);
    uint32_t groupNumber = 0;
    uint32_t count = ISSU_PtrListCountNum(groups);
    for (uint32_t g = 1; g <= count; g++) {
        auto *group = static_cast<ISSU_ENTITY_GROUP *>(ISSU_PtrListGetNode(groups, g));
        if (group == nullptr) continue;
        uint32_t member = 0;
        for (QAV_RBT_NODE *node = QAV_RBT_FirstNode(group->pstEntities); node != nullptr;
             node = QAV_RBT_NextNode(node)) {
            if (!qav::IsEntitySection(node->pstEntity)) continue;
            if (member == 0) {
                SYSDT_SPTI_PushUInt(state, ++groupNumber);
                SYSDT_SPTI_CreateTable(state, 0, 0);
            }
            SYSDT_SPTI_PushUInt(state, ++member);
            l_push_entity(state, node->pstEntity);
            SYSDT_SPTI_SetTable(state, -3);
        }
        if (member != 0) SYSDT_SPTI_SetTable(state, table.index);
    }
}

} // namespace

extern "C" {

void l_push_entity_version(lua_State *state, const ISSU_VER *version, const char *key) {
    if (version == nullptr) return;
    char *text = ISSU_VER_ToString(version);
    const char *shown = text != nullptr ? text : "";
    SYSDT_SPTI_PushString(state, shown, static_cast<uint32_t>(std::strlen(shown) + 1));
    SYSDT_SPTI_SetField(state, -2, key);
    RPM_Os_Free(text);
}

void l_push_entity_filename(lua_State *state, const ISSU_PTR_LIST *files) {
    uint32_t count = ISSU_PtrListCountNum(files);
    if (count == 0) return;
    SYSDT_SPTI_CreateTable(state, 0, 0);
    for (uint32_t i = 1; i <= count; i++) {
        auto *name = static_cast<const char *>(ISSU_PtrListGetNode(files, i));
        if (name == nullptr) continue;
        SYSDT_SPTI_PushUInt(state, i);
        SYSDT_SPTI_PushString(state, name, static_cast<uint32_t>(std::strlen(name) + 1));
        SYSDT_SPTI_SetTable(state, -3);
    }
    SYSDT_SPTI_SetField(state, -2, "File");
}

void l_push_entity(lua_State *state, const ISSU_ENTITY *entity) {
    qav::TableBuilder table(state);
    table.UInt("EntityId", entity->uiId);
    PushText(state, table.index, "Entity", entity->pcName);
    l_push_entity_version(state, entity->pstVersion, "Version");
    l_push_entity_version(state, entity->pstCurVersion, "CurVersion");
    l_push_entity_version(state, entity->pstCompVersion, "CompVersion");
    PushText(state, table.index, "Type", entity->pcType);
    PushText(state, table.index, "UpgradeMode", entity->pcUpgradeMode);
    PushText(state, table.index, "IncompatibleUpgradeMode", entity->pcIncompatibleUpgradeMode);
    PushText(state, table.index, "CompatibilityVer", entity->pcCompatibilityVer);
    PushText(state, table.index, "Section", entity->pcSection);
    PushText(state, table.index, "Cpu", entity->pcCpu);
    table.UInt("Compat", entity->ucCompat).UInt("ChangeFlag", entity->ucChangeFlag);
    l_push_entity_filename(state, entity->pstFiles);
}

int32_t l_whatrequired(lua_State *state, ISSU_PKG *package, const ISSU_ENTITY *entity, ISSU_PTR_LIST *names) {
    l_push_entity(state, entity);
    SYSDT_SPTI_PushString(state, "Required", sizeof("Required"));
    SYSDT_SPTI_CreateTable(state, 0, 0);
    ISSU_CDT *container = ISSU_CDT_Create();
    if (container == nullptr) {
        SYSDT_SPTI_SetTable(state, -3);
        return -1;
    }
    int32_t result = ISSU_PKG_WhoRequireDeap(package, entity->pcName, container);
    if (result == 0) {
        uint32_t number = 0;
        for (QAV_RBT_NODE *node = QAV_RBT_FirstNode(container); node != nullptr;
             node = QAV_RBT_NextNode(node)) {
            if (!qav::IsEntitySection(node->pstEntity)) continue;
            SYSDT_SPTI_PushUInt(state, ++number);
            l_push_entity(state, node->pstEntity);
            SYSDT_SPTI_SetTable(state, -3);
            char *name = qav::HeapCopy(node->pstEntity->pcName);
            if (name == nullptr) {
                RPM_LogToFile(qav::kUpgradeLogId, qav::kLogFailure, "[ISSU] what required strdup error.");
                continue;
            }
            result = static_cast<int32_t>(ISSU_PtrListAppend(names, name, &qav::HeapFree));
            if (result != 0) qav::HeapFree(name);
        }
    }
    SYSDT_SPTI_SetTable(state, -3);
    ISSU_CDT_Delete(container);
    return result;
}

// "issu": code, then on success the difference table and the group table.
QAV_ENTRY_FUNCTION l_issu_compare(lua_State *state) {
    const char *firstPath = SYSDT_SPTI_ToString(state, 1);
    const char *secondPath = SYSDT_SPTI_ToString(state, 2);
    qav::PlaceholderSlot slot(state);
    if (firstPath == nullptr || secondPath == nullptr) return slot.Early();
    ISSU_PKG *first = ISSU_PKG_CreatePkg();
    if (first == nullptr) return slot.Early();

    ISSU_PKG *second = nullptr;
    ISSU_PTR_LIST *lists[3] = {nullptr, nullptr, nullptr};
    ISSU_PTR_LIST *names = nullptr;
    ISSU_PTR_LIST *groups = nullptr;
    int32_t code = ISSU_PKG_Load(first, firstPath);
    int results = 0;
    if (code < 0) {
        RPM_LogToFile(qav::kUpgradeLogId, qav::kLogFailure, "[ISSU] parse %s file failed.", firstPath);
    } else if ((second = ISSU_PKG_CreatePkg()) != nullptr) {
        code = ISSU_PKG_Load(second, secondPath);
        if (code < 0)
            RPM_LogToFile(qav::kUpgradeLogId, qav::kLogFailure, "[ISSU] parse %s file failed.", secondPath);
    }
    if (second != nullptr && code >= 0) {
        for (auto &list : lists)
            list = ISSU_PtrListCreate();
        names = ISSU_PtrListCreate();
        groups = ISSU_PtrListCreate();
        code = ISSU_Pkg_Compare(first, second, lists[0], lists[1], lists[2]);
        if (code == 0) {
            qav::TableBuilder differences(state);
            uint32_t number = 1;
            PushChangedList(state, first, lists[0], ISSU_CHANGE_MODIFIED, names, &number);
            PushChangedList(state, first, lists[1], ISSU_CHANGE_ADDED, names, &number);
            PushChangedList(state, first, lists[2], ISSU_CHANGE_REMOVED, names, &number);
            (void)ISSU_PKG_EntityGroup(first, second, names, groups);
            PushGroups(state, groups);
            results = 2;
        }
    }
    for (auto *list : lists)
        ISSU_PtrListFree(list);
    ISSU_PtrListFree(groups);
    ISSU_PtrListFree(names);
    ISSU_PKG_DeletePkg(second);
    ISSU_PKG_DeletePkg(first);
    return slot.Finish(code, results);
}

} // extern "C"

// The file access policy query and path formatting for scripts. The policy lives in the
// platform; these functions only marshal the user, the paths and the answers.
#include <cstring>

#include "binding/memory.h"
#include "binding/script_frame.h"
#include "securec.h"
#include "tfsi.h"

namespace {

using qav::state::kPolicyBadArguments;

// The query's arguments: "tnt", the user table, the path count and the path table.
constexpr int32_t kUserArg = 1;
constexpr int32_t kCountArg = 2;
constexpr int32_t kPathsArg = 3;

struct PolicyInput {
    TFSI_USER_INFO user;
    uint32_t count;
    TFSI_PATH_ACCESS *entries;
};

void FreeEntries(PolicyInput *input) {
    qav::PlatformFree(input->entries);
    input->entries = nullptr;
}

} // namespace

extern "C" {

// Reads the six user keys in their fixed order; each must be a number.
uint32_t QAV_VfmPolicyGetInputUser(lua_State *state, int32_t index, TFSI_USER_INFO *user) {
    const struct {
        const char *key;
        uint32_t *field;
    } keys[] = {{"policyDeliverType", &user->uiPolicyDeliverType},
                {"userLrID", &user->uiUserLrId},
                {"userVrID", &user->uiUserVrId},
                {"userID", &user->uiUserId},
                {"userLevel", &user->uiUserLevel},
                {"userGroup", &user->uiUserGroup}};
    for (const auto &k : keys) {
        if (!qav::FieldIsNumber(state, index, k.key)) return qav::kKeyNotNumber;
        *k.field = qav::FieldUInt(state, index, k.key);
    }
    return qav::kOk;
}

// Builds the entry array from the first `count` elements of the path array. A path must be a
// string value of the script's table: the entry keeps a pointer to it for the call.
uint32_t QAV_VfmPolicyGetInputPath(lua_State *state, int32_t index, uint32_t count, TFSI_PATH_ACCESS **out) {
    size_t bytes = static_cast<size_t>(count) * sizeof(TFSI_PATH_ACCESS);
    auto *entries = static_cast<TFSI_PATH_ACCESS *>(qav::PlatformAllocZeroed(static_cast<uint32_t>(bytes)));
    if (entries == nullptr) return qav::state::kPolicyNoMemory;
    for (uint32_t i = 0; i < count; ++i) {
        SYSDT_SPTI_PushUInt(state, i + 1);
        SYSDT_SPTI_GetTable(state, index);
        bool ok = SYSDT_SPTI_IsTable(state, -1) != 0;
        if (ok) {
            entries[i].uiOper = qav::FieldUInt(state, -1, "oper");
            SYSDT_SPTI_GetField(state, -1, "path");
            // only a real string stays alive in the table once popped; a number would be
            // converted on the stack copy
            ok = qav::ValueIs(state, -1, 'S');
            entries[i].pcPath = ok ? SYSDT_SPTI_ToString(state, -1) : nullptr;
            SYSDT_SPTI_Pop(state, 1);
        }
        SYSDT_SPTI_Pop(state, 1);
        if (!ok) {
            qav::PlatformFree(entries);
            return kPolicyBadArguments;
        }
    }
    *out = entries;
    return qav::kOk;
}

uint32_t QAV_VfmPolicyGetInput(lua_State *state, PolicyInput *input) {
    if (!qav::ArgsMatch(state, "tnt")) return kPolicyBadArguments;
    // the inner code of a bad user key is not shown to scripts
    if (QAV_VfmPolicyGetInputUser(state, kUserArg, &input->user) != qav::kOk) return kPolicyBadArguments;
    int32_t count = SYSDT_SPTI_ToInt(state, kCountArg);
    if (count <= 0) return kPolicyBadArguments;
    input->count = static_cast<uint32_t>(count);
    return QAV_VfmPolicyGetInputPath(state, kPathsArg, input->count, &input->entries);
}

void QAV_VfmPolicyPushAccessInfo(lua_State *state, const TFSI_PATH_ACCESS *entries, uint32_t count) {
    SYSDT_SPTI_CreateTable(state, 0, 0);
    for (uint32_t i = 0; i < count; ++i) {
        SYSDT_SPTI_PushUInt(state, i + 1);
        qav::TableBuilder item(state);
        item.UInt("fileAccess", entries[i].uiFileAccess)
            .UInt("pathAccess", entries[i].uiPathAccess)
            .UInt("detailType", entries[i].uiDetailType)
            .UInt("operAllow", entries[i].uiOperAllow)
            .String("path", entries[i].pcPath, static_cast<uint32_t>(std::strlen(entries[i].pcPath) + 1));
        SYSDT_SPTI_SetTable(state, -3);
    }
}

uint32_t QAV_VfmFormatPathGetInput(lua_State *state, const char **path, uint32_t *isDirectory) {
    if (!qav::ArgsMatch(state, "sb")) return kPolicyBadArguments;
    *path = SYSDT_SPTI_ToString(state, 1);
    *isDirectory = static_cast<uint32_t>(SYSDT_SPTI_ToBoolean(state, 2));
    return *path != nullptr ? qav::kOk : kPolicyBadArguments;
}

} // extern "C"

QAV_ENTRY_FUNCTION QAV_VfmPolicyQueryByGroup(lua_State *state) {
    PolicyInput input{};
    uint32_t ret = QAV_VfmPolicyGetInput(state, &input);
    if (ret != qav::kOk) return qav::ReturnUInt(state, ret);
    ret = TFSI_FilesAccessOfOneUserQuery(&input.user, input.count, input.entries);
    SYSDT_SPTI_PushUInt(state, ret);
    if (ret == qav::kOk) QAV_VfmPolicyPushAccessInfo(state, input.entries, input.count);
    FreeEntries(&input);
    return ret == qav::kOk ? 2 : 1;
}

QAV_ENTRY_FUNCTION QAV_VfmFormatPath(lua_State *state) {
    const char *path = nullptr;
    uint32_t isDirectory = 0;
    uint32_t ret = QAV_VfmFormatPathGetInput(state, &path, &isDirectory);
    if (ret != qav::kOk) return qav::ReturnUInt(state, ret);
    char formatted[TFSI_PATH_MAX] = {0};
    ret = TFSI_FormatPath(path, isDirectory, formatted);
    SYSDT_SPTI_PushUInt(state, ret);
    if (ret != qav::kOk) return 1;
    formatted[sizeof formatted - 1] = '\0';
    SYSDT_SPTI_PushString(state, formatted, static_cast<uint32_t>(std::strlen(formatted)));
    return 2;
}

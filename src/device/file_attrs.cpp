// File attributes, ownership, links, device-path conversion, the upgrade-flag and CMS-check
// queries and the startup stamps.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "binding/memory.h"
#include "binding/script_frame.h"
#include "device/stamp_text.h"
#include "securec.h"
#include "zak_fs.h"
#include "zak_stamp.h"

namespace {

using qav::device::kMissingText;
using qav::device::kNotALink;
using qav::device::kStatusFailed;
constexpr size_t kPathSize = 256;
constexpr int32_t kStampMinArgs = 6;
constexpr int32_t kStampMaxArgs = kStampMinArgs + static_cast<int32_t>(ZAK_STAMP_MAX_ITEMS);
constexpr uint32_t kStampTextCap = 8192;

int PushStatusAndText(lua_State *state, int32_t status, const char *text, uint32_t bound) {
    SYSDT_SPTI_PushInt(state, status);
    SYSDT_SPTI_PushString(state, text, bound);
    return 2;
}

int ChownWith(lua_State *state, int32_t (*chownTo)(const char *, uint32_t)) {
    const char *path = SYSDT_SPTI_ToString(state, 1);
    const char *modeText = SYSDT_SPTI_ToString(state, 2);
    if (path == nullptr || modeText == nullptr) return qav::ReturnInt(state, kMissingText);
    auto mode = static_cast<mode_t>(std::strtol(modeText, nullptr, 8));
    if (mode == 0) mode = 0750; // a mode of 0 (or no octal text) asks for the default
    if (chmod(path, mode) != 0) return qav::ReturnInt(state, -1);
    return qav::ReturnInt(state, chownTo(path, 0));
}

void FreeItems(ZAK_STARTUP_STAMP *stamp) {
    for (uint32_t i = 0; i < stamp->uiItemCount; ++i)
        qav::PlatformFree(stamp->apItems[i]);
    stamp->uiItemCount = 0;
}

uint8_t *ItemData(ZAK_STAMP_ITEM *item) {
    return reinterpret_cast<uint8_t *>(item) + ZAK_STAMP_ITEM_HEADER_SIZE;
}

ZAK_STAMP_ITEM *NewItem(uint16_t type, uint16_t length) {
    auto *item = static_cast<ZAK_STAMP_ITEM *>(
        qav::PlatformAlloc(ZAK_STAMP_ITEM_HEADER_SIZE + (length < 4 ? 4 : length)));
    if (item != nullptr) {
        item->usType = type;
        item->usLen = length;
    }
    return item;
}

// A text item holds the text and its NUL; the length is a 16-bit number (so a text of 65535
// characters wraps to an empty item) and is capped at 8192 bytes, the last one then forced to 0.
ZAK_STAMP_ITEM *TextItem(const char *text, size_t textLength) {
    uint32_t length = static_cast<uint16_t>(textLength + 1);
    bool capped = length > kStampTextCap;
    if (capped) length = kStampTextCap;
    ZAK_STAMP_ITEM *item = NewItem(ZAK_STAMP_ITEM_TEXT, static_cast<uint16_t>(length));
    if (item == nullptr) return nullptr;
    if (length > 0) {
        size_t copied = length <= textLength + 1 ? length : textLength + 1;
        std::memcpy(ItemData(item), text, copied);
        if (capped) ItemData(item)[length - 1] = 0;
    }
    return item;
}

ZAK_STAMP_ITEM *NumberItem(uint32_t value) {
    ZAK_STAMP_ITEM *item = NewItem(ZAK_STAMP_ITEM_NUMBER, sizeof value);
    if (item != nullptr) std::memcpy(ItemData(item), &value, sizeof value);
    return item;
}

} // namespace

QAV_ENTRY_FUNCTION QAV_GetLocalFileSize(lua_State *state) {
    const char *path = SYSDT_SPTI_ToString(state, 1);
    struct stat record {};
    // lstat: a link is measured itself, not what it points to.
    if (path == nullptr || lstat(path, &record) != 0) {
        SYSDT_SPTI_PushInt(state, kStatusFailed);
        SYSDT_SPTI_PushUInt(state, 0);
        return 2;
    }
    SYSDT_SPTI_PushInt(state, 0);
    SYSDT_SPTI_PushUInt(state, static_cast<uint32_t>(record.st_size));
    return 2;
}

QAV_ENTRY_FUNCTION QAV_GetLocalFilemTime(lua_State *state) {
    const char *path = SYSDT_SPTI_ToString(state, 1);
    struct stat record {};
    char text[256] = {0};
    char formatted[32] = {0};
    time_t modified = 0;
    if (path == nullptr || lstat(path, &record) != 0) return PushStatusAndText(state, kStatusFailed, "", 1);
    modified = record.st_mtime;
    if (ctime_r(&modified, formatted) == nullptr) return PushStatusAndText(state, kStatusFailed, "", 1);
    if (snprintf_s(text, sizeof text, sizeof text - 1, "%s", formatted) < 0)
        return PushStatusAndText(state, kStatusFailed, text, sizeof text);
    return PushStatusAndText(state, 0, text, sizeof text);
}

QAV_ENTRY_FUNCTION ZAK_IsFileExist(lua_State *state) {
    const char *path = SYSDT_SPTI_ToString(state, 1);
    return qav::ReturnUInt(state, path != nullptr && access(path, F_OK) == 0 ? qav::kOk : qav::kInvalidCall);
}

// The outcome of the removal is not reported: scripts call this to clean up what may be gone.
QAV_ENTRY_FUNCTION ZAK_RemoveFile(lua_State *state) {
    const char *path = SYSDT_SPTI_ToString(state, 1);
    if (path != nullptr) (void)std::remove(path);
    return qav::ReturnUInt(state, qav::kOk);
}

// A failed rename is not reported either; only missing texts are.
QAV_ENTRY_FUNCTION ZAK_RenameFile(lua_State *state) {
    const char *oldPath = SYSDT_SPTI_ToString(state, 1);
    const char *newPath = SYSDT_SPTI_ToString(state, 2);
    if (oldPath == nullptr || newPath == nullptr) return qav::ReturnUInt(state, qav::kInvalidCall);
    (void)std::rename(oldPath, newPath);
    return qav::ReturnUInt(state, qav::kOk);
}

QAV_ENTRY_FUNCTION QAV_ChownFile(lua_State *state) {
    return ChownWith(state, P_BOOT_Chown2ZAK);
}

QAV_ENTRY_FUNCTION QAV_ChownFtpFile(lua_State *state) {
    return ChownWith(state, P_BOOT_Chown2Ftp);
}

QAV_ENTRY_FUNCTION QAV_LinkFile(lua_State *state) {
    const char *target = SYSDT_SPTI_ToString(state, 1);
    const char *linkPath = SYSDT_SPTI_ToString(state, 2);
    if (target == nullptr || linkPath == nullptr) return qav::ReturnInt(state, kMissingText);
    // An existing link path is left as it is, wherever it points.
    if (symlink(target, linkPath) == 0 || errno == EEXIST) return qav::ReturnInt(state, 0);
    return qav::ReturnInt(state, -1);
}

QAV_ENTRY_FUNCTION QAV_GetLinkFileInfo(lua_State *state) {
    const char *linkPath = SYSDT_SPTI_ToString(state, 1);
    if (linkPath == nullptr) return qav::ReturnInt(state, kMissingText);
    struct stat record {};
    if (lstat(linkPath, &record) != 0) return qav::ReturnInt(state, -1);
    if (!S_ISLNK(record.st_mode)) return qav::ReturnInt(state, kNotALink);
    char target[384] = {0};
    if (readlink(linkPath, target, sizeof target - 1) < 0) return qav::ReturnInt(state, -1);
    return PushStatusAndText(state, 0, target, sizeof target);
}

QAV_ENTRY_FUNCTION QAV_ZakPathToLinuxPath(lua_State *state) {
    const char *path = qav::ArgsMatch(state, "s") ? SYSDT_SPTI_ToString(state, 1) : nullptr;
    if (path == nullptr) return qav::ReturnUInt(state, qav::kBadArgument);
    if (path[0] == '\0' || ZAK_InputPathCheck(path) != 0) {
        return qav::ReturnUIntText(state, 0, path, kPathSize - 1);
    }
    char linuxPath[kPathSize] = {0};
    uint32_t code = ZAK_ZakPathToLinuxPath(path, linuxPath, sizeof linuxPath);
    if (code != 0) return qav::ReturnUInt(state, code);
    linuxPath[kPathSize - 1] = '\0';
    return qav::ReturnUIntText(state, 0, linuxPath, sizeof linuxPath);
}

QAV_ENTRY_FUNCTION QAV_LinuxPathToZakPath(lua_State *state) {
    char path[kPathSize] = {0};
    if (!qav::ArgsMatch(state, "s") || !qav::CopyTextArg(state, 1, path, "QAV_LinuxPathToZakPath", __LINE__))
        return qav::ReturnUInt(state, qav::kBadArgument);
    if (path[0] != '/') {
        return qav::ReturnUIntText(state, 0, path, sizeof path);
    }
    (void)RPM_CutPathStr(path, sizeof path);
    char zakPath[kPathSize] = {0};
    uint32_t code = ZAK_LinuxPathToZakPath(path, zakPath, sizeof zakPath);
    SYSDT_SPTI_PushUInt(state, code);
    if (code != 0) {
        SYSDT_SPTI_PushString(state, path, sizeof path); // the input, not converted
    } else {
        zakPath[kPathSize - 1] = '\0';
        SYSDT_SPTI_PushString(state, zakPath, sizeof zakPath);
    }
    return 2;
}

QAV_ENTRY_FUNCTION QAV_IsUpgradeStatus(lua_State *state) {
    char root[kPathSize] = {0};
    uint32_t code = RPM_GetCommonRootPath(sizeof root, root);
    if (code != 0) return qav::ReturnUInt(state, code);
    char flagPath[384] = {0};
    if (snprintf_s(flagPath, sizeof flagPath, sizeof flagPath - 1, "%s/../%s", root, "upgrade_flag.cfg") < 0)
        return qav::ReturnUInt(state, qav::kInvalidCall);
    SYSDT_SPTI_PushUInt(state, 0);
    SYSDT_SPTI_PushBool(state, RPM_IsExistFile(flagPath) != 0 ? 1 : 0);
    return 2;
}

QAV_ENTRY_FUNCTION QAV_NeedCMSCheck(lua_State *state) {
    SYSDT_SPTI_PushBool(state, RPM_NeedCMSCheck_HOOK(SYSDT_SPTI_ToString(state, 1)) != 0 ? 1 : 0);
    return 1;
}

QAV_ENTRY_FUNCTION ZAK_StartupStampGetExt(lua_State *state) {
    uint32_t time[2] = {0, 0};
    (void)ZAK_StartupStampGetTime(time);
    SYSDT_SPTI_PushUInt(state, 0);
    SYSDT_SPTI_PushUInt(state, time[0]);
    SYSDT_SPTI_PushUInt(state, time[1]);
    return 3;
}

QAV_ENTRY_FUNCTION QAV_RecordUpgradeTimeStamp(lua_State *state) {
    if (!qav::ArgsMatch(state, "uuus")) return qav::ReturnUInt(state, qav::kBadRequest);
    ZAK_STARTUP_STAMP stamp{};
    for (int32_t i = 0; i < 3; ++i) {
        stamp.auiValue[i] = SYSDT_SPTI_ToUInt(state, i + 1);
        if (stamp.auiValue[i] > 2) return qav::ReturnUInt(state, qav::kBadRequest); // kinds 0 to 2
    }
    const char *text = SYSDT_SPTI_ToString(state, 4);
    if (text == nullptr) return qav::ReturnUInt(state, qav::kBadRequest);
    // The script's text is its own format: a '%' is interpreted, but never reads an argument.
    (void)qav::FormatWithoutArguments(text, stamp.szText, sizeof stamp.szText);
    (void)ZAK_StartupStampGetTime(stamp.auiTime);
    (void)ZAK_StartupStampAdd(0, 2, &stamp, stamp.auiValue[2], "%s", text);
    return qav::ReturnUInt(state, qav::kOk);
}

QAV_ENTRY_FUNCTION ZAK_StartupStampAddExt(lua_State *state) {
    int32_t count = qav::ArgCount(state);
    if (count < kStampMinArgs || count > kStampMaxArgs) return qav::ReturnUInt(state, qav::kInvalidCall);
    uint32_t flag1 = SYSDT_SPTI_ToUInt(state, 1);
    uint32_t flag2 = SYSDT_SPTI_ToUInt(state, 2);
    ZAK_STARTUP_STAMP stamp{};
    for (int32_t i = 0; i < 3; ++i)
        stamp.auiValue[i] = SYSDT_SPTI_ToUInt(state, 3 + i);
    stamp.uiValue4 = SYSDT_SPTI_ToUInt(state, 6);
    for (int32_t index = kStampMinArgs + 1; index <= count; ++index) {
        ZAK_STAMP_ITEM *item = nullptr;
        // The value's own type decides, so a numeric text stays a text.
        const bool isText = qav::ValueIs(state, index, 'S');
        if (qav::ValueIs(state, index, 'N')) {
            item = NumberItem(SYSDT_SPTI_ToUInt(state, index));
        } else if (isText) {
            uint32_t length = 0;
            const char *text = SYSDT_SPTI_ToLString(state, index, &length);
            item = text != nullptr ? TextItem(text, std::strlen(text)) : nullptr;
        }
        if (item == nullptr) {
            FreeItems(&stamp);
            return qav::ReturnUInt(state, qav::kInvalidCall);
        }
        stamp.apItems[stamp.uiItemCount++] = item;
        if (isText) stamp.uiItemDataLen += item->usLen;
    }
    (void)ZAK_StartupStampGetTime(stamp.auiTime);
    // The store takes the items over, whatever it returns.
    (void)ZAK_StartupStampAddImpl(flag1, flag2, &stamp, &stamp.uiReserved, 0);
    return qav::ReturnUInt(state, qav::kOk);
}

// Script file handles: unbuffered descriptor access to files through the platform file layer.
// A script keeps the access handle and the descriptor and passes both back on every call; the
// library keeps no table of open files.
#include <cctype>
#include <cstring>

#include "binding/script_frame.h"
#include "loc.h"
#include "zak_file.h"
#include "zak_fs.h"

namespace {

using qav::fileapi::kBadArguments;
constexpr uint32_t kBlockSize = 1020;
constexpr uint32_t kNumberSize = 512;
constexpr uint32_t kLineSize = 1020;

struct NamedCode {
    const char *text;
    uint32_t code;
};

// Compared in this order, exactly.
constexpr NamedCode kOpenModes[] = {
    {"r", ZAK_O_RDONLY},
    {"w", ZAK_O_WRONLY | ZAK_O_CREAT | ZAK_O_TRUNC},
    {"a", ZAK_O_WRONLY | ZAK_O_APPEND | ZAK_O_CREAT},
    {"r+", ZAK_O_RDWR},
    {"w+", ZAK_O_RDWR | ZAK_O_CREAT | ZAK_O_TRUNC},
    {"a+", ZAK_O_RDWR | ZAK_O_APPEND | ZAK_O_CREAT},
};
constexpr NamedCode kSeekOrigins[] = {
    {"set", ZAK_SEEK_SET},
    {"cur", ZAK_SEEK_CUR},
    {"end", ZAK_SEEK_END},
};

template <size_t N> bool Lookup(const NamedCode (&table)[N], const char *text, uint32_t *code) {
    if (text == nullptr) return false;
    for (const NamedCode &entry : table) {
        if (std::strcmp(entry.text, text) == 0) {
            *code = entry.code;
            return true;
        }
    }
    return false;
}

void LogFileError(int32_t code, const char *message) {
    QAV_DiagLog(0, qav::kDiagModule, "%u%s", LOC_GetLocationID(static_cast<uint32_t>(code)), message);
}

// The handle and descriptor every call after open starts with.
struct OpenFile {
    uint32_t handle;
    int32_t fd;
};
OpenFile FileArgs(lua_State *state) {
    return {SYSDT_SPTI_ToUInt(state, 1), SYSDT_SPTI_ToInt(state, 2)};
}

// The checkers' result: 0 when the arguments match the type string, 0xFFFFFFFF otherwise.
uint32_t CheckArgs(lua_State *state, const char *types) {
    return qav::ArgsMatch(state, types) ? qav::kOk : qav::kInvalidCall;
}

int PushResults(lua_State *state, int32_t code, int nils) {
    SYSDT_SPTI_PushInt(state, code);
    for (int i = 0; i < nils; ++i)
        SYSDT_SPTI_PushNil(state);
    return 1 + nils;
}

// The number read's two results: how many digits, and the digits.
int PushDigits(lua_State *state, const char *digits, int32_t count) {
    SYSDT_SPTI_PushInt(state, count);
    SYSDT_SPTI_PushString(state, digits, static_cast<uint32_t>(count));
    return 2;
}

bool IsDigit(uint8_t byte) {
    return std::isdigit(byte) != 0;
}

} // namespace

extern "C" {

uint32_t qav_spt_GetZakHandle(uint32_t number, uint32_t *handle) {
    // The owner tag of script file access: 0xFF then the letters "lua".
    return QAV_GetZakHandle(number, handle, 0xFF6C7561);
}

uint32_t QAV_SPT_Fopen_Chk(lua_State *state) {
    return CheckArgs(state, "nss");
}
uint32_t QAV_SPT_Fread_Chk(lua_State *state) {
    return CheckArgs(state, "nnnn");
}
uint32_t QAV_SPT_FreadNum_Chk(lua_State *state) {
    return CheckArgs(state, "nn");
}
uint32_t QAV_SPT_FReadLine_Chk(lua_State *state) {
    return QAV_SPT_FreadNum_Chk(state);
}
uint32_t QAV_SPT_Fseek_Chk(lua_State *state) {
    return CheckArgs(state, "nnsn");
}
uint32_t QAV_SPT_Fwrite_Chk(lua_State *state) {
    return CheckArgs(state, "nns");
}
// Flush and close take the same two numbers as the number read.
uint32_t QAV_SPT_FSync_Chk(lua_State *state) __attribute__((alias("QAV_SPT_FreadNum_Chk")));
uint32_t QAV_SPT_Fclose_Chk(lua_State *state) __attribute__((alias("QAV_SPT_FreadNum_Chk")));

} // extern "C"

QAV_ENTRY_FUNCTION QAV_SPT_Fopen(lua_State *state) {
    if (QAV_SPT_Fopen_Chk(state) != 0) {
        SYSDT_SPTI_PushInt(state, kBadArguments);
        SYSDT_SPTI_PushUInt(state, 0);
        return 2;
    }
    uint32_t number = SYSDT_SPTI_ToUInt(state, 1);
    uint32_t length = 0;
    const char *path = SYSDT_SPTI_ToLString(state, 2, &length);
    if (path == nullptr) {
        ZAK_Assert("fapi_lua", 120, 0);
        return static_cast<int>(qav::kInvalidCall); // unreachable after the check; the count is kept
    }
    uint32_t flags = 0;
    if (!Lookup(kOpenModes, SYSDT_SPTI_ToLString(state, 3, &length), &flags)) {
        SYSDT_SPTI_PushInt(state, kBadArguments);
        SYSDT_SPTI_PushUInt(state, 0);
        return 2;
    }
    uint32_t handle = 0; // stays 0 when the platform knows no handle for the number
    (void)qav_spt_GetZakHandle(number, &handle);
    int32_t fd = P_ZAK_Open(path, flags, handle, 0640);
    if (fd < 0) LogFileError(fd, "QAV open file error.");
    SYSDT_SPTI_PushInt(state, fd);
    SYSDT_SPTI_PushUInt(state, handle);
    return 2;
}

QAV_ENTRY_FUNCTION QAV_SPT_Fread(lua_State *state) {
    if (QAV_SPT_Fread_Chk(state) != 0) return PushResults(state, kBadArguments, 2);
    OpenFile file = FileArgs(state);
    uint32_t total = SYSDT_SPTI_ToUInt(state, 3);
    uint32_t offset = SYSDT_SPTI_ToUInt(state, 4);
    uint32_t length = total - offset; // unsigned: an offset past the total reads a full block
    if (length > kBlockSize) length = kBlockSize;
    char buffer[kBlockSize] = {0};
    int32_t count = P_ZAK_Read(file.fd, buffer, length, file.handle);
    if (count < 0) {
        LogFileError(count, "QAV read file error.");
        return PushResults(state, count, 2);
    }
    auto got = static_cast<uint32_t>(count);
    bool more = total > kBlockSize && got >= kBlockSize && offset + got < total;
    SYSDT_SPTI_PushInt(state, count);
    SYSDT_SPTI_PushBool(state, more ? 0 : 1);
    SYSDT_SPTI_PushLString(state, buffer, got);
    return 3;
}

QAV_ENTRY_FUNCTION QAV_SPT_FreadNum(lua_State *state) {
    if (QAV_SPT_FreadNum_Chk(state) != 0) return PushResults(state, kBadArguments, 1);
    OpenFile file = FileArgs(state);
    char digits[kNumberSize] = {0};
    int32_t count = 0;
    int32_t result = 0;
    bool nonDigit = false;
    for (;;) {
        uint8_t byte = 0;
        result = P_ZAK_Read(file.fd, &byte, 1, file.handle);
        if (result < 1) break;
        digits[count++] = static_cast<char>(byte);
        if (!IsDigit(byte)) {
            nonDigit = true;
            break;
        }
        if (count >= static_cast<int32_t>(kNumberSize)) {
            // Full: no seek back, the next call goes on with the following digits.
            return PushDigits(state, digits, count);
        }
    }
    if (!nonDigit) {
        LogFileError(result, "QAV read file error."); // also at a plain end of file
        if (result < 0) return PushResults(state, result, 1);
        uint8_t last = count > 0 ? static_cast<uint8_t>(digits[count - 1]) : 0;
        if (IsDigit(last)) return PushDigits(state, digits, count);
    }
    // Step back so that the next read sees the non-digit again. With nothing read at offset 0 the
    // seek fails and its code is the result.
    int32_t seek = P_ZAK_LSeek(file.fd, -1, ZAK_SEEK_CUR, file.handle);
    if (seek < 0) return PushResults(state, seek, 1);
    return PushDigits(state, digits, count - 1);
}

QAV_ENTRY_FUNCTION QAV_SPT_FReadLine(lua_State *state) {
    if (QAV_SPT_FReadLine_Chk(state) != 0) return PushResults(state, kBadArguments, 2);
    OpenFile file = FileArgs(state);
    char line[kLineSize] = {0};
    uint32_t count = 0;
    for (;;) {
        uint8_t byte = 0;
        int32_t result = P_ZAK_Read(file.fd, &byte, 1, file.handle);
        if (result < 1) {
            LogFileError(result, "QAV read file error."); // also at a plain end of file
            if (result < 0) return PushResults(state, result, 2);
            SYSDT_SPTI_PushInt(state, static_cast<int32_t>(count));
            SYSDT_SPTI_PushBool(state, 1);
            break;
        }
        line[count++] = static_cast<char>(byte);
        if (byte == '\n') {
            SYSDT_SPTI_PushInt(state, static_cast<int32_t>(count));
            SYSDT_SPTI_PushBool(state, 1);
            --count;
            break;
        }
        if (count >= kLineSize) {
            SYSDT_SPTI_PushInt(state, static_cast<int32_t>(kLineSize));
            SYSDT_SPTI_PushBool(state, 0);
            break;
        }
    }
    if (count == 0) {
        SYSDT_SPTI_PushString(state, "", 1);
    } else {
        uint32_t length = line[count - 1] == '\r' ? count - 1 : count;
        SYSDT_SPTI_PushString(state, line, length);
    }
    return 3;
}

QAV_ENTRY_FUNCTION QAV_SPT_Fseek(lua_State *state) {
    uint32_t origin = 0;
    if (QAV_SPT_Fseek_Chk(state) != 0 || !Lookup(kSeekOrigins, SYSDT_SPTI_ToString(state, 3), &origin))
        return qav::ReturnInt(state, kBadArguments);
    OpenFile file = FileArgs(state);
    int32_t offset = SYSDT_SPTI_ToInt(state, 4);
    return qav::ReturnInt(state, P_ZAK_LSeek(file.fd, offset, static_cast<int32_t>(origin), file.handle));
}

QAV_ENTRY_FUNCTION QAV_SPT_Fwrite(lua_State *state) {
    if (QAV_SPT_Fwrite_Chk(state) != 0) return qav::ReturnInt(state, kBadArguments);
    OpenFile file = FileArgs(state);
    uint32_t length = 0;
    const char *data = SYSDT_SPTI_ToLString(state, 3, &length);
    int32_t written = P_ZAK_Write(file.fd, data, length, file.handle);
    if (written < 0) LogFileError(written, "QAV write file error.");
    return qav::ReturnInt(state, written);
}

QAV_ENTRY_FUNCTION QAV_SPT_FSync(lua_State *state) {
    if (QAV_SPT_FSync_Chk(state) != 0) return qav::ReturnInt(state, kBadArguments);
    OpenFile file = FileArgs(state);
    return qav::ReturnInt(state, P_ZAK_FSync(file.fd, file.handle));
}

QAV_ENTRY_FUNCTION QAV_SPT_Fclose(lua_State *state) {
    if (QAV_SPT_Fclose_Chk(state) != 0) return qav::ReturnInt(state, kBadArguments);
    OpenFile file = FileArgs(state);
    return qav::ReturnInt(state, P_ZAK_Close(file.fd, file.handle));
}

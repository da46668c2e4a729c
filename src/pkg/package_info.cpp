// Package information and file digest queries: the fields of a package information file
// (rpg.rinfo, by default the running package's) and MD5 digests of files and byte ranges.
// Placeholder-slot results: the code, then the table or text on success.
#include <cstring>

#include "binding/script_frame.h"
#include "issu_pkg.h"
#include "pat_pkg.h"

namespace {

constexpr const char *kCurrentRpgInfo = "../pkg_pool/program/current/rpg.rinfo";
constexpr uint32_t kPathBuffer = 256;
constexpr uint32_t kDigestBuffer = 48;

using qav::pkg::kInfoBadArguments;
using qav::pkg::kInfoNoSuchField;
using qav::pkg::kInfoUnreadable;

void PushText(lua_State *state, const char *text) {
    SYSDT_SPTI_PushString(state, text, static_cast<uint32_t>(std::strlen(text) + 1));
}

// Opens the information file named by the optional single argument, else the running package's.
// Sets *code and returns null on failure.
ISSU_PKGINFO *OpenInfoArgument(lua_State *state, int32_t argCount, const char *function, int32_t *code) {
    char path[kPathBuffer] = {};
    if (argCount > 1 || (argCount == 1 && !qav::CopyTextArg(state, 1, path, function, __LINE__))) {
        *code = kInfoBadArguments;
        return nullptr;
    }
    ISSU_PKGINFO *info = ISSU_PKGINFO_Open(argCount == 1 ? path : kCurrentRpgInfo);
    if (info == nullptr) *code = kInfoUnreadable;
    return info;
}

// One text field of the information file: code 0 and the text, or a code.
int PushInfoField(lua_State *state, char *ISSU_PKGINFO::*member, const char *function) {
    qav::PlaceholderSlot slot(state);
    int32_t code = 0;
    ISSU_PKGINFO *info = OpenInfoArgument(state, slot.ArgCount(), function, &code);
    if (info == nullptr) return slot.Finish(code);
    const char *text = info->*member;
    int results = 0;
    if (text == nullptr) {
        code = kInfoNoSuchField;
    } else {
        PushText(state, text);
        results = 1;
    }
    ISSU_PKGINFO_Delete(info);
    return slot.Finish(code, results);
}

int PushDigest(lua_State *state, const qav::PlaceholderSlot &slot, uint32_t rc, const char *digest) {
    if (rc == 1) return slot.Finish(kInfoUnreadable);
    if (rc != 0) return slot.Finish(kInfoNoSuchField);
    PushText(state, digest);
    return slot.Finish(0, 1);
}

} // namespace

extern "C" {

// "rpm_getpkginfo" ([information file]): code 0 and a table of the fields present.
QAV_ENTRY_FUNCTION l_get_pkginfo(lua_State *state) {
    qav::PlaceholderSlot slot(state);
    int32_t code = 0;
    ISSU_PKGINFO *info = OpenInfoArgument(state, slot.ArgCount(), "l_get_pkginfo", &code);
    if (info == nullptr) return slot.Finish(code);
    qav::TableBuilder table(state);
    for (const ISSU_PKGINFO_FIELD &field : kIssuPkgInfoFields) {
        const char *text = info->*field.member;
        if (text != nullptr) table.String(field.key, text, static_cast<uint32_t>(std::strlen(text) + 1));
    }
    ISSU_PKGINFO_Delete(info);
    return slot.Finish(0, 1);
}

// "rpm_getcopyrightinfo" ([information file]): code 0 and the copyright text.
QAV_ENTRY_FUNCTION l_get_copyrightinfo(lua_State *state) {
    return PushInfoField(state, &ISSU_PKGINFO::pcCopyright, "l_get_copyrightinfo");
}

// "rpm_getorigininfo" ([information file]): code 0 and the origin text.
QAV_ENTRY_FUNCTION l_get_origininfo(lua_State *state) {
    return PushInfoField(state, &ISSU_PKGINFO::pcOrigin, "l_get_origininfo");
}

// "rpm_getfilemd5val" (file): code 0 and the file's MD5 digest.
QAV_ENTRY_FUNCTION l_get_file_md5(lua_State *state) {
    qav::PlaceholderSlot slot(state);
    char path[kPathBuffer] = {};
    if (slot.ArgCount() != 1 || !qav::CopyTextArg(state, 1, path, "l_get_file_md5", __LINE__))
        return slot.Finish(kInfoBadArguments);
    char digest[kDigestBuffer] = {};
    return PushDigest(state, slot, RPM_MD5_HashFileRange(path, 0, 0, digest, sizeof digest), digest);
}

// "rpm_getfilemd5val_ext" (file, offset, length): code 0 and the MD5 digest of that byte range
// (length 0: to the end of the file).
QAV_ENTRY_FUNCTION l_get_file_md5_ext(lua_State *state) {
    qav::PlaceholderSlot slot(state);
    char path[kPathBuffer] = {};
    if (slot.ArgCount() != 3 || !qav::ValueIs(state, 2, 'u') || !qav::ValueIs(state, 3, 'u') ||
        !qav::CopyTextArg(state, 1, path, "l_get_file_md5_ext", __LINE__))
        return slot.Finish(kInfoBadArguments);
    uint64_t offset = SYSDT_SPTI_ToUInt(state, 2);
    uint64_t length = SYSDT_SPTI_ToUInt(state, 3);
    char digest[kDigestBuffer] = {};
    return PushDigest(state, slot, RPM_MD5_HashFileRange(path, offset, length, digest, sizeof digest),
                      digest);
}

} // extern "C"

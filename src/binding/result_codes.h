// The result codes entry functions push, one name per meaning: the shared ones first, then each
// area's own. A code keeps the encoding its function pushes it in (unsigned or signed).
#pragma once

#include <cstdint>

namespace qav {

inline constexpr uint32_t kOk = 0;
inline constexpr uint32_t kFailed = 1;
// A wrong argument count or type, and the failure of many functions.
inline constexpr uint32_t kInvalidCall = 0xFFFFFFFF;

// A wrong call in the numberings of the older interfaces:
// the errno numbering (path converters, ISSU dispatch, digest query),
inline constexpr uint32_t kBadArgument = 22;
// the patch and trap numbering, whose one failure status also covers a missing text, a filtered
// trap and an unreadable package header,
inline constexpr uint32_t kGenericFailure = 5005;
// and the OS password and startup stamp numbering.
inline constexpr uint32_t kBadRequest = 1000;

namespace fileapi {
// A wrong argument, an unknown open mode or seek origin.
inline constexpr int32_t kBadArguments = static_cast<int32_t>(0xFFEFFE9C);
} // namespace fileapi

namespace event {
// The patch log functions' text argument is not a string.
inline constexpr uint32_t kNotText = 5000;
} // namespace event

namespace state {
// The file access policy query.
inline constexpr uint32_t kPolicyBadArguments = 0x401C02;
inline constexpr uint32_t kPolicyNoMemory = 0x401C03;
inline constexpr uint32_t kPolicyUserKeyNotNumber = 0x801707;
// The upgrade lock: held by another kind, VM lists that overlap or are missing, a release that
// matches no holder.
inline constexpr uint32_t kUpgradeLockBusy = 2;
inline constexpr uint32_t kUpgradeLockNoVmList = 3;
inline constexpr uint32_t kUpgradeLockMismatch = 0xFFFFFFFF;
} // namespace state

namespace time {
// The one failure status of the platform's clock and calendar calls.
inline constexpr uint32_t kPlatformFailure = 22;
// A time difference asked for a first time earlier than the second.
inline constexpr uint32_t kCompareRefused = 0xFFFFFFFF;
} // namespace time

namespace crypt {
// Changing an OS user's password (kBadRequest: missing or unreadable arguments).
inline constexpr uint32_t kNoSuchUser = 1001;
inline constexpr uint32_t kOldPasswordWrong = 1002;
inline constexpr uint32_t kChangeFailed = 1003;
inline constexpr uint32_t kPasswordUsedBefore = 1004;
} // namespace crypt

namespace device {
// File attribute functions (signed).
inline constexpr int32_t kStatusFailed = 1;
inline constexpr int32_t kMissingText = 2;
inline constexpr int32_t kNotALink = 11;
// The NPS disk size query.
inline constexpr uint32_t kNoDiskConfig = 1;
inline constexpr uint32_t kDiskReadFailed = 2;
inline constexpr uint32_t kDiskBadArguments = 3;
} // namespace device

namespace pkg {
// Version configuration queries.
inline constexpr uint32_t kNeTypeFailed = 0x31C400;
inline constexpr uint32_t kPackageTypeFailed = 0x31C410;
inline constexpr uint32_t kVersionFailed = 0x31C420;
inline constexpr uint32_t kAppTypeFailed = 0x31C430;
inline constexpr uint32_t kNodeCountFailed = 0x31C470;
inline constexpr uint32_t kNodeInfoFailed = 0x31C480;
inline constexpr uint32_t kCheckFailed = 0x31C490;
inline constexpr uint32_t kVersionTypeUnknown = 12724;
// The ISSU operation dispatch: no row for the command word.
inline constexpr uint32_t kUnknownCommand = 38;
// Package information queries (signed).
inline constexpr int32_t kInfoBadArguments = -1;
inline constexpr int32_t kInfoUnreadable = -2;
inline constexpr int32_t kInfoNoSuchField = -3;
// Patch package queries (signed): the startup patch has no path or is missing, no memory.
inline constexpr int32_t kStartupNoPath = 2;
inline constexpr int32_t kStartupMissing = 4;
inline constexpr int32_t kPatchNoMemory = 5001;
} // namespace pkg

} // namespace qav

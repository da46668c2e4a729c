// The host platform core: handles, allocator, clocks, INI files, file layer, paths and logs.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <thread>

#include "unit_helpers.h"
#include "nuk_string.h"
#include "nuk_sync.h"
#include "os_env.h"
#include "qav_mk.h"
#include "rpm_ini.h"
#include "zak_file.h"
#include "zak_fs.h"
#include "zak_memory.h"

namespace {

using unit::Slurp;
using unit::TempDir;

TEST(HostSync, MutexHandlesAndErrors) {
    uint32_t m = 0, other = 0;
    ASSERT_EQ(NUK_MutexInit(&m, 0), 0u);
    // A second lock by the holder fails (never hangs); unlocking what is not held fails.
    const std::pair<uint32_t (*)(uint32_t), bool> steps[] = {
        {NUK_MutexLock, true},   {NUK_MutexLock, false},   {NUK_MutexTrylock, false},
        {NUK_MutexUnlock, true}, {NUK_MutexUnlock, false}, {NUK_MutexTrylock, true},
        {NUK_MutexUnlock, true}, {NUK_MutexDestroy, true}, {NUK_MutexLock, false}};
    for (size_t i = 0; i < std::size(steps); ++i)
        EXPECT_EQ(steps[i].first(m) == 0, steps[i].second) << "step " << i;
    EXPECT_NE(NUK_MutexLock(0), 0u); // never created
    EXPECT_NE(NUK_MutexLock(0xFFFFFFFFu), 0u);
    EXPECT_NE(NUK_MutexInit(nullptr, 0), 0u);
    ASSERT_EQ(NUK_MutexInit(&other, 0), 0u);
    EXPECT_NE(other, m); // handles are not reused
    // Once enough slots wait, freed ones are reused (a new generation), each by one object only.
    for (int i = 0; i < 70000; ++i)
        NUK_MutexInit(&m, 0), NUK_MutexDestroy(m);
    ASSERT_EQ(NUK_MutexInit(&m, 0) | NUK_MutexInit(&other, 0), 0u);
    EXPECT_NE(m >> 20, 0u);
    EXPECT_EQ(NUK_MutexLock(m) | NUK_MutexLock(other), 0u);
}

TEST(HostSync, SemaphoreCountsAndTimesOut) {
    uint32_t s = 0;
    ASSERT_EQ(NUK_SemaCreate("test", 1, 0, &s), 0u);
    EXPECT_EQ(NUK_SemaP(s, 0), 0u);
    EXPECT_EQ(NUK_SemaP(s, 20), NUK_SEMA_TIMEOUT);
    EXPECT_EQ(NUK_SemaV(s) | NUK_SemaV(s) | NUK_SemaP(s, NUK_WAIT_FOREVER) | NUK_SemaP(s, 0), 0u);
    EXPECT_EQ(NUK_SemaP(s, 0), NUK_SEMA_TIMEOUT);
    // (Posts waking waiters on other threads: the concurrency tests of the named locks.)
    // Deleting wakes every waiter with an error.
    uint32_t other = 1;
    std::thread waiter([s, &other] { other = NUK_SemaP(s, NUK_WAIT_FOREVER); });
    std::thread deleter([s] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        NUK_SemaDelete(s);
    });
    EXPECT_EQ(NUK_SemaP(s, NUK_WAIT_FOREVER), 1u);
    deleter.join();
    waiter.join();
    EXPECT_EQ(other, 1u);
    EXPECT_NE(NUK_SemaV(s), 0u);
    // A count the semaphore cannot hold is refused.
    EXPECT_EQ(NUK_SemaCreate("big", 0x80000000u, 0, &s), 1u);
}

// (Skips and counts of injections are what every script-level failure test relies on.)
TEST(HostSync, AnInjectedZeroFromSemaphoreCreationIsAFailure) {
    zakhost::inject("NUK_SemaCreate", 0, 0, 5);
    uint32_t s = 0;
    EXPECT_EQ(NUK_SemaCreate("x", 1, 0, &s), 1u); // result 0 reads as the general failure
    EXPECT_EQ(s, 0u);
    zakhost::inject_clear();
    EXPECT_EQ(NUK_SemaCreate("x", 1, 0, &s), 0u);
}

TEST(HostMemory, LiveBlocksAreCounted) {
    int64_t blocks = zakhost::live_blocks(), bytes = zakhost::live_bytes();
    void *a = ZAK_Malloc_F(nullptr, 0, 100, "test", __LINE__);
    void *b = ZAK_Malloc_F(nullptr, 0, 28, "test", __LINE__);
    for (void *p : {a, b})
        ASSERT_EQ(reinterpret_cast<uintptr_t>(p) % alignof(std::max_align_t), 0u) << p;
    EXPECT_EQ(zakhost::live_blocks(), blocks + 2);
    EXPECT_EQ(zakhost::live_bytes(), bytes + 128);
    EXPECT_EQ(ZAK_Free_F(a, "test", __LINE__) | NUK_MemFree(b), 0u);
    EXPECT_EQ(zakhost::live_blocks(), blocks);
    EXPECT_EQ(zakhost::live_bytes(), bytes);
    EXPECT_NE(ZAK_Free_F(nullptr, "test", __LINE__), 0u);
}

TEST(HostClock, OffsetMovesEveryClockForwardOnly) {
    timespec before{}, raw{}, after{}, rawAfter{};
    ASSERT_EQ(ZAK_OsClockGetTime(CLOCK_REALTIME, &before) | ZAK_OsClockGetTime(CLOCK_MONOTONIC_RAW, &raw), 0);
    zakhost::clock_advance(3600);
    zakhost::clock_advance(-100); // ignored: clocks never go back
    ASSERT_EQ(ZAK_OsClockGetTime(CLOCK_REALTIME, &after) | ZAK_OsClockGetTime(CLOCK_MONOTONIC_RAW, &rawAfter),
              0);
    EXPECT_EQ((after.tv_sec - before.tv_sec) / 5, 3600 / 5);
    EXPECT_GE(rawAfter.tv_sec - raw.tv_sec, 3600);
    EXPECT_NE(ZAK_OsClockGetTime(CLOCK_TAI + 100, &after), 0);
    EXPECT_NE(ZAK_OsClockGetTime(CLOCK_REALTIME, nullptr), 0);
}

TEST(HostIni, KeysAreTakenExactlyAsWritten) {
    std::string dir = TempDir();
    std::string file = dir + "/vpn.ini";
    std::ofstream(file) << "[VPN INDEX]\nindex =  7\nindex=8\n\n[other]\nindex = 9\n";
    char value[16];
    ASSERT_EQ(RPM_GetProfileString(file.c_str(), "[VPN INDEX]", "index ", value, sizeof value), 0u);
    EXPECT_STREQ(value, "7");
    ASSERT_EQ(RPM_GetProfileString(file.c_str(), "VPN INDEX", "index", value, sizeof value), 0u);
    EXPECT_STREQ(value, "8");
    EXPECT_EQ(RPM_GetProfileString(file.c_str(), "[none]", "index", value, sizeof value), 1u);
    EXPECT_EQ(RPM_GetProfileString((dir + "/missing.ini").c_str(), "[a]", "b", value, sizeof value), 1u);
    EXPECT_EQ(RPM_GetProfileString(file.c_str(), "[VPN INDEX]", "index ", value, 1), 2u);

    ASSERT_EQ(RPM_WriteProfileString(file.c_str(), "[VPN INDEX]", "index ", "12"), 0u);
    ASSERT_EQ(RPM_WriteProfileString(file.c_str(), "[other]", "new", "x"), 0u);
    ASSERT_EQ(RPM_WriteProfileString(file.c_str(), "[third]", "k", "v"), 0u);
    EXPECT_EQ(Slurp(file), "[VPN INDEX]\nindex =12\nindex=8\n\n[other]\nindex = 9\nnew=x\n[third]\nk=v\n");
}

TEST(HostProfile, NumbersAreDecimalOrHexNeverOctal) {
    const std::pair<const char *, int64_t> cases[] = {{"010", 10},
                                                      {" -010 ", -10},
                                                      {"0x1A", 26},
                                                      {"0X10", 16},
                                                      {"-9223372036854775808", INT64_MIN},
                                                      {"9223372036854775808", -1},
                                                      {"1x", -1},
                                                      {"0x-1", -1},
                                                      {"", -1}};
    for (const auto &[text, expected] : cases) {
        zakhost::profile_override("numbers", "n", text);
        EXPECT_EQ(zakhost::profile_int("numbers", "n", -1), expected) << '"' << text << '"';
    }
    zakhost::profile_override("numbers", "n", std::nullopt);
}

TEST(HostProfile, DecimalTextsEndAt4294967295AndTheRootDropsTrailingSlashes) {
    uint32_t value = 0;
    EXPECT_EQ(NUK_StrToUint32("4294967295", &value), 0u);
    EXPECT_EQ(value, 4294967295u);
    EXPECT_NE(NUK_StrToUint32("4294967296", &value), 0u);
    std::string root = zakhost::root();
    setenv("ZAKHOST_ROOT", (root + "//").c_str(), 1u);
    zakhost::reset_environment();
    EXPECT_EQ(zakhost::root(), root);
    setenv("ZAKHOST_ROOT", root.c_str(), 1u);
    zakhost::reset_environment();
}

TEST(HostWrites, FailedWritesAreReportedInSyslogWithPathAndErrno) {
    zakhost::log_clear();
    auto reported = [](const std::string &line) { return unit::Logged("syslog", line); };
    std::string dir = TempDir();
    std::ofstream(dir + "/file") << "x";
    std::string ini = dir + "/file/a.ini";
    EXPECT_EQ(RPM_WriteProfileString(ini.c_str(), "[s]", "k", "v"), 1u);
    EXPECT_EQ(reported("cannot write " + ini + ": Not a directory"), 1u);
    // The state file cannot be replaced while a directory stands in its place.
    std::string state = zakhost::root() + "/zakhost_state.ini";
    ASSERT_EQ(mkdir(state.c_str(), 0755), 0);
    std::ofstream(state + "/keep") << "x";
    EXPECT_NE(ZAK_SetMKConfigStatus(5), 0u);
    EXPECT_EQ(reported("cannot write " + state + ": Is a directory"), 1u);
    EXPECT_EQ(unlink((state + "/keep").c_str()) | rmdir(state.c_str()), 0);
    // A log file that cannot be appended to is reported once, not once per record.
    setenv("ZAKHOST_LOG_DIR", (dir + "/file").c_str(), 1u);
    zakhost::log_text("upgrade", 0, 3, "one");
    zakhost::log_text("upgrade", 0, 3, "two");
    unsetenv("ZAKHOST_LOG_DIR");
    EXPECT_EQ(reported("cannot write " + dir + "/file/upgrade.log: Not a directory"), 1u);
}

TEST(HostFileLayer, ErrnoBecomesLayerCodes) {
    std::string dir = TempDir();
    std::string file = dir + "/f";
    int32_t fd = P_ZAK_Open(file.c_str(), ZAK_O_RDWR | ZAK_O_CREAT, 0, 0640);
    ASSERT_GE(fd, 0);
    EXPECT_EQ(P_ZAK_Write(fd, "hello", 5, 0), 5);
    EXPECT_EQ(P_ZAK_LSeek(fd, -2, ZAK_SEEK_END, 0), 3);
    char buf[8] = {};
    EXPECT_EQ(P_ZAK_Read(fd, buf, sizeof buf, 0), 2);
    EXPECT_STREQ(buf, "lo");
    for (auto [offset, origin] : {std::pair{-1, ZAK_SEEK_SET}, {0, 7}, {0, 0}}) // origins are 1, 2 and 4
        EXPECT_EQ(P_ZAK_LSeek(fd, offset, origin, 0), ZAK_FILE_INVALID) << origin;
    EXPECT_EQ(P_ZAK_FSync(fd, 0) | P_ZAK_Close(fd, 0), 0);
    EXPECT_EQ(P_ZAK_Close(fd, 0), ZAK_FILE_BAD_DESCRIPTOR);
    // Descriptors the layer did not open are not touched: standard error stays open.
    int other = open(file.c_str(), O_RDWR);
    ASSERT_GE(other, 0);
    for (int foreign : {2, other}) {
        for (int32_t result :
             {P_ZAK_Write(foreign, "x", 1, 0), P_ZAK_Read(foreign, buf, 1, 0),
              P_ZAK_LSeek(foreign, 0, ZAK_SEEK_SET, 0), P_ZAK_FSync(foreign, 0), P_ZAK_Close(foreign, 0)})
            EXPECT_EQ(result, ZAK_FILE_BAD_DESCRIPTOR) << foreign;
        EXPECT_NE(fcntl(foreign, F_GETFD), -1);
    }
    EXPECT_EQ(Slurp(file), "hello");
    close(other);
    const std::tuple<std::string, int32_t, int32_t> opens[] = {{file, 0, ZAK_FILE_INVALID},
                                                               {dir, ZAK_O_WRONLY, ZAK_FILE_IS_DIR},
                                                               {file + "/x", ZAK_O_RDONLY, ZAK_FILE_NOT_DIR}};
    for (const auto &[path, flags, code] : opens)
        EXPECT_EQ(P_ZAK_Open(path.c_str(), flags, 0, 0), code) << path;
    // (A negative descriptor is never registered: copy_test.lua's failed open leaves no leak entry.)
    EXPECT_EQ(P_ZAK_FdLeakCheckInfoSet(nullptr), ZAK_FILE_INVALID);
    zakhost::inject("P_ZAK_Mkdir", ZAK_FILE_NO_SPACE, 0, 1);
    EXPECT_EQ(P_ZAK_Mkdir((dir + "/e").c_str(), 0755, 0), ZAK_FILE_NO_SPACE);
    struct stat st {};
    EXPECT_NE(stat((dir + "/e").c_str(), &st), 0); // an injected failure does nothing
}

TEST(HostLogs, TextRecordsGoToTheLogDirectory) {
    std::string dir = TempDir();
    setenv("ZAKHOST_LOG_DIR", dir.c_str(), 1u);
    // Control characters and backslashes are escaped in the file, kept as logged in memory.
    const std::string message = "written\n<forged>\\n\t\r\x01\x7F";
    zakhost::log_text("upgrade", 0x29371B3C, 3, message + "\n");
    unsetenv("ZAKHOST_LOG_DIR");
    EXPECT_EQ(zakhost::log_messages("upgrade").back(), message);
    std::string text = Slurp(dir + "/upgrade.log");
    // 2026-11-22T01:46:01.280Z 0x29371B3C L3 written...
    ASSERT_GE(text.size(), 25u);
    EXPECT_EQ(text.substr(24), " 0x29371B3C L3 written\\n<forged>\\\\n\\t\\r\\x01\\x7F\n");
    EXPECT_EQ(text[10], 'T');
    EXPECT_EQ(text[23], 'Z');
}

std::string Cut(const char *path) {
    char buffer[64];
    snprintf(buffer, sizeof buffer, "%s", path);
    EXPECT_EQ(RPM_CutPathStr(buffer, sizeof buffer), 0u);
    return buffer;
}

TEST(HostDevicePaths, CutPathTidiesSlashesAndDots) {
    // ('..' is left to the file system.)
    for (auto [path, tidy] :
         {std::pair{"/", "/"}, {"//./", "/"}, {"./x/.", "x"}, {".", "."}, {"/a/../b", "/a/../b"}})
        EXPECT_EQ(Cut(path), tidy) << path;
    EXPECT_NE(RPM_CutPathStr(nullptr, 4), 0u);
}

} // namespace

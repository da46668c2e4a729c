-- Device paths and Linux paths, the upgrade flag and the CMS-check query.
local T = require "testlib"
local zh = require "zakhost"
local m = libqavluacommon

local home = zh.root() .. "/zakv8/main/home"

T.case("device paths become sandbox paths", function()
    T.eq(T.results(m.qav_ZakPathToLinuxPath("flash0:V1/base/pkg.zip")), { n = 2, 0, home .. "/V1/base/pkg.zip" })
    T.eq(T.results(m.qav_ZakPathToLinuxPath("flash0:")), { n = 2, 0, home })
    T.eq(T.results(m.qav_ZakPathToLinuxPath("flash1:/a")), { n = 2, 0, zh.root() .. "/zakv8/main/flash1/a" })
    -- not a device path of a known storage: handed back as it is, cut to 255 characters
    T.eq(T.results(m.qav_ZakPathToLinuxPath("usb9:x")), { n = 2, 0, "usb9:x" })
    T.eq(T.results(m.qav_ZakPathToLinuxPath("")), { n = 2, 0, "" })
    T.eq(T.results(m.qav_ZakPathToLinuxPath("/abs/" .. string.rep("p", 300))), { n = 2, 0, ("/abs/" .. string.rep("p", 300)):sub(1, 255) })
    T.eq(T.results(m.qav_ZakPathToLinuxPath("flash0:" .. string.rep("q", 300))), { n = 1, 0xFFEFFFF6 }, "does not fit")
    T.eq(T.results(m.qav_ZakPathToLinuxPath()), { n = 1, 22 })
    T.eq(T.results(m.qav_ZakPathToLinuxPath("a", "b")), { n = 1, 22 })
    T.eq(T.results(m.qav_ZakPathToLinuxPath({})), { n = 1, 22 })
    zh.profile_set("storage", "cfcard", "/zakv8/cf")
    T.eq(T.results(m.qav_ZakPathToLinuxPath("cfcard:x")), { n = 2, 0, zh.root() .. "/zakv8/cf/x" })
    zh.inject("ZAK_ZakPathToLinuxPath", -1048577)
    T.eq(T.results(m.qav_ZakPathToLinuxPath("flash0:x")), { n = 1, 0xFFEFFFFF })
end)

T.case("Linux paths become device paths after tidying", function()
    T.eq(T.results(m.qav_LinuxPathToZakPath(home .. "//V1/./base/")), { n = 2, 0, "flash0:V1/base" })
    T.eq(T.results(m.qav_LinuxPathToZakPath(home)), { n = 2, 0, "flash0:" })
    T.eq(T.results(m.qav_LinuxPathToZakPath("/zakv8/main/home/V2")), { n = 2, 0, "flash0:V2" }, "device form")
    T.eq(T.results(m.qav_LinuxPathToZakPath("relative/./x")), { n = 2, 0, "relative/./x" })
    T.eq(T.results(m.qav_LinuxPathToZakPath(home .. "x/V1")), { n = 2, 0xFFEFFFFC, home .. "x/V1" },
        "a longer name is not inside the storage")
    T.eq(T.results(m.qav_LinuxPathToZakPath("/etc//passwd")), { n = 2, 0xFFEFFFFC, "/etc/passwd" },
        "no storage: the code and the tidied input")
    T.eq(T.results(m.qav_LinuxPathToZakPath()), { n = 1, 22 })
    T.eq(T.results(m.qav_LinuxPathToZakPath(string.rep("/x", 200))), { n = 1, 22 }, "longer than 255")
    -- round trip
    local _, linux = m.qav_ZakPathToLinuxPath("flash1:deep/er")
    T.eq({ m.qav_LinuxPathToZakPath(linux) }, { 0, "flash1:deep/er" })
end)

T.case("the upgrade flag file sits beside the common root", function()
    T.eq(T.results(m.qav_IsUpgStatus()), { n = 2, 0, false })
    local f = assert(io.open(zh.root() .. "/zakv8/upgrade_flag.cfg", "w")); f:close()
    T.eq(T.results(m.qav_IsUpgStatus()), { n = 2, 0, true })
    zh.inject("RPM_GetCommonRootPath", 5)
    T.eq(T.results(m.qav_IsUpgStatus()), { n = 1, 5 })
end)

T.case("CMS check follows the platform hook", function()
    T.eq(T.results(m.qav_NeedCMSCheck("flash0:V1/pkg.zip")), { n = 1, true })
    T.eq(T.results(m.qav_NeedCMSCheck("notes.txt")), { n = 1, false })
    T.eq(T.results(m.qav_NeedCMSCheck()), { n = 1, false })
    zh.profile_set("cms", "need_check", "0")
    T.eq(m.qav_NeedCMSCheck("a.zip"), false)
end)

T.run()

-- File attributes, ownership, links, existence, removal and renaming; device and Linux paths, the
-- upgrade flag and the CMS-check query.
local T = require "testlib"
local zh = require "zakhost"
local m = libqavluacommon

local function sh(c) local p = io.popen(c .. " 2>&1"); local o = p:read("*a"); p:close(); return (o:gsub("\n$", "")) end
local write = T.write

T.case("size and modification time of a file and of a link itself", function()
    write("sized", string.rep("s", 1234))
    os.execute("ln -s sized sized.lnk && touch -h -d '2003-04-05 06:07:08' sized")
    T.eq(T.results(m.qav_GetLocalFileSize("sized")), { n = 2, 0, 1234 })
    T.eq(T.results(m.qav_GetLocalFileSize("sized.lnk")), { n = 2, 0, 5 }, "the link is measured itself")
    T.eq({ T.results(m.qav_GetLocalFileSize("missing")), T.results(m.qav_GetLocalFileSize()) }, { { n = 2, 1, 0 }, { n = 2, 1, 0 } })
    local expected = sh("LC_ALL=C date -d '2003-04-05 06:07:08' '+%a %b %e %H:%M:%S %Y'")
    T.eq(T.results(m.qav_GetLocalFilemTime("sized")), { n = 2, 0, expected .. "\n" })
    T.eq({ T.results(m.qav_GetLocalFilemTime("missing")), T.results(m.qav_GetLocalFilemTime({})) }, { { n = 2, 1, "" }, { n = 2, 1, "" } })
end)

T.case("a file past 4 GiB is measured, to the low 32 bits of its size", function()
    -- A sparse file: no data is written. On a 32-bit build without 64-bit file offsets lstat
    -- fails on it (EOVERFLOW), which this catches.
    os.execute("truncate -s 4294968530 big")
    T.eq(T.results(m.qav_GetLocalFileSize("big")), { n = 2, 0, 1234 })
    os.remove("big")
end)

T.case("existence, removal and renaming report only missing texts", function()
    write("ex", "")
    T.eq(m.qav_ZAK_IsFileExist("ex"), 0)
    T.eq({ m.qav_ZAK_IsFileExist("nope"), (m.qav_ZAK_IsFileExist()) }, { 0xFFFFFFFF, 0xFFFFFFFF })
    T.eq(T.results(m.qav_ZAK_RenameFile("ex", "ex2")), { n = 1, 0 })
    T.eq(m.qav_ZAK_IsFileExist("ex2"), 0)
    T.eq(m.qav_ZAK_RenameFile("nope", "other"), 0, "a failed rename is not reported")
    T.eq(m.qav_ZAK_IsFileExist("other"), 0xFFFFFFFF)
    T.eq(m.qav_ZAK_RenameFile("ex2"), 0xFFFFFFFF)
    T.eq(T.results(m.qav_ZAK_RemoveFile("ex2")), { n = 1, 0 })
    T.eq(m.qav_ZAK_IsFileExist("ex2"), 0xFFFFFFFF)
    T.eq({ m.qav_ZAK_RemoveFile("ex2"), (m.qav_ZAK_RemoveFile()) }, { 0, 0 })
end)

T.case("chown to the service and FTP accounts with an octal mode", function()
    write("own", "")
    zh.profile_set("accounts", "service_user", "nobody")
    zh.profile_set("accounts", "ftp_user", "daemon")
    zh.profile_set("accounts", "ftp_group", "nogroup")
    T.eq(T.results(m.qav_chownfile("own", "0")), { n = 1, 0 })
    T.eq(sh("stat -c '%a %U %G' own"), "750 nobody nogroup")
    T.eq(m.qav_chownftpfile("own", "640"), 0)
    T.eq(sh("stat -c '%a %U %G' own"), "640 daemon nogroup")
    T.eq(m.qav_chownfile("own", "junk"), 0, "unreadable mode means 0750")
    T.eq(sh("stat -c %a own"), "750")
    T.eq(m.qav_chownfile("missing", "644"), -1, "chmod's result")
    T.eq({ m.qav_chownfile("own"), (m.qav_chownftpfile({}, "644")) }, { 2, 2 })
    zh.profile_set("accounts", "service_user", "no-such-user-here")
    T.eq(m.qav_chownfile("own", "600"), -1, "the platform's result")
    T.eq(sh("stat -c %a own"), "600", "the mode was set first")
    zh.profile_set("accounts", "service_user", nil)
    zh.inject("P_BOOT_Chown2Ftp", -7)
    T.eq(m.qav_chownftpfile("own", "600"), -7)
end)

T.case("symbolic links: made, kept when present, read back", function()
    write("lt", "")
    T.eq(T.results(m.qav_linkfile("lt", "ln1")), { n = 1, 0 })
    T.eq(sh("readlink ln1"), "lt")
    T.eq(m.qav_linkfile("elsewhere", "ln1"), 0, "an existing link path counts as done")
    T.eq(sh("readlink ln1"), "lt", "and is left as it was")
    T.eq({ m.qav_linkfile("lt", "no/dir/ln"), (m.qav_linkfile("lt")) }, { -1, 2 })
    T.eq(T.results(m.qav_getlinkfileinfo("ln1")), { n = 2, 0, "lt" })
    T.eq(T.results(m.qav_getlinkfileinfo("lt")), { n = 1, 11 })
    T.eq({ T.results(m.qav_getlinkfileinfo("absent")), T.results(m.qav_getlinkfileinfo()) }, { { n = 1, -1 }, { n = 1, 2 } })
    local long = string.rep("t", 390)
    os.execute("ln -s " .. long .. " lnlong")
    T.eq(T.results(m.qav_getlinkfileinfo("lnlong")), { n = 2, 0, string.rep("t", 383) }, "cut at 383 bytes")
end)

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
    T.eq({ T.results(m.qav_ZakPathToLinuxPath()), T.results(m.qav_ZakPathToLinuxPath("a", "b")),
           T.results(m.qav_ZakPathToLinuxPath({})) }, { { n = 1, 22 }, { n = 1, 22 }, { n = 1, 22 } })
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
    T.write(zh.root() .. "/zakv8/upgrade_flag.cfg", "")
    T.eq(T.results(m.qav_IsUpgStatus()), { n = 2, 0, true })
    zh.inject("RPM_GetCommonRootPath", 5)
    T.eq(T.results(m.qav_IsUpgStatus()), { n = 1, 5 })
end)

T.case("CMS check follows the platform hook", function()
    T.eq(T.results(m.qav_NeedCMSCheck("flash0:V1/pkg.zip")), { n = 1, true })
    T.eq({ T.results(m.qav_NeedCMSCheck("notes.txt")), T.results(m.qav_NeedCMSCheck()) }, { { n = 1, false }, { n = 1, false } })
    zh.profile_set("cms", "need_check", "0")
    T.eq(m.qav_NeedCMSCheck("a.zip"), false)
end)

T.run()

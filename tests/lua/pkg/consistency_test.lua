-- Consistency of a package's vercfg.xml with the deployment's VNFC type.
local T = require "testlib"
local F = require "pkg_fixtures"
local zh = require "zakhost"
local m = libqavluacommon

zh.profile_set("device", "morlo", "1")

local good = F.package({ ["app.bin"] = "app" }, "--set", "NeType=VNFC_A")

T.case("an unset VNFC type fails both checks without reading the files", function()
    zh.setenv("VNFC_TYPE")
    zh.inject("RPM_ParseXmlDstTypeCodeFileNodeNum_HOOK", 3, 0, 10)
    T.eq(T.results(m.qav_CheckInfoFromXml(good, false)), { n = 1, 0x31C400 })
    T.eq(m.qav_CheckModInfoFromXml(good, false), 0x31C400)
    zh.inject()
    T.has_line(F.patch_log(), "QAV_CheckXmlInfo failed, ret is " .. 0x31C400 .. ".")
end)

T.case("matching NE type and intact files pass; another NE type fails", function()
    zh.setenv("VNFC_TYPE", "VNFC_A")
    T.eq({ m.qav_CheckInfoFromXml(good, true), m.qav_CheckModInfoFromXml(good, true) }, { 0, 0 })
    T.no_line(F.patch_log(), "QAV_CheckXmlInfo failed")
    zh.setenv("VNFC_TYPE", "VNFC_B")
    T.eq(m.qav_CheckInfoFromXml(good, false), 0x31C400)
    zh.log_clear()
    T.eq(m.qav_CheckModInfoFromXml(good, false), 0x31C400)
    T.has_lines(F.patch_log(), { "Get NE type failed.", "===Check Mod info from vercfg.xml===" })
end)

T.case("two hot-patch nodes fail the type check only when asked for", function()
    zh.setenv("VNFC_TYPE", "VNFC_A")
    local dir = F.package({ ["a.pat"] = "a", ["b.pat"] = "b" }, "--set", "NeType=VNFC_A", "--set",
        "VersionType=HotPatch", "--type", "20")
    T.eq({ m.qav_CheckInfoFromXml(dir, true), (m.qav_CheckInfoFromXml(dir, false)) }, { 0x31C490, 0 })
    T.eq(m.qav_CheckModInfoFromXml(dir, true), 0x31C490)
    F.write(dir .. "/a.pat", "changed")
    T.eq(m.qav_CheckInfoFromXml(dir, false), 0x31C490)
    local empty = F.package({}, "--set", "NeType=VNFC_A")
    T.eq(m.qav_CheckInfoFromXml(empty, false), 0, "no file nodes")
    -- A directory and file name too long for the joined path fail the check.
    local sub = empty .. "/" .. string.rep("d", 242 - #empty)
    F.mkdir(sub)
    F.qavpkg("vercfg", sub, "--set", "NeType=VNFC_A", "--file", string.rep("n", 255) .. ",type=5")
    T.eq(m.qav_CheckInfoFromXml(sub, false), 0x31C490)
end)

T.case("module check: application type and version lengths", function()
    zh.setenv("VNFC_TYPE", "VNFC_A")
    local app64 = F.package({}, "--set", "NeType=VNFC_A", "--set", "APPList/APP/APPType=" .. string.rep("a", 64))
    T.eq(m.qav_CheckModInfoFromXml(app64, false), 0x31C430)
    T.has_line(F.patch_log(), "Get appType failed or appType is too long in xml.")
    local app63 = F.package({}, "--set", "NeType=VNFC_A", "--set", "APPList/APP/APPType=" .. string.rep("a", 63))
    T.eq(m.qav_CheckModInfoFromXml(app63, false), 0)
    local v32 = F.package({}, "--set", "NeType=VNFC_A", "--set", "Version=" .. string.rep("1", 32))
    T.eq(m.qav_CheckModInfoFromXml(v32, false), 0x31C420)
    T.has_line(F.patch_log(), "Get appType failed or versionID is too long in xml.")
    T.eq(m.qav_CheckInfoFromXml(v32, false), 0, "the plain check does not look at the version")
end)

T.case("bad arguments give 1", function()
    T.eq({ T.results(m.qav_CheckInfoFromXml(good)), m.qav_CheckModInfoFromXml({}, true) }, { { n = 1, 1 }, 1 })
    T.has_lines(F.patch_log(), { "Format path ParaNum 1 wrong.", "String param is null." })
end)

T.case("software count of the package's own version type", function()
    local hot = F.package({ ["a"] = "a", ["b"] = "b" }, "--set", "VersionType=HotPatch", "--type", "20")
    T.eq(T.results(m.qav_GetSoftwareNumFromXml(hot .. "/vercfg.xml")), { n = 2, 0, 2 })
    T.eq({ m.qav_GetSoftwareNumFromXml(good .. "/vercfg.xml") }, { 0, 1 })
    local odd = F.package({}, "--set", "VersionType=Other")
    T.eq({ m.qav_GetSoftwareNumFromXml(odd .. "/vercfg.xml") }, { 12724, 0 })
    T.eq({ m.qav_GetSoftwareNumFromXml(good) }, { 12724, 0 }, "a directory is not an xml file")
    zh.inject("RPM_ParseXmlDstTypeCodeFileNodeNum_HOOK", 6)
    T.eq({ m.qav_GetSoftwareNumFromXml(good .. "/vercfg.xml") }, { 6, 0 })
    T.eq({ m.qav_GetSoftwareNumFromXml(string.rep("x", 256)) }, { 1, 0 })
    T.has_lines(F.patch_log(), { "QAV_GetAndCheckInfoFromXmlGetInput failed, ret is 1.", "===Get Software Num From Xml===" })
end)

T.run()

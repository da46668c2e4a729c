-- Queries over vercfg.xml and the startup-software section of zakcfg.ini.
local T = require "testlib"
local F = require "pkg_fixtures"
local zh = require "zakhost"
local m = libqavluacommon

-- Packages built by qavpkg carry digests: the hardware family that checks them.
zh.profile_set("device", "morlo", "1")

local base = F.package({ ["app.bin"] = "application\n", ["lib.so"] = "library\n" },
    "--set", "Version=V100 R002", "--set", "BaseVersion=V100 R001 SPC1", "--set", "PackageType=VNFC_PKG",
    "--set", "APPList/APP/APPInfo=second field", "--file", "app.bin,type=0,attr=0x1234", "--file", "lib.so,type=1")
local baseXml = base .. "/vercfg.xml"

T.case("each query kind reads its element, two results always", function()
    for kind, want in pairs { "VNFC_PKG", "TESTAPP", "BaseSoftware", "V100_R002", "V100_R001_SPC1", [7] = "TRUE",
                              [8] = "VNFIF001", [9] = "TESTPRODUCT", [10] = "second field" } do
        T.eq(T.results(m.qav_RpmGetVersionInfo(baseXml, kind)), { n = 2, 0, want }, kind)
    end
    T.has_line(zh.log_lines("diag"), "acPackageName = second field")
end)

T.case("kind 6 needs exactly one node of the version type's code", function()
    T.eq({ m.qav_RpmGetVersionInfo(baseXml, 6) }, { 0, "TRUE" })
    local two = F.package({ ["a"] = "1", ["b"] = "2" })
    T.eq({ m.qav_RpmGetVersionInfo(two .. "/vercfg.xml", 6) }, { 0, "FALSE" })
    T.has_line(F.patch_log(), "[UPG]TypeCode is inconsistent with SoftwareType in " .. two)
end)

T.case("bad calls and unreadable elements give their code and an empty text", function()
    T.eq(T.results(m.qav_RpmGetVersionInfo(string.rep("d", 384), 1)), { n = 2, 1, "" })
    T.eq({ m.qav_RpmGetVersionInfo(baseXml, 11) }, { 1, "" })
    T.has_line(F.patch_log(), "[UPG]uiDotype is 11.")
    local none = F.root .. "/none.xml"
    for _, c in ipairs { { 1, "patch", "QAV_RpmGetPkgInfoGetInput failed, ret is %d." }, { 5, "patch", "[UPG]QAV_RpmGetPkgInfoGetInput failed, ret is %d." },
                         { 8, "patch", "Get InterfaceId node <Product/VNF/InterfaceId> value from file(" .. none .. ") fail! RetCode:%d." },
                         { 9, "upgrade", "Get node <Product/VNF/ProductType> value from file(" .. none .. ") fail! RetCode:%d." } } do
        local code, text = m.qav_RpmGetVersionInfo(none, c[1])
        T.ok(code ~= 0 and text == "", "missing file, kind " .. c[1])
        T.has_line(zh.log_lines(c[2]), c[3]:format(code))
    end
    T.eq({ m.qav_RpmGetVersionInfo(none, 7) }, { 0, "FALSE" })
end)

T.case("a version of 32 characters does not fit its buffer; a failed blank replacement fails", function()
    local long = F.package({}, "--set", "Version=" .. string.rep("v", 32))
    T.eq({ m.qav_RpmGetVersionInfo(long .. "/vercfg.xml", 4) }, { 3, "" })
    zh.inject("RPM_ReplaceSrcChar2Dst_HOOK", 9)
    T.eq({ m.qav_RpmGetVersionInfo(baseXml, 4) }, { 9, "" })
end)

T.case("an application record that cannot be allocated reads as success with an empty text", function()
    local before = zh.memory().blocks
    zh.inject("ZAK_Malloc_F")
    T.eq(T.results(m.qav_RpmGetVersionInfo(baseXml, 2)), { n = 2, 0, "" })
    T.has_line(F.patch_log(), "malloc failed, ret is 0.")
    zh.inject("RPM_ParseXmlGetAppInfo_HOOK", 7)
    T.eq({ m.qav_RpmGetVersionInfo(baseXml, 10) }, { 7, "" })
    T.has_line(F.patch_log(), "RPM_ParseXmlGetAppInfo_HOOK failed, ret is 7.")
    T.eq(zh.memory().blocks, before)
end)

local zakcfg = F.common .. "/data/zakcfg.ini"
local function write_zakcfg(last)
    F.write(zakcfg, "[system software information]\n" ..
        "start load system software =flash0:V1/base/start.zip\n" ..
        "current startup system software =flash0:V2/base/current.zip\n" ..
        "last startup system software =" .. last .. "\n" ..
        "next startup system software =flash0:NOSLASH\n")
end

T.case("startup software: kind 0 whole, kind 1 without the device prefix; version directories, empty without '/'", function()
    write_zakcfg("flash0:V0/base/last.zip")
    T.eq({ { m.qav_RpmGetPkgInfo(0) }, { m.qav_RpmGetPkgInfo(1) } }, { { 0, "flash0:V1/base/start.zip" }, { 0, "V0/base/last.zip" } })
    T.eq(T.results(m.qav_GetZakcfgInfo()), { n = 3, "V2", "V0", "" })
    write_zakcfg("")
    T.eq({ m.qav_RpmGetPkgInfo(1) }, { 0, "V2/base/current.zip" }, "empty last falls back to current")
    T.eq({ m.qav_RpmGetPkgInfo(2) }, { 1, "" })
    F.write(zakcfg, "[other]\n")
    T.eq({ m.qav_RpmGetPkgInfo(0) }, { 1, "" })
    F.rm(zakcfg)
    T.eq(T.results(m.qav_GetZakcfgInfo()), { n = 3, "", "", "" })
end)

local hot = F.package({ ["p1.pat"] = "patch one", ["p2.pat"] = "patch two", ["cold.pat"] = "cold" },
    "--set", "VersionType=HotPatch", "--file", "p1.pat,type=20,dest=riskcheck", "--file", "p2.pat,type=20",
    "--file", "cold.pat,type=2")
local hotXml = hot .. "/vercfg.xml"

T.case("file name of a type code: the first of several nodes wins; the digest is checked on request", function()
    T.eq({ { m.qav_GetFileNameFromVercfg(hotXml, 20, 0) }, { m.qav_GetFileNameFromVercfg(hotXml, 2, 1) },
        { m.qav_GetFileNameFromVercfg(hotXml, 20, 1) } }, { { 0, "p1.pat" }, { 0, "cold.pat" }, { 0, "p1.pat" } })
    F.write(hot .. "/p1.pat", "patch onE")
    T.eq({ m.qav_GetFileNameFromVercfg(hotXml, 20, 1) }, { 1, "" })
    T.has_line(F.patch_log(), "QAV_CheckPatPkgSha failed, ret is 1.")
    F.write(hot .. "/p1.pat", "patch one")
    T.eq({ m.qav_GetFileNameFromVercfg(hotXml, 7, 0) }, { 1, "" })
    T.has_lines(F.patch_log(), { "xml file TypeCode is inconsistent with patch type, vercfg is " .. hotXml .. ", file type is 7!",
        "QAV_RpmGetPatPkgInfo failed, ret is 1." })
    T.eq({ m.qav_GetFileNameFromVercfg({}, 20, 0) }, { 1, "" })
    T.has_lines(F.patch_log(), { "get xmlFile name failed.", "QAV_GetFileNameFromVercfgGetInput failed, ret is 1." })
end)

T.case("file name by destination object type needs exactly one node", function()
    T.eq({ m.qav_GetFileNameFromVercfgByDestObjType(hotXml, "riskcheck") }, { 0, "p1.pat" })
    T.eq({ m.qav_GetFileNameFromVercfgByDestObjType(hotXml, "") }, { 1, "" })
    T.has_lines(F.patch_log(), { "xml file TypeCode is inconsistent with patch type, vercfg is " .. hotXml .. ", DestObjType is !",
        "QAV_GetRiskCheckPkgPath failed, ret is 1." })
    T.eq({ m.qav_GetFileNameFromVercfgByDestObjType(hotXml, string.rep("t", 128)) }, { 1, "" })
    T.has_line(F.patch_log(), "QAV_GetFileNameFromVercfgByDestObjTypeGetInput failed, ret is 1.")
    local before = zh.memory().blocks
    zh.inject("ZAK_Malloc_F")
    T.eq({ m.qav_GetFileNameFromVercfgByDestObjType(hotXml, "riskcheck") }, { 1, "" })
    T.has_line(F.patch_log(), "[QAV_GetRiskCheckPkgPath]malloc failed!")
    T.eq(zh.memory().blocks, before)
end)

T.case("combined query: seven texts in order, eight results on every path", function()
    T.eq(T.results(m.qav_GetInfoFromXml(base, true)),
        { n = 8, 0, "VNFC_PKG", "BaseSoftware", "TESTAPP", "V100 R002", "V100 R001 SPC1", "app.bin", "TESTNE" })
    T.eq(T.results(m.qav_GetInfoFromXml(base, false)),
        { n = 8, 0, "VNFC_PKG", "BaseSoftware", "TESTAPP", "V100 R002", "V100 R001 SPC1", "", "TESTNE" })
    -- A wrong call reads as code 0.
    T.eq({ T.results(m.qav_GetInfoFromXml(base)), T.results(m.qav_GetInfoFromXml({}, true)) },
        { { n = 8, 0, "", "", "", "", "", "", "" }, { n = 8, 0, "", "", "", "", "", "", "" } })
    T.has_lines(F.patch_log(), { "Format path ParaNum 1 wrong.", "String Param is null.", "===Get info from vercfg.xml===" })
end)

T.case("combined query failures carry the code of the element that failed", function()
    T.eq({ m.qav_GetInfoFromXml(hot, true) }, { 1, "", "", "", "", "", "", "" })
    T.has_line(F.patch_log(), "File number is not only one, vercfg is " .. hotXml .. ", file type is 20!")
    local case = F.package({}, "--set", "VersionType=hotpatch")
    T.eq(m.qav_GetInfoFromXml(case, true), 0x31C420)
    T.eq(m.qav_GetInfoFromXml(F.package({}, "--omit", "PackageType"), false), 0x31C410)
    T.eq(m.qav_GetInfoFromXml(F.package({}, "--omit", "APPList/APP/APPType"), false), 0x31C430)
    T.eq(m.qav_GetInfoFromXml(F.package({}, "--set", "Version=" .. string.rep("9", 33)), false), 0x31C420)
    T.eq(m.qav_GetInfoFromXml(F.package({}, "--set", "BaseVersion=" .. string.rep("9", 32)), false), 0x31C420)
    T.eq(m.qav_GetInfoFromXml(F.package({}, "--omit", "NeType"), false), 0x31C400)
end)

T.case("file information of a single node by mode", function()
    T.eq({ { m.qav_GetFileInfoFromXml(0, base, 1) }, { m.qav_GetFileInfoFromXml(0, base, 2) } }, { { 0, "app.bin" }, { 0, 0x1234 } })
    T.eq(T.results(m.qav_GetFileInfoFromXml(0, base, 3)), { n = 2, 1, "" })
    T.eq({ m.qav_GetFileInfoFromXml(20, hot, 1) }, { 1, "" }, "two nodes")
    T.eq({ m.qav_GetFileInfoFromXml(0, F.root .. "/nowhere", 1) }, { 1, "" })
    -- Numbers with leading zeros are decimal, not octal.
    local zeros = F.package({ ["z.pat"] = "z" }, "--set", "VersionType=HotPatch", "--file", "z.pat,type=020,attr=010")
    T.eq({ m.qav_GetFileInfoFromXml(20, zeros, 2) }, { 0, 10 })
    T.eq(select(7, m.qav_GetInfoFromXml(zeros, true)), "z.pat")
    zh.inject("ZAK_Malloc_F")
    T.eq({ m.qav_GetFileInfoFromXml(0, base, 1) }, { 1, "" })
    T.has_line(F.patch_log(), "[RPMLS_DLD_ALLInVnfcFiles]malloc failed!")
end)

T.case("MIM count: type code 1 nodes", function()
    T.eq({ { m.qav_GetMimNumFromXml(base) }, { m.qav_GetMimNumFromXml(hot) } }, { { 0, 1 }, { 0, 0 } })
    T.eq({ m.qav_GetMimNumFromXml(F.root .. "/nowhere") }, { 0x31C470, 0 })
    T.has_line(zh.log_lines("upgrade"), "Get destination type 1 file node number from file(" .. F.root ..
        "/nowhere/vercfg.xml) fail! RetCode:")
    T.eq({ m.qav_GetMimNumFromXml({}) }, { 0x31C470, 0 })
    T.has_line(zh.log_lines("upgrade"), "pcFilePath is null.")
    T.eq({ m.qav_GetMimNumFromXml() }, { 0, 0 })
end)

T.case("name lists and the VNFC test", function()
    local before = zh.memory().blocks
    local names = F.package({ ["a.cc"] = "a", ["b"] = "b" })
    local xml = names .. "/vercfg.xml"
    T.eq({ T.results(m.qav_GetFileListFromVerCfgXml(xml)), T.results(m.qav_GetVnfcPathListFromVercfgXml(xml)),
        T.results(m.qav_IsVnfcVercfgXml(xml)) }, { { n = 2, 0, "a.cc;b;" }, { n = 2, 0, "a;b;" }, { n = 2, 0, true } })
    local zips = F.package({ ["a.zip"] = "a", ["b"] = "b" })
    T.eq({ m.qav_IsVnfcVercfgXml(zips .. "/vercfg.xml") }, { 0, false })
    local empty = F.package({}, "--file", "x.y,type=5")
    T.eq({ { m.qav_IsVnfcVercfgXml(empty .. "/vercfg.xml") }, { m.qav_GetVnfcPathListFromVercfgXml(empty .. "/vercfg.xml") },
        { m.qav_GetFileListFromVerCfgXml(empty .. "/vercfg.xml") } }, { { 0, true }, { 0, "" }, { 0, "x.y;" } })
    T.eq({ T.results(m.qav_GetFileListFromVerCfgXml(F.root .. "/none.xml")) }, { { n = 1, 1 } })
    zh.inject("RPM_ParseXmlDstTypeCodeFileNodeInfo_HOOK")
    T.eq(T.results(m.qav_IsVnfcVercfgXml(xml)), { n = 1, 1 })
    zh.inject("RPM_ParseXmlAllFileNodeInfo_HOOK")
    T.eq(T.results(m.qav_GetFileListFromVerCfgXml(xml)), { n = 1, 1 })
    -- A name longer than its 129-byte share of the list buffer overflows it.
    local longName = string.rep("n", 200)
    local long = F.package({ [longName] = "x" })
    T.eq(T.results(m.qav_GetFileListFromVerCfgXml(long .. "/vercfg.xml")), { n = 1, 1 })
    T.eq(zh.memory().blocks, before)
end)

T.run()

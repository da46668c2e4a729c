-- Package integrity: recorded digests against the files, the version type's node, patch digests.
local T = require "testlib"
local F = require "pkg_fixtures"
local zh = require "zakhost"
local m = libqavluacommon

local function check(dir) return m.qav_RpmGetVersionInfo(dir .. "/vercfg.xml", 7) end

-- Packages built by qavpkg carry digests: the hardware family that checks them.
zh.profile_set("device", "morlo", "1")

T.case("intact files pass; one changed byte fails with the four lines in order", function()
    local dir = F.package({ ["a.bin"] = string.rep("A", 5000), ["sub/b.bin"] = "bee" })
    T.eq({ check(dir) }, { 0, "TRUE" })
    local recorded = F.read(dir .. "/vercfg.xml"):match('SHA256="(%x+)">sub/b.bin<')
    F.write(dir .. "/sub/b.bin", "bef")
    T.eq({ check(dir) }, { 0, "FALSE" })
    local log, at = table.concat(F.patch_log(), "\n"), 1
    for _, text in ipairs { "[UPG]local file is not correct!", "acSoftwareName = sub/b.bin", "local software SHAValue = " ..
        recorded, "acDigest = 4b2532b3aa754228b11549a32ee28682fb2ceb2837a5dde714a2d867fb36ac27, in xml" } do
        at = select(2, log:find(text, at, true))
        T.ok(at, "line in order: " .. text)
    end
end)

T.case("a node of type 61 is skipped even when its file is missing; other missing files fail", function()
    local dir = F.package({ ["a"] = "1" }, "--file", "a", "--file", "gone.bin,node=61")
    T.eq({ check(dir) }, { 0, "TRUE" })
    local bad = F.package({ ["a"] = "1" }, "--file", "a", "--file", "gone.bin,node=60")
    T.eq({ check(bad) }, { 0, "FALSE" })
    T.has_line(F.patch_log(), "NUK_Crypt_Digest_Ex failed, acSoftwareName = gone.bin")
end)

T.case("without digest hardware nothing is computed: empty records pass, a recorded one fails", function()
    zh.profile_set("device", "morlo", "0")
    local dir = F.package({ ["a"] = "1", ["b"] = "2" }, "--file", "a,sha=none", "--file", "b,sha=none")
    T.eq({ check(dir) }, { 0, "TRUE" })
    local one = F.package({ ["a"] = "1", ["b"] = "2" }, "--file", "a,sha=none", "--file", "b")
    T.eq({ check(one) }, { 0, "FALSE" })
    T.has_line(F.patch_log(), "acDigest = , in xml")
    zh.profile_set("device", "morlo", "1")
end)

T.case("no file nodes passes whatever the message says", function()
    local dir = F.package({}, "--file", "x,type=3")
    F.write(dir .. "/vercfg.xml", (F.read(dir .. "/vercfg.xml"):gsub("<FileList>.*</FileList>", "<FileList/>")))
    T.eq({ check(dir) }, { 0, "TRUE" })
    T.has_line(F.patch_log(), "[UPG]uiNum = 0!, return FALSE")
end)

T.case("backslash separators split the xml path like slashes", function()
    -- "w\\vercfg.xml" lies in the root; its files are found in "w\\" only if the split is at the backslash.
    local dir = F.package({ ["a.bin"] = "x" })
    local odd = F.root .. "/w\\"
    F.mkdir(odd)
    F.write(odd .. "/a.bin", "x")
    F.write(F.root .. "/w\\vercfg.xml", F.read(dir .. "/vercfg.xml"))
    T.eq({ m.qav_RpmGetVersionInfo(F.root .. "/w\\vercfg.xml", 7) }, { 0, "TRUE" })
    F.write(odd .. "/a.bin", "y")
    T.eq({ m.qav_RpmGetVersionInfo(F.root .. "/w\\vercfg.xml", 7) }, { 0, "FALSE" })
end)

T.case("node counting and reading failures fail the check, logged at level 3", function()
    local dir = F.package({ ["a"] = "1" })
    for _, c in ipairs { { "RPM_ParseXmlDstTypeCodeFileNodeNum_HOOK", 5, "call RPM_ParseXmlDstTypeCodeFileNodeNum_HOOK failed! ret = 5" },
                         { "RPM_ParseXmlDstTypeCodeFileNodeInfo_HOOK", 1, "call RPM_ParseXmlDstTypeCodeFileNodeInfo_HOOK failed!" },
                         { "ZAK_Malloc_F", 1, "RPM_MALLOC failed!" } } do
        local mark = T.mark("patch")
        zh.inject(c[1], c[2])
        T.eq({ check(dir) }, { 0, "FALSE" })
        T.has_line(T.since(mark), " L3 [UPG]" .. c[3])
    end
    T.eq({ m.qav_RpmGetVersionInfo(string.rep("p", 383), 7) }, { 0, "FALSE" })
end)

T.case("type code check: unknown or unreadable version type, count other than one", function()
  local unknown = F.package({ ["a"] = "1" }, "--set", "VersionType=Patch")
  T.eq({ m.qav_RpmGetVersionInfo(unknown .. "/vercfg.xml", 6) }, { 0, "FALSE" })
  T.has_line(F.patch_log(), "[UPG]Get node <VersionType> value from file(" .. unknown ..
    "/vercfg.xml) fail! RetCode:0.")
  local missing = F.package({ ["a"] = "1" }, "--omit", "VersionType")
  T.eq({ m.qav_RpmGetVersionInfo(missing .. "/vercfg.xml", 6) }, { 0, "FALSE" })
  T.has_line(F.patch_log(), "[UPG]Parse VersionType fail from " .. missing .. "/vercfg.xml.")
  local cold = F.package({ ["c"] = "1" }, "--set", "VersionType=ColdPatch", "--file", "c,type=2,sha=none")
  T.eq({ m.qav_RpmGetVersionInfo(cold .. "/vercfg.xml", 6) }, { 0, "FALSE" }, "digest recorded as empty")
  local cold2 = F.package({ ["c"] = "1" }, "--set", "VersionType=ColdPatch", "--file", "c,type=2")
  T.eq({ m.qav_RpmGetVersionInfo(cold2 .. "/vercfg.xml", 6) }, { 0, "TRUE" })
end)

T.case("patch package info: hot and cold nodes with their digests", function()
    local dir = F.package({ ["hot.pat"] = "hot", ["cold.pat"] = "cold" }, "--set", "VersionType=HotPatch",
        "--file", "hot.pat,type=20", "--file", "cold.pat,type=2")
    local xml = dir .. "/vercfg.xml"
    T.eq(T.results(m.qav_RpmGetPatPkgInfo(xml, 0)), { n = 2, 0, "hot.pat" })
    T.eq({ m.qav_RpmGetPatPkgInfo(xml, 1) }, { 0, "cold.pat" })
    T.eq({ m.qav_RpmGetPatPkgInfo(xml, 2) }, { 1, "" })
    T.eq({ m.qav_RpmGetPatPkgInfo(string.rep("x", 128), 0) }, { 1, "" })
    T.has_lines(F.patch_log(), { "The patch pkg path name is " .. dir .. "/.",
        "The patch pkg file and path name is " .. dir .. "/hot.pat." })
    F.write(dir .. "/cold.pat", "COLD")
    T.eq({ m.qav_RpmGetPatPkgInfo(xml, 1) }, { 1, "" })
    T.has_lines(F.patch_log(), { "get patch pkg sha value failed!", "QAV_CheckPatPkgSha failed!" })
    F.rm(dir .. "/cold.pat")
    T.eq({ m.qav_RpmGetPatPkgInfo(xml, 1) }, { 1, "" })
    T.has_line(F.patch_log(), dir .. "/cold.pat not exist!")
    zh.inject("NUK_Crypt_Digest_Ex_HOOK", 77)
    T.eq({ m.qav_RpmGetPatPkgInfo(xml, 0) }, { 1, "" })
    T.has_line(F.patch_log(), "get patch pkg sha value failed, uiRet = 77 !")
end)

T.case("file digest query: 64 hex characters or code 22 alone", function()
    local path = F.root .. "/digest.bin"
    F.write(path, "abc")
    T.eq(T.results(m.qav_GetFileSha256Sum(path)),
        { n = 2, 0, "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad" })
    T.eq(T.results(m.qav_GetFileSha256Sum("")), { n = 1, 22 })
    T.eq(T.results(m.qav_GetFileSha256Sum(string.rep("p", 257))), { n = 1, 22 })
    local code = m.qav_GetFileSha256Sum(F.root .. "/missing.bin")
    T.ok(code ~= 0 and code ~= 22, "platform code passed through")
end)

T.case("qav_SHA_Digest is a second name of the credentials digest function", function()
    local args = { "abc", 1 }
    T.eq(T.results(m.qav_SHA_Digest(table.unpack(args))), T.results(m.qav_Crypt_Digest(table.unpack(args))))
end)

T.run()

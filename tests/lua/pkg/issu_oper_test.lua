-- ISSU operations: dispatch, package paths by version, NE and product types, RPG images and key
-- check items. Every failing path of the RPG sequence leaves no mount point or scratch directory.
local T = require "testlib"
local F = require "pkg_fixtures"
local zh = require "zakhost"
local m = libqavluacommon

local zakcfg = F.common .. "/data/zakcfg.ini"
local function set_current(value)
    F.write(zakcfg, "[system software information]\ncurrent startup system software =" .. value .. "\n")
end

-- The running version V2 and a second version V3, laid out by qavpkg.
local v2 = F.package({ ["run.zip"] = "running" }, "--set", "NeType=NE_RUN", "--set", "VNF/ProductType=PROD_RUN",
    "--check-items", "k1,k2,k3,k4,k5,k6")
F.qavpkg("layout", v2, F.root, "V2", "--current", "run.zip")
local v3 = F.package({ ["next.zip"] = "next", ["other.bin"] = "o" }, "--set", "NeType=NE_NEXT", "--set",
    "VNF/ProductType=PROD_NEXT", "--file", "other.bin,type=5", "--file", "next.zip,type=0")
F.qavpkg("layout", v3, F.root, "V3")

T.case("dispatch: an unknown word is a single code", function()
    T.eq(T.results(m.qav_ProcIssuOper(6, "")), { n = 1, 38 })
end)

T.case("package of the running version from its startup value", function()
    T.eq(T.results(m.qav_ProcIssuOper(1, "")),
        { n = 4, 0, "run.zip", "V2/base/run.zip", F.common .. "/home/V2/base/run.zip" })
    -- Not a device path: the package manager's full name, base path after "home/".
    set_current("V2/base/run.zip")
    T.eq({ m.qav_ProcIssuOper(1, "") }, { 0, "run.zip", "V2/base/run.zip", F.common .. "/home/V2/base/run.zip" })
    set_current("bad*name")
    T.eq(T.results(m.qav_ProcIssuOper(1, "")), { n = 1, 1 })
    F.rm(zakcfg)
    T.eq(T.results(m.qav_ProcIssuOper(1, "")), { n = 1, 1 })
    set_current("flash0:V2/base/run.zip")
end)

T.case("package of a named version: the first type-0 node of its description file", function()
    T.eq(T.results(m.qav_ProcIssuOper(1, "V3")),
        { n = 4, 0, "next.zip", "V3/base/next.zip", F.common .. "/home/V3/base/next.zip" })
    T.eq(T.results(m.qav_ProcIssuOper(1, "V9")), { n = 1, 1 })
    zh.setenv("VNFC_DES_FILE_EVN", "absent.xml")
    T.eq(T.results(m.qav_ProcIssuOper(1, "V3")), { n = 1, 1 })
    zh.setenv("VNFC_DES_FILE_EVN")
    for _, service in ipairs { "RPM_GetCurrDesFile_HOOK", "RPM_ParseXmlDstTypeCodeFileNodeNum_HOOK",
                               "RPM_ParseXmlDstTypeCodeFileNodeInfo_HOOK" } do
        zh.inject(service)
        T.eq(m.qav_ProcIssuOper(1, "V3"), 1, service)
    end
    T.eq(m.qav_ProcIssuOper(1, {}), 1)
end)

T.case("NE type and product type of the running and of a named version", function()
    for _, c in ipairs { { 2, "", "NE_RUN" }, { 2, "V3", "NE_NEXT" }, { 3, "", "PROD_RUN" }, { 3, "V3", "PROD_NEXT" } } do
        T.eq(T.results(m.qav_ProcIssuOper(c[1], c[2])), { n = 2, 0, c[3] })
    end
    T.eq(T.results(m.qav_ProcIssuOper(2, "V9")), { n = 1, 1 })
    local noProduct = F.package({}, "--omit", "VNF/ProductType")
    F.qavpkg("layout", noProduct, F.root, "V4")
    T.eq(m.qav_ProcIssuOper(3, "V4"), 1)
    zh.inject("RPM_ChgPath2Standad")
    T.eq(m.qav_ProcIssuOper(2, ""), 1)
end)

T.case("key check items come back in the order 0, 256, 64, 128, 320, 384", function()
    T.eq(T.results(m.qav_ProcIssuOper(5, v2 .. "/vercfg.xml")), { n = 7, 0, "k1", "k4", "k2", "k3", "k5", "k6" })
    local five = F.package({}, "--check-items", "a,b,c,d,e")
    T.eq(T.results(m.qav_ProcIssuOper(5, five .. "/vercfg.xml")), { n = 1, 1 })
    local wide = F.package({}, "--check-items", "a,b," .. string.rep("c", 127) .. ",d,e,f")
    T.eq({ m.qav_ProcIssuOper(5, wide .. "/vercfg.xml") }, { 0, "a", "d", "b", string.rep("c", 127), "e", "f" })
    local over = F.package({}, "--check-items", string.rep("a", 64) .. ",b,c,d,e,f")
    T.eq(m.qav_ProcIssuOper(5, over .. "/vercfg.xml"), 1)
end)

-- RPG images ---------------------------------------------------------------------------------

local home = F.common .. "/home"
local mountPoint = F.common .. "/pkg_pool/program/next"
local function scratch(name) return F.root .. "/zakv8/" .. name end

local function assert_clean(name)
    T.ok(not F.exists(mountPoint), "mount point removed")
    T.ok(not F.exists(scratch(name)), "scratch directory removed: " .. scratch(name))
    T.eq(zh.mounts(), {}, "nothing mounted")
end

T.case("the running image's rpg.rinfo", function()
    F.write(F.common .. "/pkg_pool/program/current/rpg.rinfo", "RpgName=cur\nRpgVersion=C1\nRpgType=base\n")
    T.eq(T.results(m.qav_ProcIssuOper(4, "")), { n = 4, 0, "cur", "C1", "base" })
    F.rm(F.common .. "/pkg_pool/program/current/rpg.rinfo")
    T.eq(T.results(m.qav_ProcIssuOper(4, "")), { n = 1, 1 })
    T.eq(T.results(m.qav_ProcIssuOper(4, {})), { n = 1, 1 })
end)

T.case("a package is unpacked, its .rpg image mounted and read, and everything undone", function()
    F.qavpkg("rpg", home .. "/good.tar.gz", "--name", "rpgA", "--version", "R1", "--type", "app", "--extra",
        "a-readme.txt", "--image", "z.rpg")
    T.eq(T.results(m.qav_ProcIssuOper(4, "good.tar.gz")), { n = 4, 0, "rpgA", "R1", "app" })
    assert_clean("good.tar.gz")
    T.eq(T.results(m.qav_ProcIssuOper(4, "flash0:good.tar.gz")), { n = 4, 0, "rpgA", "R1", "app" })
    assert_clean("good.tar.gz")
end)

T.case("an existing scratch directory is used as it is and kept", function()
    F.qavpkg("rpg", home .. "/kept.tar.gz", "--name", "fromPackage")
    F.qavpkg("rpg", F.root .. "/other.tar.gz", "--name", "fromScratch")
    F.mkdir(scratch("kept.tar.gz"))
    assert(F.sh("tar -xzf " .. F.quote(F.root .. "/other.tar.gz") .. " -C " .. F.quote(scratch("kept.tar.gz"))))
    local function tree() return T.capture("cd " .. F.quote(scratch("kept.tar.gz")) .. " && find . | sort") end
    local before = tree()
    T.eq({ m.qav_ProcIssuOper(4, "kept.tar.gz") }, { 0, "fromScratch", "V100R001", "program" })
    T.eq(tree(), before)
    T.ok(not F.exists(mountPoint))
    F.rm(scratch("kept.tar.gz"))
end)

T.case("failing paths of the RPG sequence leave nothing behind", function()
    -- only a directory whose name ends in .rpg
    F.qavpkg("rpg", home .. "/dironly.tar.gz", "--image", "", "--extra-dir", "fake.rpg", "--extra", "notes.txt")
    F.mkdir(mountPoint) -- a mount point an earlier run left goes too
    T.eq(T.results(m.qav_ProcIssuOper(4, "dironly.tar.gz")), { n = 1, 1 })
    assert_clean("dironly.tar.gz")
    -- an image without rpg.rinfo: mounted, then unmounted and removed
    F.qavpkg("rpg", home .. "/norinfo.tar.gz", "--no-rinfo")
    T.eq(m.qav_ProcIssuOper(4, "norinfo.tar.gz"), 1)
    assert_clean("norinfo.tar.gz")
    -- not an archive
    F.write(home .. "/broken.tar.gz", "this is not gzip")
    T.eq(m.qav_ProcIssuOper(4, "broken.tar.gz"), 1)
    assert_clean("broken.tar.gz")
    -- a name the command filter refuses is never given to the shell
    F.qavpkg("rpg", home .. "/a;touch x.tar.gz")
    T.eq(m.qav_ProcIssuOper(4, "a;touch x.tar.gz"), 1)
    assert_clean("a;touch x.tar.gz")
    T.ok(not F.exists(F.common .. "/bin/x.tar.gz"), "no command ran")
end)

T.case("platform failures at each step are undone", function()
    F.qavpkg("rpg", home .. "/steps.tar.gz", "--name", "steps")
    for _, service in ipairs({ "Frame_System", "Frame_CommandFilter", "RPM_SU_MountRpg_HOOK",
        "RPM_SU_GetRpgInfo_HOOK", "RPM_GetFullPath" }) do
        zh.inject(service, 5)
        T.eq(m.qav_ProcIssuOper(4, "steps.tar.gz"), 1, service)
        zh.inject()
        assert_clean("steps.tar.gz")
    end
end)

T.run()

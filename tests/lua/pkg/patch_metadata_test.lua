-- Patch names, custom patch versions, package information, digests, the CRL path and the ISSU log.
local T = require "testlib"
local zh = require "zakhost"
local P = require "pkg_fixtures"
local m = libqavluacommon

local call = P.call

local rinfo = "zakv8/main/pkg_pool/program/current/rpg.rinfo"
local function write_rinfo(lines)
    return P.put(rinfo, table.concat(lines, "\n") .. "\n")
end
local function md5sum(path) return T.capture("md5sum " .. path):match("^(%x+)") end

os.execute("mkdir -p " .. P.root .. "/zakv8/main/home/patch")
local patchDir = P.root .. "/zakv8/main/home/patch"
P.put("zakv8/main/home/patch/MAINV1.00.10P007.pat", "patch")
P.put("zakv8/main/home/patch/plain", "patch")

T.case("rpm_getrealpatfile finds a patch with or without its extension", function()
    T.eq(call("rpm_getrealpatfile", "MAINV1.00.10P007"),
        { n = 3, 0, "MAINV1.00.10P007.pat", patchDir .. "/MAINV1.00.10P007.pat" })
    T.eq(call("rpm_getrealpatfile", "plain"), { n = 3, 0, "plain", patchDir .. "/plain" })
    T.eq({ call("rpm_getrealpatfile", "nosuch"), call("rpm_getrealpatfile", "../patch/plain"), call("rpm_getrealpatfile") },
        { { n = 1, -1 }, { n = 1, -1 }, { n = 1, -1 } })
end)

T.case("rpm_getpatcustomver fills the pattern's number run from the patch number", function()
    os.remove(P.root .. "/" .. rinfo)
    T.eq(call("rpm_getpatcustomver", "MAINV1.00.10P007"), { n = 1, -1 })
    write_rinfo({ "Name=MAIN", "Version=V1.00.10" })
    T.eq(call("rpm_getpatcustomver", "MAINV1.00.10P007"), { n = 1, -2 })
    T.eq(call("rpm_getpatcustomver"), { n = 1, -1 })
    for _, bad in ipairs({ "SP", "SP#-#", "SP ##", "SP##########", string.rep("x", 61) .. "###" }) do
        write_rinfo({ "CustomPatchVersionPattern=" .. bad })
        T.eq(call("rpm_getpatcustomver", "MAINV1.00.10P007"), { n = 1, -3 }, bad)
    end
    write_rinfo({ "CustomPatchVersionPattern = CP-###.x" })
    T.eq(call("rpm_getpatcustomver", "MAINV1.00.10P007.pat"), { n = 2, 0, "CP-007.x" })
    write_rinfo({ "CustomPatchVersionPattern=" .. string.rep("x", 60) .. "###" })
    T.eq(call("rpm_getpatcustomver", "MAINV1.00.10P007"), { n = 2, 0, string.rep("x", 60) .. "007" })
    T.eq({ call("rpm_getpatcustomver", "MAINV1.00.10p1234"), call("rpm_getpatcustomver", "MAINV1.00.10") },
        { { n = 1, -4 }, { n = 1, -4 } })
    zh.inject("ISSU_PKGINFO_Open", 0)
    T.eq(call("rpm_getpatcustomver", "MAINV1.00.10P007"), { n = 1, -1 })
end)

T.case("package information queries read the running package's file or a named one", function()
    write_rinfo({ "Name=MAIN", "Version=V1.00.10", "Copyright=(c) Example Networks", "Origin = lab build 7",
        "Unknown=ignored", "Type=rpg" })
    T.eq(call("rpm_getpkginfo"), { n = 2, 0,
        { Name = "MAIN", Version = "V1.00.10", Type = "rpg", Copyright = "(c) Example Networks", Origin = "lab build 7" } })
    T.eq({ call("rpm_getcopyrightinfo"), call("rpm_getorigininfo") }, { { n = 2, 0, "(c) Example Networks" }, { n = 2, 0, "lab build 7" } })
    local other = P.put("other.rinfo", "Name=OTHER\nProduct=box\n")
    T.eq({ call("rpm_getpkginfo", other), call("rpm_getcopyrightinfo", other), call("rpm_getorigininfo", other),
        call("rpm_getpkginfo", P.root .. "/none.rinfo"), call("rpm_getorigininfo", P.root .. "/none.rinfo"),
        call("rpm_getcopyrightinfo", {}), (call("rpm_getpkginfo", string.rep("x", 300))) },
        { { n = 2, 0, { Name = "OTHER", Product = "box" } }, { n = 1, -3 }, { n = 1, -3 }, { n = 1, -2 }, { n = 1, -2 }, { n = 1, -1 }, { n = 1, -1 } })
    zh.inject("RPM_Os_Alloc", 0, 2)
    T.eq(call("rpm_getpkginfo", other), { n = 1, -2 })
end)

T.case("file digests cover whole files and byte ranges", function()
    local path = P.put("data.bin", string.rep("0123456789", 100))
    local head = P.put("head.bin", string.rep("0123456789", 10))
    local tail = P.put("tail.bin", string.rep("0123456789", 50))
    T.eq({ call("rpm_getfilemd5val", path), call("rpm_getfilemd5val", P.root .. "/none.bin"), call("rpm_getfilemd5val", P.root),
        call("rpm_getfilemd5val_ext", path, 0, 100), call("rpm_getfilemd5val_ext", path, 500, 0), call("rpm_getfilemd5val_ext", path, 0, 0),
        call("rpm_getfilemd5val_ext", path, 1000, 0), call("rpm_getfilemd5val_ext", path, 990, 11),
        call("rpm_getfilemd5val_ext", path, 1001, 0), call("rpm_getfilemd5val_ext", path, -1, 0),
        (call("rpm_getfilemd5val_ext", P.root .. "/none.bin", 0, 0)) },
        { { n = 2, 0, md5sum(path) }, { n = 1, -2 }, { n = 1, -2 }, { n = 2, 0, md5sum(head) }, { n = 2, 0, md5sum(tail) },
            { n = 2, 0, md5sum(path) }, { n = 2, 0, "d41d8cd98f00b204e9800998ecf8427e" }, { n = 1, -3 }, { n = 1, -3 }, { n = 1, -1 }, { n = 1, -2 } })
end)

T.case("pat_GetCrlPath answers from the platform service when there is one", function()
    T.eq(call("pat_GetCrlPath"), { n = 2, 0, P.root .. "/zakv8/main/home/crl" })
    T.has_lines(zh.log_lines("cms"), { "Get crl path is enter", "Get crl path: " .. P.root .. "/zakv8/main/home/crl" })
    zh.inject("ZAK_GetCRLFileRootPath", 3)
    T.eq(call("pat_GetCrlPath"), { n = 1, -1 })
    T.has_line(zh.log_lines("cms"), "Get crl file path failed")
    zh.profile_set("cms", "crl_service", "0")
    T.eq(call("pat_GetCrlPath"), { n = 1, 0 })
    T.has_line(zh.log_lines("cms"), "Get crl file path func is null")
end)

T.case("rpm_issulog writes the text at the given level", function()
    T.eq(call("rpm_issulog", 5, "switching over 50%"), { n = 0 })
    T.has_line(zh.log_lines("issu"), "switching over 50%")
    -- Without a text the placeholder is the one result.
    T.eq(call("rpm_issulog", 5), { n = 1, -1 })
    T.has_line(zh.log_lines("upgrade"), "print issu log failed")
end)

T.run()

-- Patch package header queries over packages built by qavpkg.
local T = require "testlib"
local zh = require "zakhost"
local P = require "pkg_fixtures"
local m = libqavluacommon

local call = P.call

local function patch(file, ...)
    local path = P.root .. "/" .. file
    P.qavpkg("patch", path, ...)
    return path
end

local hot = patch("hot.pat", "--name", "MAINRPGV1.00.10", "--patch-version", "P003", "--type", "2",
    "--cms", "0x5a", "--desc", "SUB-A:171:0x2001:6480:100", "--desc", "SUB-B:12:0x3003",
    "--desc", "SUB-C:171:0x2002:6580:28", "--payload-bytes", "128")
local cold = patch("cold.pat", "--name", "MAINRPGV1.00.10", "--desc", "C1:12:0x3003", "--desc", "C2:13:0x4004",
    "--desc", "C3:14:0x3003", "--desc", "H1:171:0x2001")
local nine = patch("nine.pkg", "--name", "V1.00.010", "--patch-version", "P1", "--payload-bytes", "59056")
local ten = patch("ten.pkg", "--name", "RV1.00.010")

T.case("pat_getpatpkghead splits the name and reports every field", function()
    T.eq(call("pat_getpatpkghead", hot), { n = 2, 0, {
        acRpgName = "MAINRPG", acMainVer = "V1.00.10", acPatchVer = "P003", uiPatchType = 2, uiPatchNum = 3,
        uiFileLen = 6480 + 128, uiCmsInfo = 0x5a } })
    -- Exactly 9 characters: the whole name is the main version.
    T.eq(call("pat_getpatpkghead", nine)[2],
        { acMainVer = "V1.00.010", acPatchVer = "P1", uiPatchType = 0, uiPatchNum = 0, uiFileLen = 65536, uiCmsInfo = 0 })
    local r = call("pat_getpatpkghead", ten)[2]
    T.eq({ r.acRpgName, r.acMainVer }, { "RV", "1.00.010" })
end)

T.case("header failures are unsigned codes with one result", function()
    local short = patch("short.pat", "--name", "X", "--truncate", "100")
    local badnum = patch("badnum.pat", "--name", "X", "--number", "101")
    local noname = patch("noname.pat", "--patch-version", "P1")
    local longer = patch("longer.pat", "--name", "X", "--file-length", "7000")
    T.eq({ call("pat_getpatpkghead", P.root .. "/none.pat"), call("pat_getpatpkghead", short),
        call("pat_getpatpkghead", badnum), call("pat_getpatpkghead", noname), call("pat_getpatpkghead", longer) },
        { { n = 1, 5002 }, { n = 1, 5003 }, { n = 1, 5004 }, { n = 1, 5004 }, { n = 1, 5006 } })
    zh.inject("ZAK_Malloc_F", 0)
    T.eq(call("pat_getpatpkghead", hot), { n = 1, 0xFFFFFFFF })
    T.eq(call("pat_gethpglistinpat", short), { n = 1, 5003 })
end)

T.case("pat_gethpglistinpat lists only the hot-patch descriptors", function()
    T.eq(call("pat_gethpglistinpat", hot), { n = 2, 0, {
        { SubFileVer = "SUB-A", PatchType = 171, BoardType = 0x2001, Offset = 6480, Length = 100 },
        { SubFileVer = "SUB-C", PatchType = 171, BoardType = 0x2002, Offset = 6580, Length = 28 },
    } })
    T.eq(call("pat_gethpglistinpat", nine), { n = 2, 0, {} })
    -- No buffer: the placeholder stays as the one result.
    zh.inject("ZAK_Malloc_F", 0)
    T.eq(call("pat_gethpglistinpat", hot), { n = 1, -1 })
end)

T.case("pat_gethpglistinpat prints each hot descriptor on standard output", function()
    local script = P.put("print_hpg.lua", "libqavluacommon.pat_gethpglistinpat(" .. string.format("%q", hot) .. ")\n")
    local qavlua = P.qavpkg_bin:gsub("qavpkg$", "qavlua")
    local pipe = io.popen(qavlua .. " --root '" .. P.root .. "' " .. script)
    local out = pipe:read("*a")
    pipe:close()
    T.eq(out, "patch header desc info: SUB-A, 8193\r\npatch header desc info: SUB-C, 8194\r\n")
end)

T.case("pat_getpkgboardtype gives the first descriptor's board", function()
    T.eq(call("pat_getpkgboardtype", hot), { n = 1, 0x2001 })
    T.eq(call("pat_getpkgboardtype", nine), { n = 1, 0 })
    T.eq(call("pat_getpkgboardtype", P.root .. "/none.pat"), { n = 1, 0xFFFFFFFF })
end)

T.case("pat_calcpatpkgmd5 digests the whole package", function()
    T.eq(call("pat_calcpatpkgmd5", hot), { n = 2, 0, T.capture("md5sum " .. hot):match("^(%x+)") })
    T.eq(call("pat_calcpatpkgmd5", P.root .. "/none.pat"), { n = 1, -1 })
    T.eq(call("pat_calcpatpkgmd5"), { n = 1, -1 })
end)

T.case("pat_startuppatchvalid tells bare patch files, packages and broken ones apart", function()
    local bare = P.put("bare.pat", "a bare patch file")
    local longer = patch("long2.pat", "--name", "X", "--file-length", "9999")
    local bad = patch("bad.pkg", "--number", "300")
    T.eq(call("pat_startuppatchvalid", P.root .. "/gone.pat"), { n = 1, 4 })
    T.has_line(zh.log_lines("upgrade"), P.root .. "/gone.pat not exist!")
    zh.inject("PAT_IsFileExist", 7) -- a failing check reads as a missing file
    T.eq(call("pat_startuppatchvalid", hot), { n = 1, 4 })
    T.eq(call("pat_startuppatchvalid", bare), { n = 2, 0, 1 })
    T.eq(call("pat_startuppatchvalid", hot), { n = 2, 0, 0 })
    T.eq(call("pat_startuppatchvalid", longer), { n = 2, 0, 2 })
    T.eq(call("pat_startuppatchvalid", bad), { n = 1, 5005 })
    zh.inject("ZAK_Malloc_F", 0)
    T.eq(call("pat_startuppatchvalid", nine), { n = 1, 5001 })
    -- No path: the code 2 lands in the first position and nothing is returned.
    T.eq(call("pat_startuppatchvalid"), { n = 0 })
    T.has_line(zh.log_lines("upgrade"), "filename is null!")
end)

T.case("pat_check_inrpkg compares two packages", function()
    local older = patch("older.pat", "--name", "MAINRPGV1.00.10", "--desc", "SUB-A:171:0x2001")
    local other = patch("other.pat", "--name", "OTHERV1.00.10", "--desc", "SUB-Z:171:0x2001")
    T.eq(call("pat_check_inrpkg", hot, older), { n = 5, 0, 3, 1, true, true })
    T.eq(call("pat_check_inrpkg", older, hot), { n = 5, 0, 1, 3, true, false })
    T.eq(call("pat_check_inrpkg", hot, other), { n = 5, 0, 3, 1, false, false })
    T.eq(call("pat_check_inrpkg", hot, P.root .. "/none.pat"), { n = 1, 5002 })
end)

T.case("pat_GetHardtypeOfColdPatHardRst lists each cold board type once", function()
    T.eq(call("pat_GetHardtypeOfColdPatHardRst", cold, "MAINRPG", "V1.00.10"), { n = 2, 0, { 0x3003, 0x4004 } })
    local log = zh.log_lines("upgrade")
    T.has_lines(log, { "Get hardtypes of cold pat using hard reset policy func enter",
        "patch( " .. cold .. " ), rpg name( MAINRPG ), rpg version( V1.00.10 )", "Get hardtype(0x4004) need hard rst",
        "number of hardtype is 2" })
    T.eq(call("pat_GetHardtypeOfColdPatHardRst", hot, "MAINRPG", "V1.00.10"), { n = 2, 0, { 0x3003 } })
    T.eq({ call("pat_GetHardtypeOfColdPatHardRst", cold, "OTHER", "V1.00.10"),
        call("pat_GetHardtypeOfColdPatHardRst", cold, "MAINRPG") }, { { n = 1, -1 }, { n = 1, -1 } })
    T.has_lines(zh.log_lines("upgrade"), { "get hard type of cold pat rst return error",
        "Get hardtypes of cold pat using hard reset policy err, param is null" })
    -- A node allocation failing part-way releases what was listed.
    zh.inject("RPM_Os_Alloc", 0, 1)
    T.eq(call("pat_GetHardtypeOfColdPatHardRst", cold, "MAINRPG", "V1.00.10"), { n = 1, -1 })
end)

T.run()

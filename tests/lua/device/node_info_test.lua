-- Node, board and NE facts: INI values, installer files, deployment identity, version files, conversions.
local T = require "testlib"
local zh = require "zakhost"
local m = libqavluacommon
local R = zh.root()

local write = T.write
local function exists(path) return T.read(path) ~= nil end

T.case("qav_GetIniValue reads a key or answers 1 alone with the reason logged", function()
    write("../data/test.ini", "[sec one]\nkey a=value a\n[other]\nk=v\n")
    T.eq({ T.results(m.qav_GetIniValue("[sec one]", "key a", "../data/test.ini")), T.results(m.qav_GetIniValue("other", "k", "../data/test.ini")) },
        { { n = 2, 0, "value a" }, { n = 2, 0, "v" } })
    T.eq({ T.results(m.qav_GetIniValue("other", "nokey", "../data/test.ini")),
        T.results(m.qav_GetIniValue("other", "k")), T.results(m.qav_GetIniValue({}, "k", "../data/test.ini")),
        T.results(m.qav_GetIniValue("other", {}, "../data/test.ini")), T.results(m.qav_GetIniValue("other", "k", nil)) },
        { { n = 1, 1 }, { n = 1, 1 }, { n = 1, 1 }, { n = 1, 1 }, { n = 1, 1 } })
    T.has_lines(zh.log_lines("upgrade"), { "get value failed, 1.", "Format path ParaNum 2 wrong.",
        "get section name failed.", "get acKey name failed.", "get acFilename name failed." })
end)

T.case("qav_GetVnfdPath consumes the installer's file", function()
    local ini = R .. "/zakv8/data/vnfd_path_info.ini"
    T.eq(T.results(m.qav_GetVnfdPath()), { n = 2, 0, "" })
    write(ini, "[vnfd_path_info]\nvnfd_path=/opt/vnfd/main.yaml\n")
    T.eq({ T.results(m.qav_GetVnfdPath()), exists(ini), T.results(m.qav_GetVnfdPath()) }, { { n = 2, 0, "/opt/vnfd/main.yaml" }, false, { n = 2, 0, "" } },
        "file removed after reading")
    -- a file without the key is removed too; the reader's code comes back
    write(ini, "[vnfd_path_info]\nother=1\n")
    T.eq({ T.results(m.qav_GetVnfdPath()), exists(ini) }, { { n = 2, 1, "" }, false })
end)

T.case("qav_GetMMBDLDHandle: the home version file, or the consumed download path", function()
    T.eq(T.results(m.qav_GetMMBDLDHandle(2)), { n = 2, 0, R .. "/zakv8/main/home/vercfg.xml" })
    zh.profile_set("rpm", "comm_home_path", "/data/home")
    T.eq(T.results(m.qav_GetMMBDLDHandle(7)), { n = 2, 0, R .. "/data/home/vercfg.xml" })
    zh.profile_set("rpm", "comm_home_path", "")
    T.eq(T.results(m.qav_GetMMBDLDHandle(2)), { n = 2, 1, "" })
    zh.profile_set("rpm", "comm_home_path", nil)

    local ini = R .. "/zakv8/main/bootfile/mmbftppath.ini"
    T.eq(T.results(m.qav_GetMMBDLDHandle(1)), { n = 2, 1, "" })
    write(ini, "[download section]\nmmb_path =ftp://10.0.0.1/pkg\n")
    write(ini .. "-", "companion")
    T.eq({ T.results(m.qav_GetMMBDLDHandle(1)), exists(ini), exists(ini .. "-") }, { { n = 2, 0, "ftp://10.0.0.1/pkg" }, false, false },
        "both files removed")
    -- the key carries its trailing blank: "mmb_path" alone is not it
    write(ini, "[download section]\nmmb_path=ftp://10.0.0.1/pkg\n")
    write(ini .. "-", "companion")
    T.eq({ T.results(m.qav_GetMMBDLDHandle(1)), exists(ini), exists(ini .. "-") }, { { n = 2, 1, "" }, false, false }, "removed on failure too")
end)

T.case("VNF, VNFC and NE identity from the profile", function()
    -- a text longer than 31 characters does not fit the 32-byte buffers
    zh.profile_set("vnf", "version", string.rep("v", 32))
    T.eq(T.results(m.qav_GetCurVNFInfo()), { n = 5, 1, "", "", "", "" })
    T.has_line(zh.log_lines("diag"), "RPM_GetVNFInfo_HOOK fail! RetCode:2.")
    zh.profile_set("ne", "id", "")
    zh.profile_set("vnfc", "type", "")
    T.eq({ T.results(m.qav_GetCurNEInfo()), T.results(m.qav_GetCurVNFCInfo()) }, { { n = 3, 1, "", "" }, { n = 4, 1, "", "", "" } })
    zh.inject("RPM_GetCurNEResInfo_HOOK", 9)
    T.eq(T.results(m.qav_GetCurNEInfo()), { n = 3, 9, "", "" })
end)

T.case("every deployment fact follows its profile key", function()
    local keys = {
        { "vnf", "instance_id" }, { "vnf", "name" }, { "vnf", "vnfd_id" }, { "vnf", "version" },
        { "vnfc", "instance_id" }, { "vnfc", "name" }, { "vnfc", "type" }, { "ne", "id" }, { "ne", "name" },
    }
    local function f(i) return "fact" .. i .. string.rep("x", 26) end -- 31 characters: the most a buffer holds
    for i, k in ipairs(keys) do zh.profile_set(k[1], k[2], f(i)) end
    T.eq({ T.results(m.qav_GetCurVNFInfo()), T.results(m.qav_GetCurVNFCInfo()), T.results(m.qav_GetCurNEInfo()) },
        { { n = 5, 0, f(1), f(2), f(3), f(4) }, { n = 4, 0, f(5), f(6), f(7) }, { n = 3, 0, f(8), f(9) } })
end)

T.case("qav_GetVEType answers VNFC_TYPE, cut to 39 characters", function()
    T.eq({ zh.setenv("VNFC_TYPE", string.rep("t", 50)), zh.setenv("A=B", "x") }, { true, false })
    T.eq(T.results(m.qav_GetVEType()), { n = 1, string.rep("t", 39) })
    -- unset: nothing pushed, one result reported: the caller gets the top of its stack
    zh.setenv("VNFC_TYPE", nil)
    T.eq(T.results(m.qav_GetVEType("top of stack")), { n = 1, "top of stack" })
end)

T.case("qav_GetCurNodeInfo reads the running package's version file", function()
    os.execute("mkdir -p " .. R .. "/zakv8/main/home/V1")
    write(R .. "/zakv8/main/home/V1/vercfg.xml",
        "<Product><InterfaceId>IF-77</InterfaceId><NermVersion>NERM 2.1</NermVersion></Product>")
    for _, name in ipairs { "V1/pkg.zip", R .. "/zakv8/main/home/V1/pkg.zip" } do
        zh.setenv("CC_PKG_NAME", name)
        T.eq(T.results(m.qav_GetCurNodeInfo()), { n = 3, 0, "IF-77", "NERM 2.1" }, name)
    end
    zh.setenv("CC_PKG_NAME", "pkg.zip")
    T.eq(T.results(m.qav_GetCurNodeInfo()), { n = 3, 1, "", "" })
    write(R .. "/zakv8/main/home/V1/vercfg.xml", "<Product><InterfaceId>IF-77</InterfaceId></Product>")
    zh.setenv("CC_PKG_NAME", "V1/pkg.zip")
    T.eq(T.results(m.qav_GetCurNodeInfo()), { n = 3, 1, "", "" })
    local line = T.has_line(zh.log_lines("diag"), "Get node <Product/NermVersion> value from file(")
    T.ok(line:find("V1/vercfg.xml) fail! RetCode:", 1, true), line)
end)

T.case("qav_Belto_IpAddrToStr: 1 and the dotted form, 0 on failure", function()
    T.eq({ T.results(m.qav_Belto_IpAddrToStr(0xC0A80001)), T.results(m.qav_Belto_IpAddrToStr(0xFFFFFFFF)),
        T.results(m.qav_Belto_IpAddrToStr()) }, { { n = 2, 1, "192.168.0.1" }, { n = 2, 1, "255.255.255.255" }, { n = 2, 0, "" } })
    zh.inject("NUK_IpAddrToStr", 1)
    T.eq(T.results(m.qav_Belto_IpAddrToStr(0x0A000001)), { n = 2, 0, "" })
end)

T.case("qav_Belto_BinToAsc converts bytes to hexadecimal text", function()
    -- text, count, lower case, expected status and text; a count beyond the text converts the text only
    for _, c in ipairs { { "\1\171\255", 3, 0, 0, "01ABFF" }, { "\1\171\255", 2, 1, 0, "01ab" },
                         { string.rep("a", 22), 22, 0, 0, string.rep("61", 22) }, { string.rep("a", 23), 23, 0, 1, "" },
                         { "ab", -1, 0, 1, "" }, { "ab", 10, 0, 0, "6162" } } do
        T.eq(T.results(m.qav_Belto_BinToAsc(c[1], c[2], c[3])), { n = 2, c[4], c[5] }, c[2])
    end
end)

T.case("qav_GetBackupInfoState: the platform's states, or 1, 2, 2 without the query", function()
    T.eq(T.results(m.qav_GetBackupInfoState()), { n = 3, 0, 0, 0 })
    zh.profile_set("backup", "state1", "1")
    zh.profile_set("backup", "state2", "3")
    T.eq(T.results(m.qav_GetBackupInfoState()), { n = 3, 0, 1, 3 })
    zh.profile_set("backup", "present", "0")
    T.eq(T.results(m.qav_GetBackupInfoState()), { n = 3, 1, 2, 2 })
end)

T.case("package versions: the last one with its NUL counted, the current one", function()
    T.eq(T.results(m.qav_get_last_pkg_info()), { n = 2, 0, "V100R001C00SPC100\0" })
    zh.profile_set("rpm", "last_rpg_version", "")
    T.eq(T.results(m.qav_get_last_pkg_info()), { n = 1, -1 })
    zh.profile_set("rpm", "last_rpg_version", nil)
    T.eq(T.results(m.qav_GetCurPkgVersion()), { n = 2, 0, "V100R001C00SPC200" })
    zh.profile_set("rpm", "cur_pkg_version", "V2")
    T.eq(T.results(m.qav_GetCurPkgVersion()), { n = 2, 0, "V2" })
    zh.inject("RPM_GetCurPkgVersion", 9)
    T.eq(T.results(m.qav_GetCurPkgVersion()), { n = 1, 9 })
end)

T.case("qav_GetNPSDiskSizeInfo reads /boot/disk_cfg.ini", function()
    T.eq(T.results(m.qav_GetNPSDiskSizeInfo("[disk]", "size")), { n = 2, 1, "" })
    write(R .. "/boot/disk_cfg.ini", "[disk]\nsize=64G\n")
    T.eq(T.results(m.qav_GetNPSDiskSizeInfo("[disk]", "size")), { n = 2, 0, "64G" })
    T.eq({ T.results(m.qav_GetNPSDiskSizeInfo("[disk]", "none")), T.results(m.qav_GetNPSDiskSizeInfo(string.rep("s", 63), "size")),
        T.results(m.qav_GetNPSDiskSizeInfo(string.rep("s", 64), "size")), T.results(m.qav_GetNPSDiskSizeInfo("[disk]", string.rep("k", 128))),
        T.results(m.qav_GetNPSDiskSizeInfo("[disk]")) }, { { n = 2, 2, "" }, { n = 2, 2, "" }, { n = 2, 3, "" }, { n = 2, 3, "" }, { n = 2, 3, "" } })
end)

T.run()

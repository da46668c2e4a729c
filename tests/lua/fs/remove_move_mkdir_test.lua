-- Removal, move and directory creation through "luafs_rm", "luafs_mv" and "luafs_mkdir".
local T = require "testlib"
local zh = require "zakhost"
local F = require "fs.fslib"
local m = libqavluacommon

local RECURSIVE, FORCE = 0x2, 0x8

T.case("remove: files, links, missing paths, directories", function()
    F.write("r1", "x")
    T.eq({ T.results(m.luafs_rm("r1", 0)), F.ok("test -e r1") }, { { n = 1, 0 }, false })
    F.fails(-1, "can't remove 'r1'", m.luafs_rm, "r1", 0)
    T.eq(m.luafs_rm("r1", FORCE), 0)
    F.ok("ln -s gone dangling")
    T.eq(m.luafs_rm("dangling", 0), 0, "a dangling link is removed itself")
    F.ok("mkdir -p rt/a/b && echo 1 > rt/a/b/f && ln -s ../../.. rt/a/up && mkfifo rt/p")
    F.fails(-1, "rt: is a directory", m.luafs_rm, "rt", 0)
    -- the tree is gone; the link up was not followed
    T.eq({ m.luafs_rm("rt/", RECURSIVE), F.ok("test -e rt"), F.ok("test -d .") }, { 0, false, true })
end)

T.case("remove refuses '.' and '..' as the last component but reports success", function()
    F.ok("mkdir -p keep/inner")
    T.eq(T.results(m.luafs_rm("keep/inner/..", RECURSIVE)), { n = 1, 0 })
    T.eq({ m.luafs_rm("keep/.", RECURSIVE), (m.luafs_rm("keep/..//", RECURSIVE)) }, { 0, 0 })
    T.has_line(F.messages(), "can't remove '.' or '..'")
    T.ok(F.ok("test -d keep/inner"), "nothing removed")
end)

T.case("a failing child makes the tree's result -1 while its siblings go", function()
    -- The long name cannot be joined inside part/d, so part/d and part stay; b and c go.
    local long = string.rep("z", 122)
    F.ok("mkdir -p part/d && echo x > part/b && echo y > part/c && echo z > part/d/" .. long)
    F.fails(-1, "can't remove 'part'", m.luafs_rm, "part", RECURSIVE)
    T.has_line(F.messages(), "alloc failed")
    T.ok(not F.ok("test -e part/b") and not F.ok("test -e part/c"), "siblings removed")
    T.ok(F.ok("test -e part/d/" .. long), "the unreachable one stays")
    F.ok("rm -rf part")
end)

T.case("move: rename, into a directory, onto a file, force", function()
    F.write("mv1", "one")
    T.eq({ T.results(m.luafs_mv("mv1", "mv2", 0)), F.read("mv2") }, { { n = 1, 0 }, "one" })
    F.ok("mkdir mvdir")
    T.eq({ m.luafs_mv("mv2", "mvdir", 0), F.read("mvdir/mv2") }, { 0, "one" })
    F.write("mv3", "three")
    T.eq({ m.luafs_mv("mv3", "mvdir/mv2", 0), F.read("mvdir/mv2") }, { 0, "three" })
    F.ok("mkdir -p mvtree/x && echo t > mvtree/x/t")
    T.eq({ m.luafs_mv("mvtree/", "mvdir", 1), F.read("mvdir/mvtree/x/t") }, { 0, "t\n" })
    F.fails(1, "can't rename 'absent', errno:2, iSrcIsExists:0, iDestIsExists:0, destFile:mvdir/absent", m.luafs_mv, "absent", "mvdir", 0)
    F.ok("mkdir -p occ/mvtree/full && echo f > occ/mvtree/full/f")
    -- a non-empty directory is not replaced
    F.fails(1, "can't rename 'mvdir/mvtree', errno:39, iSrcIsExists:3, iDestIsExists:3, destFile:occ/mvtree", m.luafs_mv, "mvdir/mvtree", "occ", 0)
    T.eq(F.read("mvdir/mvtree/x/t"), "t\n", "source intact")
end)

T.case("argument checks: remove's count from -2 on, move's too", function()
    T.eq({ T.results(m.luafs_rm("x")), T.results(m.luafs_rm({}, 0)) }, { { n = 1, -2 }, { n = 1, -3 } })
    zh.inject("ZAK_Malloc_F", 0)
    T.eq(T.results(m.luafs_rm("x", 0)), { n = 1, -4 })
    T.eq({ T.results(m.luafs_mv("a", "b")), T.results(m.luafs_mv("a", {}, 0)) }, { { n = 1, -2 }, { n = 1, -2 } })
    zh.inject("ZAK_Malloc_F", 0)
    T.eq(T.results(m.luafs_mv("a", "b", 0)), { n = 1, -3 })
    zh.inject("ZAK_Malloc_F", 0, 1)
    T.eq(T.results(m.luafs_mv("a", "b", 0)), { n = 1, -4 })
    F.ok("mkdir -p mvlong")
    F.write("mvlong/s", "s")
    local dest = "mvlong/" .. string.rep("d", 125)
    F.ok("mkdir -p " .. dest)
    F.fails(1, "alloc failed", m.luafs_mv, "mvlong/s", dest, 0) -- the joined target does not fit
end)

T.case("mkdir: parents, existing paths, '.', permissions", function()
    F.ok("mkdir a")
    T.eq({ T.results(m.luafs_mkdir("a/b/c", -1, 2)), F.ok("test -d a/b/c"), m.luafs_mkdir("a/b/c", -1, 2) }, { { n = 1, 0 }, true, 0 },
        "again with parents")
    F.fails(-1, "can't create directory 'a/b/c'", m.luafs_mkdir, "a/b/c", -1, 0)
    T.eq({ m.luafs_mkdir(".", 493, 0), (m.luafs_mkdir("p755", 493, 0)) }, { 0, 0 })
    T.eq({ F.sh("stat -c %a p755"), T.results(m.luafs_mkdir("p778", 778, 0)), F.ok("test -e p778") }, { "755", { n = 1, -5 }, false })
    local old = F.sh("umask")
    T.eq(m.luafs_mkdir("pnone", -1, 0), 0)
    local expected = old:sub(-3):gsub("%d", function(d) return tostring(7 - tonumber(d)) end)
    T.eq(F.sh("stat -c %a pnone"), tostring(tonumber(expected)), "as created under the umask")
    T.eq(F.sh("umask"), old, "mask restored")
    T.eq({ m.luafs_mkdir("a//x///y//", -1, 2), F.ok("test -d a/x/y") }, { 0, true }, "runs of slashes")
    F.write("afile", "")
    F.clear()
    T.eq({ m.luafs_mkdir("afile/sub", -1, 2), m.luafs_mkdir("afile", -1, 2) }, { -1, -1 })
    T.has_lines(F.messages(), { "can't create directory 'afile/'", "can't create directory 'afile'" })
    T.eq({ m.luafs_mkdir("nodir/sub", -1, 0), T.results(m.luafs_mkdir("x", 1)), T.results(m.luafs_mkdir({}, 1, 0)) },
        { -1, { n = 1, -2 }, { n = 1, -3 } })
    zh.inject("ZAK_Malloc_F", 0)
    T.eq(T.results(m.luafs_mkdir("x", 1, 0)), { n = 1, -4 })
end)

T.case("mkdir: intermediate directories stay open to their owner whatever the mask", function()
    -- Under a mask of 0777 the intermediate mask is 0477: the owner may still enter and write.
    T.eq(T.capture("umask 0777; echo 'print(libqavluacommon.luafs_mkdir(\"um/i/leaf\", -1, 2))' > um.lua; " ..
        "\"${QAVLUA_EXE:-$(readlink /proc/$PPID/exe)}\" --root '" .. zh.root() .. "' um.lua 2>&1"), "0")
    T.eq(F.sh("stat -c %a um um/i um/i/leaf"), "300\n300\n0", "intermediates under mask 0477, leaf under 0777")
end)

T.case("mkdir: file-layer codes for no memory and other failures", function()
    zh.inject("P_ZAK_Mkdir", -1048578)
    F.fails(0x40022B, "No memory for path :nomem 4194859", m.luafs_mkdir, "nomem", -1, 0)
    zh.inject("P_ZAK_Mkdir", -1048578)
    F.fails(0x40022B, "No memory for path :nm/ 4194859", m.luafs_mkdir, "nm/deep", -1, 2)
    zh.inject("P_ZAK_Mkdir", -1048581, 1)
    F.fails(-1, "can't create directory 'np/deep'", m.luafs_mkdir, "np/deep", -1, 2)
    T.ok(F.ok("test -d np"), "the parent made before the failure stays")
end)

T.case("directory listing and tests", function()
    F.ok("mkdir -p ls/sub && touch ls/f")
    local h = m.luafs_opendir("ls")
    local names = {}
    while true do
        local r = T.results(m.luafs_readdir(h))
        if r[1] ~= 0 then T.eq(r, { n = 1, -1 }); break end
        T.eq(r.n, 2)
        names[#names + 1] = r[2]
    end
    table.sort(names)
    T.eq(names, { ".", "..", "f", "sub" })
    T.eq(T.results(m.luafs_closedir(h)), { n = 1, 0 })
    -- A closed, or never opened, handle is answered as the null handle is.
    for _, stale in ipairs({ h, debug.upvalueid(T.eq, 1) }) do
        T.eq({ T.results(m.luafs_readdir(stale)), T.results(m.luafs_closedir(stale)) },
            { { n = 1, -1 }, { n = 1, 0 } })
    end
    zh.log_clear()
    local bad = m.luafs_opendir("no/such/dir")
    T.has_line(zh.log_lines("upgrade"), "opendir's return null!")
    -- only a directory handle is read
    T.eq({ T.results(m.luafs_readdir(bad)), T.results(m.luafs_closedir(bad)), T.results(m.luafs_readdir(io.stdout)) },
        { { n = 1, -1 }, { n = 1, 0 }, { n = 1, -1 } })
    T.eq(T.results(m.luafs_opendir()), { n = 1, m.luafs_opendir() })
    T.eq({ m.luafs_isdir("ls"), m.luafs_isdir("ls/f"), m.luafs_isdir("nope"), m.luafs_isdir() },
        { true, false, false, false })
    F.ok("ln -s ls lsl")
    T.eq(m.luafs_isdir("lsl"), true, "links are followed")
end)

T.case("the OS node id comes from the platform", function()
    T.eq(T.results(m.lua_getosnodeid()), { n = 1, tonumber(zh.profile("device", "node_id")) })
    zh.profile_set("device", "node_id", "0xFFFFFFFE")
    T.eq(m.lua_getosnodeid(), -2, "pushed signed")
end)

T.run()

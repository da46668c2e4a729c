-- The copy engine through "luafs_cp": files, trees, links, special files, guards, flags, failures.
local T = require "testlib"
local zh = require "zakhost"
local F = require "fs.fslib"
local m = libqavluacommon

local RECURSIVE, KEEP, FOLLOW_ARG, FOLLOW_ALL, SYMLINK, HARDLINK, PARENTS = 0x2, 0x4, 0x10, 0x20, 0x40, 0x80, 0x100

T.case("a file is copied onto a path and into a directory, data and mode intact", function()
    F.write("f1", string.rep("data", 5000))
    F.ok("chmod 604 f1")
    T.eq({ T.results(m.luafs_cp("f1", "f1.copy", 0)), F.read("f1.copy"), F.sh("stat -c %a f1.copy") }, { { n = 1, 0 }, F.read("f1"), "604" })
    F.ok("mkdir d1")
    T.eq({ m.luafs_cp("f1", "d1", 0), F.read("d1/f1") }, { 0, F.read("f1") })
    T.eq(m.luafs_cp("f1", "d1/", 0), 0, "trailing slash on the directory")
end)

T.case("keep gives the copy the source's times and permissions", function()
    F.write("old", "x")
    F.ok("chmod 751 old && touch -d '2001-02-03 04:05:06' old")
    T.eq({ m.luafs_cp("old", "old.keep", KEEP), F.sh("stat -c '%a %Y' old.keep") }, { 0, F.sh("stat -c '%a %Y' old") })
    T.eq(m.luafs_cp("old", "old.plain", 0), 0)
    T.ok(F.sh("stat -c %Y old.plain") ~= F.sh("stat -c %Y old"), "without keep the time is new")
end)

T.case("a directory needs the recursive flag", function()
    F.ok("mkdir -p tree1/sub && echo a > tree1/sub/a")
    F.fails(-1, "omitting directory 'tree1'", m.luafs_cp, "tree1", "tree1.copy", 0)
    T.ok(not F.ok("test -e tree1.copy"))
    T.eq({ m.luafs_cp("tree1", "tree1.copy", RECURSIVE), F.read("tree1.copy/sub/a") }, { 0, "a\n" })
    -- into an existing directory under the source's own name
    F.ok("mkdir into")
    T.eq({ m.luafs_cp("tree1/", "into", RECURSIVE), F.read("into/tree1/sub/a") }, { 0, "a\n" })
end)

T.case("a tree copied into its own subdirectory stops at the copy of the copy", function()
    F.ok("mkdir -p self/b/c && echo f > self/b/c/f && echo top > self/top")
    F.fails(-1, "recursion detected, omitting directory 'self/b/self'", m.luafs_cp, "self", "self/b", RECURSIVE)
    T.eq({ F.read("self/b/self/top"), F.read("self/b/self/b/c/f") }, { "top\n", "f\n" }, "the rest is copied")
    T.ok(not F.ok("test -e self/b/self/b/self"))
    -- a directory created as a copy is refused as a source later in the process
    F.ok("mkdir -p once && echo 1 > once/x")
    T.eq(m.luafs_cp("once", "twice", RECURSIVE), 0)
    F.fails(-1, "recursion detected, omitting directory 'twice'", m.luafs_cp, "twice", "thrice", RECURSIVE)
end)

T.case("the same file under two names is refused and nothing is lost", function()
    F.write("same", "precious")
    F.ok("ln same same.hard && ln -s same same.sym")
    T.eq({ m.luafs_cp("same", "same", 0), m.luafs_cp("same", "same.hard", 0) }, { -1, -1 })
    T.has_lines(F.messages(), { "'same' and 'same' are the same file", "'same' and 'same.hard' are the same file" })
    -- A destination that is a link to the source would be truncated before it is read.
    F.fails(-1, "'same' and 'same.sym' are the same file", m.luafs_cp, "same", "same.sym", 0)
    T.eq(F.read("same"), "precious")
end)

T.case("symbolic links: recreated, or followed with the follow flags", function()
    F.write("target", "T")
    F.ok("ln -s target lnk")
    T.eq({ m.luafs_cp("lnk", "lnk.r", RECURSIVE), F.sh("readlink lnk.r") }, { 0, "target" })
    T.eq({ m.luafs_cp("lnk", "lnk.plain", 0), F.sh("readlink lnk.plain") }, { 0, "target" }, "without -r too")
    T.eq({ m.luafs_cp("lnk", "lnk.follow", FOLLOW_ARG), F.kind("lnk.follow"), F.read("lnk.follow") }, { 0, "regular file", "T" })
    F.ok("mkdir -p ltree && ln -s ../target ltree/in")
    T.eq({ m.luafs_cp("ltree", "ltree.arg", RECURSIVE + FOLLOW_ARG), F.kind("ltree.arg/in") }, { 0, "symbolic link" },
        "the argument flag is not used inside the tree")
    T.eq({ m.luafs_cp("ltree", "ltree.all", RECURSIVE + FOLLOW_ALL), F.kind("ltree.all/in") }, { 0, "regular file" })
    F.write("occupied", "o")
    -- an unfollowed link cannot replace a file without -r
    F.fails(-1, "can't create symlink 'occupied'", m.luafs_cp, "lnk", "occupied", 0)
    T.eq({ m.luafs_cp("lnk", "occupied", RECURSIVE), F.sh("readlink occupied") }, { 0, "target" }, "with -r the destination is removed first")
end)

T.case("special files are recreated with the recursive flag", function()
    F.ok("mkdir tree && mkfifo tree/pipe")
    T.eq({ m.luafs_cp("tree", "tree.copy", RECURSIVE), F.kind("tree.copy/pipe"), m.luafs_cp("/dev/null", "nulldev", RECURSIVE),
        F.sh("stat -c '%F %t:%T' nulldev") }, { 0, "fifo", 0, F.sh("stat -c '%F %t:%T' /dev/null") })
end)

T.case("links and special files that cannot be read or made", function()
    F.ok("ln -s somewhere rl && mkfifo rp")
    zh.inject("ZAK_Malloc_F", 0, 2) -- the link buffer, after the two path copies
    T.eq({ m.luafs_cp("rl", "rl.copy", RECURSIVE), m.luafs_cp("rp", "no/dir/rp", RECURSIVE),
        m.luafs_cp("rl", "no/dir/rl", RECURSIVE) }, { -1, -1, -1 })
    T.has_lines(F.messages(), { "rl: cannot read link.", "can't create 'no/dir/rp'",
        "can't create symlink 'no/dir/rl'" })
end)

T.case("link modes make links instead of copies", function()
    F.write("src.l", "L")
    T.eq({ m.luafs_cp("src.l", "src.sym", SYMLINK), F.sh("readlink src.sym") }, { 0, "src.l" })
    T.eq({ m.luafs_cp("src.l", "src.hard", HARDLINK), F.sh("stat -c %i src.hard") }, { 0, F.sh("stat -c %i src.l") })
    T.eq({ m.luafs_cp("src.l", "src.both", SYMLINK + HARDLINK), F.kind("src.both") }, { 0, "symbolic link" }, "symbolic wins")
    T.eq(m.luafs_cp("src.l", "src.sym", SYMLINK), 0, "an existing link is replaced")
    T.eq({ m.luafs_cp("no.such", "dangling", SYMLINK), F.sh("readlink dangling") }, { 0, "no.such" }, "a link may name a missing file")
    F.fails(-1, "can't delete 'hard.missing'", m.luafs_cp, "no.such", "hard.missing", HARDLINK)
end)

T.case("parents recreate the source's path under a directory", function()
    F.ok("mkdir -p p/q && echo pq > p/q/file && mkdir pdest")
    T.eq({ m.luafs_cp("p/q/file", "pdest", PARENTS), F.read("pdest/p/q/file") }, { 0, "pq\n" })
    F.fails(-1, "with --parents, the destination must be a directory", m.luafs_cp, "p/q/file", "p/q/file.none", PARENTS)
end)

T.case("a directory cannot replace a file", function()
    F.ok("mkdir -p clash/dir && mkdir cdest && echo f > cdest/dir")
    F.fails(-1, "target 'cdest/dir' is not a directory", m.luafs_cp, "clash/dir", "cdest", RECURSIVE)
    T.eq(F.read("cdest/dir"), "f\n")
    zh.inject("P_ZAK_Mkdir", -1)
    F.fails(-1, "can't create directory 'clash.copy'", m.luafs_cp, "clash", "clash.copy", RECURSIVE)
end)

T.case("a failing write leaves the partial file, copies the siblings, spares the source", function()
    F.ok("mkdir -p wfail && echo one > wfail/a && echo two > wfail/b")
    zh.inject("P_ZAK_Write", -1048584, 0, 1)
    F.fails(-1, "zak write error, ret = -1048584", m.luafs_cp, "wfail", "wfail.copy", RECURSIVE)
    local a, b = F.read("wfail.copy/a"), F.read("wfail.copy/b")
    T.ok((a == "" and b == "two\n") or (b == "" and a == "one\n"), "one partial, one whole: " .. T.show({ a, b }))
    T.eq({ F.read("wfail/a"), F.read("wfail/b") }, { "one\n", "two\n" })
end)

T.case("failures to open, read and allocate fail the copy", function()
    F.write("o", "abc")
    zh.inject("P_ZAK_Open", -1048581, 1)
    F.fails(-1, "can't open 'o.copy', iRet:-1048581", m.luafs_cp, "o", "o.copy", 0) -- destination cannot be opened
    zh.inject("P_ZAK_Read", -1048577)
    F.fails(-1, "read error", m.luafs_cp, "o", "o.copy2", 0)
    T.eq(F.read("o.copy2"), "", "the partial destination stays")
    local before = zh.memory().blocks
    zh.inject("ZAK_Malloc_F", 0, 2) -- the copy buffer, after the two path copies
    F.fails(-1, "alloc failed", m.luafs_cp, "o", "o.copy3", 0)
    T.eq(zh.memory().blocks, before, "nothing leaked")
    T.eq(#zh.fd_leaks(true), 0, "both descriptors closed")
end)

T.case("an unclosed descriptor shows in the leak register a day later", function()
    F.write("lk", "x")
    zh.inject("P_ZAK_Close", -1048577)
    F.fails(-1, "error writing to 'lk.copy'", m.luafs_cp, "lk", "lk.copy", 0)
    T.eq(#zh.fd_leaks(), 0, "not yet overdue")
    zh.clock_advance(86401)
    local leaks = zh.fd_leaks()
    T.ok(#leaks == 1 and leaks[1].path:match("lk.copy$") and leaks[1].timeout_ms == 86400000, T.show(leaks))
end)

T.case("wrong argument counts and types", function()
    T.eq({ T.results(m.luafs_cp("a", "b")), T.results(m.luafs_cp({}, "b", 0)), T.results(m.luafs_cp("a", nil, 0)) },
        { { n = 1, -2 }, { n = 1, -3 }, { n = 1, -3 } })
    zh.inject("ZAK_Malloc_F", 0)
    T.eq(T.results(m.luafs_cp("a", "b", 0)), { n = 1, -4 })
    zh.inject("ZAK_Malloc_F", 0, 1)
    T.eq(T.results(m.luafs_cp("a", "b", 0)), { n = 1, -5 })
end)

T.run()

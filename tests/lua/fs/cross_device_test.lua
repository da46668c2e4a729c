-- Moves across file systems (to /dev/shm; skipped where it is the same one) fall back on copy and remove.
local T = require "testlib"
local F = require "fs.fslib"
local m = libqavluacommon

local other = "/dev/shm"
local here_dev = F.sh("stat -c %d .")
local other_dev = F.sh("stat -c %d " .. other)
if not F.ok("test -d " .. other .. " -a -w " .. other) or here_dev == other_dev then
    print("SKIP: no second writable file system at " .. other .. "; cross-device moves untested")
    T.run()
    return
end
local base = F.sh("mktemp -d " .. other .. "/qavmv.XXXXXX")
local function cleanup() F.ok("rm -rf " .. base) end

T.case("a file moves across file systems, replacing an existing file", function()
    F.write("xf", "cross")
    F.ok("chmod 640 xf && touch -d '2002-03-04 05:06:07' xf")
    F.write(base .. "/xf", "old")
    T.eq(T.results(m.luafs_mv("xf", base .. "/xf", 0)), { n = 1, 0 })
    T.eq({ F.read(base .. "/xf"), F.sh("stat -c '%a %Y' " .. base .. "/xf") }, { "cross", "640 " .. F.sh("date -d '2002-03-04 05:06:07' +%s") })
    T.ok(not F.ok("test -e xf"), "source removed")
end)

T.case("a tree moves across file systems into a directory, links and pipes included", function()
    F.ok("mkdir -p xt/s && echo 1 > xt/s/one && ln -s one xt/s/l && mkfifo xt/p")
    T.eq(m.luafs_mv("xt", base, 0), 0)
    T.eq({ F.read(base .. "/xt/s/one"), F.sh("readlink " .. base .. "/xt/s/l"), F.kind(base .. "/xt/p") }, { "1\n", "one", "fifo" })
    T.ok(not F.ok("test -e xt"))
end)

T.case("kinds that cannot replace each other across file systems", function()
    F.ok("mkdir -p " .. base .. "/dd/full && echo x > " .. base .. "/dd/full/x && mkdir dd")
    F.fails(1, "can't remove '" .. base .. "/dd', iErrno:21", m.luafs_mv, "dd", base, 0) -- a directory onto an existing directory
    T.ok(F.ok("test -d dd"), "source kept")
    F.write("fd", "f")
    F.ok("mkdir " .. base .. "/fdir")
    T.eq(m.luafs_mv("fd", base .. "/fdir", 0), 0, "a file into a directory is a plain move")
    F.ok("mkdir -p " .. base .. "/nd && echo n > " .. base .. "/nd/nf && mkdir nf")
    F.fails(1, "can't overwrite non-directory with directory, pcSrcFile:nf", m.luafs_mv, "nf", base .. "/nd/nf", 0)
    F.write("fx", "x")
    F.ok("mkdir -p " .. base .. "/tx/fx")
    F.fails(1, "can't overwrite directory with non-directory, pcSrcFile:fx", m.luafs_mv, "fx", base .. "/tx", 0)
    T.eq(F.read("fx"), "x")
end)

T.case("a hard link cannot cross file systems", function()
    F.write("hl", "h")
    F.write(base .. "/hl", "old")
    F.fails(-1, "can't create link '" .. base .. "/hl'", m.luafs_cp, "hl", base .. "/hl", 0x80)
    T.ok(not F.ok("test -e " .. base .. "/hl"), "the old destination was removed for the second try")
    T.eq(F.read("hl"), "h")
end)

T.case("a failed copy never removes the source", function()
    F.ok("mkdir -p keepsrc && echo a > keepsrc/a && echo b > keepsrc/b")
    local zh = require "zakhost"
    zh.inject("P_ZAK_Write", -1048584)
    T.eq(m.luafs_mv("keepsrc", base .. "/", 0), 1)
    T.eq({ F.read("keepsrc/a"), F.read("keepsrc/b") }, { "a\n", "b\n" })
    T.ok(F.ok("test -d " .. base .. "/keepsrc"), "the partial copy stays")
end)

T.run()
cleanup()

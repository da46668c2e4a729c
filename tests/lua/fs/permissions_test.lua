-- Permission failures of the engine, run as "nobody" (setpriv) in a second process over a
-- world-readable sandbox; skipped without root, setpriv or that user.
local T = require "testlib"
local F = require "fs.fslib"

if F.sh("id -u") ~= "0" or not F.ok("command -v setpriv >/dev/null && id nobody >/dev/null 2>&1") then
    print("SKIP: needs root, setpriv and the user nobody to test permission failures")
    T.run()
    return
end

local qavlua = F.sh("echo ${QAVLUA_EXE:-$(readlink /proc/$PPID/exe)}")
-- (A checkout under a private home directory is out of the unprivileged user's reach.)
if not F.ok("setpriv --reuid=nobody --regid=nogroup --clear-groups '" .. qavlua .. "' >/dev/null 2>&1; " ..
        "[ $? -eq 2 ]") then
    print("SKIP: the user nobody cannot run " .. qavlua)
    T.run()
    return
end
local root = F.sh("mktemp -d /tmp/qavperm.XXXXXX")
F.ok("chmod 755 " .. root .. " && '" .. qavlua .. "' init " .. root .. " >/dev/null && chmod -R a+rwX " .. root)
local bin = root .. "/zakv8/main/bin"
-- Root-owned fixtures the unprivileged user may read but not change.
F.ok(table.concat({
    "cd " .. bin,
    "mkdir -p ro/sub && echo f > ro/f && echo s > ro/sub/s && chmod -R go-w ro",
    "echo secret > secret && chmod 600 secret",
    "echo pub > pub && chmod 644 pub",
    "echo mine > mine && chmod 666 mine",
    "mkdir -p out && chmod 777 out",
    "ln -s pub publink",
    "echo root > out/rootfile && chmod 666 out/rootfile",
}, " && "))

local inner = [=[
local T = require "testlib"
local zh = require "zakhost"
local m = libqavluacommon
local function msgs()
    local out = {}
    for _, l in ipairs(zh.log_lines("diag")) do out[#out + 1] = l:match("fatal: (.*)$") end
    return out
end
T.case("remove without write access", function()
    T.eq(m.luafs_rm("ro/f", 0), -1)
    T.has_line(msgs(), "can't remove 'ro/f'")
    T.eq(m.luafs_rm("ro/f", 8), -1, "force skips the check but the unlink fails")
    T.eq(m.luafs_rm("ro", 2), -1)
    T.has_line(msgs(), "cannot remove ro: Permission denied")
    T.eq(m.luafs_rm("ro/sub", 10), -1, "forced into a directory it cannot change")
    T.has_lines(msgs(), { "can't remove 'ro/sub/s'", "can't remove 'ro/sub'" })
end)
T.case("move onto a file it cannot write", function()
    T.eq(m.luafs_mv("mine", "pub", 0), 1)
    T.has_line(msgs(), "pub:cannot overwrite")
end)
T.case("mkdir and copy into a directory it cannot write", function()
    T.eq({ m.luafs_mkdir("ro/new", -1, 0), m.luafs_cp("pub", "ro/pub", 0) }, { -1, -1 })
    T.has_lines(msgs(), { "can't create directory 'ro/new'", "can't open 'ro/pub', iRet:-1048581" })
end)
T.case("an unreadable source", function()
    T.eq(m.luafs_cp("secret", "out/secret", 0), -1)
    T.has_line(msgs(), "can't open 'secret', iRet:-1048581")
end)
T.case("keep cannot give a copy root's ownership; the copy still succeeds", function()
    T.eq({ m.luafs_cp("pub", "out/pub", 4), m.luafs_cp("ro", "out/ro", 6), m.luafs_cp("publink", "out/publink", 6) },
        { 0, 0, 0 })
    T.has_lines(msgs(), { "can't keep ownership of 'out/pub'", "can't keep ownership of 'out/ro/sub'",
        "can't preserve ownership of 'out/publink'" })
    -- onto a file it may write but does not own: times, owner and mode all stay as they were
    T.eq(m.luafs_cp("pub", "out/rootfile", 4), 0)
    T.has_lines(msgs(), { "can't keep astTimes of 'out/rootfile'", "can't keep ownership of 'out/rootfile'",
        "can't keep permissions of 'out/rootfile'" })
end)
T.run()
]=]
F.write(bin .. "/perm_inner.lua", inner)
F.ok("chmod 644 " .. bin .. "/perm_inner.lua")

T.case("as nobody: every permission failure is reported and nothing is lost", function()
    local out = F.sh("cd " .. bin .. " && setpriv --reuid=nobody --regid=nogroup --clear-groups '" .. qavlua ..
        "' --root " .. root .. " perm_inner.lua")
    T.ok(out:match("5 passed, 0 failed"), out)
    T.eq({ F.read(bin .. "/ro/f"), F.read(bin .. "/ro/sub/s"), (F.read(bin .. "/pub")) }, { "f\n", "s\n", "pub\n" })
    T.eq({ F.sh("stat -c %U " .. bin .. "/out/pub"), F.read(bin .. "/out/rootfile"), F.sh("stat -c '%U %a' " .. bin .. "/out/rootfile") },
        { "nobody", "pub\n", "root 666" })
end)

T.run()
F.ok("rm -rf " .. root)

-- Run by jail_escape.sh inside the jail: every way a script could reach files outside its sandbox.
-- arg[1..]: directories outside the sandbox, each holding a file "canary"; the last argument is
-- the path of qavpkg. Each attempt either acts on the sandbox or fails; the caller checks the host.
local m = libqavluacommon
local qavpkg = arg[#arg]
local outside = { table.unpack(arg, 1, #arg - 1) }

local function attempt(name, f, ...)
    local results = table.pack(pcall(f, ...))
    print(name, table.unpack(results, 1, results.n))
end

attempt("shadow size", m.qav_GetLocalFileSize, "/etc/shadow")
for _, dir in ipairs(outside) do
    -- By absolute path, by climbing from the working directory, and through links inside R.
    local climb = string.rep("../", 16) .. dir:sub(2)
    os.execute("ln -sfn '" .. dir .. "' /zakv8/main/home/abs_out; ln -sfn '" .. climb .. "' /zakv8/main/home/rel_out")
    for _, base in ipairs({ dir, climb, "/zakv8/main/home/abs_out", "/zakv8/main/home/rel_out" }) do
        local canary = base .. "/canary"
        attempt("size", m.qav_GetLocalFileSize, canary)
        attempt("cp", m.luafs_cp, "/etc/passwd", base .. "/copied", 0)
        attempt("cp over", m.luafs_cp, "/etc/passwd", canary, 0)
        attempt("mkdir", m.luafs_mkdir, base .. "/made", 511, 2)
        attempt("mv", m.luafs_mv, canary, base .. "/moved", 1)
        attempt("chown", m.qav_chownfile, canary, "777")
        attempt("link", m.qav_linkfile, canary, "/zakv8/main/home/hardlink")
        attempt("link out", m.qav_linkfile, "/etc/passwd", base .. "/linked")
        attempt("rename", m.qav_ZAK_RenameFile, canary, base .. "/renamed")
        local fd, handle = m.qav_spt_fopen(1, canary, "w")
        attempt("fopen", m.qav_spt_fwrite, handle, fd, "written")
        attempt("remove", m.qav_ZAK_RemoveFile, canary)
        attempt("rm", m.luafs_rm, base, 2 + 8)
        attempt("io", function() return assert(io.open(canary, "w")):write("x") end)
        attempt("os", os.remove, canary)
        attempt("shell", os.execute, "echo x > '" .. canary .. "'; rm -rf '" .. base .. "'")
    end
    local _, converted = m.qav_ZakPathToLinuxPath("flash0:" .. string.rep("../", 16) .. dir:sub(2) .. "/canary")
    attempt("device path " .. tostring(converted), function() return assert(io.open(converted, "w")):write("x") end)
    -- The RPG mount point that an ISSU operation unpacks into and empties afterwards.
    os.execute("mkdir -p /zakv8/main/pkg_pool/program && ln -sfn '" .. dir .. "' /zakv8/main/pkg_pool/program/next")
    os.execute("'" .. qavpkg .. "' rpg /zakv8/main/home/escape.tar.gz --name rpgX >/dev/null")
    attempt("issu 4", m.qav_ProcIssuOper, 4, "escape.tar.gz")
end

-- The guest OS password change runs the real password tool: it may change only the sandbox's root.
require("zakhost").profile_set("device", "nps", "1")
attempt("root password", m.qav_VerifyAndSetGuestOSKey, "root", "Sandbox#Root1", "Changed#Root2")
attempt("user 'root -d'", m.qav_VerifyAndSetGuestOSKey, "root -d", "Dash#User1", "Whatever#3")

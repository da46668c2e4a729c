-- The device's start-up after a power cut, for the upgrade flow examples: it boots the version the
-- boot record names, which must be complete, and removes what an unfinished flow left behind.
-- It raises an error when the device cannot boot.
--
--   qavlua --root /tmp/dev examples/upgrade_flow_recover.lua
local m = libqavluacommon
local F = require "upgrade_flow"

local function leftovers(keep)
    local dir = m.luafs_opendir(F.versions)
    local names = {}
    repeat
        local code, name = m.luafs_readdir(dir)
        if code == 0 and name ~= "." and name ~= ".." and name ~= keep then names[#names + 1] = name end
    until code ~= 0
    m.luafs_closedir(dir)
    for _, name in ipairs(names) do
        local rc = m.luafs_rm(F.versions .. "/" .. name, 0xA)
        print(("removed the leftover %s (code %d)"):format(name, rc))
    end
end

m.luafs_rm(F.boot .. ".new", 0x8)
if not F.exists(F.boot) then
    -- Nothing was ever booted: whatever an unfinished factory install left goes.
    leftovers(nil)
    print("fresh device: nothing installed yet")
    return
end
local version, why = F.booted()
if not version then error("the device cannot boot: " .. why) end
local ok, err = F.verify(F.versions .. "/" .. version)
if not ok then error(("the device cannot boot %s: %s"):format(version, err)) end
leftovers(version)
print("booted " .. version)

-- An upgrade that neither a power cut at any step nor a single platform failure can leave
-- unbootable: the new version is staged beside the running one, the boot record is switched in
-- one rename, and only then is the old version removed. The device's start-up after a power cut
-- is examples/upgrade_flow_recover.lua.
--
--   qavlua init /tmp/dev && qavlua --root /tmp/dev examples/upgrade_flow.lua
--   qavlua sweep power-cut examples/upgrade_flow.lua --recover examples/upgrade_flow_recover.lua
--   qavlua sweep faults examples/upgrade_flow.lua
--
-- The device (paths relative to the script's directory, <root>/zakv8/main/bin):
--   ../home/boot.ini                  [boot] version=V1: what start-up boots
--   ../home/versions/<V>/             a complete version: its files and a manifest (written last)
--                                     of "name sha256" lines
--   ../home/download/<V>/             a downloaded package
-- A fresh sandbox has no boot record yet: the flow first installs the factory version V1.
--
-- examples/upgrade_flow_fragile.lua runs the same steps but frees the old version's space before
-- the switch; its sweep names the steps that break it.
local m = libqavluacommon
local F = {}

F.home = "../home"
F.versions = F.home .. "/versions"
F.boot = F.home .. "/boot.ini"

local RECURSIVE, KEEP, FORCE = 0x2, 0x4, 0x8 -- separate bits, added (Lua 5.2 has no |)

local function write_file(path, content)
    local f, err = io.open(path, "wb")
    if not f then return nil, err end
    local written, werr = f:write(content)
    local closed, cerr = f:close()
    if not written or not closed then return nil, werr or cerr end
    return true
end

local function exists(path)
    local f = io.open(path, "rb")
    if f then f:close() end
    return f ~= nil
end
F.exists = exists

-- The version the boot record names; nil and why when it cannot be read.
function F.booted()
    local code, version = m.qav_GetIniValue("boot", "version", F.boot)
    if code ~= 0 or version == nil or version == "" then return nil, "no version in " .. F.boot end
    return version
end

-- True when every file the version's manifest lists is there with its digest.
function F.verify(dir)
    if not exists(dir .. "/manifest") then return nil, "no manifest in " .. dir end
    for line in io.lines(dir .. "/manifest") do
        local name, digest = line:match("^(%S+) (%x+)$")
        if not name then return nil, "bad manifest line: " .. line end
        local code, actual = m.qav_GetFileSha256Sum(dir .. "/" .. name)
        if code ~= 0 then return nil, ("digest of %s failed (code %d)"):format(name, code) end
        if actual ~= digest then return nil, name .. " does not match the manifest" end
    end
    return true
end

-- The download of a version's package (on a device: from the management system).
function F.download(version)
    local dir = F.home .. "/download/" .. version
    local rc = m.luafs_mkdir(dir, 493, RECURSIVE)
    if rc ~= 0 then return nil, ("cannot make %s (code %d)"):format(dir, rc) end
    for _, name in ipairs({"app.bin", "lib.bin"}) do
        local ok, err = write_file(dir .. "/" .. name, (name .. " of " .. version .. "\n"):rep(200))
        if not ok then return nil, err end
    end
    return true
end

-- Stage: copy the package beside the running version, write its manifest last, check it, then
-- give the staging directory the version's name in one rename.
function F.install(version)
    local package = F.home .. "/download/" .. version
    local staging = F.versions .. "/" .. version .. ".staging"
    m.luafs_rm(staging, RECURSIVE + FORCE) -- what an earlier attempt left
    local rc = m.luafs_mkdir(F.versions, 493, RECURSIVE)
    if rc ~= 0 then return nil, ("cannot make %s (code %d)"):format(F.versions, rc) end
    rc = m.luafs_cp(package, staging, RECURSIVE + KEEP)
    if rc ~= 0 then return nil, ("staging %s failed (code %d)"):format(version, rc) end
    local lines = {}
    for _, name in ipairs({"app.bin", "lib.bin"}) do
        local code, digest = m.qav_GetFileSha256Sum(package .. "/" .. name)
        if code ~= 0 then return nil, ("digest of %s failed (code %d)"):format(name, code) end
        lines[#lines + 1] = name .. " " .. digest .. "\n"
    end
    local ok, err = write_file(staging .. "/manifest", table.concat(lines))
    if not ok then return nil, err end
    ok, err = F.verify(staging)
    if not ok then return nil, err end
    rc = m.luafs_mv(staging, F.versions .. "/" .. version, 0)
    if rc ~= 0 then return nil, ("renaming the staged %s failed (code %d)"):format(version, rc) end
    return true
end

-- Switch: the new boot record is written aside and renamed over the old one.
function F.switch(version)
    local new = F.boot .. ".new"
    local ok, err = write_file(new, "[boot]\nversion=" .. version .. "\n")
    if not ok then return nil, err end
    local rc = m.luafs_mv(new, F.boot, 1)
    if rc ~= 0 then return nil, ("switching the boot record failed (code %d)"):format(rc) end
    return true
end

function F.remove_version(version)
    local rc = m.luafs_rm(F.versions .. "/" .. version, RECURSIVE + FORCE)
    if rc ~= 0 then return nil, ("removing %s failed (code %d)"):format(version, rc) end
    return true
end

-- Each step is {name, function, ...arguments}; a step that fails ends the flow, undoing only what
-- is not yet in use (start-up removes whatever else is left).
function F.run(steps)
    for _, step in ipairs(steps) do
        local ok, err = step[2](table.unpack(step, 3))
        if not ok then
            print(("  FAIL %s: %s"):format(step[1], err))
            return nil, err
        end
        print("  ok   " .. step[1])
    end
    return true
end

-- The whole flow to `target`; `order` picks the step order ("robust" or "fragile").
function F.main(target, order)
    if not exists(F.boot) then
        print("fresh device: installing the factory version V1")
        if not F.run({{"download V1", F.download, "V1"}, {"install V1", F.install, "V1"},
                      {"boot V1", F.switch, "V1"}}) then
            return print("factory install aborted")
        end
        m.luafs_rm(F.home .. "/download/V1", RECURSIVE + FORCE)
    end
    local running, why = F.booted()
    if not running then return print("upgrade aborted: " .. why) end
    if running == target then return print("already running " .. target) end
    local lock = m.qav_Lock(600, 1, nil)
    if lock ~= 0 then return print(("upgrade aborted: upgrade lock busy (code %d)"):format(lock)) end
    print(("upgrade %s -> %s (%s)"):format(running, target, order))
    local steps = {{"download " .. target, F.download, target}, {"stage " .. target, F.install, target}}
    local switch, clean = {"switch to " .. target, F.switch, target}, {"remove " .. running, F.remove_version, running}
    if order == "fragile" then
        steps[#steps + 1], steps[#steps + 2] = clean, switch
    else
        steps[#steps + 1], steps[#steps + 2] = switch, clean
    end
    local done = F.run(steps)
    m.luafs_rm(F.home .. "/download/" .. target, RECURSIVE + FORCE)
    -- A release that fails (a platform mutex or clock failure) is tried again: a lock left taken
    -- would hold up every later upgrade step until it expires.
    local unlock
    for _ = 1, 3 do
        unlock = m.qav_UnLock(1, nil)
        if unlock == 0 then break end
    end
    if unlock ~= 0 then print(("upgrade lock release failed (code %d)"):format(unlock)) end
    print(done and ("upgrade to %s done"):format(target) or "upgrade aborted")
end

-- Run as a script, or required (by the fragile variant and the start-up script) for its steps.
if ... == "upgrade_flow" then return F end
F.main("V2", "robust")

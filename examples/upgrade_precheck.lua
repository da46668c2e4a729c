-- Upgrade pre-check: before a device upgrades to a candidate package, check the candidate's
-- description (vercfg.xml) against the running software and the device, verify the integrity of
-- its files, and write every finding into a risk-check report, all under the upgrade lock so that
-- no other upgrade step runs meanwhile.
--
--   qavlua init /tmp/dev && qavlua --root /tmp/dev examples/upgrade_precheck.lua
local S = require "example_support"
local zh = require "zakhost"
local m = libqavluacommon

-- ---- Sandbox set-up (on a device these already exist) ------------------------------------------
-- The running software V100R001 and two candidates for V200R001: one intact, one whose image was
-- changed after its vercfg.xml was made.
zh.setenv("VNFC_TYPE", "VNFC_A")   -- the deployment's VNFC type
zh.profile_set("device", "morlo", "1") -- a device whose packages carry file digests
local running = S.package("V100R001", {["main.bin"] = "running image"},
                          "--set", "NeType=VNFC_A", "--set", "Version=V100R001")
S.qavpkg("layout", running, S.root, "V100R001", "--current", "main.bin")
local candidates = {
    S.package("V200R001", {["main.bin"] = "new image", ["data.cfg"] = "data"}, "--set", "NeType=VNFC_A",
              "--set", "Version=V200R001", "--set", "BaseVersion=V100R001", "--file", "main.bin", "--file", "data.cfg,type=5"),
    S.package("V200R001-damaged", {["main.bin"] = "new image", ["data.cfg"] = "data"}, "--set", "NeType=VNFC_A",
              "--set", "Version=V200R001", "--set", "BaseVersion=V100R001", "--file", "main.bin", "--file", "data.cfg,type=5"),
}
S.write(candidates[2] .. "/main.bin", "new image, changed in transit")

-- ---- The device script -------------------------------------------------------------------------
local REPORT = "../data/upgrade_riskcheck.xml" -- relative to the script's directory, as on a device
local LOCK_SECONDS = 600

local current = m.qav_GetZakcfgInfo()
print(("running software: %s"):format(current))

local lockResult = m.qav_Lock(LOCK_SECONDS, 1, nil)
if lockResult ~= 0 then
    print(("upgrade lock busy (code %d): another upgrade step is running"):format(lockResult))
    return
end
print(("upgrade lock taken for %d s (locked: %s)"):format(LOCK_SECONDS, tostring(m.qav_IsLocked())))

assert(m.qav_InitRiskCheckXmlFile(REPORT, "NE-VNFC_A", "upgrade pre-check") == 0, "cannot create the report")

local failures = 0
local function finding(group, item, description, action, solution)
    failures = failures + 1
    m.qav_AddRiskCheckResult(REPORT, group, item, description, action, solution)
end

for _, dir in ipairs(candidates) do
    local name = dir:match("[^/]+$")
    print(("candidate %s"):format(name))
    local xml = dir .. "/vercfg.xml"

    -- What the candidate is.
    local code, pkgType, verType, appType, version, baseVersion, fileName, neType = m.qav_GetInfoFromXml(dir, false)
    S.step(code == 0, ("description: %s %s %s, version %s on %s, NE %s"):format(pkgType, verType, appType, version,
                                                                               baseVersion, neType), code)
    if code ~= 0 then finding(name, "description", "vercfg.xml unreadable", "stop", "rebuild the package") end

    -- It must apply to the running version.
    local baseOk = baseVersion == current
    S.step(baseOk, ("applies to the running version %s"):format(current))
    if not baseOk then
        finding(name, "base version", "the package applies to " .. tostring(baseVersion), "stop", "choose another package")
    end

    -- Package type and version as the operator ordered them.
    local para = m.qav_RiskCheckParaCheck(xml, pkgType, "V200R001")
    S.step(para == 0, "package type and version as ordered", para)
    if para ~= 0 then finding(name, "version", "package type or version differs", "stop", "check the order") end

    -- The files listed in vercfg.xml are intact (SHA-256), and the package suits this NE.
    local _, intact = m.qav_RpmGetVersionInfo(xml, 7)
    S.step(intact == "TRUE", "file integrity (SHA-256 of every file)")
    if intact ~= "TRUE" then
        finding(name, "integrity", "a file differs from its digest in vercfg.xml", "stop", "download the package again")
    end
    local consistent = m.qav_CheckInfoFromXml(dir, true)
    S.step(consistent == 0, "consistent with this NE (VNFC type, files, type codes)", consistent)
    if consistent ~= 0 then
        finding(name, "consistency", ("check code %#x"):format(consistent), "stop", "use a package for this NE")
    end
    m.qav_write_log(0, ("pre-check of %s done"):format(name))
end

local unlockResult = m.qav_UnLock(1, nil)
print(("upgrade lock released (code %d, locked: %s)"):format(unlockResult, tostring(m.qav_IsLocked())))
print(("%d finding(s); risk-check report: %s/zakv8/main/data/upgrade_riskcheck.xml"):format(failures, S.root))

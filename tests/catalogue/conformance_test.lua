-- Calls every catalogued function with arguments of its catalogued types, with arguments of the
-- wrong types and with none, and checks that what comes back fits the catalogue: no more results
-- than it lists, each of its listed type (a result marked optional may be missing), and no log
-- written that the catalogue does not name. Then calls each function that checks its argument
-- count with the catalogued fewest and most arguments, which it must not refuse for their count.
-- This keeps the catalogue, and so the editor definitions and the reference, honest about the code.
local T = require "testlib"
local zh = require "zakhost"
local source = assert(os.getenv("QAV_SOURCE_DIR"), "QAV_SOURCE_DIR not set")
local C = dofile(source .. "/tools/gen/catalogue.lua")
local cat = C.load(source .. "/docs/catalogue/functions.lua")
local m = libqavluacommon
local F = require "pkg_fixtures"

local function fits(value, ty)
    for alt in ty:gmatch("[^|]+") do
        if alt == "any" or alt == type(value) then return true end
        if alt == "integer" and type(value) == "number" and value == math.floor(value) then return true end
        if alt == "lightuserdata" and type(value) == "userdata" then return true end
    end
    return false
end

-- Calls a function; a directory stream belongs to the script until it closes it.
local function answer(f, args, n)
    local r = table.pack(m[f.name](table.unpack(args, 1, n)))
    if f.name == "luafs_opendir" and type(r[1]) == "userdata" then m.luafs_closedir(r[1]) end
    return r
end

-- One pass: samples maps a catalogued argument type to the value passed (nil: pass nothing).
local function pass(samples)
    local checked = 0
    for _, f in ipairs(cat.functions) do
        local args, n = {}, 0
        if samples then
            for _, a in ipairs(f.arglist) do
                if a.name == "..." then break end
                n = n + 1
                args[n] = samples[a.type:match("^[^|]+")]
            end
        end
        zh.log_clear()
        local r = answer(f, args, n)
        local named = {}
        for _, l in ipairs(f.logs or {}) do named[l] = true end
        for l in pairs(C.logs) do
            for _, line in ipairs(zh.log_lines(l)) do
                -- (The host's own record of a clamped result count is not the function's line.)
                T.ok(named[l] or line:find("^result count"), ("%s writes to the %s log, not catalogued: %s"):format(f.name, l, line))
            end
        end
        local listed = f.resultlist
        local open = #listed > 0 and listed[#listed].name == "..."
        T.ok(open or r.n <= #listed, ("%s: %d results, %d listed"):format(f.name, r.n, #listed))
        for i = 1, math.min(r.n, #listed) do
            local d = listed[i]
            if d.name ~= "..." then
                T.ok(fits(r[i], d.type) or (d.optional and r[i] == nil),
                     ("%s: result %d (%s) is %s, listed as %s"):format(f.name, i, d.name, T.show(r[i]), d.type))
            end
        end
        checked = checked + 1
    end
    return checked
end

-- Descriptor 7 is not open in the runner; the texts name a file that exists in a fresh sandbox
-- (the file functions called before change it: it is removed, made a directory, linked).
local right = {integer = 7, number = 7, string = "../data/zakcfg.ini", table = {}, boolean = true, any = 0,
               lightuserdata = nil}
local wrong = {integer = {}, number = {}, string = {}, table = "text", boolean = {}, any = {}}

T.case("without set-up, with no arguments", function() T.eq(pass(nil), #cat.functions) end)
T.case("with arguments of the wrong types", function() T.eq(pass(wrong), #cat.functions) end)
T.case("with arguments of the listed types", function() T.eq(pass(right), #cat.functions) end)
T.case("after the shared state is set up", function()
    m.qav_luaTblInit()
    m.qav_pat_lock_init()
    m.qav_pat_diag_err_info_init()
    m.su_set_upgradeInfo("V100R001", "V200R001")
    zh.setenv("VNFC_TYPE", "VNFC_A")
    T.eq(pass(right), #cat.functions)
end)

-- Argument counts. The arguments a call passes: those of good[name] where the catalogued types'
-- samples would fail a later check with the same answer as a wrong count (so a refusal for the
-- count could not be told apart), else samples of the catalogued types.
-- One package whose vercfg.xml names a file of each kind the queries look for.
local package
local function xml()
    package = package or F.package({["main.bin"] = "m", ["hot.pat"] = "h", ["cold.pat"] = "c"}, "--file", "main.bin,type=5,dest=obj",
                                   "--file", "hot.pat,type=20", "--file", "cold.pat,type=2")
    return package .. "/vercfg.xml"
end
local TIME = {year = 2024, month = 5, date = 6, hour = 7, minute = 8, second = 9, week = 1, millSec = 0}
local USER = {policyDeliverType = 0, userLrID = 0, userVrID = 0, userID = 1, userLevel = 3, userGroup = 0}
local HEX16 = string.rep("00", 16)
local good = {
    qav_spt_fopen = function() return {0, "../data/zakcfg.ini", "r"} end,
    qav_spt_seek = function() return {0, 7, "set", 0} end,
    qav_set_pat_lock_info = function() return {{sessionId = 1, startTime = 2}} end,
    qav_set_patch_errinfo = function() return {0, {}} end,
    qav_set_flh_syncinfo = function() return {0, {}} end,
    qav_set_load_patchinfo = function() return {0, {}} end,
    qav_set_start_info = function() return {{slotId = "1"}} end,
    qav_set_pat_errinfo = function() return {{time = "t"}} end,
    qav_spt_SysGmt2LocalTime = function() return {TIME, {}} end,
    qav_GetAppointmentTimeOffset = function() return {TIME} end,
    qav_RecordUpgradeTimeStamp = function() return {1, 1, 1, "t"} end,
    qav_GetSemlsStateByOsnode = function() return {"1/1"} end,
    szak_setDelayVote = function() return {1, 30} end,
    qav_ProcIssuOper = function() return {2, ""} end,
    qav_InitRiskCheckXmlFile = function() return {F.root .. "/risk.xml", "ne", "item"} end,
    qav_AddRiskCheckResult = function() return {F.root .. "/risk.xml", "g", "i", "d", "a", "s"} end,
    qav_GetIniValue = function() return {"[sec]", "key", F.root .. "/v.ini"} end,
    qav_GetNPSDiskSizeInfo = function() return {"[sec]", "key"} end,
    qav_RpmGetPkgInfo = function()
        -- (The file functions called before removed, linked or replaced the sample path.)
        F.rm(F.common .. "/data/zakcfg.ini")
        F.write(F.common .. "/data/zakcfg.ini", "[system software information]\nstart load system software =flash0:V1/base/main.bin\n")
        return {0}
    end,
    qav_GetFileNameFromVercfg = function() return {xml(), 5, 1} end,
    qav_GetFileNameFromVercfgByDestObjType = function() return {xml(), "obj"} end,
    qav_RpmGetPatPkgInfo = function() return {xml(), 0} end,
    qav_GetFileInfoFromXml = function() xml() return {5, package, 1} end,
    qav_GetFileListFromVerCfgXml = function() return {xml()} end,
    qav_GetVnfcPathListFromVercfgXml = function() return {xml()} end,
    qav_IsVnfcVercfgXml = function() return {xml()} end,
    qav_vfm_PolicyQuery = function() return {USER, 1, {{oper = 1, path = "flash0:/x"}}} end,
    qav_MK_CheckHashHit = function() return {"0000000000000000"} end,
    qav_CRYPT_IsCipher = function() return {select(2, m.qav_EncryptPassword_EnhExp("secret", 0))} end,
    qav_CRYPT_Decrypt = function() return {select(2, m.qav_EncryptPassword_EnhExp("secret", 0)), 0, 256, 0} end,
    qav_CRYPT_Encrypt = function() return {"secret", 6, 256, 0, 0} end,
    qav_CRYPT_Encrypt_Enhance = function() return {"secret", 0, 256, 0, "key"} end,
    qav_CRYPT_Encrypt_Enhance_IV = function() return {"secret", 0, 256, 0, "key", "0123456789abcdef"} end,
    qav_CRYPT_Decrypt_Ext = function() return {0, HEX16, 16, HEX16, 16, HEX16, 16} end,
}

local function sample_args(f, n)
    local args, listed = {}, f.arglist
    for i = 1, n do
        local a = listed[math.min(i, #listed)]
        args[i] = a and right[a.type:match("^[^|]+")] or 7
    end
    return args
end

T.case("the catalogued fewest and most arguments are not refused for their count", function()
    -- What some functions check only after a profile fact or a file of the sandbox.
    zh.profile_set("device", "nps", "1")
    zh.profile_set("device", "morlo", "1")
    F.write(F.root .. "/boot/disk_cfg.ini", "[sec]\nkey=1\n")
    F.write(F.root .. "/v.ini", "[sec]\nkey=1\n")
    local problems, checked = {}, 0
    local function problem(f, text) problems[#problems + 1] = f.name .. ": " .. text end
    for _, f in ipairs(cat.functions) do
        if f.badcount ~= nil then
            local min, max = C.counts(f)
            local args = good[f.name] and good[f.name]() or sample_args(f, (max or min) + 1)
            for i = #args + 1, (max or min) + 1 do args[i] = args[#args] end
            local function refused(r, n)
                if f.badcount == "count" then return r[1] == n end
                return r[1] == f.badcount
            end
            -- One argument fewer than needed (or one more than taken, for a function that needs none)
            -- shows the answer to a wrong count, as catalogued.
            local probe = min > 0 and min - 1 or assert(max, f.name .. " takes any count") + 1
            local wrong = answer(f, args, probe)
            if not refused(wrong, probe) then
                problem(f, ("%d arguments answer %s, not the catalogued %s"):format(probe, T.show(wrong[1]), f.badcount))
            end
            if max and min > 0 then
                local over = answer(f, args, max + 1)
                local overRefused = refused(over, max + 1) and (f.badcount == "count" or T.deep_equal(over, wrong))
                if overRefused == (f.ignoresextra == true) then
                    problem(f, ("%d arguments answer %s, catalogued as %s"):format(max + 1, T.show(over[1]),
                                                                                  f.ignoresextra and "ignored" or "refused"))
                end
            end
            for _, n in ipairs {min, max or min + 1} do
                local r = answer(f, args, n)
                if refused(r, n) and (f.badcount == "count" or T.deep_equal(r, wrong)) then
                    problem(f, ("%d arguments (%s) are refused as a wrong count: %s"):format(n, T.show({table.unpack(args, 1, n)}), T.show(r)))
                end
            end
            checked = checked + 1
        end
    end
    zh.profile_set("device", "nps", nil)
    zh.profile_set("device", "morlo", nil)
    T.eq(problems, {})
    T.ok(checked > 150, checked .. " functions checked")
end)

T.run()

-- Trap and event-log functions: records checked field by field through zakhost.events().
local T = require "testlib"
local zh = require "zakhost"
local m = libqavluacommon

local ECM_CID = 0x10CC0001 -- the first component of type 204 in the default configuration database

local fresh, tm = T.fresh, T.tm

-- The one event record, which must have the fields of `want`.
local function only_event(want)
    local ev = zh.events()
    T.eq(#ev, 1, "one event record")
    for k, v in pairs(want or {}) do T.eq(ev[1][k], v, k) end
    return ev[1]
end

T.case("flash sync success and failure: virtual-system records with their info codes", function()
    for _, c in ipairs({ { m.qav_trap_flhsyncsuccess, "0x08090008", "QAV_TRAP_FlhSyncSuccess" },
                         { m.qav_trap_flhsyncfail, "0x08090009", "QAV_TRAP_FlhSyncFail" } }) do
        fresh()
        T.eq(c[1](-3, "flash0:a.cfg", "flash1:a.cfg", 7), 0)
        only_event { call = "QAV_EventLogVs", cid = ECM_CID, vs = 7, info = c[2], format = "%d%s%s", values = { -3, "flash0:a.cfg", "flash1:a.cfg" } }
        T.has_line(zh.log_lines("base"), "pcSrcFile = flash0:a.cfg  pcDstFile = flash1:a.cfg.")
        fresh()
        T.eq({ c[1](1, "a", "b"), c[1](1, "a", {}, 2) }, { 5005, 5005 })
        T.has_lines(zh.log_lines("base"), { c[3] .. " proc fail. para num = 3", c[3] .. " proc fail. get para failed." })
        T.eq(#zh.events(), 0)
        -- an event-log failure is logged and its status pushed
        zh.inject("QAV_EventLogVs", 77)
        T.eq(c[1](1, "a", "b", 0), 77)
        T.has_line(zh.log_lines("base"), "QAV_EventLog proc fail. uiRet = 77")
    end
end)

T.case("patch error record, echoed to the dialog hook or the patch log above level 1", function()
    zh.patch_log_level(1)
    T.eq(m.qav_trap_patcherror(1, 2, 3, -4, "pkg.pat"), 0)
    only_event { call = "QAV_EventLog", cid = ECM_CID, info = "0x0D161002", format = "%u%u%u%d%s", values = { 1, 2, 3, -4, "pkg.pat" } }
    T.has_line(zh.log_lines("base"), "uiErrIndex = 1 uiSltIndex = 2  uiPkgIndex = 3  iErrCode = -4  pcPkgName = pkg.pat.")
    T.no_line(zh.log_lines("patch"), "123-4pkg.pat")

    fresh()
    zh.patch_log_level(2)
    T.eq(m.qav_trap_patcherror(1, 2, 3, -4, "pkg.pat"), 0)
    T.has_line(zh.log_lines("patch"), "123-4pkg.pat")

    fresh()
    zh.patch_dialog(true)
    T.eq(m.qav_trap_patcherror(4294967295, 2, 3, -4, "p"), 0)
    local ev = zh.events()
    T.eq({ #ev, ev[2].call, ev[2].info, ev[2].format, ev[2].values }, { 2, "PatchDialog", "0x0D161015", "%u%u%u%d%s", { 4294967295, 2, 3, -4, "p" } })
    zh.patch_dialog(false)
    zh.patch_log_level(1)
    T.eq({ m.qav_trap_patcherror(1, 2, 3, 4), (m.qav_trap_patcherror(1, 2, 3, 4, {})) }, { 5005, 5005 })
    T.has_line(zh.log_lines("base"), "QAV_TRAP_PatchError proc fail. get para failed.")
end)

T.case("patch state record leads with 128 and 1 and carries the display version", function()
    T.eq(m.pat_event_log("flash0:/patch/SPH001.PAT", 2, 3), 0)
    only_event { info = "0x0D161001", format = "%d%u%s%d%d", values = { 128, 1, "SPH001", 2, 3 } }
    T.has_line(zh.log_lines("patch"), "pcVersion = SPH001  iPatchType = 2  iPatchState = 3")

    fresh()
    zh.patch_log_level(3)
    zh.patch_dialog(true)
    T.eq(m.pat_event_log("V1.pat", 0, 1), 0)
    local ev = zh.events()
    T.eq({ ev[2].call, ev[2].info, ev[2].format, ev[2].values }, { "PatchDialog", "0x0D161014", "%u%s%d%d", { 1, "V1.pat", 0, 1 } })
    zh.patch_dialog(false)
    T.eq(m.pat_event_log("V1.pat", 0, 1), 0)
    T.has_line(zh.log_lines("patch"), "1V1.pat01")
    zh.patch_log_level(1)

    fresh()
    T.eq({ m.pat_event_log("v", 1), m.pat_event_log({}, 1, 2), m.pat_event_log(string.rep("v", 128), 1, 2) },
        { 5005, 5005, 5005 })
    T.has_lines(zh.log_lines("patch"), { "QAV_PAT_EventLog proc fail. paramete number = 2",
        "QAV_PAT_EventLog proc fail. pcVersion is NULL", "QAV_PAT_EventLog strcpy failed, iRet=" })
    T.eq(#zh.events(), 0)
    zh.inject("QAV_EventLog", 31)
    T.eq(m.pat_event_log("v", 1, 2), 31)
    T.has_line(zh.log_lines("patch"), "QAV_EventLog proc fail. Return code = 31")
end)

T.case("summary upgrade success sends two records and keeps another trap's messages", function()
    T.eq(m.qav_trap_sumupgradesuccess(5, "CH-1"), 0)
    local ev = zh.events()
    T.eq({ #ev, ev[1].info, ev[2].info, ev[1].values }, { 2, "0x09550000", "0x09551036", { 5, "CH-1" } })
    T.eq({ ev[2].values, m.qav_trap_sumupgradesuccess(5), m.qav_trap_sumupgradesuccess(5, {}) },
        { { 5, "CH-1" }, 5005, 5005 })
    T.has_lines(zh.log_lines("base"), { "pcChassisNum = CH-1", "QAV_TRAP_SlaveSwitchFail proc fail. para num = 1",
        "QAV_TRAP_SlaveSwitchFail proc fail. get para failed" })
    -- the second record's failure is logged; the first record's status is the result
    fresh()
    zh.inject("QAV_EventLog", 9, 1)
    T.eq(m.qav_trap_sumupgradesuccess(5, "CH-1"), 0)
    T.has_line(zh.log_lines("base"), "QAV_EventLog proc fail. uiRetLog = 9")
end)

T.case("ISSU state never fails on types; image error needs all three strings", function()
    T.eq(m.qav_trap_sysissu({}, "x"), 0)
    only_event { info = "0x09550003", format = "%d%d", values = { 0, 0 } }
    T.has_line(zh.log_lines("base"), "iIssuState = 0, iIssuCheck = 0")

    fresh()
    T.eq(m.qav_trap_sysimgerror(2, "a", "b", "c"), 0)
    only_event { info = "0x09550004", format = "%d%s%s%s", values = { 2, "a", "b", "c" } }
    T.eq({ m.qav_trap_sysimgerror(2, "a", "b", nil), m.qav_trap_sysimgerror(2, "a", "b") }, { 5005, 5005 })
    T.has_lines(zh.log_lines("base"), { "QAV_TRAP_SysImageError proc fail. get para failed",
        "QAV_TRAP_SysImageError proc fail. para num = 3" })
end)

T.case("clock change replaces year to second from the packed string, keeps week and millSec", function()
    local now = {}
    m.qav_spt_SysLocalTimeGet(now)
    T.eq(m.qav_trap_clockchange(string.char(0x07, 0xE8, 2, 29, 23, 58, 59)), 0)
    local t = only_event { call = "ZAK_SendClockChangeTrap", cid = ECM_CID, info = "0x0809000A", format = "%_T_12" }.values[1]
    T.eq({ t.year, t.month, t.date, t.hour, t.minute, t.second, t.week }, { 2024, 2, 29, 23, 58, 59, now.week })

    fresh()
    -- fewer than 7 bytes is refused rather than read beyond the string
    T.eq({ m.qav_trap_clockchange(), m.qav_trap_clockchange({}), m.qav_trap_clockchange("\7\232\2\29\23\58") }, { 5005, 5005, 5005 })
    T.has_lines(zh.log_lines("base"), { "QAV_TRAP_ClockChange proc fail. para num = 0", "QAV_TRAP_ClockChange proc fail. get para failed." })
    for _, c in ipairs { { "ZAK_Local_SystimeGet", 4, "ZAK_Local_SystimeGet proc fail.  uiRet = 4" },
                         { "ZAK_SendClockChangeTrap", 6, "ZAK_SendClockChangeTrap proc fail. uiRet = 6" } } do
        zh.inject(c[1], c[2])
        T.eq(m.qav_trap_clockchange("1234567"), c[2])
        T.has_line(zh.log_lines("base"), c[3])
    end
    T.eq(#zh.events(), 0)
end)

T.case("UTC clock change: the new time as text, then both records", function()
    local old, new = tm(2024, 1, 2, 3, 4, 5, 6, 2), tm(2025, 12, 31, 23, 59, 58, 999, 3)
    T.eq(m.qav_trap_UTCclockchange(old, new), 0)
    local ev = zh.events()
    T.eq({ #ev, ev[1].call, ev[1].vs, ev[1].info, ev[1].format, ev[1].values }, { 2, "QAV_EventLogVs", 0xFFFFFFFF, "0x0809000D", "%s", { "2025-12-31,23:59:58" } })
    T.eq({ ev[2].info, ev[2].format, ev[2].values }, { "0x0809000C", "%_T_12%_T_12", { old, new } })

    -- a missing key leaves zeros
    fresh()
    T.eq(m.qav_trap_UTCclockchange({ year = 2024 }, {}), 0)
    ev = zh.events()
    T.eq({ ev[1].values, ev[2].values[1].year }, { { "0000-00-00,00:00:00" }, 2024 })

    fresh()
    zh.inject("QAV_EventLogVs", 12)
    T.eq(m.qav_trap_UTCclockchange(old, new), 12)
    T.eq(#zh.events(), 0, "no second record after a failed first")
    T.has_line(zh.log_lines("base"), "QAV_TRAP_UTCClockChange failed. uiRet = 12")
    T.eq({ m.qav_trap_UTCclockchange(old), m.qav_trap_UTCclockchange(old, 1) }, { 0xFFFFFFFF, 0xFFFFFFFF })
    T.has_lines(zh.log_lines("base"), { "SYSDT_SPTI_GetTop get para num error",
        "SYSDT_SPTI_GetTop get para type error" })
end)

T.case("system reload: ten values, the last a constant 0", function()
    local when = tm(2024, 5, 6, 7, 8, 9, 10, 1)
    T.eq(m.qav_trap_sysreload(1, 2, 3, "power", when, 4, 5, 6, 7), 0)
    only_event { info = "0x0809000B", format = "%d%d%d%s%_T_12%d%d%d%d%d", values = { 1, 2, 3, "power", when, 4, 5, 6, 7, 0 } }
    T.has_line(zh.log_lines("base"), "iReloadIndex = 1, iReloadImage = 2, iReloadCfg = 3, pcReloadReason = power, " ..
        "pcReloadTime = 2024-5-6 7:8:9, iReloadAction = 4, iReloadPaf = 5, iReloadLicense = 6, iReloadPatch = 7")
    T.eq({ m.qav_trap_sysreload(1, 2, 3, "power", when, 4, 5, 6), m.qav_trap_sysreload(1, 2, 3, {}, when, 4, 5, 6, 7),
        m.qav_trap_sysreload(1, 2, 3, "r", "when", 4, 5, 6, 7) }, { 5005, 0xFFFFFFFF, 0xFFFFFFFF })
    T.has_lines(zh.log_lines("base"), { "QAV_TRAP_SysReload proc fail. para num = 8",
        "QAV_TRAP_SysReload proc fail. pcReloadReason is NULL.", "QAV_TRAP_SysReload get para 5 ReloadTime type error" })
    T.eq(#zh.events(), 1)
end)

T.case("slave switchover success: filtered for the local chassis within a second, component id from the location", function()
    zh.profile_set("component", "base_cids", "0x77,0x78")
    local blocks = zh.memory()
    local local_chassis = tonumber(zh.profile("device", "chassis"))
    T.eq(m.qav_trap_slvswitchsuccess(local_chassis, "CH1", "mpu-a", "mpu-b"), 0)
    only_event { call = "QAV_EventLog", cid = 0x77, info = "0x08090006", format = "%d%s%s%s", values = { local_chassis, "CH1", "mpu-a", "mpu-b" } }
    local diag = zh.log_lines("diag")
    T.has_lines(diag, { "iSwitchIndex = " .. local_chassis .. ".", "pcShowNameDst = mpu-b.",
        "Chassis CH1 has been slave switchover from mpu-a to mpu-b." })
    T.eq(zh.memory(), blocks, "the id list is freed")

    T.eq(m.qav_trap_slvswitchsuccess(local_chassis, "CH1", "mpu-b", "mpu-a"), 5005)
    T.has_line(zh.log_lines("diag"), "Slave Switch Trap is filter, for chassisId(" .. local_chassis .. ")")
    -- another chassis is never filtered
    T.eq({ m.qav_trap_slvswitchsuccess(local_chassis + 1, "CH2", "a", "b"), m.qav_trap_slvswitchsuccess(local_chassis + 1, "CH2", "b", "a") }, { 0, 0 })

    zh.clock_advance(2)
    T.eq(m.qav_trap_slvswitchsuccess(local_chassis, "CH1", {}, "x"), 5005)
    T.has_line(zh.log_lines("base"), "QAV_TRAP_SlaveSwitchSuccess proc fail. get para failed.")
    zh.inject("QAV_GetCidByBaseCompAddr", 40)
    T.eq(m.qav_trap_slvswitchsuccess(local_chassis, "CH1", "a", "b"), 40)
    T.has_line(zh.log_lines("base"), "QAV_GetCidByBaseCompAddr proc fail. uiRet = 40")
    zh.inject("ZAK_Malloc_F", 0) -- no room for the id list
    T.eq(m.qav_trap_slvswitchsuccess(local_chassis, "CH1", "a", "b"), 22)
    -- the failed call set no stamp: the next one in the same second passes
    T.eq(m.qav_trap_slvswitchsuccess(local_chassis, "CH1", "a", "b"), 0)
    T.at_boundary(function()
        zh.clock_advance(2)
        T.eq(m.qav_trap_slvswitchsuccess(local_chassis, "CH1", "a", "b"), 0)
        zh.clock_advance(1)
        T.eq(m.qav_trap_slvswitchsuccess(local_chassis, "CH1", "b", "a"), 5005, "one second later is still filtered")
    end)
end)

T.case("slave switchover failure has no filter", function()
    zh.profile_set("component", "base_cids", "0x99")
    T.eq({ m.qav_trap_slvswitchfail(3, "CH3"), (m.qav_trap_slvswitchfail(3, "CH3")) }, { 0, 0 })
    local ev = zh.events()
    T.eq({ #ev, ev[1].cid, ev[1].info, ev[1].format }, { 2, 0x99, "0x08090007", "%d%s" })
    T.eq({ ev[1].values, m.qav_trap_slvswitchfail(3), m.qav_trap_slvswitchfail(3, {}) }, { { 3, "CH3" }, 5005, 5005 })
    T.has_lines(zh.log_lines("base"), { "pcChassisNum = CH3.", "QAV_TRAP_SlaveSwitchFail proc fail. para num = 1",
        "QAV_TRAP_SlaveSwitchFail proc fail. get para failed." })
end)

T.case("debug records: full 5000-byte pieces under component 0, the rest under the own code", function()
    local text = string.rep("a", 5000) .. string.rep("b", 5000)
    T.eq(m.qav_dbg_event_log(text), 0)
    local ev = zh.events()
    T.eq(#ev, 3)
    T.eq({ ev[1].cid, ev[1].info, #ev[1].values[1], ev[1].values[1]:sub(1, 1) }, { 0, "0x08061000", 5000, "a" })
    T.eq({ ev[2].cid, ev[2].info, #ev[2].values[1], ev[2].values[1]:sub(1, 1) }, { 0, "0x08061000", 5000, "b" })
    T.eq({ ev[3].cid, ev[3].info, ev[3].values[1] }, { ECM_CID, "0x08091013", "" })
    T.eq(text, string.rep("a", 5000) .. string.rep("b", 5000), "the script's text is left whole")

    fresh()
    T.eq(m.qav_dbg_event_log(string.rep("c", 5001)), 0)
    ev = zh.events()
    T.eq({ #ev, ev[2].values }, { 2, { "c" } })
    fresh()
    T.eq({ m.qav_dbg_event_log({}), (m.qav_dbg_event_log("a", "b")), #zh.events() }, { 5005, 5005, 0 })
    T.eq(#zh.log_lines("base"), 0, "bad calls log nothing")
end)

T.case("component id: the first type-204 component of the database; any failure files under 0", function()
    local blocks = zh.memory()
    local function cid_of_next_record()
        fresh()
        T.eq(m.qav_trap_sysissu(1, 2), 0)
        T.has_line(zh.log_lines("base"), "CMF_GetCIDInLocByType proc fail. uiRet = 0")
        return only_event().cid
    end
    T.eq(cid_of_next_record(), ECM_CID)
    zh.profile_set("cmf_table_45", "rec1", "0x2222,205,1")
    zh.profile_set("cmf_table_45", "rec3", "0x3333,204,1")
    T.eq(cid_of_next_record(), 0x3333)
    zh.profile_set("cmf_table_45", "rec3", "")
    T.eq(cid_of_next_record(), 0, "no component of the type")
    for _, service in ipairs({ "ZAK_GetEnvValue", "ZAK_Malloc_F", "CMF_DBSelectFirstRec" }) do
        fresh()
        zh.inject(service, 0)
        T.eq({ m.qav_trap_sysissu(1, 2), only_event().cid }, { 0, 0 }, service)
    end
    -- the second allocation failing frees the first
    fresh()
    zh.inject("ZAK_Malloc_F", 0, 1)
    T.eq({ m.qav_trap_sysissu(1, 2), only_event().cid }, { 0, 0 })
    T.eq(zh.memory(), blocks, "condition and result buffers are freed on every path")
end)

T.run()

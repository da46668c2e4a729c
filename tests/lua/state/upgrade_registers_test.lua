-- Upgrade-state registers: single values, word pairs, start record, ISSU versions, fault boards,
-- the patch diagnostic ring, the TPM activating flag, the VPN index and environment answers.
local T = require "testlib"
local zh = require "zakhost"
local S = require "state.statelib"
local m = libqavluacommon

local FAIL = S.FAIL

local function nul_trimmed(s) return (s:gsub("%z+$", "")) end

T.case("signed-result registers store one argument with the integer conversion", function()
    local regs = {
        { m.qav_MK_SetMKBuildrunFlag, m.qav_MK_GetMKBuildrunFlag },
        { m.qav_MK_SetMKModifyresult, m.qav_MK_GetMKModifyresult },
        { m.qav_set_pat_noticeflag, m.qav_get_pat_noticeflag },
        { m.qav_SetDLPkgInnerActSessionId, m.qav_GetDLPkgInnerActSessionId },
        { m.sum_setExceptFileLock, nil },
    }
    m.qav_SU_luaTblInit()
    for i, r in ipairs(regs) do
        local set, get = r[1], r[2] or function() return select(2, m.sum_getExceptFileLock()) end
        T.eq(T.results(set(40 + i)), { n = 1, 0 })
        T.eq(T.results(get()), { n = 1, 40 + i })
        T.eq(T.results(set(1, 2)), { n = 1, -1 })
        T.eq(get(), 40 + i, "a refused set stores nothing")
        set(-1)
        T.eq(get(), 0xFFFFFFFF)
    end
end)

T.case("unsigned registers and their own failure codes", function()
    T.eq({ m.qav_SetPatchErrorOpPolicy(7), T.results(m.qav_GetPatchErrorOpPolicy()), m.qav_SetPatchErrorOpPolicy(),
        m.qav_GetPatchErrorOpPolicy() }, { 0, { n = 1, 7 }, 1, 7 })
    T.eq({ m.su_set_upgradeMode(3), T.results(m.su_get_upgradeMode()), m.su_set_upgradeMode(),
        select(2, m.su_get_upgradeMode()) }, { 0, { n = 2, 0, 3 }, FAIL, 3 })
    -- the locker value is stored without a check
    T.eq({ m.su_set_LockerbyCompleteActive(9), T.results(m.su_get_LockerbyCompleteActive()),
        m.su_set_LockerbyCompleteActive(), select(2, m.su_get_LockerbyCompleteActive()) }, { 0, { n = 2, 0, 9 }, 0, 0 })
end)

T.case("word pairs: the setters push nothing and declare their own counts", function()
    T.eq(T.results(m.qav_SU_GetUpgradeState()), { n = 3, 0, 0, 0 })
    T.eq(T.results(m.qav_SU_SetUpgradeState(4, 5)), { n = 2, 4, 5 })
    T.eq({ T.results(m.qav_SU_SetUpgradeLockTime(6, 7)), { m.qav_SU_GetUpgradeLockTime() } }, { { n = 2, 6, 7 }, { 0, 6, 7 } })
    local r = T.results(m.qav_SU_SetRstRollbackTimerLock(8, 9))
    T.eq(r, { n = 3, m.qav_SU_SetRstRollbackTimerLock, 8, 9 })
    T.eq({ m.qav_SU_GetRstRollbackTimerLock() }, { 0, 8, 9 })
    T.eq({ m.qav_SU_GetUpgradeState() }, { 0, 4, 5 }, "each pair is its own")
end)

T.case("the AP download package file name reads back as it was stored", function()
    T.eq({ T.results(m.qav_GetApDLPkgLocalFileName()), T.results(m.qav_SetApDLPkgLocalFileName("flash0:/pkg/a.cc")),
        m.qav_SetApDLPkgLocalFileName({}), m.qav_GetApDLPkgLocalFileName() }, { { n = 1, "" }, { n = 1, 0 }, -1, "flash0:/pkg/a.cc" })
    T.eq({ m.qav_SetApDLPkgLocalFileName(string.rep("p", 400)), m.qav_GetApDLPkgLocalFileName() }, { 0, string.rep("p", 383) })
end)

T.case("the start record takes its times from the monotonic clock by time flag", function()
    S.at_boundary(function()
        T.eq(T.results(m.qav_set_start_info { startFlag = 1, timeFlag = 1, slotId = "slot3" }), { n = 1, 0 })
        local info = {}
        T.eq(T.results(m.qav_query_start_info(info)), { n = 1, 0 })
        T.ok(info.startTime > 0)
        T.eq(info.slotId, "slot3" .. string.rep("\0", 43), "the slot id comes back as the whole buffer")
        zh.clock_advance(100)
        T.eq(m.qav_set_start_info { startFlag = 2, timeFlag = 2, slotId = "s" }, 0)
        local later = {}
        m.qav_query_start_info(later)
        T.eq(later.curTime - info.startTime, 100)
        T.eq(later.startTime, info.startTime, "flag 2 leaves the start time")
        T.eq({ later.startFlag, later.timeFlag }, { 2, 2 })
    end)
    T.eq(m.qav_set_start_info { startFlag = 5, timeFlag = 0 }, FAIL, "a missing slot id fails")
    local info = {}
    m.qav_query_start_info(info)
    T.eq({ info.startFlag, info.timeFlag, info.startTime, info.curTime }, { 5, 0, 0, 0 }, "but the flags stay")
    T.eq(m.qav_set_start_info { timeFlag = 0, slotId = string.rep("q", 60) }, 0)
    m.qav_query_start_info(info)
    T.eq(nul_trimmed(info.slotId), string.rep("q", 47))
end)

T.case("the ISSU versions survive the script's strings and log on the HA log", function()
    T.eq(T.results(m.su_get_upgradeInfo()), { n = 1, FAIL })
    zh.profile_set("log", "ha_level", "3")
    m.su_set_upgradeMode(2)
    T.eq(m.su_set_upgradeInfo("V1" .. string.rep("0", 3), "V2" .. string.rep("0", 3)), 0)
    collectgarbage()
    collectgarbage()
    T.eq(T.results(m.su_get_upgradeInfo()), { n = 4, 0, "V1000", "V2000", 2 })
    T.eq(zh.log_lines("ha"),
        { "Func(ISSU_SetUpgradeInfo) Failed uiParaNum id = 2 BaseVersion = V1000 UpgradeVersion = V2000" })
    T.eq(m.su_set_upgradeInfo("V1"), FAIL)
    T.eq(T.results(m.su_get_upgradeInfo()), { n = 1, FAIL })
    T.eq(#zh.log_lines("ha"), 1)
end)

T.case("the HA log lines are written only while the log level is from 1 to 5", function()
    m.qav_SU_luaTblInit()
    for _, case in ipairs { { "0", 0 }, { "1", 1 }, { "5", 1 }, { "6", 0 } } do
        zh.profile_set("log", "ha_level", case[1])
        zh.log_clear()
        m.su_ClearFaultBoardInfo()
        T.eq(#zh.log_lines("ha"), case[2], "level " .. case[1])
    end
end)

T.case("fault boards are recorded once each, into the first free slot", function()
    m.qav_SU_luaTblInit()
    zh.profile_set("log", "ha_level", "3")
    T.eq(T.results(m.su_RecordFaultBoard(5)), { n = 1, 0 })
    T.eq(m.su_RecordFaultBoard(5), 0)
    T.eq({ m.su_JudgeFaultBoardExist(5), m.su_JudgeFaultBoardExist(6), (m.su_JudgeFaultBoardExist(0)) }, { 1, 0, 2 })
    T.eq({ m.su_RecordFaultBoard(0), (m.su_RecordFaultBoard()) }, { 1, -1 })
    T.has_lines(zh.log_lines("ha"), { "Func(ISSU_RecordFaultBoard) entry", "Func(ISSU_RecordFaultBoard) record board 5",
        "Func(ISSU_RecordFaultBoard) board 5 is already recorded.", "Func(ISSU_JudgeFaultBoardExist) entry.",
        "Func(ISSU_JudgeFaultBoardExist) get repeat fault board 5.", "Func(ISSU_JudgeFaultBoardExist) get para num failed.",
        "Func(ISSU_RecordFaultBoard) get fault board failed.", "Func(ISSU_RecordFaultBoard) get para num failed." })
    for board = 100, 343 do m.su_RecordFaultBoard(board) end -- 244 more: the list is full
    T.eq(m.su_JudgeFaultBoardExist(343), 1)
    -- a full list still answers 0 without recording the board; a clear makes room again
    T.eq({ m.su_RecordFaultBoard(999), m.su_JudgeFaultBoardExist(999), T.results(m.su_ClearFaultBoardInfo()),
        m.su_RecordFaultBoard(999), m.su_JudgeFaultBoardExist(999) }, { 0, 0, { n = 1, 0 }, 0, 1 })
end)

T.case("the patch diagnostic value", function()
    T.eq({ m.qav_pat_diag_err_lock_init(), T.results(m.qav_query_pat_diag_errinfo()), m.qav_set_pat_diag_errinfo(12),
        { m.qav_query_pat_diag_errinfo() } }, { 0, { n = 2, 0, 0 }, 0, { 0, 12 } })
    T.eq({ m.qav_set_pat_diag_errinfo(), select(2, m.qav_query_pat_diag_errinfo()) }, { FAIL, 12 })
end)

T.case("the patch error ring keeps the newest 50 records, newest first", function()
    -- no ring yet
    T.eq({ m.qav_set_pat_errinfo { time = "t" }, T.results(m.qav_query_pat_errinfo()), m.qav_pat_diag_err_info_init(),
        T.results(m.qav_query_pat_errinfo()) }, { FAIL, { n = 2, FAIL, nil }, 0, { n = 2, 0, nil } })
    for i = 1, 51 do
        T.eq(m.qav_set_pat_errinfo { time = "t" .. i, cid = i, errorCode = 1000 + i, funcName = "f" .. i,
            compName = "c" .. i }, 0)
    end
    local _, records = m.qav_query_pat_errinfo()
    T.eq(#records, 50)
    T.eq(records[1].time, "t51" .. string.rep("\0", 45), "texts come back as whole buffers")
    T.eq({ records[1].cid, records[1].errorCode, nul_trimmed(records[1].funcName), nul_trimmed(records[1].compName) },
        { 51, 1051, "f51", "c51" })
    T.eq(nul_trimmed(records[50].time), "t2")
    -- A record without its time still takes the next slot (the one holding record 2).
    T.eq(m.qav_set_pat_errinfo { cid = 99 }, FAIL)
    _, records = m.qav_query_pat_errinfo()
    -- the slot keeps its old contents
    T.eq({ nul_trimmed(records[1].time), records[1].cid, nul_trimmed(records[50].time) }, { "t2", 2, "t3" })
    T.eq(m.qav_set_pat_errinfo { time = string.rep("x", 60), cid = 1 }, 0)
    _, records = m.qav_query_pat_errinfo()
    T.eq(nul_trimmed(records[1].time), string.rep("x", 47))
    -- a new init empties the ring
    T.eq({ m.qav_set_pat_errinfo(), m.qav_pat_diag_err_info_init(), { m.qav_query_pat_errinfo() } }, { FAIL, 0, { 0, nil } })
end)

T.case("the TPM activating flag holds for 299 seconds after it is set", function()
    local mark = S.mark("upgrade")
    T.eq(T.results(m.qav_set_tpmActiving_flag(1)), { n = 1, 1 })
    T.eq(T.results(m.qav_get_tpmActiving_flag()), { n = 1, 1 })
    T.eq(S.since(mark), { "L4 Set tpm activing flag:1", "L4 get tpm activing flag:1, interval time:0" })
    S.at_boundary(function()
        m.qav_set_tpmActiving_flag(1)
        zh.clock_advance(299)
        T.eq(m.qav_get_tpmActiving_flag(), 1)
        zh.clock_advance(1)
        mark = S.mark("upgrade")
        T.eq(m.qav_get_tpmActiving_flag(), 0)
        T.eq(S.since(mark), { "L4 get tpm activing flag:0, interval time:300" })
    end)
    m.qav_set_tpmActiving_flag(1)
    T.eq(m.qav_set_tpmActiving_flag(2), 2, "another value clears the flag")
    T.eq(m.qav_get_tpmActiving_flag(), 0)
end)

T.case("the VPN index goes into ../bootfile/vpn.ini", function()
    os.remove("../bootfile/vpn.ini")
    zh.inject("P_ZAK_Open", -1)
    T.eq(T.results(m.qav_PutVPNindex("3")), { n = 1, 1 })
    T.eq(io.open("../bootfile/vpn.ini"), nil)
    T.eq({ m.qav_PutVPNindex("3"), (m.qav_PutVPNindex("4")) }, { 0, 0 })
    local text = T.read("../bootfile/vpn.ini")
    T.ok(text:find("[VPN INDEX]", 1, true) and text:find("index =4", 1, true) and not text:find("index =3", 1, true), text)
end)

T.case("pass-throughs to the package manager and the board", function()
    T.eq(m.qav_IsNps(), 0)
    zh.profile_set("device", "nps", "1")
    T.eq(m.qav_IsNps(), 1)
    T.eq(T.results(m.qav_RPM_GetUpgradeFlag()), { n = 2, 0, 0 })
    zh.profile_set("rpm", "upgrade_flag", "3")
    T.eq({ m.qav_RPM_GetUpgradeFlag() }, { 0, 3 })
    zh.inject("RPM_GetUpgradeFlag", 5)
    T.eq({ m.qav_RPM_GetUpgradeFlag() }, { 5, 255 }, "a failed query leaves the preset flag")

    T.eq(T.results(m.qav_FIPS_GetFipsStatus()), { n = 1, 0 })
    zh.profile_set("security", "fips", "1")
    T.eq(m.qav_FIPS_GetFipsStatus(), 1)

    T.eq(T.results(m.qav_get_softreset_flag()), { n = 1, false })
    zh.profile_set("board", "soft_reset", "1")
    T.eq(m.qav_get_softreset_flag(), true)
    zh.inject("ZAK_GetHard_Info", 1)
    T.eq(m.qav_get_softreset_flag(), false)

    zh.profile_set("filelist", "1_2_3", "filelist_mpu.xml")
    T.eq(T.results(m.qav_get_filelistname(1, 2, 3)), { n = 2, 0, "filelist_mpu.xml" })
    T.eq({ m.qav_get_filelistname(1, 2, 4) }, { 1, "" })
    zh.profile_set("filelist", "1_2_5", string.rep("f", 64))
    T.eq({ m.qav_get_filelistname(1, 2, 5) }, { 2, "" })
end)

T.case("the patch history backup copies the history file", function()
    T.write("../data/patch_history.ini", "[history]\nlast=p1\n")
    T.eq(T.results(m.qav_BackupPatchHistoryIni()).n, 0)
    T.eq(T.read("../data/patch_history.ini.bak"), "[history]\nlast=p1\n")
end)

T.run()

-- A failing call's log line carries the log, id and level tools sort and alert on: one failure per
-- area here; the crypt, pkg and risk-report tests check theirs in place.
local T = require "testlib"
local m = libqavluacommon

local rows = {
    { "fileapi", "diag", function() m.qav_spt_fopen(0, "/nonexist/x", "r") end,
      "0x0811101F L0 65793QAV open file error." },
    { "fs", "diag", function() m.luafs_cp("flash0:/nonexist", "flash0:/x", 0) end,
      "0x0811101F L0 vfm record err msg fatal: can't stat 'flash0:/nonexist'" },
    { "time", "base", function() m.qav_SystimeCompare() end,
      "0x09550004 L0 QAV_GetEcmCid proc fail SYSDT_SPTI_GetTop. uiRet = 1 " },
    { "event", "base", function() m.qav_trap_sysissu() end, "0x09550003 L0 QAV_TRAP_SysIssu proc fail. para num = 0" },
    { "device", "upgrade", function() m.qav_GetIniValue() end, "0x29371B3C L3 Format path ParaNum 0 wrong." },
    { "state", "upgrade", function() m.qav_Lock(10, 2, nil) end,
      "0x29371B3C L3 [UPG-LOCK]read type lock, but vmlist is null!" },
}

T.case("one failure of each area: its log, id and level", function()
    for _, row in ipairs(rows) do
        local area, log, call, line = table.unpack(row)
        local mark = T.mark(log)
        call()
        T.has_line(T.since(mark), line, area)
    end
end)

T.run()

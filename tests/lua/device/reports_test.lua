-- Notices to the management plane: one event-log record per accepted call, 5005 for bad calls.
local T = require "testlib"
local zh = require "zakhost"
local m = libqavluacommon

-- the component id of the default database's component of type 204
local ECM_CID = 0x10CC0001
-- The last event record must be this notice.
local function notice(info, format, values)
    local events = zh.events()
    local e = events[#events]
    T.eq({ e.call, e.cid, e.info, e.format, e.values }, { "QAV_EventLog", ECM_CID, info, format, values })
end

T.case("each notice sends its arguments under its own info code", function()
    T.eq(T.results(m.qav_ReportProcess(3, 40, "copying images")), { n = 1, 0 })
    notice("0x08091020", "%u%u%s", { 3, 40, "copying images" })
    T.eq(T.results(m.qav_ReportLogCollectFinish(17, 0, "/opt/log/collect.tar.gz")), { n = 1, 0 })
    notice("0x08091021", "%u%u%s", { 17, 0, "/opt/log/collect.tar.gz" })
    T.eq(T.results(m.qav_ReportVMCollectFinish(18, 2, "vm1;vm2")), { n = 1, 0 })
    notice("0x08091022", "%u%u%s", { 18, 2, "vm1;vm2" })
    T.eq(T.results(m.szak_setDelayVote(1, 30)), { n = 1, 0 })
    notice("0x08091023", "%u%u", { 1, 30 })
    T.eq(T.results(m.szak_setDelayVote(false, 0)), { n = 1, 0 })
    notice("0x08091023", "%u%u", { 0, 0 })
end)

T.case("wrong argument counts give 5005 and a base-log line, no record", function()
    -- one notice with a text and one without (the catalogue conformance test checks every count)
    T.eq({ T.results(m.qav_ReportProcess(3, 40)), T.results(m.szak_setDelayVote(1)) }, { { n = 1, 5005 }, { n = 1, 5005 } })
    T.has_lines(zh.log_lines("base"), { "QAV_ReportProcess proc fail. para num = 2", "SZAK_SetDelayVote proc fail. para num = 1" })
    T.eq(zh.events(), {})
end)

T.case("unusable arguments give 5005 and no record", function()
    local bad = {
        { m.qav_ReportProcess, { "x", 40, "d" }, "QAV_ReportProcess" },
        { m.qav_ReportProcess, { 3, 101, "d" }, "QAV_ReportProcess" },
        { m.qav_ReportProcess, { 3, 40, {} }, "QAV_ReportProcess" },
        { m.qav_ReportProcess, { 3, 40, string.rep("d", 256) }, "QAV_ReportProcess" },
        { m.qav_ReportVMCollectFinish, { 1, 0, string.rep("v", 1024) }, "QAV_ReportVMCollectFinish" },
        { m.szak_setDelayVote, { 2, 30 }, "SZAK_SetDelayVote" },
    }
    for i, b in ipairs(bad) do
        T.eq(T.results(b[1](table.unpack(b[2]))), { n = 1, 5005 }, "case " .. i)
        T.has_line(zh.log_lines("base"), b[3] .. " proc fail. get para failed.")
    end
    T.eq(zh.events(), {})
    -- the limits themselves are accepted
    T.eq({ T.results(m.qav_ReportProcess(3, 100, string.rep("d", 255))), T.results(m.qav_ReportVMCollectFinish(1, 0, string.rep("v", 1023))),
        #zh.events() }, { { n = 1, 0 }, { n = 1, 0 }, 2 })
end)

T.case("a failing event log is logged and its status pushed", function()
    zh.inject("QAV_EventLog", 0x42)
    T.eq(T.results(m.qav_ReportLogCollectFinish(1, 0, "p")), { n = 1, 0x42 })
    T.has_line(zh.log_lines("base"), "QAV_EventLog proc fail. uiRet = 66")
    T.eq(zh.events(), {})
    zh.inject("QAV_EventLog", 7)
    T.eq(T.results(m.szak_setDelayVote(true, 5)), { n = 1, 7 })
    T.has_line(zh.log_lines("base"), "QAV_EventLog proc fail. uiRet = 7")
end)

T.run()

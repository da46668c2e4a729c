-- Script log and report functions.
local T = require "testlib"
local zh = require "zakhost"
local m = libqavluacommon

T.case("qav_write_log: argument 2 to the diagnostic log; a table gives 2, three arguments 1", function()
    T.eq(T.results(m.qav_write_log(nil, "hello diag")), { n = 1, 0 })
    T.has_line(zh.log_lines("diag"), "[lua-log]hello diag")
    T.eq({ m.qav_write_log(1, {}), m.qav_write_log(1, "a", "b"), (m.qav_write_log("only")) }, { 2, 1, 1 })
    T.eq(#zh.log_lines("diag"), 1)
end)

T.case("sdm_write_log: one text to log file 13", function()
    T.eq(m.sdm_write_log("deploy step"), 0)
    T.has_line(zh.log_lines("sdm"), "[sdm-log]deploy step")
    T.eq({ m.sdm_write_log({}), (m.sdm_write_log("a", "b")) }, { 2, 1 })
    T.eq(#zh.log_lines("sdm"), 1)
end)

T.case("pat_write_log cuts a long text in place to 299 characters, in the log and in the script's string", function()
    local long = string.rep("x", 299) .. string.rep("y", 101)
    T.eq(m.pat_write_log(3, long), 0)
    -- the script's own string now holds a zero byte at position 300
    T.eq({ zh.log_lines("patch"), #long, long:byte(300) }, { { string.rep("x", 299) }, 400, 0 })
    T.eq({ m.pat_write_log(5, "short"), m.pat_write_log(5, string.rep("z", 299)) }, { 0, 0 })
    T.eq({ zh.log_lines("patch")[2], #zh.log_lines("patch")[3] }, { "short", 299 })
    T.eq({ m.pat_write_log(5, {}), (m.pat_write_log(5)) }, { 5000, 5005 })
    T.eq(#zh.log_lines("patch"), 3)
end)

T.case("pat_trace_log writes to the trace file only when tracing is on for the text", function()
    T.eq(m.pat_trace_log("step one"), 0)
    T.eq(#zh.log_lines("trace"), 0)
    zh.profile_set("patch", "trace", "1")
    T.eq(m.pat_trace_log("step two"), 0)
    zh.profile_set("patch", "trace_filter", "load")
    T.eq({ m.pat_trace_log("step three"), (m.pat_trace_log("load step four")) }, { 0, 0 })
    T.eq(zh.log_lines("trace"), { "step two", "load step four" })
    T.eq({ m.pat_trace_log(1, 2), (m.pat_trace_log({})) }, { 5005, 5000 })
end)

T.case("rpm_parse_log converts a storage path; bad arguments give 22 alone", function()
    T.eq(T.results(m.rpm_parse_log("flash0:/log/upgrade.log")), { n = 2, 0, zh.root() .. "/zakv8/main/home/log/upgrade.log" })
    T.eq(T.results(m.rpm_parse_log("/var/log/x.log")), { n = 2, 0, "/var/log/x.log" })
    -- a storage the device does not have converts to nothing
    T.eq(T.results(m.rpm_parse_log("flash9:/x")), { n = 2, 0, "" })
    T.eq(T.results(m.rpm_parse_log("/" .. string.rep("p", 299))), { n = 2, 0, "" }, "at most 299 characters")
    T.eq({ T.results(m.rpm_parse_log({})), T.results(m.rpm_parse_log("a", "b")) }, { { n = 1, 22 }, { n = 1, 22 } })
end)

T.case("qav_get_stamp_show_str: known codes, 515 with the platform's own text, other failures", function()
    T.eq(T.results(m.qav_get_stamp_show_str(0x0B000004, "V2")), { n = 2, 0, "Upgrade started: V2" })
    T.eq(T.results(m.qav_get_stamp_show_str(0x0B000008, "")), { n = 2, 0, "System ready" })
    T.eq(T.results(m.qav_get_stamp_show_str(0x12345, "raw text")), { n = 2, 515, "raw text" })
    T.eq(#select(2, m.qav_get_stamp_show_str(0x0B000001, string.rep("t", 80))), 63, "at most 63 characters")
    zh.inject("ZAK_GetStampShowStrByInfoCode", 7)
    T.eq(T.results(m.qav_get_stamp_show_str(0x0B000004, "V2")), { n = 2, 7, "ERR! infoCode = 0xb000004 retCode = 7" })
    T.eq({ T.results(m.qav_get_stamp_show_str(1)), T.results(m.qav_get_stamp_show_str(1, {})) }, { { n = 2, 1, "" }, { n = 2, 1, "" } })
end)

T.case("qav_free_dict_memory answers 0 whatever the platform says, 1 for a wrong count", function()
    zh.inject("ZAK_FreeMemoryOfDictionary", 3)
    T.eq(m.qav_free_dict_memory(5), 0)
end)

T.case("qav_SU_RecordExceptionLog logs, records the HA fault and returns nothing", function()
    T.eq(T.results(m.qav_SU_RecordExceptionLog(3, 17, 0x101)), { n = 0 })
    T.has_line(zh.log_lines("base"), "QAV_SU_RecordExceptionLog uiHafaultype=3, uiInstancdId=17, uiOsnode=257.")
    T.has_line(zh.log_lines("ha"), "HA fault type 3 instance 17 node 257")
    T.eq(T.results(m.qav_SU_RecordExceptionLog()), { n = 0 })
    T.has_line(zh.log_lines("ha"), "HA fault type 0 instance 0 node 0")
end)

T.run()

-- NTP unicast cache: whole-table sets keyed by server name, lookups by exact name.
local T = require "testlib"
local zh = require "zakhost"
local S = require "state.statelib"
local m = libqavluacommon

local function server(name, number, f7, f12)
    return { { fid = 20, value = name }, { fid = 1, value = number or 1 }, { fid = 7, value = f7 or false },
        { fid = 12, value = f12 or false } }
end
local function lookup(name) return select(3, m.qav_get_ntp_unicast_info(name)) end

T.case("a set before the table init works on an empty table", function()
    T.eq(m.qav_set_ntp_unicast_info { server("early") }, 0)
    T.eq(#lookup("early"), 1)
end)

m.qav_luaTblInit()

T.case("a get returns the name argument, 0 and the entry's items", function()
    T.eq(T.results(m.qav_set_ntp_unicast_info { server("10.0.0.1", 3, true, false), server("ntp.b", -1, false, true) }),
        { n = 1, 0 })
    T.eq(T.results(m.qav_get_ntp_unicast_info("10.0.0.1")), { n = 3, "10.0.0.1", 0, {
        { { fid = 20, value = "10.0.0.1" }, { fid = 1, value = 3 }, { fid = 7, value = true }, { fid = 12, value = false } },
    } })
    T.eq(lookup("ntp.b")[1][2], { fid = 1, value = -1 }, "the number comes back signed")
    T.eq(T.results(m.qav_get_ntp_unicast_info("absent")), { n = 3, "absent", 0, {} })
    T.eq(T.results(m.qav_get_ntp_unicast_info({})), { n = 1, -1 }, "a get needs a string")
end)

T.case("an unnamed entry stops the set, and the sweep still removes what was not reached", function()
    m.qav_set_ntp_unicast_info { server("A"), server("old1"), server("old2") }
    local unnamed = { { fid = 1, value = 2 } }
    T.eq(m.qav_set_ntp_unicast_info { server("A", 9), unnamed, server("C") }, 0)
    -- entries after the stop are not read; the sweep removes the old ones
    T.eq({ lookup("A")[1][2].value, lookup("C"), lookup("old1"), (lookup("old2")) }, { 9, {}, {}, {} })
end)

T.case("an item of the wrong type stops the set at that entry", function()
    T.eq(m.qav_set_ntp_unicast_info { server("A"), { { fid = 20, value = "B" }, { fid = 7, value = 1 } }, server("C") }, 0)
    T.eq({ #lookup("A"), lookup("B"), (lookup("C")) }, { 1, {}, {} })
    m.qav_set_ntp_unicast_info { server("A"), { { fid = 20, value = "B" }, { fid = 1, value = "x" } } }
    T.eq(lookup("B"), {}, "fid 1 must be a number")
    m.qav_set_ntp_unicast_info { { { fid = 12, value = "yes" }, { fid = 20, value = "B" } } }
    T.eq(lookup("A"), {}, "an entry stopped at its first item leaves nothing")
end)

T.case("names are compared byte-wise, case-sensitively, on their first 63 characters", function()
    local long = string.rep("n", 63)
    m.qav_set_ntp_unicast_info { server("Srv", 1), server("srv", 2), server(long .. "1234567", 3),
        { { fid = 5, value = "ignored" }, { fid = 20, value = "other" }, { fid = 0, value = 1 } } }
    T.eq({ lookup("Srv")[1][2].value, lookup("srv")[1][2].value, (lookup("SRV")) }, { 1, 2, {} })
    T.eq(lookup(long .. "xyz")[1][1].value, long, "stored and looked up by the first 63")
    T.eq(lookup("other")[1], { { fid = 20, value = "other" }, { fid = 1, value = 0 }, { fid = 7, value = false },
        { fid = 12, value = false } })
end)

T.case("surviving names keep their nodes; a failed allocation loses only the new entry", function()
    m.qav_set_ntp_unicast_info { server("a"), server("b") }
    local blocks = zh.memory().blocks
    zh.inject("ZAK_Malloc_F", 0)
    T.eq(m.qav_set_ntp_unicast_info { server("a"), server("b"), server("c") }, 0)
    T.eq({ zh.memory().blocks, lookup("c"), #lookup("b") }, { blocks, {}, 1 })
    T.eq(m.qav_set_ntp_unicast_info("x"), S.FAIL, "a set argument that is not a table is refused")
    T.eq(#lookup("a"), 1, "and changes nothing")
end)

T.run()

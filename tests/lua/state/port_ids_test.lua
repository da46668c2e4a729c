-- Port numbers per OS node: rotation through 41004..41128, cursor moves, shared buckets and the
-- failure results.
local T = require "testlib"
local zh = require "zakhost"
local m = libqavluacommon

T.case("a node hands out 41004..41128 and then starts again", function()
    local node = 0x0A07
    for expected = 41004, 41128 do
        T.eq({ m.qav_luaAssignPortID(node) }, { 0, expected })
    end
    T.eq({ m.qav_luaAssignPortID(node) }, { 0, 41004 }, "wraps after 41128")
end)

T.case("nodes keep their own cursors; ids equal modulo 4096 share the first node's", function()
    T.eq({ { m.qav_luaAssignPortID(0x0B01) }, { m.qav_luaAssignPortID(0x0B02) }, { m.qav_luaAssignPortID(0x0B01) } },
        { { 0, 41004 }, { 0, 41004 }, { 0, 41005 } })
    T.eq({ { m.qav_luaAssignPortID(0x1E01) }, { m.qav_luaAssignPortID(0x2E01) }, { m.qav_luaAssignPortID(0x1E01) } },
        { { 0, 41004 }, { 0, 41005 }, { 0, 41006 } })
end)

T.case("setting the cursor creates the node and takes the value's low byte", function()
    local node = 0x0C01
    T.eq(T.results(m.qav_luaSetCurPortID(node, 300)), { n = 1, 0 }) -- 300 & 0xFF = 44
    T.eq({ m.qav_luaAssignPortID(node) }, { 0, 41044 })
    T.eq({ m.qav_luaSetCurPortID(node, 2) }, { 0 }) -- below the range: back to 4
    T.eq({ m.qav_luaAssignPortID(node) }, { 0, 41004 })
    T.eq({ m.qav_luaSetCurPortID(node, 128) }, { 0 })
    T.eq({ m.qav_luaAssignPortID(node) }, { 0, 41128 })
    T.eq({ m.qav_luaSetCurPortID(node, 0x181) }, { 0 }) -- low byte 0x81 = 129, out of range
    T.eq({ m.qav_luaAssignPortID(node) }, { 0, 41004 })
end)

T.case("bad arguments answer status 2", function()
    T.eq({ T.results(m.qav_luaAssignPortID("x")), T.results(m.qav_luaSetCurPortID(1, "x")), T.results(m.qav_luaSetCurPortID(1, 0)) },
        { { n = 2, 2, 0 }, { n = 1, 2 }, { n = 1, 2 } })
end)

T.case("numeric strings and wrapped numbers are read as unsigned ids", function()
    T.eq({ { m.qav_luaAssignPortID("0x0F01") }, { m.qav_luaAssignPortID(0x0F01) }, { m.qav_luaAssignPortID(-1) },
        { m.qav_luaAssignPortID(4294967295) } }, { { 0, 41004 }, { 0, 41005 }, { 0, 41004 }, { 0, 41005 } })
end)

T.case("a node that cannot be allocated fails without touching other nodes", function()
    zh.inject("ZAK_Malloc_F", 0)
    T.eq(T.results(m.qav_luaAssignPortID(0x0E41)), { n = 2, 1, 41000 })
    T.has_line(zh.log_lines("diag"), "QAV NewOsNodeIndexList Malloc cb failed, Malloc=")
    zh.inject("ZAK_Malloc_F", 0)
    T.eq(T.results(m.qav_luaSetCurPortID(0x0E42, 5)), { n = 1, 0xFFFFFFFF })
    T.has_line(zh.log_lines("diag"),
        "qav LuaLock SetPortId failed: Get OsNode Index wrong, OsNodeId=0xe42 SetPos=5.")
    -- the failed calls left no node behind and the lock free
    T.eq({ { m.qav_luaAssignPortID(0x0E41) }, { m.qav_luaAssignPortID(0x0E42) } }, { { 0, 41004 }, { 0, 41004 } })
end)

T.run()

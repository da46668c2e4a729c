-- Startup stamps as the platform's store records them: the time, upgrade stamps, stamps with items.
local T = require "testlib"
local zh = require "zakhost"
local m = libqavluacommon

local function last_stamp() local s = zh.stamps(); return s[#s], #s end

T.case("the stamp time moves with the host clock", function()
    local r = T.results(m.qav_ZAK_StartupStampGetExt())
    T.ok(r.n == 3 and r[1] == 0 and r[3] < 1000000, "status and microseconds")
    zh.clock_advance(100)
    local _, secs = m.qav_ZAK_StartupStampGetExt()
    T.ok(secs >= r[2] + 100 and secs < r[2] + 110, "advanced: " .. secs .. " from " .. r[2])
    zh.inject("ZAK_StartupStampGetTime", 1)
    T.eq(T.results(m.qav_ZAK_StartupStampGetExt()), { n = 3, 0, 0, 0 }, "zeroed when the store fails")
end)

T.case("an upgrade stamp records the kinds and the text", function()
    T.eq(T.results(m.qav_RecordUpgradeTimeStamp(2, 1, 0, "load done")), { n = 1, 0 })
    local s, count = last_stamp()
    T.eq({ s.call, s.flag1, s.flag2, s.kind, s.values, s.text, s.message },
        { "ZAK_StartupStampAdd", 0, 2, 0, { 2, 1, 0, 0 }, "load done", "load done" })
    T.eq(#s.time, 2)
    T.eq({ m.qav_RecordUpgradeTimeStamp(0, 0, 3, "x"), m.qav_RecordUpgradeTimeStamp(0, 0, -1, "x"),
        m.qav_RecordUpgradeTimeStamp(0, 0.5, 0, "x"), m.qav_RecordUpgradeTimeStamp(0, 0, 0, {}) }, { 1000, 1000, 1000, 1000 })
    T.eq(select(2, last_stamp()), count, "refused calls record nothing")
    zh.inject("ZAK_StartupStampAdd", 9)
    T.eq(m.qav_RecordUpgradeTimeStamp(0, 0, 0, "x"), 0, "the store's result is not passed on")
end)

T.case("a '%' in the stamp text is interpreted without reading any argument", function()
    m.qav_RecordUpgradeTimeStamp(0, 0, 0, "a%db%5sc%xd%%e%n%s%p%.3f%*d|%c|tail")
    local s = last_stamp()
    -- the store's own copy is the plain text
    T.eq({ s.text, s.message }, { "a0b     c0d%e(nil)0.0000|", "a%db%5sc%xd%%e%n%s%p%.3f%*d|%c|tail" })
    m.qav_RecordUpgradeTimeStamp(0, 0, 0, "100%")
    T.eq(last_stamp().text, "100%")
    m.qav_RecordUpgradeTimeStamp(0, 0, 0, string.rep("%s%d", 40) .. string.rep("y", 100))
    T.eq(last_stamp().text, string.rep("0", 40) .. string.rep("y", 23), "cut to 63 characters")
end)

T.case("stamps with items: numbers and texts, lengths and caps", function()
    local before = zh.memory().blocks
    T.eq(T.results(m.qav_ZAK_StartupStampAddExt(7, 8, 1, 2, 3, 4, 42, "txt", "123")), { n = 1, 0 })
    local s = last_stamp()
    T.eq({ s.call, s.flag1, s.flag2, s.values, s.item_count, s.text },
        { "ZAK_StartupStampAddImpl", 7, 8, { 1, 2, 3, 4 }, 3, "" })
    T.eq(s.items, { { type = 3, length = 4, value = 42 }, { type = 16, length = 4, value = "txt" },
        { type = 16, length = 4, value = "123" } })
    T.eq(s.item_data_length, 8, "only texts count into the item data length")
    m.qav_ZAK_StartupStampAddExt(0, 0, 0, 0, 0, 0, string.rep("a", 8191), string.rep("b", 8192),
        string.rep("c", 65535), string.rep("d", 65536))
    s = last_stamp()
    -- 8192 bytes with the NUL; one more is capped, its last byte forced to NUL
    T.eq({ s.items[1].length, #s.items[1].value, s.items[2].length, s.items[2].value },
        { 8192, 8191, 8192, string.rep("b", 8191) })
    T.eq({ s.items[3].length, s.items[3].value }, { 0, "" }, "65536 wraps to 0")
    T.eq({ s.items[4].length, s.items[4].value }, { 1, "d" }, "65537 wraps to 1: the first byte, unterminated")
    T.eq(s.item_data_length, 8192 + 8192 + 0 + 1)
    T.eq({ m.qav_ZAK_StartupStampAddExt(0, 0, 0, 0, 0, 0), last_stamp().item_count }, { 0, 0 }, "no items")
    T.eq(zh.memory().blocks, before, "the store freed every item")
end)

T.case("bad stamp calls free what they made and record nothing", function()
    local _, count = last_stamp()
    local before = zh.memory().blocks
    local sixteen = {}
    for i = 1, 16 do sixteen[i] = i end
    T.eq(m.qav_ZAK_StartupStampAddExt(0, 0, 0, 0, 0, 0, table.unpack(sixteen)), 0, "22 arguments")
    T.eq({ last_stamp().item_count, #last_stamp().items, last_stamp().items[16].value }, { 16, 16, 16 }, "a full stamp")
    T.eq(T.results(m.qav_ZAK_StartupStampAddExt(0, 0, 0, 0, 0, 0, 17, table.unpack(sixteen))), { n = 1, 0xFFFFFFFF })
    T.eq({ m.qav_ZAK_StartupStampAddExt(0, 0, 0, 0, 0), m.qav_ZAK_StartupStampAddExt(0, 0, 0, 0, 0, 0, 1, true),
        m.qav_ZAK_StartupStampAddExt(0, 0, 0, 0, 0, 0, "a", {}) }, { 0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF })
    zh.inject("ZAK_Malloc_F", 0, 2)
    T.eq(m.qav_ZAK_StartupStampAddExt(0, 0, 0, 0, 0, 0, 1, "two", 3), 0xFFFFFFFF)
    T.eq(select(2, last_stamp()), count + 1, "only the 22-argument stamp")
    zh.inject("ZAK_StartupStampAddImpl", 3)
    T.eq(m.qav_ZAK_StartupStampAddExt(0, 0, 0, 0, 0, 0, 1, "x"), 0, "the store's refusal is not passed on")
    T.eq(zh.memory().blocks, before, "nothing leaked")
    T.has_line(zh.log_lines("stamp"), '"call":"ZAK_StartupStampAddImpl"')
end)

T.run()

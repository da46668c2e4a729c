-- Patch error, flash sync and load-patch record tables: whole-table sets and queries by group.
local T = require "testlib"
local zh = require "zakhost"
local m = libqavluacommon

local FAIL = 0xFFFFFFFF

-- A group of `items` items; text items carry "t<group>.<item>", the others group*100+item.
local function group(g, items, texts)
    local out = {}
    for k = 1, items do
        out[k] = { fid = 1000 + k, value = texts[k] and ("t" .. g .. "." .. k) or (g * 100 + k) }
    end
    return out
end
local function groups(n, items, texts)
    local out = {}
    for g = 1, n do out[g] = group(g, items, texts) end
    return out
end

local ERR = { items = 5, texts = { [3] = true } }
local FLH = { items = 8, texts = { [4] = true, [5] = true, [6] = true, [7] = true } }
local LOAD = { items = 6, texts = { [4] = true } }

m.qav_luaTblInit()

T.case("each table stores groups and gives them back in the same shape", function()
    local cases = {
        { ERR, m.qav_set_patch_errinfo, m.qav_query_patch_errinfo },
        { FLH, m.qav_set_flh_syncinfo, m.qav_query_flh_syncinfo },
        { LOAD, m.qav_set_load_patchinfo, m.qav_query_load_patchinfo },
    }
    for _, c in ipairs(cases) do
        local layout, set, query = c[1], c[2], c[3]
        local data = groups(3, layout.items, layout.texts)
        T.eq(T.results(set(3, data)), { n = 1, 0 })
        T.eq(T.results(query()), { n = 2, 0, data })
    end
    T.eq({ { m.qav_query_flhsync_record_num() }, { m.qav_query_loadpatch_record_num() } }, { { 0, 3 }, { 0, 3 } })
end)

T.case("a full sync table is stored with little of the interpreter's stack left", function()
    local pad, data = {}, groups(1000, FLH.items, FLH.texts)
    for i = 1, 999200 do pad[i] = false end
    local function set(...) local rc = m.qav_set_flh_syncinfo(1000, data); return rc end
    T.eq(set(table.unpack(pad)), 0)
end)

T.case("a patch error set above the capacity keeps the full count and reads on past it", function()
    T.eq({ m.qav_query_paterr_table_num() }, { 0, 200 })
    T.eq(m.qav_set_paterr_table_num(2), 0)
    T.eq({ m.qav_query_paterr_table_num() }, { 0, 2 })
    T.eq(m.qav_set_patch_errinfo(0, {}), 0)
    local data = groups(3, ERR.items, ERR.texts)
    T.eq(m.qav_set_patch_errinfo(3, data), 0)
    -- Only two groups were written, and the count of 0 above zeroed only the two records within the
    -- capacity: the third is the record the first case left after the second.
    T.eq(select(2, m.qav_query_patch_errinfo()), { data[1], data[2], group(3, ERR.items, ERR.texts) })
    T.eq(m.qav_set_paterr_table_num(200), 0)
end)

T.case("growing the patch error capacity keeps the stored records", function()
    local data = groups(2, ERR.items, ERR.texts)
    T.eq(m.qav_set_patch_errinfo(2, data), 0)
    T.eq(m.qav_set_paterr_table_num(500), 0)
    T.eq({ m.qav_query_paterr_table_num() }, { 0, 500 })
    T.eq(select(2, m.qav_query_patch_errinfo()), data)
    local big = groups(300, ERR.items, ERR.texts)
    T.eq(m.qav_set_patch_errinfo(300, big), 0)
    T.eq(select(2, m.qav_query_patch_errinfo()), big)
    T.eq(m.qav_set_paterr_table_num("x"), 1)
    T.eq({ m.qav_query_paterr_table_num() }, { 0, 500 })
end)

T.case("a bad argument list empties the patch error table but leaves the others", function()
    m.qav_set_patch_errinfo(1, groups(1, ERR.items, ERR.texts))
    m.qav_set_flh_syncinfo(1, groups(1, FLH.items, FLH.texts))
    m.qav_set_load_patchinfo(1, groups(1, LOAD.items, LOAD.texts))
    T.eq(m.qav_set_patch_errinfo("x", {}), FAIL)
    T.eq(#select(2, m.qav_query_patch_errinfo()), 0)
    for _, bad in ipairs { { {}, {} }, { 1, "x" } } do
        T.eq({ m.qav_set_flh_syncinfo(table.unpack(bad)), m.qav_set_load_patchinfo(table.unpack(bad)) }, { FAIL, FAIL })
    end
    T.eq({ { m.qav_query_flhsync_record_num() }, { m.qav_query_loadpatch_record_num() } }, { { 0, 1 }, { 0, 1 } })
end)

T.case("flash sync takes at most 1000 records and load patch at most 32", function()
    T.eq(m.qav_set_flh_syncinfo(1000, groups(1000, FLH.items, FLH.texts)), 0)
    T.eq({ m.qav_query_flhsync_record_num() }, { 0, 1000 })
    T.eq(m.qav_set_flh_syncinfo(1001, groups(1001, FLH.items, FLH.texts)), FAIL)
    T.eq({ m.qav_query_flhsync_record_num() }, { 0, 1000 })
    T.eq(m.qav_set_load_patchinfo(32, groups(32, LOAD.items, LOAD.texts)), 0)
    T.eq(m.qav_set_load_patchinfo(33, groups(33, LOAD.items, LOAD.texts)), FAIL)
    T.eq({ m.qav_query_loadpatch_record_num() }, { 0, 32 })
end)

T.case("a broken group keeps the groups before it and stops there", function()
    local data = groups(3, LOAD.items, LOAD.texts)
    data[2][4] = nil
    T.eq(m.qav_set_load_patchinfo(3, data), FAIL)
    T.eq({ m.qav_query_loadpatch_record_num() }, { 0, 1 })
    T.eq(select(2, m.qav_query_load_patchinfo()), { data[1] })
    local err = groups(2, ERR.items, ERR.texts)
    err[2][3].value = {}
    T.eq(m.qav_set_patch_errinfo(2, err), FAIL, "a text item without text")
    T.eq(#select(2, m.qav_query_patch_errinfo()), 1)
    T.eq(m.qav_set_patch_errinfo(3, { err[1] }), FAIL, "a missing group")
    T.eq(#select(2, m.qav_query_patch_errinfo()), 1)
    T.eq(m.qav_set_flh_syncinfo(2, { group(1, 8, FLH.texts), "x" }), FAIL, "a group that is not a table")
    T.eq({ m.qav_query_flhsync_record_num() }, { 0, 1 })
end)

T.case("texts are stored at most 255 characters long", function()
    local data = groups(1, FLH.items, FLH.texts)
    data[1][7].value = string.rep("a", 300)
    T.eq(m.qav_set_flh_syncinfo(1, data), 0)
    T.eq(#select(2, m.qav_query_flh_syncinfo())[1][7].value, 255)
end)

T.case("a count of 0 and the cleans empty the tables", function()
    m.qav_set_load_patchinfo(2, groups(2, LOAD.items, LOAD.texts))
    T.eq(T.results(m.qav_clean_load_patchinfo()).n, 1)
    T.eq({ m.qav_query_loadpatch_record_num() }, { 0, 0 })
    m.qav_set_patch_errinfo(2, groups(2, ERR.items, ERR.texts))
    T.eq(T.results(m.qav_clean_patch_errinfo()).n, 1)
    T.eq(#select(2, m.qav_query_patch_errinfo()), 0)
    m.qav_set_flh_syncinfo(2, groups(2, FLH.items, FLH.texts))
    T.eq(m.qav_set_flh_syncinfo(0, {}), 0)
    T.eq({ m.qav_query_flhsync_record_num() }, { 0, 0 })
end)

T.case("a new table init starts every table empty", function()
    m.qav_set_patch_errinfo(2, groups(2, ERR.items, ERR.texts))
    m.qav_set_load_patchinfo(2, groups(2, LOAD.items, LOAD.texts))
    m.qav_set_flh_syncinfo(2, groups(2, FLH.items, FLH.texts))
    m.qav_luaTblInit()
    T.eq({ m.qav_query_paterr_table_num() }, { 0, 200 })
    T.eq({ { m.qav_query_patch_errinfo() }, { m.qav_query_load_patchinfo() }, { m.qav_query_flh_syncinfo() } },
        { { 0, {} }, { 0, {} }, { 0, {} } })
end)

T.run()

-- TPM report and status caches: whole-table sets in key order, paged gets, staleness.
local T = require "testlib"
local zh = require "zakhost"
local S = require "state.statelib"
local m = libqavluacommon

local FAIL = S.FAIL

local function report(k1, k2, n)
    return { { fid = 1, value = k1 }, { fid = 2, value = k2 }, { fid = 3, value = "a" .. k1 .. "." .. k2 },
        { fid = 4, value = "b" }, { fid = 5, value = "c" }, { fid = 6, value = "d" }, { fid = 7, value = n or 0 } }
end
local function status(key, st, text)
    return { { fid = 1, value = key }, { fid = 2, value = text or ("s" .. key) }, { fid = 3, value = "x" },
        { fid = 4, value = "y" }, { fid = 5, value = key * 10 }, { fid = 6, value = st } }
end
local function keys(result)
    local out = {}
    for i, e in ipairs(result) do out[i] = e[1].value .. "," .. e[2].value end
    return out
end
local function status_view(result)
    local out = {}
    for i, e in ipairs(result) do out[i] = { e.record[1].value, e.record[6].value, e.needRefresh } end
    return out
end

T.case("right after open both tables are stale and empty", function()
    T.eq(T.results(m.qav_tpm_get_report_table(0, 0, 10)), { n = 3, 0, true, {} })
    T.eq(T.results(m.qav_tpm_get_status_table(0, 10)), { n = 3, 0, true, {} })
end)

T.case("a report page starts at the given key and holds at most page-size entries", function()
    T.eq(T.results(m.qav_tpm_set_report_table { report(4, 0), report(3, 5), report(1, 1), report(3, 0) }),
        { n = 1, 0 })
    local _, _, page = m.qav_tpm_get_report_table(3, 0, 2)
    T.eq(keys(page), { "3,0", "3,5" })
    T.eq(page[1], report(3, 0), "every item comes back with its fid")
    _, _, page = m.qav_tpm_get_report_table(-100, 0, 100)
    T.eq(keys(page), { "1,1", "3,0", "3,5", "4,0" }, "entries are kept in key order")
    _, _, page = m.qav_tpm_get_report_table(3, 1, 100)
    T.eq(keys(page), { "3,5", "4,0" })
    T.eq({ T.results(m.qav_tpm_get_report_table(0, 0, 0)), T.results(m.qav_tpm_get_report_table()) },
        { { n = 1, FAIL }, { n = 1, FAIL } })
end)

T.case("any input order gives the same table in key order", function()
    -- Shuffled keys with a fixed generator: forward searches, the index and short walks all mix.
    local order, seed = {}, 7
    for k = 1, 300 do order[k] = k end
    for k = 300, 2, -1 do
        seed = (seed * 1103515245 + 12345) % 2147483648
        local j = seed % k + 1
        order[k], order[j] = order[j], order[k]
    end
    local function set_keys(list)
        local entries = {}
        for i, k in ipairs(list) do entries[i] = report(math.floor(k / 7), k % 7, k) end
        m.qav_tpm_set_report_table(entries)
        local _, _, page = m.qav_tpm_get_report_table(-1, 0, 1000)
        local got = {}
        for i, e in ipairs(page) do got[i] = e[7].value end
        return got
    end
    local expected = {}
    for k = 1, 300 do expected[k] = k end
    T.eq(set_keys(order), expected)
    local evens, sorted_evens = {}, {}
    for _, k in ipairs(order) do if k % 2 == 0 then evens[#evens + 1] = k end end
    for k = 2, 300, 2 do sorted_evens[#sorted_evens + 1] = k end
    T.eq({ set_keys(evens), set_keys(sorted_evens), (set_keys(expected)) }, { sorted_evens, sorted_evens, expected })
end)

T.case("a set replaces the whole table and reuses the nodes of surviving keys", function()
    m.qav_tpm_set_report_table { report(1, 1), report(2, 2), report(3, 3) }
    local blocks = zh.memory().blocks
    m.qav_tpm_set_report_table { report(1, 1, 7), report(3, 3, 9) }
    T.eq(zh.memory().blocks, blocks - 1, "the omitted entry is freed")
    local _, _, page = m.qav_tpm_get_report_table(0, 0, 10)
    T.eq(keys(page), { "1,1", "3,3" })
    T.eq({ page[1][7].value, page[2][7].value }, { 7, 9 })
    m.qav_tpm_set_report_table {}
    T.eq(zh.memory().blocks, blocks - 3)
    T.eq(select(3, m.qav_tpm_get_report_table(0, 0, 10)), {})
end)

T.case("malformed entries, unknown fids and failed allocations are dropped silently", function()
    local long = string.rep("z", 200)
    local entries = {
        { { fid = 1, value = 5 } }, -- no second key
        { { fid = 1, value = 6 }, { fid = 2, value = 1 }, { fid = 99, value = "ignored" }, { fid = 3, value = long },
            { fid = 4, value = long }, { fid = 7, value = "12" } },
        { { fid = 2, value = 1 }, { fid = 1, value = 7 }, { fid = 3, value = {} } },
    }
    T.eq(m.qav_tpm_set_report_table(entries), 0)
    local _, _, page = m.qav_tpm_get_report_table(0, 0, 10)
    T.eq(keys(page), { "6,1", "7,1" })
    -- texts cut to their buffers; a text item without text is skipped
    T.eq({ #page[1][3].value, #page[1][4].value, page[1][7].value, page[2][3].value }, { 127, 99, 12, "" })
    zh.inject("ZAK_Malloc_F", 0)
    T.eq(m.qav_tpm_set_report_table { report(6, 1), report(8, 8) }, 0)
    T.eq(keys(select(3, m.qav_tpm_get_report_table(0, 0, 10))), { "6,1" }, "the new entry could not be stored")
end)

T.case("a set argument that is not a table is refused and changes nothing", function()
    m.qav_tpm_set_report_table { report(1, 1) }
    T.eq(T.results(m.qav_tpm_set_report_table("x")), { n = 1, FAIL })
    T.eq(m.qav_tpm_set_status_table(), FAIL)
    T.eq(keys(select(3, m.qav_tpm_get_report_table(0, 0, 10))), { "1,1" })
end)

T.case("a table is fresh for five seconds after a set and stale from the sixth", function()
    S.at_boundary(function()
        m.qav_tpm_set_report_table { report(1, 1) }
        T.eq(select(2, m.qav_tpm_get_report_table(0, 0, 1)), false)
        zh.clock_advance(5)
        T.eq(select(2, m.qav_tpm_get_report_table(0, 0, 1)), false)
        zh.clock_advance(1)
        T.eq(select(2, m.qav_tpm_get_report_table(0, 0, 1)), true)
    end)
end)

T.case("status entries: new ones start at 1, a status of 0 keeps the previous one", function()
    T.eq(m.qav_tpm_set_status_table { status(1, 0), status(2, 2), status(3, 4) }, 0)
    local _, stale, page = m.qav_tpm_get_status_table(0, 10)
    T.eq({ stale, status_view(page) }, { false, { { 1, 1, true }, { 2, 2, true }, { 3, 4, false } } })
    m.qav_tpm_set_status_table { status(1, 0), status(2, 0), status(3, 0) }
    T.eq(status_view(select(3, m.qav_tpm_get_status_table(0, 10))), { { 1, 1, true }, { 2, 2, true }, { 3, 4, false } })
    T.eq(select(3, m.qav_tpm_get_status_table(0, 10))[1].record, status(1, 1))
end)

T.case("a completed status ages after 60 seconds; other statuses always ask for a refresh", function()
    S.at_boundary(function()
        m.qav_tpm_set_status_table { status(2, 2), status(3, 4) }
        zh.clock_advance(60)
        m.qav_tpm_set_status_table { status(2, 2), status(3, 0) } -- keeps status 4 and its time
        T.eq(status_view(select(3, m.qav_tpm_get_status_table(0, 10))), { { 2, 2, true }, { 3, 4, false } })
        zh.clock_advance(1)
        m.qav_tpm_set_status_table { status(2, 2), status(3, 0) }
        T.eq(status_view(select(3, m.qav_tpm_get_status_table(0, 10))), { { 2, 2, true }, { 3, 4, true } })
        m.qav_tpm_set_status_table { status(2, 2), status(3, 4) } -- a new status 4 restarts the age
        T.eq(status_view(select(3, m.qav_tpm_get_status_table(0, 10))), { { 2, 2, true }, { 3, 4, false } })
    end)
end)

T.case("a fresh status table pages from the key; a stale one is handed out whole from key 0", function()
    m.qav_tpm_set_status_table { status(-1, 2), status(1, 2), status(2, 2), status(3, 2) }
    local _, stale, page = m.qav_tpm_get_status_table(2, 1)
    T.eq({ stale, status_view(page) }, { false, { { 2, 2, true } } })
    T.eq(#select(3, m.qav_tpm_get_status_table(1, 0)), 3, "a page size of 0 never stops the walk")
    zh.clock_advance(10)
    _, stale, page = m.qav_tpm_get_status_table(3, 1)
    T.eq({ stale, status_view(page) }, { true, { { 1, 2, true }, { 2, 2, true }, { 3, 2, true } } })
end)

T.run()

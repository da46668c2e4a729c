-- The upgrade lock: write and read modes, VM lists, lock periods and their expiry.
local T = require "testlib"
local zh = require "zakhost"
local S = require "state.statelib"
local m = libqavluacommon

local FAIL = S.FAIL
local WRITE, READ = 1, 2
local function vms(...) return '"' .. table.concat({ ... }, '"') .. '"' end

-- Leaves the lock idle whatever state a case left it in.
local function reset()
    zh.inject()
    zh.clock_advance(100000)
    m.qav_UnLock(READ, "")
end
local function case(name, body) T.case(name, function() reset() body() end) end

-- The (start, duration) of the last lock-period line written after `mark`.
local function period(mark)
    local start, duration
    for _, line in ipairs(S.since(mark)) do
        local s, d = line:match("set upgrade lock_read success! time (%d+) %- (%d+), status")
        if s then start, duration = tonumber(s), tonumber(d) end
    end
    return start, duration
end

T.case("a write lock holds for its lock period, end second included", function()
    T.eq(m.qav_IsLocked(), false)
    S.at_boundary(function()
        reset()
        local mark = S.mark("upgrade")
        T.eq(T.results(m.qav_Lock(10, WRITE, "")), { n = 1, 0 })
        T.eq(select(2, period(mark)), 10)
        T.eq(S.since(mark), { 'L4 [UPG-LOCK]starting set lock, type:1, vmlist :!',
            "L4 [UPG-LOCK]set upgrade lock_read success! time " .. period(mark) .. " - 10, status: 1",
            "L4 [UPG-LOCK]set upgrade write_lock, result: 0" })
        zh.clock_advance(10)
        T.eq({ m.qav_IsLocked(), m.qav_Lock(10, WRITE, "") }, { true, 2 }, "a second write lock is refused while the first holds")
        zh.clock_advance(1)
        T.eq({ m.qav_IsLocked(), m.qav_Lock(10, WRITE, "") }, { false, 0 }, "an expired lock is replaced")
    end)
end)

case("read locks coexist while their VM lists do not overlap", function()
    T.eq({ m.qav_Lock(100, READ, vms("a", "b")), (m.qav_Lock(100, READ, vms("c"))) }, { 0, 0 })
    local mark = S.mark("upgrade")
    T.eq(m.qav_Lock(100, READ, vms("b")), 3)
    T.has_lines(S.since(mark), { 'L4 [UPG-LOCK]find vm "b" is already locked!!',
        "L3 [UPG-LOCK]set vmlist lock failed, retcode = 3!", "L4 [UPG-LOCK]set upgrade write_read, result: 3" })
    T.eq(m.qav_Lock(100, READ, vms("ab", "ca")), 0, "names are matched whole, not as substrings")
    T.eq({ m.qav_Lock(100, READ, vms("vm-long-nam1")), m.qav_Lock(100, READ, vms("vm-long-nam2")) }, { 0, 3 },
        "names are compared by their first 11 characters")
    T.eq(m.qav_Lock(100, 7, vms("x", "c")), 3, "any type but 1 is a read lock")
    T.eq({ m.qav_Lock(100, READ, "vm1"), m.qav_Lock(100, READ, "vm1"), m.qav_IsLocked() }, { 0, 0, true },
        "a list without two separators overlaps nothing")
    T.eq({ m.qav_Lock(100, WRITE, ""), m.qav_Lock(100, READ, nil) }, { 2, 3 })
    T.has_lines(S.since(mark), { "L3 [UPG-LOCK]current status is not idle, con't set wirte lock anymore!",
        "L3 [UPG-LOCK]read type lock, but vmlist is null!" })
end)

case("unlocking a read lock needs the exact list that was locked; the last one ends the lock", function()
    T.eq({ m.qav_Lock(100, READ, vms("a", "b")), (m.qav_Lock(100, READ, vms("c"))) }, { 0, 0 })
    local mark = S.mark("upgrade")
    T.eq(m.qav_UnLock(READ, vms("a")), 3)
    T.eq(S.since(mark), { 'L3 [UPG-LOCK]vmlist "a" is not in locked list!',
        "L3 [UPG-LOCK]unlock vmlist failed, retcode = 3!" })
    T.eq({ m.qav_UnLock(WRITE, vms("a", "b")), m.qav_UnLock(READ, vms("a", "b")) }, { FAIL, 0 })
    T.has_lines(S.since(mark), { "L4 [UPG-LOCKincompatible lock status: 2 and unlock type: 1",
        'L4 [UPG-LOCK]vmlist "a"b" is successful unlocked!' })
    T.eq({ m.qav_IsLocked(), m.qav_UnLock(READ, vms("c")), m.qav_IsLocked() }, { true, 0, false }, "another reader remains")
    mark = S.mark("upgrade")
    T.eq(m.qav_UnLock(READ, vms("c")), 0)
    T.eq(S.since(mark), { "L1 [UPG-LOCK]upgrade lock is idle. no need to unlock!" })
    T.eq(m.qav_Lock(5, WRITE, ""), 0, "the lock is idle again")
end)

case("a write lock excludes read locks and read unlocks", function()
    T.eq(m.qav_Lock(100, WRITE, ""), 0)
    local mark = S.mark("upgrade")
    T.eq({ m.qav_Lock(100, READ, vms("a")), m.qav_UnLock(READ, vms("a")) }, { 2, FAIL })
    T.has_lines(S.since(mark), { "L3 [UPG-LOCK]current status is write lock, con't set read lock!",
        "L4 [UPG-LOCK]incompatible lock status: 1 and unlock type: 2" })
    T.eq({ m.qav_IsLocked(), m.qav_UnLock(WRITE, nil), m.qav_IsLocked(), m.qav_Lock(100, READ, vms("a")) }, { true, 0, false, 0 })
end)

T.case("a later reader extends the lock period without moving its start", function()
    S.at_boundary(function()
        reset()
        local mark = S.mark("upgrade")
        T.eq(m.qav_Lock(50, READ, vms("a")), 0)
        local start = period(mark)
        zh.clock_advance(20)
        T.eq(m.qav_Lock(50, READ, vms("b")), 0)
        T.eq({ period(mark) }, { start, 70 })
        zh.clock_advance(5)
        T.eq(m.qav_Lock(10, READ, vms("c")), 0)
        T.eq({ period(mark) }, { start, 70 }, "a shorter request does not shorten it")
        zh.clock_advance(45)
        local held = m.qav_IsLocked()
        zh.clock_advance(1)
        T.eq({ held, m.qav_IsLocked() }, { true, false })
    end)
end)

case("an unlock after the lock period clears the lock and frees its lists", function()
    local blocks = zh.memory().blocks
    T.eq({ m.qav_Lock(10, READ, vms("a")), (m.qav_Lock(10, READ, vms("b"))) }, { 0, 0 })
    T.eq(zh.memory().blocks, blocks + 4)
    zh.clock_advance(20)
    local mark = S.mark("upgrade")
    T.eq(m.qav_UnLock(READ, vms("zzz")), 0)
    T.eq(S.since(mark), { "L4 [UPG-LOCK]current time lock is time out!, clear lock data",
        "L4 [UPG-LOCK]time out, all vmlist to be released!" })
    T.eq(zh.memory().blocks, blocks)
end)

case("a lock after the lock period starts afresh and drops the old lists without freeing them", function()
    local blocks = zh.memory().blocks
    T.eq(m.qav_Lock(10, READ, vms("a")), 0)
    zh.clock_advance(20)
    T.eq(m.qav_Lock(10, READ, vms("a")), 0, "the expired list no longer overlaps")
    T.eq(zh.memory().blocks, blocks + 4, "the dropped node and its string stay allocated")
    T.eq({ m.qav_UnLock(READ, vms("a")), m.qav_IsLocked() }, { 0, false })
end)

case("clock, mutex and memory failures", function()
    local mark = S.mark("upgrade")
    -- The log line written first reads the clock too.
    zh.inject("ZAK_OsClockGetTime", 0, 1)
    T.eq(m.qav_Lock(10, WRITE, ""), 1)
    zh.inject("ZAK_OsClockGetTime", 0)
    T.eq(m.qav_UnLock(WRITE, ""), 1)
    zh.inject("ZAK_OsClockGetTime", 0)
    T.eq(m.qav_IsLocked(), false)
    zh.inject("NUK_MutexLock", 1, 0, 2)
    T.eq({ m.qav_Lock(10, WRITE, ""), m.qav_UnLock(WRITE, "") }, { 1, 1 })
    T.has_lines(S.since(mark), { "L3 [UPG-LOCK]get system time failed!", "L3 [UPG-LOCK]get upgrade mutex failed!" })
    -- The clock is read under the mutex: one read before waiting could predate the holder's start.
    for _, call in ipairs { function() return m.qav_Lock(10, WRITE, "") end,
                            function() return m.qav_UnLock(WRITE, "") end } do
        mark = S.mark("upgrade")
        zh.inject("ZAK_OsClockGetTime", 0, 1)
        zh.inject("NUK_MutexLock", 1)
        T.eq(call(), 1)
        zh.inject()
        T.eq(S.since(mark)[#S.since(mark)], "L3 [UPG-LOCK]get upgrade mutex failed!")
    end
    -- A read unlock without a list is refused before the mutex is touched.
    zh.inject("NUK_MutexLock", 1)
    T.eq(m.qav_UnLock(READ, nil), 3)
    T.has_line(S.since(mark), "L3 [UPG-LOCK]read type lock, vmlist should not null.")
    T.eq(m.qav_Lock(10, WRITE, ""), 1, "the injected mutex failure was still pending")
    local blocks = zh.memory().blocks
    zh.inject("ZAK_Malloc_F", 0)
    T.eq(m.qav_Lock(10, READ, vms("a")), FAIL)
    zh.inject("ZAK_Malloc_F", 0, 1)
    T.eq(m.qav_Lock(10, READ, vms("a")), FAIL)
    T.eq(zh.memory().blocks, blocks, "a half-made node is freed")
    T.has_lines(S.since(mark), { "L3 [UPG-LOCK]failed to alloc vmlock node memory!",
        "L3 [UPG-LOCK]failed to alloc vmlist node memory!", "L4 [UPG-LOCK]set upgrade write_read, result: 4294967295" })
    T.eq(m.qav_IsLocked(), false, "failed requests leave the lock idle")
end)

T.run()

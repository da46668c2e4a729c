-- The software-management lock, which ages out by itself, and the HA vnode lock.
local T = require "testlib"
local zh = require "zakhost"
local S = require "state.statelib"
local m = libqavluacommon

T.case("the lock lasts its ageing time, end second included, and is then taken over", function()
    S.at_boundary(function()
        m.qav_SWMUnLock()
        T.eq(T.results(m.qav_SWMLock(30)), { n = 1, 0 })
        zh.clock_advance(30)
        T.eq(m.qav_SWMLock(30), 2)
        zh.clock_advance(1)
        T.eq(m.qav_SWMLock(30), 0, "the expired lock is taken over")
        zh.clock_advance(30)
        T.eq(m.qav_SWMLock(5), 2, "the new period started at the takeover")
        zh.clock_advance(1)
        T.eq({ m.qav_SWMLock(0), m.qav_SWMLock(0) }, { 0, 2 }, "an ageing time of 0 locks for the current second")
        zh.clock_advance(1)
        T.eq(m.qav_SWMLock(0), 0)
    end)
end)

T.case("anyone may unlock, a free lock too", function()
    m.qav_SWMUnLock()
    T.eq(m.qav_SWMLock(1000), 0)
    T.eq({ T.results(m.qav_SWMUnLock()), m.qav_SWMUnLock() }, { { n = 1, 0 }, 0 })
    T.eq(m.qav_SWMLock(1000), 0)
    m.qav_SWMUnLock()
end)

T.case("clock and mutex failures push 1", function()
    m.qav_SWMUnLock()
    zh.inject("ZAK_OsClockGetTime", 0)
    T.eq(m.qav_SWMLock(10), 1)
    zh.inject("NUK_MutexLock", 1)
    T.eq(m.qav_SWMLock(10), 1)
    T.eq(m.qav_SWMLock(10), 0, "none of the failures took the lock")
    zh.inject("NUK_MutexLock", 1)
    T.eq(m.qav_SWMUnLock(), 1)
    T.eq(m.qav_SWMLock(10), 2, "a failed unlock leaves the lock")
    m.qav_SWMUnLock()
    -- The clock is read under the mutex (a time read before waiting can predate the holder's):
    -- with both failing, the mutex fails first and the clock failure is still pending.
    zh.inject("ZAK_OsClockGetTime", 0, 0, 1)
    zh.inject("NUK_MutexLock", 1)
    T.eq(m.qav_SWMLock(10), 1)
    T.eq(m.qav_SWMUnLock(), 0)
    T.eq({ m.qav_SWMLock(10), (m.qav_SWMLock(10)) }, { 1, 0 })
    m.qav_SWMUnLock()
end)

T.case("the HA vnode lock is only ever tried", function()
    T.eq(T.results(m.qav_HaVnodeLock()), { n = 1, 0 })
    T.eq(m.qav_HaVnodeLock(), 1, "a held lock is reported at once")
    T.eq(T.results(m.qav_HaVnodeUnlock()), { n = 1, 0 })
    T.eq(m.qav_HaVnodeLock(), 0)
    T.eq(m.qav_HaVnodeUnlock(), 0)
    zh.inject("NUK_MutexTrylock", 1)
    T.eq({ m.qav_HaVnodeLock(), (m.qav_HaVnodeLock()) }, { 1, 0 })
    m.qav_HaVnodeUnlock()
end)

T.run()

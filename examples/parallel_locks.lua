-- Coordinated scripts: several script states of one process share the library's named locks
-- and registers, as the download, patch and log-collection scripts of a device do. Each copy of
-- this script adds to a shared counter under the download lock, checking inside the lock that no
-- other copy holds it; the last copy to finish checks that no increment was lost.
--
--   qavlua init /tmp/dev && qavlua --root /tmp/dev -j 4 examples/parallel_locks.lua
local m = libqavluacommon

local WORKERS = 4 -- run with -j 4
local ROUNDS = 200
local me = QAVLUA_WORKER or 1
assert(me <= WORKERS, "run with -j " .. WORKERS)

-- Copy 1 creates the lock; the others wait until it exists (the init flag is set last).
if me == 1 then
    assert(m.qav_download_lock_init() == 0, "download lock init")
else
    repeat local _, created = m.qav_download_lock_init_flag() until created == 1
end

local overlaps = 0
for _ = 1, ROUNDS do
    assert(m.qav_download_lock_Lock() == 0, "download lock")
    m.qav_set_download_lock_info({sessionId = me, startTime = 0})
    -- The counter lives in a process-wide register; read, add, write back.
    local counter = m.qav_get_pat_noticeflag()
    m.qav_set_pat_noticeflag(counter + 1)
    local holder = {}
    m.qav_query_download_lock_info(holder)
    if holder.sessionId ~= me then overlaps = overlaps + 1 end
    m.qav_download_lock_Unlock()
end

-- Count the finished copies under the same lock; the last one reports.
m.qav_download_lock_Lock()
local done = m.qav_GetDLPkgInnerActSessionId() + 1
m.qav_SetDLPkgInnerActSessionId(done)
local total = m.qav_get_pat_noticeflag()
m.qav_download_lock_Unlock()
print(("worker %d: %d rounds, %d overlaps"):format(me, ROUNDS, overlaps))
if done == WORKERS then
    print(("all %d workers done: counter %d of %d expected"):format(WORKERS, total, WORKERS * ROUNDS))
    if total ~= WORKERS * ROUNDS then error("increments were lost") end
end
if overlaps > 0 then error("the lock let two workers in") end

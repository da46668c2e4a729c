-- Patch flow: load a hot patch the way the patch scripts do. The script takes the patch lock
-- and notes who holds it, records the load in the shared load-patch table (which another script
-- state reads back), logs every step to the patch log, raises the patch state event, and on a
-- failing step records the error (error ring, patch error table, patch error trap) before it
-- releases the lock.
--
--   qavlua init /tmp/dev && qavlua --root /tmp/dev examples/patch_flow.lua
local S = require "example_support"
local m = libqavluacommon

local SESSION = 4711
local PATCHES = {
    {name = "SPH001.PAT", version = "V100R001SPH001", ok = true},
    {name = "SPH002.PAT", version = "V100R001SPH002", ok = false, errorCode = 5005},
}

-- Once per process: the patch lock and the patch tables with their locks.
assert(m.qav_pat_lock_init() == 0, "patch lock init")
-- qav_luaTblInit declares two results on success, the 0 last (see the reference).
local init = {m.qav_luaTblInit()}
assert(init[#init] == 0, "patch tables init")
assert(m.qav_pat_diag_err_info_init() == 0, "patch error ring init")
local _, initFlag = m.qav_pat_lock_init_flag()
print(("patch lock initialised: %d"):format(initFlag))

-- 1. Take the patch lock and note the holder.
assert(m.qav_pat_lock_Lock() == 0, "patch lock")
m.qav_set_pat_lock_info({sessionId = SESSION, startTime = os.time(), traceback = "patch_flow"})
local info = {}
m.qav_query_pat_lock_info(info)
print(("patch lock held by session %d"):format(info.sessionId))
m.pat_write_log(6, ("===== patch load start, session %d ====="):format(SESSION))

-- 2. Load each patch: log, record, raise the state event; record failures.
local loaded = {}
for index, patch in ipairs(PATCHES) do
    m.pat_write_log(5, ("loading %s (%s)"):format(patch.name, patch.version))
    -- fid 1 index, fid 2 state (1 loaded, 2 failed), fid 3 session, fid 4 name, fid 5 type, fid 6 code
    loaded[#loaded + 1] = {
        {fid = 1, value = index}, {fid = 2, value = patch.ok and 1 or 2}, {fid = 3, value = SESSION},
        {fid = 4, value = patch.name}, {fid = 5, value = 171}, {fid = 6, value = patch.errorCode or 0},
    }
    local event = m.pat_event_log(patch.version, 1, patch.ok and 1 or 0)
    if patch.ok then
        S.step(event == 0, ("%s loaded, state event raised"):format(patch.name), event)
    else
        m.pat_write_log(3, ("loading %s failed, code %d"):format(patch.name, patch.errorCode))
        m.qav_set_pat_errinfo({time = os.date("!%Y-%m-%d %H:%M:%S"), cid = 1, errorCode = patch.errorCode,
                               funcName = "patch_flow", compName = patch.name})
        m.qav_luaPatchErrTblLock()
        m.qav_set_patch_errinfo(1, {{{fid = 1, value = index}, {fid = 2, value = patch.errorCode},
                                     {fid = 3, value = patch.name}, {fid = 4, value = SESSION}, {fid = 5, value = 0}}})
        m.qav_luaPatchErrTblUnlock()
        local trap = m.qav_trap_patcherror(index, 0, index, patch.errorCode, patch.name)
        S.step(false, ("%s failed; error recorded, patch error trap raised (%d)"):format(patch.name, trap),
               patch.errorCode)
    end
end

-- 3. Publish the load records for the other patch scripts, under the table's lock.
m.qav_luaLoadPatchTblLock()
local setCode = m.qav_set_load_patchinfo(#loaded, loaded)
m.qav_luaLoadPatchTblUnlock()
assert(setCode == 0, "load-patch table set")

-- 4. Read everything back as another script would.
m.qav_luaLoadPatchTblLock()
local _, records = m.qav_query_load_patchinfo()
m.qav_luaLoadPatchTblUnlock()
for _, record in ipairs(records) do
    print(("load record: #%d %s state %d code %d"):format(record[1].value, record[4].value, record[2].value,
                                                          record[6].value))
end
local _, errors = m.qav_query_pat_errinfo()
for i, e in ipairs(errors or {}) do
    print(("error ring %d: %s code %d in %s"):format(i, e.compName:gsub("%z.*", ""), e.errorCode,
                                                     e.funcName:gsub("%z.*", "")))
end

-- 5. Release the lock and forget the holder.
m.pat_write_log(6, "===== patch load end =====")
m.qav_pat_lock_Unlock()
m.qav_pat_lock_destroy()
print(("patch lock released; logs: %s/log/patch.log, events: %s/log/event.log"):format(S.root, S.root))

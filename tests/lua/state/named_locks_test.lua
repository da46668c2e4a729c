-- Named locks: creation, take and release, forced release of an abandoned lock, lock-info.
local T = require "testlib"
local zh = require "zakhost"
local S = require "state.statelib"
local m = libqavluacommon

local FAIL = 0xFFFFFFFF
local TIMEOUT = 0x102

local pairs_by_table = {
    pat = { m.qav_pat_lock_Lock, m.qav_pat_lock_Unlock },
    download = { m.qav_download_lock_Lock, m.qav_download_lock_Unlock },
    nv = { m.qav_nv_patch_lock_Lock, m.qav_nv_patch_lock_Unlock },
    dbg = { m.qav_pat_dbg_lock_Lock, m.qav_pat_dbg_lock_Unlock },
    collectlog = { m.qav_collectlog_lock_Lock, m.qav_collectlog_lock_Unlock },
    paterr = { m.qav_luaPatchErrTblLock, m.qav_luaPatchErrTblUnlock },
    flhsync = { m.qav_luaFlhSyncTblLock, m.qav_luaFlhSyncTblUnlock },
    loadpatch = { m.qav_luaLoadPatchTblLock, m.qav_luaLoadPatchTblUnlock },
    ntp = { m.qav_ntp_unicast_Lock, m.qav_ntp_unicast_Unlock },
    tpmreport = { m.qav_tpm_report_table_lock, m.qav_tpm_report_table_unlock },
    tpmstatus = { m.qav_tpm_status_table_lock, m.qav_tpm_status_table_unlock },
}

T.case("locks never created refuse at once and unlocking them is harmless; the TPM table locks exist from open", function()
    for _, name in ipairs { "pat", "download", "nv", "dbg", "collectlog", "paterr", "flhsync", "loadpatch", "ntp" } do
        T.eq({ T.results(pairs_by_table[name][1]()), T.results(pairs_by_table[name][2]()) }, { { n = 1, FAIL }, { n = 1, 0 } }, name)
    end
    T.eq(m.qav_download_lock_init_flag(), 0)
    for _, name in ipairs { "tpmreport", "tpmstatus" } do
        T.eq({ pairs_by_table[name][1](), pairs_by_table[name][2]() }, { 0, 0 }, name)
    end
end)

T.case("a failing semaphore makes the table init fail on the table that failed", function()
    zh.inject("NUK_SemaCreate", 1, 3, 1) -- patch error, flash sync, load patch succeed; download fails
    T.eq(T.results(m.qav_luaTblInit()), { n = 1, FAIL })
    -- tables before the failure were created; the failed one and those after it were not
    T.eq({ m.qav_download_lock_Lock(), m.qav_luaPatchErrTblLock(), m.qav_nv_patch_lock_Lock() }, { FAIL, 0, FAIL })
end)

T.case("the table init creates seven locks and declares two results for one", function()
    local r = T.results(m.qav_luaTblInit())
    -- One value pushed, two declared: the first result is the slot below it (the called function).
    T.eq({ r.n, r[1], r[2] }, { 2, m.qav_luaTblInit, 0 })
    for _, name in ipairs { "paterr", "flhsync", "loadpatch", "download", "nv", "dbg", "ntp" } do
        T.eq({ pairs_by_table[name][1](), pairs_by_table[name][2]() }, { 0, 0 }, name)
    end
    T.eq({ { m.qav_download_lock_init_flag() }, { m.qav_nv_patch_lock_init_flag() }, { m.qav_pat_dbg_lock_init_flag() } },
        { { 0, 1 }, { 0, 1 }, { 0, 1 } })
end)

T.case("a waiter whose slice runs out breaks the holder's lock and takes it", function()
    T.eq(m.qav_download_lock_Lock(), 0)
    -- The next wait times out as if the holder had kept the lock for five seconds.
    zh.inject("NUK_SemaP", TIMEOUT, 0, 1)
    T.eq(m.qav_download_lock_Lock(), 0, "the waiter gets the lock")
    -- The first holder's unlock releases the new holder's claim; a further unlock is harmless.
    T.eq({ m.qav_download_lock_Unlock(), (m.qav_download_lock_Unlock()) }, { 0, 0 })
    zh.inject("NUK_SemaP", TIMEOUT, 0, 1)
    T.eq(m.qav_download_lock_Lock(), 0, "a free lock whose wait fails once is taken on the retry")
    T.eq(m.qav_download_lock_Unlock(), 0)
end)

T.case("download, NV patch and patch-debug lock-info are stored and read through the script table", function()
    local sets = {
        { m.qav_set_download_lock_info, m.qav_query_download_lock_info, m.qav_download_lock_destroy },
        { m.qav_set_nv_patch_lock_info, m.qav_query_nv_patch_lock_info, m.qav_nv_patch_lock_destroy },
        { m.qav_set_pat_dbg_lock_info, m.qav_query_pat_dbg_lock_info, m.qav_pat_dbg_lock_destroy },
    }
    for i, f in ipairs(sets) do
        local set, query, destroy = f[1], f[2], f[3]
        T.eq(T.results(set { sessionId = 10 + i, startTime = 500 + i }), { n = 1, 0 })
        local info = {}
        T.eq(T.results(query(info)), { n = 1, 0 })
        T.eq(info, { sessionId = 10 + i, startTime = 500 + i })
        T.eq({ set { startTime = 9 }, query(info), info }, { 0, 0, { sessionId = 0, startTime = 9 } }, "a missing field reads as 0")
        T.eq(query("x"), FAIL)
        set { sessionId = 3, startTime = 4 }
        T.eq({ T.results(destroy()), query(info), info }, { { n = 1, 0 }, 0, { sessionId = 0, startTime = 0 } })
    end
    T.eq({ m.qav_download_lock_Lock(), m.qav_download_lock_Unlock() }, { 0, 0 }, "a destroy keeps the lock itself")
end)

T.case("download init is not guarded against a second call, patch-debug init is", function()
    for _, c in ipairs { { m.qav_pat_dbg_lock_init, 0 }, { m.qav_download_lock_init, FAIL } } do
        zh.inject("NUK_SemaCreate", 1)
        T.eq(c[1](), c[2])
        zh.inject()
    end
    m.qav_set_download_lock_info { sessionId = 5, startTime = 6 }
    T.eq(m.qav_download_lock_init(), 0)
    local info = {}
    m.qav_query_download_lock_info(info)
    T.eq(info, { sessionId = 0, startTime = 0 }, "an init clears the info")
    T.eq(m.qav_nv_patch_lock_init(), 0)
end)

T.case("the patch lock keeps a traceback buffer and stores the startTime text in it", function()
    local before = zh.memory().blocks
    zh.inject("ZAK_Malloc_F", 0)
    T.eq({ m.qav_pat_lock_init(), zh.memory().blocks, { m.qav_pat_lock_init_flag() } }, { FAIL, before, { 0, 0, 0 } }, "no traceback buffer")
    T.eq({ m.qav_pat_lock_init(), { m.qav_pat_lock_init_flag() } }, { 0, { 0, 1, 0 } })
    T.eq(m.qav_pat_lock_Lock(), 0)
    T.eq(m.qav_set_pat_lock_info { sessionId = 7, startTime = 100, traceback = "x" }, 0)
    local info = {}
    T.eq({ m.qav_query_pat_lock_info(info), info }, { 0, { sessionId = 7, startTime = 100, traceback = "100" } })
    T.eq(m.qav_set_pat_lock_info { sessionId = 8 }, FAIL, "a startTime without text form fails")
    m.qav_query_pat_lock_info(info)
    T.eq(info, { sessionId = 8, startTime = 0, traceback = "100" }, "what was read before the failure stays")
    T.eq(m.qav_set_pat_lock_info { sessionId = 1, startTime = string.rep("7", 600) }, 0)
    m.qav_query_pat_lock_info(info)
    T.eq(#info.traceback, 511)
    T.eq(m.qav_pat_lock_Unlock(), 0)
    T.eq(m.qav_pat_lock_destroy(), 0)
    T.eq(zh.memory().blocks, before, "destroy frees the traceback buffer")
    zh.inject("ZAK_Malloc_F", 0)
    T.eq(m.qav_query_pat_lock_info {}, FAIL, "no buffer can be allocated again")
    T.eq({ m.qav_query_pat_lock_info(info), info }, { 0, { sessionId = 0, startTime = 0, traceback = "" } }, "a new buffer starts empty")
end)

T.case("the auto-load marker is a plain flag", function()
    T.eq({ T.results(m.qav_pat_set_autoload_lock()), { m.qav_pat_lock_init_flag() }, T.results(m.qav_pat_autoload_lock_init()),
        { m.qav_pat_lock_init_flag() } }, { { n = 1, 0 }, { 0, 1, 1 }, { n = 1, 0 }, { 0, 1, 0 } })
end)

T.case("the collect-log lock keeps one info value", function()
    zh.inject("NUK_SemaCreate", 1)
    T.eq({ m.qav_collectlog_lock_init(), { m.qav_collectlog_lock_init_flag() }, m.qav_collectlog_lock_init(),
        { m.qav_collectlog_lock_init_flag() } }, { FAIL, { 0, 0 }, 0, { 0, 1 } })
    T.eq({ m.qav_collectlog_lock_Lock(), m.qav_set_collectlogt_lock_info(42), T.results(m.qav_query_collectlog_lock_info()) },
        { 0, 0, { n = 2, 0, 42 } })
    T.eq({ m.qav_collectlog_lock_destroy(), select(2, m.qav_query_collectlog_lock_info()), m.qav_collectlog_lock_Unlock() }, { 0, 0, 0 })
end)

T.case("the CRL lock is created by its first take and logs every step", function()
    local mark = S.mark("upgrade")
    T.eq(T.results(m.qav_crlLock_unlock()), { n = 1, FAIL })
    T.has_line(S.since(mark), "L3 Crl lock is not created")
    zh.inject("NUK_SemaCreate", 1)
    mark = S.mark("upgrade")
    T.eq(m.qav_crlLock_lock(), FAIL)
    T.eq(S.since(mark), { "L3 Init Crl lock failed" })
    zh.inject("NUK_MutexInit", 1)
    T.eq({ m.qav_crlLock_lock(), m.qav_crlLock_unlock() }, { FAIL, FAIL }, "still not created")
    mark = S.mark("upgrade")
    T.eq({ m.qav_crlLock_lock(), m.qav_crlLock_unlock() }, { 0, 0 })
    T.eq(S.since(mark), { "L1 Crl lock locked", "L1 Crl lock unlocked" })
    zh.inject("NUK_SemaCreate", 1)
    T.eq(m.qav_crlLock_lock(), 0, "an existing CRL lock is not created again")
    zh.inject()
    T.eq(m.qav_crlLock_unlock(), 0)
end)

T.case("the upgrade-state init creates the except-file and fault-board mutexes and returns nothing", function()
    T.eq({ T.results(m.qav_SU_luaTblInit()).n, m.sum_setExceptFileLock(5), { m.sum_getExceptFileLock() } }, { 0, 0, { 0, 5 } })
    m.qav_SU_luaTblInit()
    T.eq({ m.sum_getExceptFileLock() }, { 0, 5 }, "a second init keeps the value")
end)

T.run()

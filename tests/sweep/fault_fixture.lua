-- A small script for the fault-sweep test: every platform failure takes a handled path except the
-- one planted, chosen by the first argument:
--   error  a failed close raises a Lua error
--   leak   a failed write returns without releasing the download lock
--   hang   a failed write waits forever
--   crash  a failed write ends the process with SIGSEGV
local m = libqavluacommon
local planted = arg[1]

local function give_up(what, code)
    print(what .. " failed", code)
end

if m.qav_download_lock_init() ~= 0 then return give_up("lock init", -1) end
if m.qav_download_lock_Lock() ~= 0 then return give_up("lock", -1) end
local rc = m.luafs_mkdir("../data/fixture", 493, 2)
if rc ~= 0 then
    m.qav_download_lock_Unlock()
    return give_up("mkdir", rc)
end
local fd, handle = m.qav_spt_fopen(1, "../data/fixture/a.txt", "w")
if fd < 0 then
    m.qav_download_lock_Unlock()
    return give_up("open", fd)
end
local written = m.qav_spt_fwrite(handle, fd, "hello")
if written ~= 5 then
    m.qav_spt_fclose(handle, fd)
    if planted == "leak" then return end
    if planted == "hang" then while true do end end
    if planted == "crash" then
        local pid = io.open("/proc/self/stat"):read("*n")
        os.execute("kill -SEGV " .. pid)
        while true do end
    end
    m.qav_download_lock_Unlock()
    return give_up("write", written)
end
local closed = m.qav_spt_fclose(handle, fd)
if closed ~= 0 then
    if planted == "error" then error("closing a.txt <&> failed: " .. closed) end
    m.qav_download_lock_Unlock()
    return give_up("close", closed)
end
m.qav_download_lock_Unlock()
print("done")

-- A device script run by an installed qavlua: the library is the global, zakhost loads from the
-- install prefix, and qavpkg sits next to qavlua.
local zh = require "zakhost"
local m = libqavluacommon
local status, port = m.qav_luaAssignPortID(0x77)
assert(status == 0 and port == 41004, ("port %s %s"):format(status, port))
zh.log_clear()
assert(m.qav_Lock(30, 1, nil) == 0 and m.qav_IsLocked(), "upgrade lock")
zh.clock_advance(31)
assert(not m.qav_IsLocked(), "the lock lapses with the host clock")
local found = false
for _, line in ipairs(zh.log_lines("upgrade")) do
    if line:find("set upgrade write_lock, result: 0", 1, true) then found = true end
end
assert(found, "upgrade log line")
print("installed qavlua ran the device script")

-- A device script run by an installed qavlua: the library is the global and zakhost loads from the
-- install prefix (what the library answers is the script-level suites' part).
local zh = require "zakhost"
local status, port = libqavluacommon.qav_luaAssignPortID(0x77)
assert(status == 0 and port == 41004 and type(zh.log_lines) == "function", ("port %s %s"):format(status, port))
print("installed qavlua ran the device script")

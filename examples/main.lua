-- The main example: a device script run by qavlua in a fresh sandbox. It opens the library (done
-- by qavlua), counts the script functions this build provides, and hands out port numbers for
-- two OS nodes the way the upgrade scripts reserve them for their helpers.
local m = libqavluacommon

local count = 0
for _ in pairs(m) do count = count + 1 end
print(string.format("libqavluacommon: %d script functions", count))

for _, node in ipairs({ 0x101, 0x102 }) do
    local ports = {}
    for _ = 1, 3 do
        local status, port = m.qav_luaAssignPortID(node)
        assert(status == 0, "port assignment failed")
        ports[#ports + 1] = port
    end
    print(string.format("OS node %#x: ports %s", node, table.concat(ports, ", ")))
end

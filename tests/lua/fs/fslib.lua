-- Helpers for the file-engine tests: shell commands, file contents and the engine's log lines.
local T = require "testlib"
local zh = require "zakhost"
local F = {}

function F.sh(command)
    local p = assert(io.popen(command .. " 2>&1"))
    local out = p:read("*a")
    p:close()
    return (out:gsub("\n$", ""))
end

function F.ok(command)
    return os.execute(command) == true
end

F.write, F.read = T.write, T.read

function F.kind(path)
    return F.sh("stat -c %F " .. path)
end

-- The engine's messages since the last F.clear(), without the log prefix.
function F.messages()
    local out = {}
    for _, line in ipairs(zh.log_lines("diag")) do
        local msg = line:match("vfm record err msg fatal: (.*)$")
        if msg then out[#out + 1] = msg end
    end
    return out
end

function F.clear() zh.log_clear() end

-- With the messages cleared, `call(...)` must answer `code` and leave a message containing `text`.
function F.fails(code, text, call, ...)
    F.clear()
    T.eq(call(...), code, text)
    T.has_line(F.messages(), text)
end

return F

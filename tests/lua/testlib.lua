-- A small test framework for device-script tests run by qavlua in a fresh sandbox:
--   T.case("assign hands out 41004 first", function() T.eq({m.qav_luaAssignPortID(7)}, {0, 41004}) end)
--   T.run()   -- prints "N passed, M failed" and exits non-zero on any failure
local T = {}
local cases = {}

local function show(v, depth)
    depth = depth or 0
    if type(v) == "string" then return string.format("%q", v) end
    if type(v) ~= "table" or depth > 3 then return tostring(v) end
    local keys = {}
    for k in pairs(v) do keys[#keys + 1] = k end
    table.sort(keys, function(a, b) return tostring(a) < tostring(b) end)
    local parts = {}
    for _, k in ipairs(keys) do parts[#parts + 1] = "[" .. show(k) .. "]=" .. show(v[k], depth + 1) end
    return "{" .. table.concat(parts, ", ") .. "}"
end
T.show = show

local function deep_equal(a, b)
    if a == b then return true end
    if type(a) == "number" and type(b) == "number" then return a == b end
    if type(a) ~= "table" or type(b) ~= "table" then return false end
    for k, v in pairs(a) do if not deep_equal(v, b[k]) then return false end end
    for k in pairs(b) do if a[k] == nil then return false end end
    return true
end
T.deep_equal = deep_equal

local function fail(message, level)
    error(message, (level or 1) + 2)
end

function T.eq(actual, expected, message)
    if not deep_equal(actual, expected) then
        fail((message and message .. ": " or "") .. "expected " .. show(expected) .. ", got " .. show(actual))
    end
end

function T.ok(value, message)
    if not value then fail(message or "expected a true value") end
end

-- The message of some line of `lines` that contains `text` (plain substring), or fails.
function T.has_line(lines, text, message)
    for _, line in ipairs(lines) do
        if string.find(line, text, 1, true) then return line end
    end
    fail((message and message .. ": " or "") .. "no line contains " .. show(text) .. " in " .. show(lines))
end

-- T.has_line for each text of `texts`.
function T.has_lines(lines, texts)
    for _, text in ipairs(texts) do T.has_line(lines, text) end
end

function T.no_line(lines, text, message)
    for _, line in ipairs(lines) do
        if string.find(line, text, 1, true) then
            fail((message and message .. ": " or "") .. "unexpected line " .. show(line))
        end
    end
end

-- A file's bytes (nil when it cannot be opened); writing one (returns the path); a command's output.
function T.read(path)
    local f = io.open(path, "rb"); if not f then return nil end
    local d = f:read("*a"); f:close(); return d
end

function T.write(path, data)
    local f = assert(io.open(path, "wb")); f:write(data); f:close(); return path
end

function T.capture(command)
    local p = assert(io.popen(command)); local out = p:read("*a"); p:close()
    return (out:gsub("%s+$", ""))
end

-- A mark in a sandbox log; T.since(mark) gives the lines after it as "<id> L<level> <message>".
function T.mark(log)
    local lines = {}
    local f = io.open(require("zakhost").root() .. "/log/" .. log .. ".log")
    for line in f and f:lines() or function() end do lines[#lines + 1] = line:match("^%S+ (.*)$") or line end
    if f then f:close() end
    return { log = log, at = #lines, lines = lines }
end

function T.since(mark)
    local all, out = T.mark(mark.log).lines, {}
    for i = mark.at + 1, #all do out[#out + 1] = all[i] end
    return out
end

-- Retries a check reading whole seconds at a zakhost.clock_advance boundary, where a real second may tick.
function T.at_boundary(check)
    local err
    for _ = 1, 3 do
        local ok, e = pcall(check)
        if ok then return end
        err = e
    end
    error(err, 2)
end

-- What a second qavlua process running `code` on the same sandbox prints.
function T.second_process(code)
    local root = require("zakhost").root()
    local path = T.write(root .. "/second.lua", code)
    local qavlua = T.capture("echo ${QAVLUA_EXE:-$(readlink /proc/$PPID/exe)}")
    return T.capture("'" .. qavlua .. "' --root '" .. root .. "' '" .. path .. "'")
end

-- A time record (second, millSec and week default to 0); T.fresh() clears injected failures and logs,
-- as at the start of every case.
function T.tm(y, mo, d, h, mi, s, ms, wk)
    return { year = y, month = mo, date = d, hour = h, minute = mi, second = s or 0, millSec = ms or 0, week = wk or 0 }
end

function T.fresh()
    local zh = require "zakhost"
    zh.inject()
    zh.log_clear()
end

-- Packs every result of a call, nils included: T.results(f(...)) -> {n = count, ...}
function T.results(...) return { n = select("#", ...), ... } end

function T.case(name, body) cases[#cases + 1] = { name = name, body = function() T.fresh() body() end } end

function T.run()
    local passed, failed = 0, 0
    for _, c in ipairs(cases) do
        local ok, err = xpcall(c.body, debug.traceback)
        if ok then
            passed = passed + 1
        else
            failed = failed + 1
            io.stderr:write("FAIL ", c.name, "\n", tostring(err), "\n")
        end
    end
    print(string.format("%d passed, %d failed", passed, failed))
    io.stdout:flush()
    if failed > 0 then os.exit(1) end
end

return T

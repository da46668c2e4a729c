-- Helpers of the shared-state tests: log lines with their levels, read from the log files the
-- runner writes under the sandbox.
local zh = require "zakhost"
local S = {}

local function file_lines(log)
    local lines = {}
    local f = io.open(zh.root() .. "/log/" .. log .. ".log")
    if not f then return lines end
    for line in f:lines() do
        -- "<time> <id> L<level> <message>" -> "L<level> <message>"
        lines[#lines + 1] = line:match("^%S+ %S+ (.*)$") or line
    end
    f:close()
    return lines
end

-- A mark in one log; S.since(mark) gives the "L<level> <message>" lines written after it.
function S.mark(log) return { log = log, at = #file_lines(log) } end

function S.since(mark)
    local all, out = file_lines(mark.log), {}
    for i = mark.at + 1, #all do out[#out + 1] = all[i] end
    return out
end

S.FAIL = 0xFFFFFFFF

-- Runs a check that reads whole seconds right at a boundary moved by zakhost.clock_advance. The
-- real clock keeps running too, so a real second may tick over inside the check; a check that
-- fails three times in a row fails for another reason.
function S.at_boundary(check)
    local err
    for _ = 1, 3 do
        local ok, e = pcall(check)
        if ok then return end
        err = e
    end
    error(err, 2)
end

return S

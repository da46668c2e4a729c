-- Helpers of the shared-state tests: log lines with their levels, read from the log files the
-- runner writes under the sandbox.
local T = require "testlib"
local zh = require "zakhost"
local S = {}

-- A mark in one log; S.since(mark) gives the "L<level> <message>" lines written after it.
S.mark = T.mark
function S.since(mark)
    local out = T.since(mark)
    for i, line in ipairs(out) do out[i] = line:gsub("^%S+ ", "", 1) end
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

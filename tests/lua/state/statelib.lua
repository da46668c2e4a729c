-- Helpers of the shared-state tests: log lines with their levels, read from the log files the
-- runner writes under the sandbox.
local T = require "testlib"
local S = {}

-- A mark in one log; S.since(mark) gives the "L<level> <message>" lines written after it.
S.mark = T.mark
function S.since(mark)
    local out = T.since(mark)
    for i, line in ipairs(out) do out[i] = line:gsub("^%S+ ", "", 1) end
    return out
end

S.FAIL = 0xFFFFFFFF

S.at_boundary = T.at_boundary

return S

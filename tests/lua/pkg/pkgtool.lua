-- Fixture helpers for package tests: runs qavpkg (next to the running qavlua) and checks that a
-- call leaves no platform allocation behind.
local zh = require "zakhost"
local P = {}

local function tool_dir()
    local pipe = io.popen("echo ${QAVLUA_EXE:-$(readlink -f /proc/$PPID/exe)}")
    local exe = pipe:read("*l")
    pipe:close()
    return exe:match("^(.*)/[^/]*$")
end
P.qavpkg_path = tool_dir() .. "/qavpkg"
P.root = zh.root()

local function quote(text)
    return "'" .. tostring(text):gsub("'", "'\\''") .. "'"
end

-- Runs `qavpkg ...`; fails the test when the command fails.
function P.qavpkg(...)
    local parts = { quote(P.qavpkg_path) }
    for _, a in ipairs({ ... }) do parts[#parts + 1] = quote(a) end
    local ok = os.execute(table.concat(parts, " ") .. " >/dev/null")
    assert(ok, "qavpkg failed: " .. table.concat(parts, " "))
end

-- Option list for a package description: each entity {name, opt = value | {values}}.
local function entity_options(entities)
    local args = {}
    for _, e in ipairs(entities) do
        args[#args + 1] = "--entity"
        args[#args + 1] = e[1]
        local keys = {}
        for k in pairs(e) do if type(k) == "string" then keys[#keys + 1] = k end end
        table.sort(keys)
        for _, k in ipairs(keys) do
            local values = type(e[k]) == "table" and e[k] or { e[k] }
            for _, v in ipairs(values) do
                args[#args + 1] = "--" .. k
                args[#args + 1] = v
            end
        end
    end
    return args
end

-- Writes a package description under the sandbox root; returns its full path.
function P.desc(name, entities)
    local path = P.root .. "/" .. name
    P.qavpkg("pkgdesc", path, table.unpack(entity_options(entities)))
    return path
end

function P.entitydb(entities)
    P.qavpkg("entitydb", P.root, table.unpack(entity_options(entities)))
end

function P.write(name, text)
    local path = P.root .. "/" .. name
    local f = assert(io.open(path, "wb"))
    f:write(text)
    f:close()
    return path
end

-- Calls fn and checks that the platform's live block count is the same afterwards; returns the
-- packed results ({n = count, ...}).
function P.balanced(fn)
    local before = zh.memory().blocks
    local r = table.pack(fn())
    local after = zh.memory().blocks
    assert(before == after, string.format("platform blocks leaked: %d before, %d after", before, after))
    return r
end

return P

-- Package fixtures for the version configuration, integrity, ISSU and risk-check tests: files
-- written by Lua and packages built by qavpkg (found next to the qavlua running the test).
local T = require "testlib"
local zh = require "zakhost"
local F = {}

F.root = zh.root()
F.common = F.root .. "/zakv8/main"

local function quote(s) return "'" .. tostring(s):gsub("'", "'\\''") .. "'" end
F.quote = quote

local function qavpkg_path()
    local p = io.popen("echo ${QAVLUA_EXE:-$(readlink /proc/$PPID/exe)}")
    local exe = p:read("*l")
    p:close()
    return (exe:gsub("/[^/]*$", "")) .. "/qavpkg"
end
F.qavpkg_bin = qavpkg_path()

function F.sh(command)
    local ok = os.execute(command)
    return ok == true or ok == 0
end

-- Runs qavpkg with the given arguments; raises when it fails.
function F.qavpkg(...)
    local parts = { quote(F.qavpkg_bin) }
    for _, a in ipairs({ ... }) do parts[#parts + 1] = quote(a) end
    local command = table.concat(parts, " ")
    assert(F.sh(command .. " 2>&1 >/dev/null"), "qavpkg failed: " .. command)
end

F.write, F.read = T.write, T.read

function F.exists(path) return F.sh("test -e " .. quote(path)) end

function F.mkdir(path) assert(F.sh("mkdir -p " .. quote(path))) end

function F.rm(path) assert(F.sh("rm -rf " .. quote(path))) end

-- A package directory under the sandbox with the given files ({name = content}), described by a
-- vercfg.xml built by qavpkg with the extra arguments. Returns the directory.
local serial = 0
function F.package(files, ...)
    serial = serial + 1
    local dir = F.root .. "/pkg" .. serial
    F.mkdir(dir)
    for name, content in pairs(files) do
        F.mkdir((dir .. "/" .. name):gsub("/[^/]*$", ""))
        F.write(dir .. "/" .. name, content)
    end
    F.qavpkg("vercfg", dir, ...)
    return dir
end

-- The upgrade-log and patch-log messages written since the last clear.
function F.patch_log() return zh.log_lines("patch") end

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
function F.desc(name, entities)
    local path = F.root .. "/" .. name
    F.qavpkg("pkgdesc", path, table.unpack(entity_options(entities)))
    return path
end

function F.entitydb(entities)
    F.qavpkg("entitydb", F.root, table.unpack(entity_options(entities)))
end

-- Writes a file under the sandbox root; returns its full path.
function F.put(name, text) return T.write(F.root .. "/" .. name, text) end

-- Calls fn and checks that the platform's live block count is the same afterwards; returns the
-- packed results ({n = count, ...}).
function F.balanced(fn)
    local before = zh.memory().blocks
    local r = table.pack(fn())
    local after = zh.memory().blocks
    assert(before == after, string.format("platform blocks leaked: %d before, %d after", before, after))
    return r
end

-- Calls the library function `name` through F.balanced.
function F.call(name, ...)
    local args = table.pack(...)
    return F.balanced(function() return libqavluacommon[name](table.unpack(args, 1, args.n)) end)
end

return F

-- Package fixtures for the version configuration, integrity, ISSU and risk-check tests: files
-- written by Lua and packages built by qavpkg (found next to the qavlua running the test).
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

function F.write(path, content)
    local f = assert(io.open(path, "wb"))
    f:write(content)
    f:close()
end

function F.read(path)
    local f = io.open(path, "rb")
    if not f then return nil end
    local data = f:read("*a")
    f:close()
    return data
end

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

-- Lists of every entry under a directory, relative names, sorted.
function F.tree(dir)
    local p = io.popen("cd " .. quote(dir) .. " 2>/dev/null && find . -mindepth 1 | sort")
    local names = {}
    for line in p:lines() do names[#names + 1] = line end
    p:close()
    return names
end

-- The upgrade-log and patch-log messages written since the last clear.
function F.patch_log() return zh.log_lines("patch") end

return F

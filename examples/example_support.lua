-- Helpers the examples share for what a device already has and a host sandbox has not: a
-- package on disk, built with qavpkg (found next to the qavlua running the example).
local zh = require "zakhost"
local S = {}

S.root = zh.root()

local function quote(s) return "'" .. tostring(s):gsub("'", "'\\''") .. "'" end

local function sh(command)
    local ok = os.execute(command)
    return ok == true or ok == 0
end
S.sh = sh

-- qavpkg lives next to qavlua (the build's bin directory or an install prefix's bin); QAVLUA_EXE
-- names qavlua where /proc cannot (a runner started through an emulator).
local function qavpkg_path()
    local p = io.popen("echo ${QAVLUA_EXE:-$(readlink /proc/$PPID/exe)}")
    local exe = p:read("*l")
    p:close()
    return (exe:gsub("/[^/]*$", "")) .. "/qavpkg"
end
S.qavpkg_bin = qavpkg_path()

function S.qavpkg(...)
    local parts = {quote(S.qavpkg_bin)}
    for _, a in ipairs({...}) do parts[#parts + 1] = quote(a) end
    local command = table.concat(parts, " ")
    assert(sh(command .. " >/dev/null"), "qavpkg failed: " .. command)
end

function S.mkdir(path) assert(sh("mkdir -p " .. quote(path))) end

function S.write(path, content)
    local f = assert(io.open(path, "wb"))
    f:write(content)
    f:close()
end

-- A package directory <sandbox>/packages/<name> holding the files ({name = content}) and the
-- vercfg.xml that qavpkg writes for them with the given extra arguments.
function S.package(name, files, ...)
    local dir = S.root .. "/packages/" .. name
    S.mkdir(dir)
    for file, content in pairs(files) do S.write(dir .. "/" .. file, content) end
    S.qavpkg("vercfg", dir, ...)
    return dir
end

-- Prints one step of an example: "  ok   text" or "  FAIL text (code)".
function S.step(ok, text, code)
    print(("  %-4s %s%s"):format(ok and "ok" or "FAIL", text, (not ok and code ~= nil) and (" (code " .. (math.floor(code) == code and code > 0xFFFF and ("%#x"):format(code) or tostring(code)) .. ")") or ""))
    return ok
end

return S

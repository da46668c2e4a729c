-- Generates, from the script-function catalogue and the zakhost definitions, what checks device
-- scripts before they run: a luacheck configuration (the library's fields, the zakhost module, the
-- globals qavlua sets) and the table of functions and argument counts compiled into `qavlua check`.
-- usage: lua5.x checks.lua CATALOGUE ZAKHOST_DEFINITIONS LUACHECKRC_OUT TABLE_OUT
local here = arg[0]:match("^(.*)/[^/]*$") or "."
local C = dofile(here .. "/catalogue.lua")
local catalogue_path, zakhost_path, luacheck_out, table_out = arg[1], arg[2], arg[3], arg[4]
if not (catalogue_path and zakhost_path and luacheck_out and table_out) then
    io.stderr:write("usage: checks.lua CATALOGUE ZAKHOST_DEFINITIONS LUACHECKRC_OUT TABLE_OUT\n")
    os.exit(2)
end
local cat = C.load_or_exit(catalogue_path)

-- The functions the zakhost definitions declare, in their order.
local zakhost = {}
for name in assert(io.open(zakhost_path)):read("*a"):gmatch("\nfunction zakhost%.([%w_]+)%(") do
    zakhost[#zakhost + 1] = name
end
assert(#zakhost > 0, "no zakhost functions in " .. zakhost_path)

local write = C.write

local function fields(names, indent)
    local lines = {}
    for _, name in ipairs(names) do lines[#lines + 1] = indent .. name .. " = {}," end
    return table.concat(lines, "\n")
end

local library = {}
for _, f in ipairs(cat.functions) do library[#library + 1] = f.name end

write(luacheck_out, ([[
-- luacheck configuration for device scripts, generated from the script-function catalogue by
-- tools/gen/checks.lua; do not edit. Use it as is (luacheck --config <this file> FILE...) or load
-- it from a project's .luacheckrc: dofile("<prefix>/share/qavluacommon/luacheckrc").
-- luacheck then reports an unknown libqavluacommon.<name> (warning 143) and the globals a device
-- script does not have; `qavlua check FILE...` also follows require results and local aliases and
-- checks argument counts.

-- What qavlua (and the device's script engine) gives every script.
stds.qavlua = {
    read_globals = {
        libqavluacommon = {fields = {
%s
        }},
        QAVLUA_WORKER = {},
        arg = {other_fields = true},
    },
}

-- The zakhost control module (require "zakhost"), for a project whose tests keep it in a global
-- of that name: add "+zakhost" to std.
stds.zakhost = {
    read_globals = {
        zakhost = {fields = {
%s
        }},
    },
}

std = "max+qavlua"
-- Test files run by busted through qavlua also see busted's functions.
files["**/*_test.lua"] = {std = "max+qavlua+busted"}
files["**/*_spec.lua"] = {std = "max+qavlua+busted"}
]]):format(fields(library, "            "), fields(zakhost, "            ")))

-- A macro of the rows, one a line, for the array initialisers of check.cpp.
local function macro(name, rows)
    return "#define " .. name .. " \\\n    " .. table.concat(rows, ", \\\n    ") .. "\n"
end
local library_rows = {}
for _, f in ipairs(cat.functions) do
    local min, max = C.counts(f)
    library_rows[#library_rows + 1] = ('{"%s", %d, %d}'):format(f.name, min, max or -1)
end
local zakhost_rows = {}
for _, name in ipairs(zakhost) do zakhost_rows[#zakhost_rows + 1] = ('"%s"'):format(name) end
local rows = {"// Generated from the script-function catalogue by tools/gen/checks.lua; do not edit.",
              "// Library functions: name, fewest and most arguments (-1: any number).",
              macro("QAVLUA_CHECK_LIBRARY", library_rows),
              "// The functions of the zakhost control module.",
              macro("QAVLUA_CHECK_ZAKHOST", zakhost_rows)}
write(table_out, table.concat(rows, "\n"))

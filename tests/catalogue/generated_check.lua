-- The files generated from the catalogue: the language server definitions declare every function
-- with its parameters and results; the reference documents each under its area with its details.
-- usage: lua5.x generated_check.lua SOURCE_DIR META_FILE REFERENCE_FILE
local source, metaPath, referencePath = arg[1], arg[2], arg[3]
local C = dofile(source .. "/tools/gen/catalogue.lua")
local cat = C.load(source .. "/docs/catalogue/functions.lua")

local failures = 0
local function check(ok, message)
    if not ok then
        failures = failures + 1
        io.stderr:write("FAIL: " .. message .. "\n")
    end
end
local function read(path)
    local f = assert(io.open(path, "rb"))
    local text = f:read("*a")
    f:close()
    return text
end

-- The definitions are valid Lua and define exactly the catalogued functions.
local meta = read(metaPath)
check(meta:sub(1, 8) == "---@meta", "the definitions start with ---@meta")
local chunk, err = loadfile(metaPath)
check(chunk ~= nil, "the definitions load: " .. tostring(err))
if chunk then
    libqavluacommon = nil
    local returned = chunk()
    check(type(libqavluacommon) == "table" and returned == libqavluacommon, "the definitions declare the global")
    local count = 0
    for name, value in pairs(libqavluacommon or {}) do
        count = count + 1
        check(type(value) == "function", name .. " is declared as a function")
    end
    check(count == #cat.functions, ("%d functions declared, %d catalogued"):format(count, #cat.functions))
end

-- Each declaration carries one @param per argument and one @return per result.
local blocks = {}
for block, name, params in meta:gmatch("\n(%-%-%-.-)\nfunction libqavluacommon%.([%w_]+)%(([^)]*)%) end") do
    blocks[name] = {text = block, params = params}
end
for _, f in ipairs(cat.functions) do
    local b = blocks[f.name]
    check(b ~= nil, "declaration of " .. f.name)
    if b then
        local _, nparam = b.text:gsub("@param ", "")
        local _, nreturn = b.text:gsub("@return ", "")
        check(nparam == #f.arglist, ("%s: %d @param for %d arguments"):format(f.name, nparam, #f.arglist))
        check(nreturn == #f.resultlist, ("%s: %d @return for %d results"):format(f.name, nreturn, #f.resultlist))
        check(b.text:find(f.entry, 1, true) ~= nil, f.name .. ": names its entry function")
        -- The language server matches @param names to the function's parameters, in order.
        local names = {}
        for name in b.text:gmatch("@param ([%w_%.]+)%??%s") do names[#names + 1] = name end
        check(table.concat(names, ", ") == b.params, f.name .. ": @param names (" .. table.concat(names, ", ") ..
              ") match the parameters (" .. b.params .. ")")
        for line in b.text:gmatch("@return ([^\n]*)") do
            check(line:match("^[%w_|%.]+%??%s+[%w_%.]+$") ~= nil, f.name .. ": @return '" .. line .. "' is a type and a name")
        end
    end
end

-- The reference: an area section per area, a section per function inside its area, its codes.
local reference = read(referencePath)
local areaStart = {}
for _, a in ipairs(cat.areas) do
    areaStart[a.id] = reference:find("\n## " .. a.title .. "\n", 1, true)
    check(areaStart[a.id] ~= nil, "reference section of area " .. a.id)
end
local function section_of(name)
    local at = reference:find("\n#### " .. name .. "\n", 1, true)
    return at and reference:sub(at + 1, (reference:find("\n###", at + 1, true) or #reference)), at
end
-- Every table argument and result shows its shape and an example that is valid Lua; the argument
-- counts, the profile facts and the logs of the catalogue are there too, and the facts authors
-- tripped over are named where they matter.
for _, f in ipairs(cat.functions) do
    local section, at = section_of(f.name)
    check(at ~= nil, "reference section of " .. f.name)
    check(not at or not areaStart[f.area] or at > areaStart[f.area], f.name .. " is documented under its area")
    section = section or ""
    for _, code in ipairs(f.codes) do
        local value, meaning = code:match("^([<>=]*%-?%d[%w]*)%s+(.*)$")
        local line = value and ("- `" .. value .. "` " .. meaning) or ("- " .. code)
        check(section:find(line, 1, true) ~= nil, f.name .. ": code '" .. code .. "' in the reference")
    end
    check(section:find("\nTakes ", 1, true) ~= nil, f.name .. ": argument counts in the reference")
    for name, shape in pairs(f.shapes or {}) do
        check(section:find("Table `" .. name .. "`: ", 1, true) and section:find("```lua\n" .. shape[2] .. "\n```", 1, true),
              f.name .. ": shape and example of table " .. name)
        check(load("return " .. shape[2]) or load(shape[2]), f.name .. ": the example of " .. name .. " is Lua: " .. shape[2])
        check(not shape[2]:find("{fid, value}", 1, true), f.name .. ": " .. name .. " shows items as {fid, value}")
    end
    for _, fact in ipairs(f.profile or {}) do check(section:find(fact, 1, true), f.name .. ": profile fact " .. fact) end
    for _, log in ipairs(f.logs or {}) do check(section:find("`" .. log .. ".log`", 1, true), f.name .. ": log " .. log) end
end
for _, named in ipairs {
    {"qav_RpmGetVersionInfo", "`[device] morlo`"}, {"qav_VerifyAndSetGuestOSKey", "`[device] nps`"},
    {"luafs_opendir", "zakhost.isnull"}, {"qav_Lock", "Takes 3 arguments; another count answers `1`."},
    {"qav_set_patch_errinfo", "{fid = 1, value = 1}"}, {"qav_Belto_BinToAsc", "bytes, count, lowercase"},
} do
    check((section_of(named[1]) or ""):find(named[2], 1, true), named[1] .. " names " .. named[2])
end

if failures > 0 then
    io.stderr:write(failures .. " failure(s)\n")
    os.exit(1)
end
print(("generated files cover %d functions in %d areas"):format(#cat.functions, #cat.areas))

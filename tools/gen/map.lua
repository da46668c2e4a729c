-- Writes docs/map.md: for every area, the source files of its script functions, each with its
-- script names and entry functions, the platform headers it calls, the host files behind those
-- headers, and the tests that call its functions. A test keeps the committed map equal to this
-- output; after moving or adding files, regenerate it:
--     lua5.4 tools/gen/map.lua . > docs/map.md
local here = arg[0]:match("^(.*)/[^/]*$") or "."
local C = dofile(here .. "/catalogue.lua")
local root = arg[1] or "."
local cat = C.load_or_exit(root .. "/docs/catalogue/functions.lua")

local function read(path)
    local file = assert(io.open(root .. "/" .. path, "r"))
    local text = file:read("*a")
    file:close()
    return text
end

-- The files below DIR whose names end in one of the suffixes, sorted, relative to the root.
local function files(dir, suffixes)
    local list = {}
    local pipe = assert(io.popen(("cd '%s' && find %s -type f 2>/dev/null | LC_ALL=C sort"):format(root, dir)))
    for path in pipe:lines() do
        for _, suffix in ipairs(suffixes) do
            if path:sub(-#suffix) == suffix then
                list[#list + 1] = path
                break
            end
        end
    end
    pipe:close()
    return list
end

-- Where an entry function is defined: an entry-function definition or a family-table row in a
-- .cpp, or any mention in a family table (.def). The registry itself is not a definition.
local function words_of(text)
    local set = {}
    for word in text:gmatch("[%a_][%w_]*") do set[word] = true end
    return set
end
local sources, definedIn = {}, {}
for _, path in ipairs(files("src", {".cpp", ".def"})) do
    if path ~= "src/binding/registry.def" then
        local s = {path = path, text = read(path)}
        sources[#sources + 1] = s
        local names = {}
        if path:sub(-4) == ".def" then
            names = words_of(s.text)
        else
            for line in s.text:gmatch("[^\n]+") do
                local name = line:match("QAV_ENTRY_FUNCTION%s+([%w_]+)%s*%(") or
                    line:match("int%s+([%w_]+)%s*%(%s*lua_State") or line:match("^%s*[%u_]+%(%s*([%w_]+)")
                if name then names[name] = true end
            end
        end
        for name in pairs(names) do definedIn[name] = definedIn[name] or s end
    end
end
local function source_of(entry) return definedIn[entry] end

-- A family table is expanded by the .cpp that includes it; that file's includes count for it.
local function includes_of(path, text)
    local list = {}
    for name in text:gmatch('#include%s+"([^"]+)"') do list[#list + 1] = name end
    if path:sub(-4) == ".def" then
        local base = path:match("([^/]+)$")
        for _, s in ipairs(sources) do
            if s.path:sub(-4) == ".cpp" and s.text:find('#include%s+"[^"]*' .. base:gsub("%p", "%%%0") .. '"') then
                for name in s.text:gmatch('#include%s+"([^"]+)"') do list[#list + 1] = name end
            end
        end
    end
    return list
end

-- The functions each platform header declares, and the host files that define them.
local headers, declaredIn = {}, {}
for _, path in ipairs(files("platform/include", {".h"})) do
    local name = path:match("([^/]+)$")
    headers[name] = true
    for line in read(path):gmatch("[^\n]+") do
        local fn = line:match("^[%a_][%w_%s%*]-[%s%*]([%a_][%w_]*)%s*%(")
        if fn and not line:find("^typedef") and not line:find("^#") then declaredIn[fn] = name end
    end
end
local implementedBy = {}
for _, path in ipairs(files("platform/host", {".cpp"})) do
    for line in read(path):gmatch("[^\n]+") do
        line = line:gsub('^extern "C" ', "")
        local fn = line:match("^[%a_][%w_%s%*:]-[%s%*]([%a_][%w_]*)%s*%(")
        local header = fn and declaredIn[fn]
        if header and not line:find(";%s*$") then
            implementedBy[header] = implementedBy[header] or {}
            implementedBy[header][path] = true
        end
    end
end
local function host_files_of(header)
    local list = {}
    for path in pairs(implementedBy[header] or {}) do list[#list + 1] = path end
    table.sort(list)
    return list
end

-- The platform headers a source file includes, as "`name.h`", sorted.
local function platform_headers(path, text)
    local seen, used = {}, {}
    for _, name in ipairs(includes_of(path, text)) do
        if headers[name] and not seen[name] then
            seen[name] = true
            used[#used + 1] = "`" .. name .. "`"
        end
    end
    table.sort(used)
    return used
end

-- The tests of a behaviour: the script-level and unit suites (the catalogue, fuzz, stress and
-- command-line suites call every function and would name every file).
local tests = {}
for _, path in ipairs(files("tests/lua tests/unit", {".lua", ".cpp"})) do
    tests[#tests + 1] = {path = path, words = words_of(read(path))}
end

-- Source file -> its functions, in catalogue order; files in order of first appearance per area.
local byArea = {}
local unplaced = {}
for _, f in ipairs(cat.functions) do
    local s = source_of(f.entry)
    if not s then
        unplaced[#unplaced + 1] = f.name
    else
        local area = byArea[f.area] or {order = {}, files = {}}
        byArea[f.area] = area
        if not area.files[s.path] then
            area.files[s.path] = {source = s, functions = {}}
            area.order[#area.order + 1] = s.path
        end
        table.insert(area.files[s.path].functions, f)
    end
end

local out = {}
local function put(line) out[#out + 1] = line end
put("# Map of the tree")
put("")
put("Generated by `tools/gen/map.lua` from the function catalogue and the sources; do not edit (a")
put("test keeps it equal to the generator's output). Each area is one folder of `src/`, of")
put("`tests/lua/` and one page of `docs/`. For each source file: the script names it registers and")
put("their entry functions, the platform headers (`platform/include/`) it includes, and the tests")
put("that call its functions. The last table names, for every platform header, the host files")
put("(`platform/host/`) that define its functions.")
put("")
for _, area in ipairs(cat.areas) do
    put(("## %s: `src/%s/`, `tests/lua/%s/`, `docs/%s.md`"):format(area.title, area.id, area.id, area.id))
    put("")
    local entry = byArea[area.id] or {order = {}, files = {}}
    for _, path in ipairs(entry.order) do
        local file = entry.files[path]
        put("### `" .. path .. "`")
        put("")
        local names, words = {}, {}
        for _, f in ipairs(file.functions) do
            names[#names + 1] = ("`%s` (`%s`)"):format(f.name, f.entry)
            words[#words + 1] = f.name
            words[#words + 1] = f.entry
        end
        put("- Script functions: " .. table.concat(names, ", ") .. ".")
        local used = platform_headers(path, file.source.text)
        put("- Platform headers: " .. (#used > 0 and table.concat(used, ", ") or "none") .. ".")
        local hits = {}
        for _, t in ipairs(tests) do
            for _, word in ipairs(words) do
                if t.words[word] then
                    hits[#hits + 1] = "`" .. t.path .. "`"
                    break
                end
            end
        end
        put("- Tests: " .. (#hits > 0 and table.concat(hits, ", ") or "none") .. ".")
        put("")
    end
    -- The area's other sources (the engines and tables behind the script functions).
    local helpers = {}
    for _, s in ipairs(sources) do
        if s.path:find("^src/" .. area.id .. "/") and not entry.files[s.path] then
            local used = platform_headers(s.path, s.text)
            if #used > 0 then helpers[#helpers + 1] = "`" .. s.path .. "` (" .. table.concat(used, ", ") .. ")" end
        end
    end
    if #helpers > 0 then
        put("Other sources of the area, with the platform headers they call: " .. table.concat(helpers, ", ") .. ".")
        put("")
    end
end
put("## Platform headers and their host files")
put("")
put("| Header | Host files that define its functions |")
put("|---|---|")
local names = {}
for name in pairs(headers) do names[#names + 1] = name end
table.sort(names)
for _, header in ipairs(names) do
    local impl = host_files_of(header)
    for i, p in ipairs(impl) do impl[i] = "`" .. p .. "`" end
    put(("| `%s` | %s |"):format(header, #impl > 0 and table.concat(impl, ", ") or "(types only)"))
end
put("")
-- The map claims one folder of src/ and of tests/lua/ and one docs page per area, and nothing
-- else there but the library's framework folders.
local problems = {}
if #unplaced > 0 then problems[#problems + 1] = "no definition found for " .. table.concat(unplaced, ", ") end
local function folders(dir)
    local set = {}
    local pipe = assert(io.popen(("cd '%s' && find %s -mindepth 1 -maxdepth 1 -type d"):format(root, dir)))
    for path in pipe:lines() do set[path:match("([^/]+)$")] = true end
    pipe:close()
    return set
end
local framework = {binding = true, boundscheck = true}
local srcDirs, testDirs = folders("src"), folders("tests/lua")
for _, area in ipairs(cat.areas) do
    if not srcDirs[area.id] then problems[#problems + 1] = "no folder src/" .. area.id end
    if not testDirs[area.id] then problems[#problems + 1] = "no folder tests/lua/" .. area.id end
    if not io.open(root .. "/docs/" .. area.id .. ".md") then problems[#problems + 1] = "no page docs/" .. area.id .. ".md" end
    srcDirs[area.id], testDirs[area.id] = nil, nil
end
for name in pairs(srcDirs) do
    if not framework[name] then problems[#problems + 1] = "src/" .. name .. " is not an area of the catalogue" end
end
for name in pairs(testDirs) do problems[#problems + 1] = "tests/lua/" .. name .. " is not an area of the catalogue" end
if #problems > 0 then
    table.sort(problems)
    io.stderr:write("map.lua: " .. table.concat(problems, "\nmap.lua: ") .. "\n")
    os.exit(1)
end
io.write(table.concat(out, "\n"))

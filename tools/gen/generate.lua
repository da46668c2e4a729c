-- Generates, from the script-function catalogue, the Lua language server definitions of the
-- global libqavluacommon and the Markdown API reference.
-- usage: lua5.x generate.lua CATALOGUE META_OUT REFERENCE_OUT
local here = arg[0]:match("^(.*)/[^/]*$") or "."
local C = dofile(here .. "/catalogue.lua")
local catalogue_path, meta_out, reference_out = arg[1], arg[2], arg[3]
if not (catalogue_path and meta_out and reference_out) then
    io.stderr:write("usage: generate.lua CATALOGUE META_OUT REFERENCE_OUT\n")
    os.exit(2)
end

local cat = C.load_or_exit(catalogue_path)

local KEYWORDS = {}
for w in ([[and break do else elseif end false for function goto if in local nil not or repeat
            return then true until while]]):gmatch("%a+") do KEYWORDS[w] = true end
local function ident(name)
    if name == "..." then return name end
    if KEYWORDS[name] then return name .. "_" end
    return name
end

-- A code line "CODE meaning" with the code set as inline code, so that Markdown does not read
-- a leading ">" or "<" as markup.
local function code_line(text)
    local code, meaning = text:match("^([<>=]*%-?%d[%w]*)%s+(.*)$")
    if not code then return text end
    return "`" .. code .. "` " .. meaning
end

-- "0xFFFFFFFF" for the unsigned codes as the reference writes them, else the number.
local function code_text(value)
    if value == "" then return "an empty text" end
    if value == "count" then return "the argument count itself" end
    if value >= 0x10000 then return ("`0x%X`"):format(value) end
    return ("`%d`"):format(value)
end

-- What the function accepts: "Takes 3 arguments; another count answers `1`."
local function counts_line(f)
    local min, max = C.counts(f)
    local took
    if max == nil then
        took = min == 0 and "Takes any number of arguments" or ("Takes %d or more arguments"):format(min)
    elseif min == max then
        took = min == 0 and "Takes no arguments" or ("Takes %d argument%s"):format(min, min == 1 and "" or "s")
    else
        took = ("Takes %d to %d arguments"):format(min, max)
    end
    if f.badcount == nil then
        return took .. (max and min == max and min > 0 and " (a missing one reads as nil; more are ignored)." or ".")
    end
    if f.ignoresextra then
        return ("%s; fewer answer %s, more are ignored."):format(took, code_text(f.badcount))
    end
    return ("%s; another count answers %s."):format(took, code_text(f.badcount))
end

-- Functions grouped by topic in catalogue order; areas and their topics in their listed order.
local byTopic, byArea = {}, {}
for _, f in ipairs(cat.functions) do
    byTopic[f.topic] = byTopic[f.topic] or {}
    table.insert(byTopic[f.topic], f)
    byArea[f.area] = (byArea[f.area] or 0) + 1
end
local function topics_of(area)
    local list = {}
    for _, t in ipairs(cat.topics) do
        if t.area == area.id and byTopic[t.id] then list[#list + 1] = t end
    end
    return list
end

local write = C.write

-- Lua language server definitions ----------------------------------------------------------------
local meta = {
    "---@meta libqavluacommon",
    "-- Generated from docs/catalogue/functions.lua by tools/gen/generate.lua; do not edit.",
    "-- Point the Lua language server's workspace.library at the folder holding this file.",
    "",
    "---The script functions of libqavluacommon. Device scripts reach them through the global",
    "---`libqavluacommon` (qavlua and the device load it) or `require \"libqavluacommon\"`.",
    "---@class libqavluacommon",
    "libqavluacommon = {}",
    "",
}
local function add(line) meta[#meta + 1] = line end

for _, area in ipairs(cat.areas) do
  for _, topic in ipairs(topics_of(area)) do
    add("-- " .. topic.title .. " " .. string.rep("-", math.max(3, 90 - #topic.title)))
    add("")
    for _, f in ipairs(byTopic[topic.id]) do
        add("---" .. f.summary)
        if #f.codes > 0 then
            add("---")
            add("---Codes:")
            for _, c in ipairs(f.codes) do add("--- * " .. code_line(c)) end
        end
        add("---")
        add("---" .. counts_line(f))
        for _, p in ipairs(f.profile or {}) do add("---Profile: " .. p .. ".") end
        if f.logs then add("---Logs to: " .. table.concat(f.logs, ", ") .. ".") end
        for _, r in ipairs(f.resultlist) do
            local shape = f.shapes and f.shapes[r.name]
            if shape then add(("---Result `%s`: %s; e.g. `%s`."):format(r.name, shape[1], shape[2])) end
        end
        add("---Entry function `" .. f.entry .. "`; area: " .. area.title .. " (`src/" .. area.id .. "`).")
        local params = {}
        for _, a in ipairs(f.arglist) do
            local name = ident(a.name)
            params[#params + 1] = name
            local shape = f.shapes and f.shapes[a.name]
            add(("---@param %s%s %s%s"):format(name, a.optional and "?" or "", a.type,
                                               shape and (" " .. shape[1] .. "; e.g. `" .. shape[2] .. "`") or ""))
        end
        for _, r in ipairs(f.resultlist) do
            if r.name == "..." then
                add(("---@return %s ..."):format(r.type))
            else
                add(("---@return %s%s %s"):format(r.type, r.optional and "?" or "", ident(r.name)))
            end
        end
        add(("function libqavluacommon.%s(%s) end"):format(f.name, table.concat(params, ", ")))
        add("")
    end
  end
end
add("return libqavluacommon")
write(meta_out, table.concat(meta, "\n") .. "\n")

-- Markdown reference ---------------------------------------------------------------------------
local md = {}
local function put(line) md[#md + 1] = line end
local function signature(f)
    local params = {}
    for _, a in ipairs(f.arglist) do params[#params + 1] = a.name .. (a.optional and "?" or "") end
    local results = {}
    for _, r in ipairs(f.resultlist) do results[#results + 1] = r.name .. (r.optional and "?" or "") end
    local call = ("libqavluacommon.%s(%s)"):format(f.name, table.concat(params, ", "))
    if #results > 0 then call = table.concat(results, ", ") .. " = " .. call end
    return call
end
local function escape(text) return (text:gsub("|", "\\|")) end

put("# libqavluacommon script function reference")
put("")
put("Generated from `docs/catalogue/functions.lua`; do not edit. " .. #cat.functions ..
    " script functions in " .. #cat.areas .. " areas. Every function is called as")
put("`libqavluacommon.<name>(...)` and never raises a Lua error: failures come back as result codes.")
put("Codes are shown as the script sees them; `0xFFFFFFFF` is the unsigned form of -1.")
put("")
put("- **Argument counts.** Each function says how many arguments it takes and what it answers to a call")
put("  with another count. An argument typed `...|nil` must still be passed (as `nil`): leaving it out")
put("  changes the count. `qavlua check FILE...` finds calls with a count a function does not take.")
put("- **Tables.** Every table argument and result shows its shape and an example. Items are tables with")
put("  named fields: `{fid = 1, value = v}`, never `{1, v}`.")
put("- **Profile facts.** The host platform answers from the sandbox profile (`<root>/zakhost.ini`, or")
put("  `zakhost.profile_set(section, key, value)` in a test); where a key changes a function's results,")
put("  the function names it.")
put("- **Logs.** Failures are logged rather than raised; each function names the logs it writes to,")
put("  `<root>/log/<log>.log` under `qavlua` (`zakhost.log_lines(\"<log>\")` in a test).")
put("")
put("## Areas")
put("")
for _, area in ipairs(cat.areas) do
    local anchor = area.title:lower():gsub("[^%w%s-]", ""):gsub("%s", "-")
    put(("- [%s](#%s) (%d)"):format(area.title, anchor, byArea[area.id] or 0))
end
put("")
for _, area in ipairs(cat.areas) do
  put("## " .. area.title)
  put("")
  put("Library notes: `docs/" .. area.id .. ".md`; sources: `src/" .. area.id .. "/`; map: `docs/map.md`.")
  put("")
  for _, topic in ipairs(topics_of(area)) do
    if topic.title ~= area.title then
        put("### " .. topic.title)
        put("")
    end
    put("| Function | Summary |")
    put("|---|---|")
    for _, f in ipairs(byTopic[topic.id]) do
        put(("| [`%s`](#%s) | %s |"):format(f.name, f.name:lower(), escape(f.summary)))
    end
    put("")
    for _, f in ipairs(byTopic[topic.id]) do
        put("#### " .. f.name)
        put("")
        put("```lua")
        put(signature(f))
        put("```")
        put("")
        put(f.summary .. " Entry function `" .. f.entry .. "`.")
        put("")
        if #f.arglist > 0 then
            put("| Argument | Type |")
            put("|---|---|")
            for _, a in ipairs(f.arglist) do
                local note = a.optional and " (may be left out)" or a.type:find("|nil", 1, true) and " (pass nil when unused)" or ""
                put(("| `%s` | `%s`%s |"):format(a.name, escape(a.type), note))
            end
            put("")
        end
        put(counts_line(f))
        put("")
        if #f.resultlist > 0 then
            put("| Result | Type |")
            put("|---|---|")
            for _, r in ipairs(f.resultlist) do
                put(("| `%s` | `%s`%s |"):format(r.name, escape(r.type), r.optional and " (on some paths only)" or ""))
            end
        else
            put("No results.")
        end
        put("")
        -- Tables: their shape and an example, arguments first, each name once.
        local shown = {}
        for _, list in ipairs {f.arglist, f.resultlist} do
            for _, a in ipairs(list) do
                local shape = f.shapes and f.shapes[a.name]
                if shape and not shown[a.name] then
                    shown[a.name] = true
                    put(("Table `%s`: %s."):format(a.name, escape(shape[1])))
                    put("")
                    put("```lua")
                    put(shape[2])
                    put("```")
                    put("")
                end
            end
        end
        if #f.codes > 0 then
            put("Codes:")
            put("")
            for _, c in ipairs(f.codes) do put("- " .. code_line(c)) end
            put("")
        end
        if f.profile then
            put("Profile facts (`<root>/zakhost.ini`, or `zakhost.profile_set`) that change the results:")
            put("")
            for _, p in ipairs(f.profile) do put("- " .. p) end
            put("")
        end
        if f.logs then
            local files = {}
            for i, l in ipairs(f.logs) do files[i] = "`" .. l .. ".log`" end
            put("Logs (failures among the lines): " .. table.concat(files, ", ") .. " in `<root>/log/` (`zakhost.log_lines(\"" ..
                f.logs[1] .. "\")`).")
            put("")
        end
    end
  end
end
write(reference_out, table.concat(md, "\n"))

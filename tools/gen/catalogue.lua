-- Shared reading of the script-function catalogue for the generators and the catalogue test.
-- Usage: local cat = dofile(".../tools/gen/catalogue.lua").load(path)
local M = {}

local TYPE = "^[%a_][%w_%.]*[%[%]%w_|%.]*%??$"

-- Parses "name:type, name:type" into {{name=, type=, optional=}}; returns nil and a message on a
-- malformed list.
function M.parse_list(text)
    local list = {}
    if text == "" then return list end
    for item in (text .. ","):gmatch("%s*([^,]*),") do
        local name, ty = item:match("^([%a_%.][%w_%.]*):(.+)$")
        if not name then return nil, "malformed item '" .. item .. "'" end
        ty = ty:gsub("%s+$", "")
        if not ty:match(TYPE) then return nil, "malformed type '" .. ty .. "' of " .. name end
        local optional = ty:sub(-1) == "?"
        if optional then ty = ty:sub(1, -2) end
        list[#list + 1] = {name = name, type = ty, optional = optional}
    end
    return list
end

-- The argument counts a function accepts: the arguments not marked optional, and every listed
-- one (nil: any number, for "...", unless maxargs bounds it).
function M.counts(f)
    local min, max = 0, 0
    for _, a in ipairs(f.arglist) do
        if a.name == "..." then return min, f.maxargs end
        max = max + 1
        if not a.optional then min = max end
    end
    return min, max
end

local LOGS = {}
for name in ("upgrade patch diag base syslog issu cms sdm ha trace"):gmatch("%a+") do LOGS[name] = true end
M.logs = LOGS

-- Loads and validates the catalogue; raises with every problem found.
function M.load(path)
    local chunk = assert(loadfile(path))
    local cat = chunk()
    local problems = {}
    local function bad(msg) problems[#problems + 1] = msg end
    local areas, topics = {}, {}
    for i, a in ipairs(cat.areas) do
        areas[a.id] = a
        a.order = i
    end
    for _, t in ipairs(cat.topics) do
        topics[t.id] = t
        if not areas[t.area] then bad("topic " .. t.id .. ": unknown area " .. tostring(t.area)) end
    end
    cat.topic_by_id = topics
    local seen = {}
    for i, f in ipairs(cat.functions) do
        local where = f.name or ("record " .. i)
        for _, key in ipairs {"name", "entry", "topic", "args", "results", "summary"} do
            if type(f[key]) ~= "string" then bad(where .. ": field " .. key .. " missing") end
        end
        if type(f.codes) ~= "table" then bad(where .. ": codes missing") end
        if f.name and seen[f.name] then bad(where .. ": listed twice") end
        if f.name then seen[f.name] = true end
        if f.topic and not topics[f.topic] then bad(where .. ": unknown topic " .. tostring(f.topic)) end
        f.area = topics[f.topic] and topics[f.topic].area
        local msg
        if f.args then f.arglist, msg = M.parse_list(f.args) end
        if msg then bad(where .. ": args: " .. msg) end
        if f.results then f.resultlist, msg = M.parse_list(f.results) end
        if msg then bad(where .. ": results: " .. msg) end
        if type(f.summary) == "string" and not f.summary:match("%.$") then bad(where .. ": summary is not a sentence") end
        local bc = f.badcount
        if bc ~= nil and type(bc) ~= "number" and bc ~= "" and bc ~= "count" then
            bad(where .. ": badcount is a number, \"\" or \"count\"")
        end
        if f.ignoresextra and bc == nil then bad(where .. ": ignoresextra without badcount") end
        if f.maxargs and not (f.arglist and f.arglist[#f.arglist] and f.arglist[#f.arglist].name == "...") then
            bad(where .. ": maxargs without \"...\"")
        end
        for _, l in ipairs(f.logs or {}) do
            if not LOGS[l] then bad(where .. ": unknown log " .. tostring(l)) end
        end
        for name, shape in pairs(f.shapes or {}) do
            if type(shape) ~= "table" or type(shape[1]) ~= "string" or type(shape[2]) ~= "string" then
                bad(where .. ": shape of " .. tostring(name) .. " is {text, example}")
            end
        end
        for _, list in ipairs {f.arglist or {}, f.resultlist or {}} do
            for _, a in ipairs(list) do
                if a.type:find("table", 1, true) and not (f.shapes and f.shapes[a.name]) then
                    bad(where .. ": table " .. a.name .. " has no shape")
                end
            end
        end
        for _, list in ipairs {f.arglist or {}, f.resultlist or {}} do
            for _, a in ipairs(list) do
                if a.name:match("^%a%d?$") then bad(where .. ": the name " .. a.name .. " does not say what it is") end
            end
        end
        for name in pairs(f.shapes or {}) do
            local known = false
            for _, list in ipairs {f.arglist or {}, f.resultlist or {}} do
                for _, a in ipairs(list) do known = known or a.name == name end
            end
            if not known then bad(where .. ": shape of unknown argument or result " .. tostring(name)) end
        end
    end
    if #problems > 0 then error(table.concat(problems, "\n"), 0) end
    return cat
end

-- For the generators: the catalogue, or its problems on standard error and exit status 1.
function M.load_or_exit(path)
    local ok, cat = pcall(M.load, path)
    if ok then return cat end
    io.stderr:write(path .. ":\n" .. tostring(cat) .. "\n")
    os.exit(1)
end

-- Writes a generated file whole (through a temporary file, so a failed run leaves no half file).
function M.write(path, text)
    local file = assert(io.open(path .. ".tmp", "w"))
    file:write(text)
    file:close()
    assert(os.rename(path .. ".tmp", path))
end

-- The (name, entry) pairs of the registry source, in order, duplicates included.
function M.registry(path)
    local entries = {}
    for line in io.lines(path) do
        local name, entry = line:match('^QAV_ENTRY%("([^"]+)",%s*([%w_]+)%)')
        if name then entries[#entries + 1] = {name = name, entry = entry} end
    end
    return entries
end

return M

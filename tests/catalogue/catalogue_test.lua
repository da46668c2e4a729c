-- The catalogue lists every registered function once, with its entry function, and nothing else.
local T = require "testlib"
local source = assert(os.getenv("QAV_SOURCE_DIR"), "QAV_SOURCE_DIR not set")
local C = dofile(source .. "/tools/gen/catalogue.lua")

local ok, cat = pcall(C.load, source .. "/docs/catalogue/functions.lua")
T.case("the catalogue is well formed", function()
    T.ok(ok, ok or cat)
end)
if not ok then return T.run() end

local byName = {}
for _, f in ipairs(cat.functions) do byName[f.name] = f end

T.case("every registry entry is catalogued with its own entry function", function()
    local registry = C.registry(source .. "/src/binding/registry.def")
    T.eq(#registry, 309, "registry entries")
    local distinct = {}
    for _, r in ipairs(registry) do
        local f = byName[r.name]
        T.ok(f ~= nil, "not catalogued: " .. r.name)
        if f then T.eq(f.entry, r.entry, "entry function of " .. r.name) end
        distinct[r.name] = true
    end
    for _, f in ipairs(cat.functions) do T.ok(distinct[f.name], "catalogued but not registered: " .. f.name) end
end)

T.case("the loaded library registers exactly the catalogued names", function()
    local lib = libqavluacommon
    T.ok(type(lib) == "table", "libqavluacommon is loaded")
    local count = 0
    for name, value in pairs(lib) do
        count = count + 1
        T.ok(byName[name] ~= nil, "registered but not catalogued: " .. tostring(name))
        T.eq(type(value), "function", name)
    end
    T.eq(count, #cat.functions, "registered names")
end)

T.case("every area has functions and every argument a type", function()
    local perArea = {}
    for _, f in ipairs(cat.functions) do
        perArea[f.area] = (perArea[f.area] or 0) + 1
        for _, a in ipairs(f.arglist) do T.ok(a.type ~= "", f.name .. " argument " .. a.name) end
    end
    for _, a in ipairs(cat.areas) do T.ok((perArea[a.id] or 0) > 0, "area without functions: " .. a.id) end
end)

T.run()

-- The zakhost module's language server definitions load as Lua and declare exactly its functions.
local T = require "testlib"
local zh = require "zakhost"
local source = assert(os.getenv("QAV_SOURCE_DIR"), "QAV_SOURCE_DIR not set")

T.case("the definitions declare every function of the module and nothing else", function()
    local chunk = assert(loadfile(source .. "/docs/catalogue/zakhost.lua"))
    local declared = chunk()
    T.ok(type(declared) == "table", "the definitions return the module table")
    for name, value in pairs(zh) do
        if type(value) == "function" then T.ok(type(declared[name]) == "function", "not declared: zakhost." .. name) end
    end
    for name in pairs(declared) do T.ok(type(zh[name]) == "function", "declared but absent: zakhost." .. name) end
end)

T.case("isnull tells the null handle of a failed luafs_opendir from a real one", function()
    local m = libqavluacommon
    local failed, open = m.luafs_opendir("no/such/dir"), m.luafs_opendir(".")
    for _, c in ipairs {{failed, true}, {nil, true}, {open, false}, {false, false}, {0, false}, {"", false}} do
        T.eq(zh.isnull(c[1]), c[2], "isnull(" .. tostring(c[1]) .. ")")
    end
    m.luafs_closedir(open)
end)

T.run()

-- "rpm_listcpt", "rpm_depend", "rpm_whorequire" over the device's entity database.
local T = require "testlib"
local zh = require "zakhost"
local P = require "pkg_fixtures"
local m = libqavluacommon

-- A new sandbox starts with a sample database.
local sample = table.pack(m.rpm_depend("rib"))

P.entitydb({
    { "core", id = 1, version = "2.0", ["change-flag"] = "5" },
    { "fib", id = 2, version = "1.5", require = "core >= 2.0" },
    { "ospf", id = 3, version = "1.0", file = "ospf.so",
      require = { "fib >= 1.0", "core = 2.0", "fib > 1.5", "missing", "core < 1.0" } },
    { "card", id = 4, section = "board", require = "fib" },
    { "cli", id = 5, require = "ospf" },
})

local call = P.call

local function names(list)
    local out = {}
    for i, e in pairs(list) do out[i] = e.Entity end
    return out
end

T.case("the sample database of a new sandbox answers", function()
    T.eq({ sample.n, sample[1].rib.matched[1].Entity, sample[1].rib.mismatched }, { 1, "base", {} })
end)

T.case("rpm_listcpt lists the known names in order and marks them", function()
    T.eq(call("rpm_listcpt"), { n = 1, {} })
    local r = call("rpm_listcpt", "core", "nosuch", 42, "ospf", {})
    T.eq({ r.n, names(r[1]), r[1][1].ChangeFlag, r[1][2].ChangeFlag, r[1][2].File }, { 1, { "core", "ospf" }, 1, 1, { "ospf.so" } })
    -- A new call loads a new object: the database's own flag shows again.
    local w = call("rpm_whorequire", "core")
    T.eq(w[1].core.ChangeFlag, 5)
end)

T.case("rpm_depend sorts each requirement into matched entities and mismatched relation texts", function()
    local r = call("rpm_depend", "fib", "ospf", "nosuch")
    T.eq({ r.n, names(r[1].fib.matched), r[1].fib.mismatched }, { 1, { "core" }, {} })
    T.eq(names(r[1].ospf.matched), { "fib", "core" })
    T.eq(r[1].ospf.mismatched, { "fib > 1.5", "missing", "core < 1.0" })
    T.eq(r[1].nosuch, { matched = {}, mismatched = {} })
end)

T.case("rpm_depend returns the half-built array at once when a step fails", function()
    zh.inject("ISSU_PKG_QueryEntity", 0, 1)
    local r = call("rpm_depend", "ospf", "fib")
    zh.inject()
    T.eq(r.n, 1)
    T.eq(names(r[1]), { "fib" })
    zh.inject("ISSU_REL_ToString", 0, 2)
    r = call("rpm_depend", "ospf")
    T.eq(r, { n = 1, { "fib > 1.5", "missing" } })
end)

T.case("rpm_whorequire gives each entity with everything that requires it", function()
    local r = call("rpm_whorequire", "core", "cli")
    T.eq({ r.n, names(r[1].core.Required), r[1].core.Entity, r[1].cli.Required }, { 1, { "cli", "fib", "ospf" }, "core", {} })
end)

T.case("rpm_whorequire of an unknown name stores below the result table", function()
    -- Only the name is pushed, so the store pops the result table as the key and writes into
    -- the argument below it; the name argument is then the top and the one result.
    T.eq(call("rpm_whorequire", "nosuch"), { n = 1, "nosuch" })
    local holder = {}
    local r = call("rpm_whorequire", holder, "nosuch")
    T.eq(r, { n = 1, "nosuch" })
end)

T.case("without a database the queries return nothing", function()
    for _, f in ipairs { { "ISSU_PKG_CreatePkg", 0 }, { "ISSU_PKG_Load", -2 } } do
        zh.inject(f[1], f[2], 0, 3)
        T.eq({ call("rpm_listcpt", "core"), call("rpm_depend", "core"), call("rpm_whorequire", "core") },
            { { n = 0 }, { n = 0 }, { n = 0 } }, f[1])
    end
    zh.inject()
    zh.profile_set("pkgmgr", "entity_db", "/zakv8/main/data/absent.xml")
    T.eq(call("rpm_listcpt", "core"), { n = 0 })
    zh.profile_set("pkgmgr", "entity_db", nil)
    T.eq(call("rpm_listcpt", "core")[1][1].Entity, "core")
end)

T.run()

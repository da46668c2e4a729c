-- "issu": comparison of a running and a candidate package description.
local T = require "testlib"
local zh = require "zakhost"
local P = require "pkg_fixtures"
local m = libqavluacommon

local function issu(a, b) return P.balanced(function() return m.issu(a, b) end) end
local function entities(list)
    local out = {}
    for i, e in ipairs(list) do out[i] = e.Entity end
    return out
end

local base = {
    { "ospf", id = 1, version = "1.2.0", file = { "ospf.so", "ospf.cfg" }, require = "rib >= 1.0" },
    { "rib", id = 2, version = "1.0" },
    { "bgp", id = 3, version = "2.0", require = "rib" },
}

T.case("identical packages give code 0 and two empty tables; an extra argument moves only the placeholder", function()
    local a = P.desc("same_a.xml", base)
    T.eq({ issu(a, P.desc("same_b.xml", base)), P.balanced(function() return m.issu(a, a, "extra") end) },
        { { n = 3, 0, {}, {} }, { n = 3, 0, {}, {} } })
end)

T.case("modified, added and removed entities are numbered across the three lists", function()
    local a = P.desc("diff_a.xml", {
        { "alpha", id = 1, version = "1.0" }, { "gone", id = 2, version = "1.0" },
        { "same", id = 3, version = "1.0" }, { "files", id = 4, file = "x.so" },
    })
    local b = P.desc("diff_b.xml", {
        { "alpha", id = 1, version = "1.1", type = "process", cpu = "main", section = "entity",
          ["cur-version"] = "1.0", ["comp-version"] = "0.9", compat = "1", ["change-flag"] = "7",
          ["upgrade-mode"] = "hitless", ["incompatible-upgrade-mode"] = "restart",
          ["compatibility-ver"] = "1.0.0", file = { "a.so", "", "c.so" } },
        { "same", id = 3, version = "1.0.0" }, -- equal by value: "1.0" and "1.0.0"
        { "files", id = 4, file = "y.so" },
        { "fresh", id = 9 },
    })
    local r = issu(a, b)
    local d = r[2]
    T.eq({ r.n, r[1], #d }, { 3, 0, 4 })
    T.eq(d[1], {
        EntityId = 1, Entity = "alpha", Version = "1.1", CurVersion = "1.0", CompVersion = "0.9",
        Type = "process", UpgradeMode = "hitless", IncompatibleUpgradeMode = "restart",
        CompatibilityVer = "1.0.0", Section = "entity", Cpu = "main", Compat = 1, ChangeFlag = 1,
        File = { [1] = "a.so", [3] = "c.so" }, Required = {},
    })
    T.eq({ d[2].Entity, d[2].ChangeFlag, d[2].File }, { "files", 1, { "y.so" } })
    -- (unset versions leave their keys out)
    T.eq({ d[3].Entity, d[3].ChangeFlag, d[3].EntityId, d[3].Version, d[3].CurVersion, d[3].CompVersion }, { "fresh", 2, 9 })
    T.eq({ d[4].Entity, d[4].ChangeFlag, d[4].Version }, { "gone", 3, "1.0" })
    -- The stored record keeps its own flag: the group table shows it after the push.
    local flags = {}
    for _, group in ipairs(r[3]) do
        for _, e in ipairs(group) do flags[e.Entity] = e.ChangeFlag end
    end
    T.eq(flags, { alpha = 7, files = 0, fresh = 0, gone = 0 })
end)

T.case("a version without a text form shows the empty string", function()
    local a = P.desc("ver_a.xml", { { "e", version = "1" } })
    local b = P.desc("ver_b.xml", { { "e", version = "", ["cur-version"] = "3" } })
    local r = issu(a, b)
    T.eq({ r[2][1].Version, r[2][1].CurVersion }, { "", "3" })
    zh.inject("ISSU_VER_ToString", 0, 0, 10)
    r = issu(a, b)
    T.eq({ r[1], r[2][1].Version, r[2][1].CurVersion }, { 0, "", "" })
end)

local chain = {
    { "core", version = "1.0" },
    { "mid", version = "1.0", require = "core >= 1.0" },
    { "top", version = "1.0", require = "mid" },
    { "board", version = "1.0", section = "board", require = "core" },
    { "loner", version = "1.0" },
}

T.case("Required lists the whole requirement chain, entity sections only, in name order", function()
    local a = P.desc("chain_a.xml", chain)
    local changed = {}
    for i, e in ipairs(chain) do changed[i] = e end
    changed[1] = { "core", version = "2.0" }
    local b = P.desc("chain_b.xml", changed)
    local r = issu(a, b)
    -- core and everything requiring it form one group; board is a member but not listed.
    T.eq({ #r[2], entities(r[2][1].Required), entities(r[3][1]), #r[3] }, { 1, { "mid", "top" }, { "core", "mid", "top" }, 1 })
end)

T.case("a requirement cycle is listed once and ends", function()
    local cycle = {
        { "x", version = "1", require = "y" }, { "y", version = "1", require = "z" },
        { "z", version = "1", require = "x" },
    }
    local a = P.desc("cyc_a.xml", cycle)
    local b = P.desc("cyc_b.xml", { { "x", version = "2", require = "y" }, cycle[2], cycle[3] })
    local r = issu(a, b)
    T.eq({ entities(r[2][1].Required), #r[3], #r[3][1] }, { { "y", "z" }, 1, 3 })
end)

T.case("groups without an entity-section member take no number", function()
    local a = P.desc("grp_a.xml", {
        { "aa", version = "1" }, { "bb", version = "1", section = "feature" }, { "cc", version = "1" },
        { "dd", version = "1", require = "cc" },
    })
    local b = P.desc("grp_b.xml", {
        { "aa", version = "2" }, { "bb", version = "2", section = "feature" }, { "cc", version = "2" },
        { "dd", version = "1", require = "cc" },
    })
    local r = issu(a, b)
    T.eq(#r[2], 3)
    local groups = {}
    for g, members in pairs(r[3]) do
        groups[g] = table.concat(entities(members), ",")
    end
    T.eq(groups, { "aa", "cc,dd" })
end)

T.case("bad paths and descriptions give the load code and one result", function()
    local good = P.desc("ok.xml", base)
    local broken = P.put("broken.xml", "<PackageDescription><Entity name='x'>")
    local noname = P.put("noname.xml", "<PackageDescription><Entity id='1'/></PackageDescription>")
    local badver = P.put("badver.xml", "<PackageDescription><Entity name='v'><Version>1.x</Version></Entity></PackageDescription>")
    T.eq(issu(nil, good), { n = 1, -1 })
    T.eq({ issu(P.root .. "/none.xml", good), issu(good, broken) }, { { n = 1, -2 }, { n = 1, -3 } })
    T.has_lines(zh.log_lines("upgrade"), { "[ISSU] parse " .. P.root .. "/none.xml file failed.",
        "[ISSU] parse " .. broken .. " file failed." })
    T.eq({ issu(noname, good), (issu(badver, good)) }, { { n = 1, -3 }, { n = 1, -3 } })
end)

T.case("failing package manager calls end the comparison with their codes", function()
    local a = P.desc("f_a.xml", base)
    local b = P.desc("f_b.xml", { base[1], { "rib", version = "2.0" } })
    zh.inject("ISSU_PKG_CreatePkg", 0)
    T.eq(issu(a, b), { n = 1, -1 })
    -- The second object cannot be made: the first load's code, 0, is the result.
    zh.inject("ISSU_PKG_CreatePkg", 0, 1)
    T.eq(issu(a, b), { n = 1, 0 })
    for _, f in ipairs { { "ISSU_Pkg_Compare", -7, -7 }, { "ISSU_PtrListCreate", 0, -1 } } do
        zh.inject(f[1], f[2])
        T.eq(issu(a, b), { n = 1, f[3] }, f[1])
    end
    -- Failures inside the Required walk keep the entity with what was gathered.
    zh.inject("ISSU_CDT_Create", 0)
    local r = issu(a, b)
    T.eq({ r[1], r[2][1].Entity, r[2][1].Required, r[2][2].Entity, #r[2][2].Required }, { 0, "rib", {}, "bgp", 0 })
    zh.inject("ISSU_PKG_WhoRequireDeap", -5)
    r = issu(a, b)
    T.eq({ r[1], r[2][1].Required }, { 0, {} })
    zh.inject("ISSU_PtrListAppend", 1, 0, 100)
    r = issu(a, b)
    T.eq({ r[1], #r[2][1].Required }, { 0, 2 })
end)

T.run()

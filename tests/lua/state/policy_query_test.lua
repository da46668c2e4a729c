-- The file access policy query and path formatting: answers for several users and paths under
-- the default rules and profile rules, every argument error, and no entry left allocated.
local T = require "testlib"
local zh = require "zakhost"
local m = libqavluacommon

local R, W, X, D = 1, 2, 4, 8
local BAD_ARGS, NO_MEMORY = 0x401C02, 0x401C03

local function user(level, group, deliver)
    return { policyDeliverType = deliver or 0, userLrID = 0, userVrID = 0, userID = 100, userLevel = level, userGroup = group }
end
local function paths(...)
    local list = {}
    for i, p in ipairs({ ... }) do list[i] = { path = p[1], oper = p[2] } end
    return list
end
local function query(u, list, count) return T.results(m.qav_vfm_PolicyQuery(u, count or #list, list)) end
local function answer(file, path, detail, allow, text)
    return { fileAccess = file, pathAccess = path, detailType = detail, operAllow = allow, path = text }
end

-- Each case ends with every entry freed.
local blocks
local function case(name, body)
    T.case(name, function()
        blocks = zh.memory().blocks
        body()
        T.eq(zh.memory().blocks, blocks, "entries freed")
    end)
end

case("administrator of group 0 on system files, storage and Linux paths", function()
    local r = query(user(3, 0), paths({ "flash0:/sysdrv/boot.bin", R + W }, { "flash0:/V1/pkg.zip", D },
        { "/etc/shadow", R + X }))
    T.eq(r, { n = 2, 0, {
        answer(R + W + D, R + W + D, 0, 1, "flash0:/sysdrv/boot.bin"),
        answer(R + W + D, R + W + D, 0, 1, "flash0:/V1/pkg.zip"),
        answer(R + W + X + D, R + W + X + D, 0, 1, "/etc/shadow"),
    } })
end)

case("lower levels and other groups", function()
    -- level 2: writes the storage, not the system directory; Linux paths closed
    T.eq(query(user(2, 0), paths({ "flash0:/V1/pkg.zip", W }, { "flash0:/sysdrv/boot.bin", R }, { "/opt/x", R })),
        { n = 2, 0, {
            answer(R + W + D, R + W + D, 0, 1, "flash0:/V1/pkg.zip"),
            answer(0, 0, 2, 0, "flash0:/sysdrv/boot.bin"),
            answer(0, 0, 2, 0, "/opt/x"),
        } })
    -- level 0: reads the storage only
    T.eq(query(user(0, 5), paths({ "flash0:/V1/pkg.zip", W }, { "flash0:/V1/pkg.zip", R })), { n = 2, 0, {
        answer(R, R, 1, 0, "flash0:/V1/pkg.zip"),
        answer(R, R, 0, 1, "flash0:/V1/pkg.zip"),
    } })
    -- level 3 of group 4: level met, group refused for the system directory, not its parent
    T.eq(query(user(3, 4), paths({ "flash0:/sysdrv/boot.bin", R }, { "flash0:/sysdrv", R })),
        { n = 2, 0, { answer(0, 0, 3, 0, "flash0:/sysdrv/boot.bin"), answer(0, R + W + D, 3, 0, "flash0:/sysdrv") } })
end)

case("paths are made canonical before the rules apply", function()
    T.eq(query(user(2, 0), paths({ "flash0:V1/../sysdrv/./x", R }, { "flash0://V1//a", W }, { "flash0:/..", R },
        { "cfcard:/log", R })), { n = 2, 0, {
        answer(0, 0, 2, 0, "flash0:V1/../sysdrv/./x"),
        answer(R + W + D, R + W + D, 0, 1, "flash0://V1//a"),
        answer(0, 0, 5, 0, "flash0:/.."),
        answer(0, 0, 4, 0, "cfcard:/log"),
    } })
end)

case("rules and the default access from the profile", function()
    zh.profile_set("tfsi", "rule5", "flash0:/logs 0 17,8 rw")
    zh.profile_set("tfsi", "default_access", "r")
    T.eq(query(user(0, 8), paths({ "flash0:/logs/a.log", W }, { "flash0:/logsx", W }, { "cfcard:/x", R })),
        { n = 2, 0, {
            answer(R + W, R + W, 0, 1, "flash0:/logs/a.log"),
            answer(R, R, 1, 0, "flash0:/logsx"),
            answer(R, R, 4, 1, "cfcard:/x"),
        } })
    -- the list's first group, and a group outside the list
    for group, detail in pairs({ [17] = 0, [9] = 3 }) do
        T.eq(query(user(0, group), paths({ "flash0:/logs/a.log", R }))[2][1].detailType, detail, group)
    end
    zh.profile_set("tfsi", "rule5", nil)
    zh.profile_set("tfsi", "default_access", nil)
end)

case("argument errors give 0x401C02 alone and leave nothing allocated", function()
    local good = paths({ "flash0:/a", R })
    for i, args in ipairs { { "user", 1, good }, { user(3, 0), {}, good }, { user(3, 0), 1, "paths" } } do
        T.eq(T.results(m.qav_vfm_PolicyQuery(table.unpack(args))), { n = 1, BAD_ARGS }, "call " .. i)
    end
    -- the six user keys are read in one loop: the last one not a number
    local u = user(3, 0)
    u.userGroup = "high"
    T.eq(query(u, good), { n = 1, BAD_ARGS }, "userGroup as a string")
    -- counts 0 with a path, negative, beyond the array; an element not a table, without a path, a number as path
    for i, c in ipairs { { good, 0 }, { good, -1 }, { good, 2 }, { { { path = "flash0:/a", oper = 1 }, "not a table" } },
                         { { { oper = 1 } } }, { { { path = 12, oper = 1 } } } } do
        T.eq(query(user(3, 0), c[1], c[2]), { n = 1, BAD_ARGS }, "case " .. i)
    end
    -- elements beyond the count are ignored, whatever they are
    T.eq(query(user(3, 0), { { path = "flash0:/a", oper = R }, "junk" }, 1),
        { n = 2, 0, { answer(R + W + D, R + W + D, 0, 1, "flash0:/a") } })
end)

case("allocation and platform failures", function()
    zh.inject("ZAK_Malloc_F")
    T.eq(query(user(3, 0), paths({ "flash0:/a", R })), { n = 1, NO_MEMORY })
    zh.inject("TFSI_FilesAccessOfOneUserQuery", 0x1234)
    T.eq(query(user(3, 0), paths({ "flash0:/a", R })), { n = 1, 0x1234 })
    -- the platform refuses an unknown deliver type with its own code
    T.eq(query(user(3, 0, 2), paths({ "flash0:/a", R })), { n = 1, 0x401C10 })
end)

case("qav_vfm_FormatPath: canonical paths", function()
    local cases = {
        { "flash0:V1//base/./pkg/../x", false, "flash0:/V1/base/x" },
        { "/a/b/", false, "/a/b" },
        { "/a/b", true, "/a/b/" },
        { "/", true, "/" },
        { "a/./b/..", false, "/a" },
        { "flash1:", false, "flash1:/" },
    }
    for _, c in ipairs(cases) do
        T.eq(T.results(m.qav_vfm_FormatPath(c[1], c[2])), { n = 2, 0, c[3] }, c[1])
    end
    T.eq(T.results(m.qav_vfm_FormatPath(12, false)), { n = 2, 0, "/12" }, "a number reads as text")
    T.eq({ T.results(m.qav_vfm_FormatPath("/..", false)), T.results(m.qav_vfm_FormatPath("", false)) }, { { n = 1, 0x401C11 }, { n = 1, 0x401C11 } })
    local long = "/" .. string.rep("p", 254)
    T.eq(T.results(m.qav_vfm_FormatPath(long, false)), { n = 2, 0, long })
    T.eq({ T.results(m.qav_vfm_FormatPath(long .. "p", false)), T.results(m.qav_vfm_FormatPath(long, true)) },
        { { n = 1, 0x401C12 }, { n = 1, 0x401C12 } }, "no room for the '/'")
end)

case("qav_vfm_FormatPath: argument errors and platform failure", function()
    T.eq({ T.results(m.qav_vfm_FormatPath("/a", 1)), T.results(m.qav_vfm_FormatPath({}, true)) }, { { n = 1, BAD_ARGS }, { n = 1, BAD_ARGS } })
    zh.inject("TFSI_FormatPath", 77)
    T.eq(T.results(m.qav_vfm_FormatPath("/a", true)), { n = 1, 77 })
end)

T.run()

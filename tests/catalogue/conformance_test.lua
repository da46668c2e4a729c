-- Calls every catalogued function with arguments of its catalogued types, with arguments of the
-- wrong types and with none, and checks that what comes back fits the catalogue: no more results
-- than it lists, each of its listed type (a result marked optional may be missing). This keeps
-- the catalogue, and so the editor definitions and the reference, honest about the code.
local T = require "testlib"
local zh = require "zakhost"
local source = assert(os.getenv("QAV_SOURCE_DIR"), "QAV_SOURCE_DIR not set")
local C = dofile(source .. "/tools/gen/catalogue.lua")
local cat = C.load(source .. "/docs/catalogue/functions.lua")
local m = libqavluacommon

local function fits(value, ty)
    for alt in ty:gmatch("[^|]+") do
        if alt == "any" or alt == type(value) then return true end
        if alt == "integer" and type(value) == "number" and value == math.floor(value) then return true end
        if alt == "lightuserdata" and type(value) == "userdata" then return true end
    end
    return false
end

-- One pass: samples maps a catalogued argument type to the value passed (nil: pass nothing).
local function pass(samples)
    local checked = 0
    for _, f in ipairs(cat.functions) do
        local args, n = {}, 0
        if samples then
            for _, a in ipairs(f.arglist) do
                if a.name == "..." then break end
                n = n + 1
                args[n] = samples[a.type:match("^[^|]+")]
            end
        end
        local r = table.pack(m[f.name](table.unpack(args, 1, n)))
        -- A directory stream belongs to the script until it closes it.
        if f.name == "luafs_opendir" and type(r[1]) == "userdata" then m.luafs_closedir(r[1]) end
        local listed = f.resultlist
        local open = #listed > 0 and listed[#listed].name == "..."
        T.ok(open or r.n <= #listed, ("%s: %d results, %d listed"):format(f.name, r.n, #listed))
        for i = 1, math.min(r.n, #listed) do
            local d = listed[i]
            if d.name ~= "..." then
                T.ok(fits(r[i], d.type) or (d.optional and r[i] == nil),
                     ("%s: result %d (%s) is %s, listed as %s"):format(f.name, i, d.name, T.show(r[i]), d.type))
            end
        end
        checked = checked + 1
    end
    return checked
end

-- Descriptor 7 is not open in the runner; the texts name a file that exists in a fresh sandbox
-- (the file functions called before change it: it is removed, made a directory, linked).
local right = {integer = 7, number = 7, string = "../data/zakcfg.ini", table = {}, boolean = true, any = 0,
               lightuserdata = nil}
local wrong = {integer = {}, number = {}, string = {}, table = "text", boolean = {}, any = {}}

T.case("without set-up, with no arguments", function() T.eq(pass(nil), #cat.functions) end)
T.case("with arguments of the wrong types", function() T.eq(pass(wrong), #cat.functions) end)
T.case("with arguments of the listed types", function() T.eq(pass(right), #cat.functions) end)
T.case("after the shared state is set up", function()
    m.qav_luaTblInit()
    m.qav_pat_lock_init()
    m.qav_pat_diag_err_info_init()
    m.su_set_upgradeInfo("V100R001", "V200R001")
    zh.setenv("VNFC_TYPE", "VNFC_A")
    T.eq(pass(right), #cat.functions)
end)

T.run()

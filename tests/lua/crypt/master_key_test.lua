-- Master-key state, key checks, the authentication back-off and the system-password check.
local T = require "testlib"
local zh = require "zakhost"
local m = libqavluacommon

local R = zh.root()
local KEY = "Master#Key-for-2024-tests"

-- The expected hash text: the first 8 bytes of SHA-256 of the key, upper-case hex.
local function hash_text(key)
    local path = T.write(R .. "/key_text", key)
    return T.capture("openssl dgst -sha256 -r '" .. path .. "'"):match("^(%x+)"):sub(1, 16):upper()
end

T.case("the default master key", function()
    zh.profile_set("master_key", "key", nil)
    T.eq(T.results(m.qav_MK_CurrentKeyIsDefault()), { n = 2, 0, 1 })
    T.eq(T.results(m.qav_MK_GetMKHashValue()), { n = 2, 0, "0000000000000000" })
    -- Any input, or none, counts as right while the key is the default.
    T.eq({ T.results(m.qav_MK_CheckInputMkIsRight("whatever")), T.results(m.qav_MK_CheckInputMkIsRight()) }, { { n = 2, 0, 1 }, { n = 2, 0, 1 } })
    T.eq(T.results(m.qav_MK_CheckHashHit("0000000000000000")), { n = 2, 0, 1 })
end)

T.case("a configured master key: hash text, hash hits and key matches", function()
    zh.profile_set("master_key", "key", KEY)
    local expected = hash_text(KEY)
    T.eq(T.results(m.qav_MK_CurrentKeyIsDefault()), { n = 2, 0, 0 })
    T.eq(T.results(m.qav_MK_GetMKHashValue()), { n = 2, 0, expected })
    T.eq({ { m.qav_MK_CheckHashHit(expected) }, { m.qav_MK_CheckHashHit(expected:lower()) },
        { m.qav_MK_CheckHashHit("0000000000000000") } }, { { 0, 1 }, { 0, 1 }, { 0, 0 } })
    T.eq({ { m.qav_MK_CheckInputMkIsRight(KEY) }, { m.qav_MK_CheckInputMkIsRight(KEY .. " ") } }, { { 0, 1 }, { 0, 0 } })
    T.eq({ m.qav_MK_CheckInputMkIsRight({}) }, { 0xFFFFFFFF, 0 })
    zh.inject("QAV_MK_CheckInputKeyAndMk", 3)
    T.eq({ m.qav_MK_CheckInputMkIsRight(KEY) }, { 0xFFFFFFFF, 0 })
end)

T.case("hash texts that are refused push 0xFFFFFFFF alone", function()
    zh.profile_set("master_key", "key", KEY)
    local expected = hash_text(KEY)
    -- Texts of 18 characters and more are refused before the platform sees them.
    T.eq(T.results(m.qav_MK_CheckHashHit(expected .. "00")), { n = 1, 0xFFFFFFFF })
    for _, bad in ipairs { "zz", "z" .. expected:sub(2, 2), expected:sub(1, 1) .. "z" } do -- either digit of a pair
        T.eq(m.qav_MK_CheckHashHit(bad .. expected:sub(3)), 0xFFFFFFFF, bad)
    end
    T.eq(m.qav_MK_CheckHashHit(expected:sub(1, 15)), 0xFFFFFFFF)
    zh.inject("NUK_CRYPT_CheckHashHit", 5)
    T.eq(T.results(m.qav_MK_CheckHashHit(expected)), { n = 1, 0xFFFFFFFF })
    zh.inject("NUK_CRYPT_GetMKHashValue", 5)
    T.eq(T.results(m.qav_MK_GetMKHashValue()), { n = 1, 0xFFFFFFFF })
    zh.inject("NUK_CRYPT_HashValueToStr", 5)
    T.eq(T.results(m.qav_MK_GetMKHashValue()), { n = 1, 0xFFFFFFFF })
end)

T.case("activation and configuration statuses persist for other processes", function()
    T.eq(m.qav_MK_CheckMKActiveStatus(), 0)
    zh.profile_set("master_key", "active", "1")
    T.eq(m.qav_MK_CheckMKActiveStatus(), 1)
    T.eq(T.results(m.qav_MK_SetMKActiveStatus()), { n = 1, 0 })
    T.eq(m.qav_MK_CheckMKActiveStatus(), 0)
    T.eq(m.qav_MK_GetMKConfigStatus(), 0)
    T.eq(T.results(m.qav_MK_SetMKConfigStatus(5)), { n = 1, 0 })
    T.eq(m.qav_MK_GetMKConfigStatus(), 5)
    T.eq({ T.results(m.qav_MK_SetMKConfigStatus()), T.results(m.qav_MK_SetMKConfigStatus(1, 2)) }, { { n = 1, -1 }, { n = 1, -1 } })
    T.eq(m.qav_MK_GetMKConfigStatus(), 5)
    zh.inject("QAV_MK_GetActiveStatus", 7)
    T.eq(m.qav_MK_CheckMKActiveStatus(), 7, "the platform's status passes through")
    T.eq(T.second_process("print(libqavluacommon.qav_MK_GetMKConfigStatus(), libqavluacommon.qav_MK_CheckMKActiveStatus())"),
        "5\t0")
end)

T.case("the back-off lasts 16 seconds after a failure", function()
    T.eq(m.qav_MK_CheckAuthenDisabled(), false)
    -- Moves the run time well away from 0, which means "no failure", whatever clock backs it.
    zh.clock_advance(100)
    T.eq(T.results(m.qav_MK_RefreshAuthenFailTime()).n, 0)
    T.eq(m.qav_MK_CheckAuthenDisabled(), true)
    zh.clock_advance(15)
    T.eq(m.qav_MK_CheckAuthenDisabled(), true)
    zh.clock_advance(1)
    T.eq(m.qav_MK_CheckAuthenDisabled(), false)
    -- A new failure starts a new window.
    m.qav_MK_RefreshAuthenFailTime()
    T.eq(m.qav_MK_CheckAuthenDisabled(), true)
end)

T.case("key strength: 20 characters and all four classes", function()
    -- 19 characters; no punctuation; no upper case; a blank is not punctuation; classes late in a long key
    for key, want in pairs { ["Aa1!Aa1!Aa1!Aa1!Aa1!"] = 1, ["Aa1!Aa1!Aa1!Aa1!Aa1"] = 0, ["Aa1Aa1Aa1Aa1Aa1Aa1Aa"] = 0,
                             ["aaaaaaaaaaaaaaaaaa1!"] = 0, ["Aa1 Aa1 Aa1 Aa1 Aa1 "] = 0, [string.rep("a", 32) .. "~Z9"] = 1 } do
        T.eq(m.qav_MK_InputKeyIsSecurity(key), want, key)
    end
    T.eq({ m.qav_MK_InputKeyIsSecurity(), (m.qav_MK_InputKeyIsSecurity({})) }, { 0, 0 })
end)

T.case("system-password check against a given digest or the account's own", function()
    local _, digest = m.qav_Crypt_Digest("Admin#Pass1")
    digest = digest:sub(1, 32)
    T.eq(m.qav_MK_VerifySystemPassword("admin", "Admin#Pass1", digest), 0)
    T.eq(m.qav_MK_VerifySystemPassword("admin", "Admin#Pass2", digest), 1)
    T.eq(m.qav_MK_VerifySystemPassword("admin", "Admin#Pass1", ""), 2, "no digest kept for admin yet")
    zh.profile_set("system_password", "admin", digest)
    T.eq(m.qav_MK_VerifySystemPassword("admin", "Admin#Pass1", ""), 0)
    T.eq(m.qav_MK_VerifySystemPassword("operator", "Admin#Pass1", ""), 2)
    T.eq(T.results(m.qav_MK_VerifySystemPassword("admin", nil, "")), { n = 1, 0xFFFFFFFF })
end)

T.run()

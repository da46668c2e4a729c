-- Script cipher functions over the host cipher service: round trips, refusals, comparisons, bad calls.
local T = require "testlib"
local zh = require "zakhost"
local m = libqavluacommon

local ALGORITHMS = { 0, 1, 2 }
local AUTH_FAILED = 0x5A430005
local BUFFER = 0x5A430003
local MISMATCH = 0x5A430006

-- The cipher text with one base64 character of its body changed.
local function tamper(cipher, position)
    local i = cipher:find("$", 6, true) + 1 + position
    return cipher:sub(1, i - 1) .. (cipher:sub(i, i) == "A" and "B" or "A") .. cipher:sub(i + 1)
end

T.case("every algorithm round trips with the device key and with a key of the caller", function()
    for _, alg in ipairs(ALGORITHMS) do
        local plain = "config secret " .. alg
        local c = m.qav_CRYPT_Encrypt(plain, #plain, 433, 0, alg)
        T.ok(c:match("^zkc1%$" .. alg .. "%$[%w+/=]+$"), "printable cipher text " .. c)
        T.eq(T.results(m.qav_CRYPT_Decrypt(c, 0, 257, alg)), { n = 2, 0, plain })
        local k = m.qav_CRYPT_Encrypt_Enhance(plain, 0, 433, alg, "caller key")
        T.eq(T.results(m.qav_CRYPT_Decrypt_Enhance(k, #k, 257, alg, "caller key")), { n = 2, 0, plain })
    end
    local e = select(2, m.qav_EncryptPassword_EnhExp("pw-1234", "ignored"))
    T.eq(T.results(m.qav_DecryptPassword_Enh(e)), { n = 2, 0, "pw-1234" })
    -- An empty plain text and a 256-byte one (the most the 257-byte buffer holds).
    local empty, long = m.qav_CRYPT_Encrypt("", 0, 433, 0, 0), m.qav_CRYPT_Encrypt(string.rep("x", 256), 256, 433, 0, 2)
    T.eq({ T.results(m.qav_CRYPT_Decrypt(empty, 0, 257, 0)), select(2, m.qav_CRYPT_Decrypt(long, 0, 257, 2)) },
        { { n = 2, 0, "" }, string.rep("x", 256) })
end)

T.case("a fresh IV per call; a given IV is used, and repeating it with other text still differs", function()
    T.ok(m.qav_CRYPT_Encrypt("same", 4, 433, 0, 0) ~= m.qav_CRYPT_Encrypt("same", 4, 433, 0, 0), "two encryptions of one text differ")
    local iv = "0123456789abcdef"
    local x = m.qav_CRYPT_Encrypt_Enhance_IV("same", 0, 433, 0, "k", iv)
    local y = m.qav_CRYPT_Encrypt_Enhance_IV("same", 0, 433, 0, "k", iv)
    local z = m.qav_CRYPT_Encrypt_Enhance_IV("other", 0, 433, 0, "k", iv)
    T.eq(x, y, "same IV, key and text give the same cipher text")
    T.ok(x:sub(8, 20) ~= z:sub(8, 20), "another text under the same IV gets another nonce")
    T.eq(select(2, m.qav_CRYPT_Decrypt_Enhance(z, #z, 257, 0, "k")), "other")
    -- A short IV text is padded, so it is accepted and still decrypts.
    local s = m.qav_CRYPT_Encrypt_Enhance_IV("short iv", 0, 433, 1, "k", "12")
    T.eq(select(2, m.qav_CRYPT_Decrypt_Enhance(s, #s, 257, 1, "k")), "short iv")
end)

T.case("altered, foreign or mislabelled cipher texts are refused", function()
    for _, alg in ipairs(ALGORITHMS) do
        local c = m.qav_CRYPT_Encrypt_Enhance("top secret", 0, 433, alg, "key-1")
        -- On a platform failure nothing is pushed and one result reported: the script's last argument.
        local bad = tamper(c, 16)
        T.eq(T.results(m.qav_CRYPT_Decrypt_Enhance(bad, #bad, 257, alg, "key-1")), { n = 1, "key-1" })
        T.eq(T.results(m.qav_CRYPT_Decrypt_Enhance(c, #c, 257, alg, "key-2")), { n = 1, "key-2" }, "wrong key")
        -- Relabelling the algorithm breaks the authenticated header.
        local other = (alg + 1) % 3
        local relabelled = c:gsub("^zkc1%$%d+%$", "zkc1$" .. other .. "$")
        T.eq(T.results(m.qav_CRYPT_Decrypt_Enhance(relabelled, #relabelled, 257, other, "key-1")), { n = 1, "key-1" })
        T.eq(T.results(m.qav_CRYPT_Decrypt_Enhance(c, #c, 257, other, "key-1")), { n = 1, "key-1" })
        -- qav_CRYPT_Decrypt folds every failure to 1.
        local d = m.qav_CRYPT_Encrypt("abc", 3, 433, 0, alg)
        T.eq(T.results(m.qav_CRYPT_Decrypt(tamper(d, 2), 0, 257, alg)), { n = 2, 1, "" })
    end
    local c = m.qav_CRYPT_Encrypt("abc", 3, 433, 0, 0)
    T.eq(T.results(m.qav_DecryptPassword_EnhExp(tamper(c, 3))), { n = 2, AUTH_FAILED, "" })
    T.eq(T.results(m.qav_DecryptPassword_EnhExp((c:gsub("^zkc1%$0", "zkc1$1")))), { n = 2, MISMATCH, "" })
    -- A cipher text made under another device key does not open under the new one.
    zh.profile_set("crypt", "device_key", "another device")
    T.eq(T.results(m.qav_DecryptPassword_EnhExp(c)), { n = 2, AUTH_FAILED, "" })
    zh.profile_set("crypt", "device_key", nil)
    T.eq(T.results(m.qav_DecryptPassword_EnhExp(c)), { n = 2, 0, "abc" })
end)

T.case("lengths and sizes: stated plain length, small outputs, the 17-byte password buffer", function()
    -- A stated plain length past the text stops at its end; a shorter one encrypts only that prefix.
    local c = m.qav_CRYPT_Encrypt("abcdef", 100, 433, 0, 0)
    T.eq(select(2, m.qav_CRYPT_Decrypt(c, 0, 257, 0)), "abcdef")
    c = m.qav_CRYPT_Encrypt("abcdef", 3, 433, 0, 0)
    -- Outputs that do not fit the stated size.
    T.eq({ m.qav_CRYPT_Encrypt("abcdef", 6, 20, 0, 0), m.qav_CRYPT_Encrypt_Enhance("abcdef", 0, 20, 0, "k") }, { "", "" })
    T.eq({ T.results(m.qav_CRYPT_Decrypt(c, 0, 3, 0)), T.results(m.qav_CRYPT_Decrypt(c, 0, 4, 0)) }, { { n = 2, 1, "" }, { n = 2, 0, "abc" } })
    -- A size above the buffer is held to the buffer: a plain text too long for 433 bytes fails.
    T.eq(m.qav_CRYPT_Encrypt(string.rep("y", 400), 400, 100000, 0, 0), "")
    -- 16 characters fit the password buffer, 17 do not.
    local p16 = select(2, m.qav_EncryptPassword_EnhExp(string.rep("p", 16), 0))
    local p17 = select(2, m.qav_EncryptPassword_EnhExp(string.rep("p", 17), 0))
    T.eq({ T.results(m.qav_DecryptPassword_Enh(p16)), T.results(m.qav_DecryptPassword_Enh(p17)) },
        { { n = 2, 0, string.rep("p", 16) }, { n = 2, BUFFER, "" } })
    T.eq({ m.qav_CRYPT_Encrypt("abc", 3, 433, 0, 7), m.qav_CRYPT_IsCipher((c:gsub("^zkc1%$0", "zkc1$7"))) }, { "", 1 })
end)

T.case("cipher text recognition and plain-text comparison", function()
    local c = m.qav_CRYPT_Encrypt("Admin@123", 9, 433, 0, 0)
    -- the last: too short to hold nonce and tag
    for text, want in pairs { [c] = 0, ["Admin@123"] = 1, ["zkc1$0$not base64!"] = 1, [c .. "="] = 1, ["zkc1$0$QUJD"] = 1 } do
        T.eq(m.qav_CRYPT_IsCipher(text), want, text)
    end
    local c2 = m.qav_CRYPT_Encrypt("Admin@123", 9, 433, 0, 0)
    T.eq({ m.qav_CRYPT_IsPlainTextSame(c, #c, 0, "Admin@123", 9, 0), m.qav_CRYPT_IsPlainTextSame(c, #c, 0, c2, #c2, 0),
        m.qav_CRYPT_IsPlainTextSame(c, #c, 0, "Admin@124", 9, 0), m.qav_CRYPT_IsPlainTextSame(c, #c, 0, "Admin@12", 8, 0),
        m.qav_CRYPT_IsPlainTextSame(tamper(c, 4), #c, 0, "Admin@123", 9, 0) }, { 0, 0, 1, 1, AUTH_FAILED })
    local k1 = m.qav_CRYPT_Encrypt_Enhance("s3cret", 0, 433, 1, "key A")
    local k2 = m.qav_CRYPT_Encrypt_Enhance("s3cret", 0, 433, 2, "key B")
    T.eq({ m.qav_CRYPT_IsPlainTextSame_Enhance(k1, #k1, 1, "key A", k2, #k2, 2, "key B"),
        m.qav_CRYPT_IsPlainTextSame_Enhance(k1, #k1, 1, "key A", "s3cret", 6, 0, ""),
        m.qav_CRYPT_IsPlainTextSame_Enhance(k1, #k1, 1, "key B", k2, #k2, 2, "key B"),
        m.qav_CRYPT_IsPlainTextSame_Enhance(k1, #k1, 1, "key A", "s3creT", 6, 0, "") }, { 0, 0, AUTH_FAILED, 1 })
end)

T.case("system-password digest: 33 bytes, salted, verified", function()
    local status, d = m.qav_Crypt_Digest("Device#12")
    T.eq({ status, #d, d:byte(33) }, { 0, 33, 0 })
    T.ok(d:sub(1, 32):match("^[%w%-_]+$"), "printable digest")
    local _, d2 = m.qav_Crypt_Digest("Device#12")
    T.ok(d ~= d2, "salted")
    for _, c in ipairs { { "Device#12", d, 0 }, { "Device#12", d2:sub(1, 32), 0 }, { "Device#13", d, 1 }, { "", d, 1 },
                         { "Device#12", d:sub(1, 31), 0x5A430004 }, { "Device#12", "!" .. d:sub(2, 32), 0x5A430004 } } do
        T.eq(m.qav_VerifySystemPassword(c[1], c[2]), c[3], c[1] .. " " .. c[2])
    end
    -- A digest made at a lower cost carries its cost and still verifies.
    zh.profile_set("crypt", "password_cost", "10")
    local _, cheap = m.qav_Crypt_Digest("Device#12")
    zh.profile_set("crypt", "password_cost", nil)
    T.eq(cheap:sub(1, 1) .. d:sub(1, 1), "KO", "the cost letters")
    T.eq(m.qav_VerifySystemPassword("Device#12", cheap), 0)
    zh.inject("QAV_EncryptSystemPassword", 77)
    T.eq(T.results(m.qav_Crypt_Digest("x")), { n = 2, 77, string.rep("\0", 33) })
end)

T.case("random bytes", function()
    local s, a = m.qav_generate_randnum(32)
    T.ok(s == 0 and #a == 32 and a ~= select(2, m.qav_generate_randnum(32)))
    T.eq({ T.results(m.qav_generate_randnum(0)), T.results(m.qav_generate_randnum()) }, { { n = 2, 1, "" }, { n = 2, 1, "" } })
    local before = zh.memory()
    zh.inject("ZAK_Malloc_F", 0)
    local r = T.results(m.qav_generate_randnum(16))
    T.eq({ r.n, r[1], #r[2] }, { 2, 1, 16 })
    T.eq(zh.memory(), before, "no block left behind")
    T.eq(#select(2, m.qav_generate_randnum(5000)), 5000)
    r = T.results(m.qav_generate_randnum(-1))
    T.eq({ r.n, r[1], #r[2] }, { 2, 1, 4096 }, "no block for 0xFFFFFFFF + 1 bytes")
end)

T.case("bad calls get status 1 or an empty cipher text and the fixed log texts", function()
    local mark = T.mark("base")
    T.eq({ T.results(m.qav_DecryptPassword_Enh()), T.results(m.qav_DecryptPassword_Enh({})) }, { { n = 2, 1, "" }, { n = 2, 1, "" } })
    T.eq(T.since(mark), { "0x09550004 L0 QAV_GetEcmCid proc fail SYSDT_SPTI_GetTop. uiRet = 1 ",
                          "0x09550004 L0 QAV_GetEcmCid proc fail SYSDT_SPTI_ToString. uiRet = 1 " })
    T.eq({ T.results(m.qav_EncryptPassword_EnhExp("x")), T.results(m.qav_Crypt_Digest(nil)) }, { { n = 2, 1, "" }, { n = 2, 1, string.rep("\0", 33) } })
    T.eq({ T.results(m.qav_CRYPT_Decrypt_Enhance("c", 1, 257, 0, nil)), T.results(m.qav_CRYPT_IsPlainTextSame("a", 1, 0, nil, 1, 0)) },
        { { n = 2, 1, "" }, { n = 1, 1 } })
    -- The encrypt-and-return-0 function ignores the platform's result.
    zh.inject("NUK_CRYPT_Encrypt_Sec", 9)
    T.eq(T.results(m.qav_EncryptPassword_EnhExp("x", 0)), { n = 2, 0, "" })
    zh.inject("NUK_CRYPT_Encrypt_Sec", 9)
    T.eq(T.results(m.qav_CRYPT_Encrypt_Enhance_IV("p", 0, 433, 0, "k", "iv")), { n = 1, "" })
    zh.inject("NUK_DecryptPassword_Enh", 0)
    T.eq(T.results(m.qav_DecryptPassword_Enh("zkc1$0$x")), { n = 2, 0x5A430007, "" })
end)

T.run()

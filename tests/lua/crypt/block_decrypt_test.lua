-- "qav_CRYPT_Decrypt_Ext" against openssl's AES-CBC, padded (mode 0) and not (mode 1), every key size.
local T = require "testlib"
local zh = require "zakhost"
local m = libqavluacommon

local R = zh.root()

local capture = T.capture

-- Hex cipher text of `plain` under openssl's AES-CBC.
local function openssl_encrypt(plain, keyHex, ivHex, nopad)
    local path = T.write(R .. "/vector_plain", plain)
    local bits = #keyHex * 4
    return capture(("openssl enc -aes-%d-cbc -K %s -iv %s %s -in '%s' | od -An -v -tx1 | tr -d ' \\n'")
        :format(bits, keyHex, ivHex, nopad and "-nopad" or "", path))
end

local function decrypt(mode, key, iv, cipher)
    return T.results(m.qav_CRYPT_Decrypt_Ext(mode, key, #key, iv, #iv, cipher, #cipher))
end

T.case("both modes and every key size decrypt openssl's cipher texts", function()
    local iv = capture("openssl rand -hex 16")
    for _, bytes in ipairs({ 16, 24, 32 }) do
        local key = capture("openssl rand -hex " .. bytes)
        local plain = "vector for a " .. bytes * 8 .. "-bit key"
        T.eq(decrypt(0, key, iv, openssl_encrypt(plain, key, iv, false)), { n = 2, 0, plain }, "padded")
        local block = string.rep("0123456789ABCDEF", 2)
        T.eq(decrypt(1, key, iv, openssl_encrypt(block, key, iv, true)), { n = 2, 0, block }, "no padding")
        -- Upper-case hex works as well.
        T.eq(decrypt(0, key:upper(), iv:upper(), openssl_encrypt(plain, key, iv, false):upper()), { n = 2, 0, plain })
    end
end)

T.case("the stated hex lengths, halved, are what the crypto library gets", function()
    local key16 = "000102030405060708090a0b0c0d0e0f"
    local iv = "ffeeddccbbaa99887766554433221100"
    -- 32 hex characters stated as 48: a 24-byte key whose last 8 bytes are the buffer's zeros.
    local c = openssl_encrypt("longer key", key16 .. "0000000000000000", iv, false)
    T.eq(T.results(m.qav_CRYPT_Decrypt_Ext(0, key16, 48, iv, 32, c, #c)), { n = 2, 0, "longer key" })
    -- An odd last character is ignored.
    c = openssl_encrypt("odd", key16, iv, false)
    T.eq(T.results(m.qav_CRYPT_Decrypt_Ext(0, key16 .. "f", 32, iv, 32, c .. "a", #c)), { n = 2, 0, "odd" })
    -- A cipher length stated short cuts the cipher text; a key length of 20 bytes fits no AES.
    T.ok(m.qav_CRYPT_Decrypt_Ext(0, key16, 32, iv, 32, c, #c - 2) ~= 0)
    T.ok(m.qav_CRYPT_Decrypt_Ext(0, key16 .. "00000000", 40, iv, 32, c, #c) ~= 0)
end)

T.case("wrong keys, bad hex, modes and lengths are refused", function()
    local key = "2b7e151628aed2a6abf7158809cf4f3c"
    local iv = "000102030405060708090a0b0c0d0e0f"
    local c = openssl_encrypt("some plain text", key, iv, false)
    local wrong = "2b7e151628aed2a6abf7158809cf4f3d"
    local r = decrypt(0, wrong, iv, c)
    T.ok(r[1] ~= 0 and r[2] == "", "bad padding under a wrong key: " .. T.show(r))
    T.eq(decrypt(2, key, iv, c), { n = 2, 1, "" }, "mode 2")
    T.eq(decrypt(0, key:sub(1, 30) .. "zz", iv, c), { n = 2, 1, "" }, "non-hex pair")
    T.eq(decrypt(0, key, iv, string.rep("00", 129)), { n = 2, 1, "" }, "more than 128 bytes")
    T.eq(T.results(m.qav_CRYPT_Decrypt_Ext(0, key, 300, iv, 32, c, #c)), { n = 2, 1, "" }, "stated length past 128 bytes")
    T.eq(T.results(m.qav_CRYPT_Decrypt_Ext(0, key, 32, nil, 32, c, #c)), { n = 2, 1, "" }, "a missing IV")
    T.ok(decrypt(1, key, iv, c:sub(1, 30))[1] ~= 0, "without padding only whole blocks")
    zh.inject("CRYPT_decrypt", 55)
    T.eq({ decrypt(0, key, iv, c), (decrypt(0, key, iv, c)) }, { { n = 2, 55, "" }, { n = 2, 0, "some plain text" } })
end)

T.case("the plain text is pushed up to its first zero byte", function()
    local key = "00112233445566778899aabbccddeeff"
    local iv = "0f0e0d0c0b0a09080706050403020100"
    local c = openssl_encrypt("before\0after", key, iv, false)
    T.eq(decrypt(0, key, iv, c), { n = 2, 0, "before" })
end)

T.run()

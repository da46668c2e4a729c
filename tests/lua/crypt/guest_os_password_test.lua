-- Guest OS password change end to end in the device jail: the real password tool and ramdisk-sync
-- act on the sandbox's /etc/passwd and /etc/shadow, the only account files the jail has.
local T = require "testlib"
local zh = require "zakhost"
local m = libqavluacommon

local R = zh.root()

local function sh(command)
    local ok, _, code = os.execute(command)
    return ok == true and 0 or code
end
local read, write, capture = T.read, T.write, T.capture
local function sha512(password, salt)
    write("/tmp/pw_in", password)
    return capture("openssl passwd -6 -salt " .. salt .. " -stdin < /tmp/pw_in")
end
-- crypt(3) of the system library, through perl, so any hash the tool chose is checked.
local function verifies(password, hash)
    write("/tmp/pw_in", password)
    return sh("perl -e 'open(F, \"/tmp/pw_in\"); my $p = <F>; exit(crypt($p, $ARGV[0]) eq $ARGV[0] ? 0 : 1)' '" ..
        hash .. "'") == 0
end

zh.profile_set("device", "nps", "1")
local OLD = "Old#Passw0rd"
local pam = read("/etc/pam.d/passwd")
local function accounts(passwdLines, shadowLines)
    write(R .. "/etc/passwd", "root:x:0:0:root:/root:/bin/sh\n" .. table.concat(passwdLines, "\n") .. "\n")
    write(R .. "/etc/shadow", "root:*:19000:0:99999:7:::\n" .. table.concat(shadowLines, "\n") .. "\n")
    write("/etc/pam.d/passwd", pam)
    sh("rm -rf /zakv8/persist")
end
local function shadowHashOf(user)
    for line in (read(R .. "/etc/shadow") or ""):gmatch("[^\n]+") do
        local name, hash = line:match("^([^:]*):([^:]*)")
        if name == user then return hash end
    end
end
local oldHash = sha512(OLD, "oldsalt")
local function guest(field)
    accounts({ "guest:" .. field .. ":1000:1000::/home/guest:/bin/sh" },
        { "guest:" .. oldHash .. ":19000:0:99999:7:::" })
end
local function cleanedUp()
    T.eq(os.getenv("OS_USER_ACCT"), nil, "account variable removed")
    T.eq(os.getenv("OS_USER_PWD"), nil, "password variable removed")
    T.eq(read(R .. "/opt/mod_ospwd.log"), nil, "tool log deleted")
    T.eq(read("/zakv8/persist/etc/shadow"), read("/etc/shadow"), "shadow saved by ramdisk-sync")
    T.eq(read("/zakv8/persist/etc/passwd"), read("/etc/passwd"), "passwd saved by ramdisk-sync")
end

T.case("the jail's tools are the system's password tool and the sandbox's ramdisk-sync", function()
    T.eq(R, "")
    T.eq(capture("command -v passwd"), "/usr/bin/passwd")
    T.eq(capture("command -v ramdisk-sync"), "/opt/zakhost/bin/ramdisk-sync")
    T.eq(capture("stat -c %a /opt/zakhost/bin /opt/zakhost/bin/ramdisk-sync"), "755\n755")
end)

T.case("the sample guest account of a new sandbox changes with its documented password", function()
    local r = T.results(m.qav_VerifyAndSetGuestOSKey("guest", "Guest#Pass1", "New#Passw0rd1"))
    T.eq(r[1], 0)
    T.ok(verifies("New#Passw0rd1", r[2]), "the new hash verifies")
end)

T.case("success returns the new shadow hash, which then checks the old password", function()
    guest("x")
    local r = T.results(m.qav_VerifyAndSetGuestOSKey("guest", OLD, "New#Passw0rd1"))
    T.eq({ r.n, r[1], r[2] }, { 2, 0, shadowHashOf("guest") })
    T.ok(verifies("New#Passw0rd1", r[2]) and not verifies(OLD, r[2]))
    cleanedUp()
    T.eq(T.results(m.qav_VerifyAndSetGuestOSKey("guest", OLD, "Third#1")), { n = 1, 1002 })
    T.eq(m.qav_VerifyAndSetGuestOSKey("guest", "New#Passw0rd1", "Third#1"), 0)
end)

T.case("every password-field form of the account file", function()
    -- "##<user>" points to the shadow hash like "x".
    guest("##guest")
    T.eq(m.qav_VerifyAndSetGuestOSKey("guest", OLD, "Next#1"), 0)
    -- "##<someone else>" is taken as a hash itself, which the old password does not match.
    guest("##root")
    T.eq(T.results(m.qav_VerifyAndSetGuestOSKey("guest", OLD, "Next#1")), { n = 1, 1002 })
    -- A hash in the password field is used directly.
    accounts({ "guest:" .. oldHash .. ":1000:1000::/home/guest:/bin/sh" }, { "guest:*:19000::::::" })
    T.eq(m.qav_VerifyAndSetGuestOSKey("guest", OLD, "Next#1"), 0)
    -- An empty field is never valid.
    accounts({ "guest::1000:1000::/home/guest:/bin/sh" }, { "guest:" .. oldHash .. ":19000::::::" })
    T.eq(T.results(m.qav_VerifyAndSetGuestOSKey("guest", "", "Next#1")), { n = 1, 1002 })
    -- A shadow hash beginning with @ is never valid.
    accounts({ "guest:x:1000:1000::/home/guest:/bin/sh" }, { "guest:@" .. oldHash .. ":19000::::::" })
    T.eq(T.results(m.qav_VerifyAndSetGuestOSKey("guest", OLD, "Next#1")), { n = 1, 1002 })
    -- "x" with an empty shadow hash falls back to "x" itself, which nothing matches.
    accounts({ "guest:x:1000:1000::/home/guest:/bin/sh" }, { "guest::19000::::::" })
    T.eq(T.results(m.qav_VerifyAndSetGuestOSKey("guest", "x", "Next#1")), { n = 1, 1002 })
    T.eq(read("/zakv8/persist/etc/shadow"), nil, "the tool never ran for a refused old password")
end)

T.case("unknown users and wrong old passwords", function()
    guest("x")
    T.eq(T.results(m.qav_VerifyAndSetGuestOSKey("nobody", OLD, "Next#1")), { n = 1, 1001 })
    T.eq(T.results(m.qav_VerifyAndSetGuestOSKey("guest", "wrong", "Next#1")), { n = 1, 1002 })
    -- The user is looked up in both databases first: "x" without a shadow entry is an unknown user.
    accounts({ "guest:x:1000:1000::/home/guest:/bin/sh" }, {})
    T.eq(T.results(m.qav_VerifyAndSetGuestOSKey("guest", OLD, "Next#1")), { n = 1, 1001 })
    T.eq(read("/zakv8/persist/etc/shadow"), nil, "nothing was synchronised")
end)

T.case("a failing tool gives 1003 and everything is cleaned up", function()
    guest("x")
    write("/etc/pam.d/passwd", "password requisite pam_deny.so\n")
    T.eq(T.results(m.qav_VerifyAndSetGuestOSKey("guest", OLD, "Next#1")), { n = 1, 1003 })
    T.eq(shadowHashOf("guest"), oldHash, "shadow untouched")
    cleanedUp()
    guest("x")
    zh.inject("ZAK_OsRunShellCommand", 1)
    T.eq(T.results(m.qav_VerifyAndSetGuestOSKey("guest", OLD, "Next#1")), { n = 1, 1003 })
    T.eq(shadowHashOf("guest"), oldHash)
end)

T.case("shell metacharacters in the new password reach the tool intact and run nothing", function()
    guest("x")
    local marker = "/tmp/pwned"
    local password = "a b$(touch " .. marker .. ")`touch " .. marker .. "2`;touch " .. marker ..
        "3|&<>*?'\"!${HOME}$OS_USER_ACCT%s%n"
    local r = T.results(m.qav_VerifyAndSetGuestOSKey("guest", OLD, password))
    T.eq(r[1], 0)
    T.ok(verifies(password, r[2]), "the hash is of the password as given")
    T.eq({ read(marker), read(marker .. "2"), (read(marker .. "3")) }, { nil, nil, nil })
end)

T.case("bad arguments, missing shadow after the change, and non-NPS devices", function()
    guest("x")
    T.eq(T.results(m.qav_VerifyAndSetGuestOSKey("guest", OLD, {})), { n = 1, 1000 })
    -- The account vanishes from the shadow file during the change: no new hash to return.
    zh.inject("ZAK_OsGetSpNam", 0, 2)
    T.eq(T.results(m.qav_VerifyAndSetGuestOSKey("guest", OLD, "Next#1")), { n = 1, 1003 })
    zh.inject()
    zh.profile_set("device", "nps", "0")
    T.eq(T.results(m.qav_VerifyAndSetGuestOSKey("guest", OLD, "Next#1")).n, 0)
end)

T.run()

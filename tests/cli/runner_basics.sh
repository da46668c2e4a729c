#!/bin/sh
# qavlua: sandbox creation, what a script sees in the jail, errors, tracing, logs, command line.
set -eu
qavlua=$1
dir=$(mktemp -d "${TMPDIR:-/tmp}/qavlua-cli.XXXXXX")
trap 'rm -rf "$dir"' EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }

# (The sandbox's layout is what every script-level test runs in.)
"$qavlua" init "$dir/root" | grep -q "device sandbox ready" || fail "init message"
grep -q '^;ha_level=3' "$dir/root/zakhost.ini" || fail "sample profile lists defaults"

cat >"$dir/script.lua" <<'LUA'
local cwd = io.popen("pwd"):read("*l")
assert(cwd == "/zakv8/main/bin", "working directory " .. cwd)
assert(type(libqavluacommon) == "table", "library preloaded")
assert(select("#", ...) == 2 and arg[1] == "one" and arg[2] == "two words", "arguments")
assert(require("libqavluacommon") == libqavluacommon, "require gives the preloaded module")
local zh = require "zakhost"
assert(zh.root() == "", "zakhost.root")
print("script ran", libqavluacommon.qav_luaAssignPortID(9))
LUA
out=$("$qavlua" --root "$dir/root" "$dir/script.lua" one "two words") || fail "script failed"
[ "$out" = "script ran	0	41004" ] || fail "output: $out"
grep -q 'L1 init tpm table in open luacommon so' "$dir/root/log/upgrade.log" || fail "upgrade.log"

trace=$(ZAKHOST_TRACE=1 "$qavlua" --root "$dir/root" "$dir/script.lua" one "two words" 2>&1 >/dev/null)
echo "$trace" | grep -q '^\[trace\] qav_luaAssignPortID(9) -> 0, 41004$' || fail "trace: $trace"

echo 'error("boom")' >"$dir/bad.lua"
if "$qavlua" --root "$dir/root" "$dir/bad.lua" 2>"$dir/err"; then fail "a failing script must fail"; fi
grep -q "boom" "$dir/err" || fail "error message"

status=0; "$qavlua" "$dir/script.lua" 2>/dev/null || status=$?
[ "$status" -eq 2 ] || fail "no sandbox: status $status"
status=0; "$qavlua" --root "$dir" "$dir/script.lua" 2>/dev/null || status=$?
[ "$status" -eq 2 ] || fail "not a sandbox: status $status"
for bad in "-j 0 $dir/script.lua" "-j 257 $dir/script.lua" "-j 99999999999 $dir/script.lua" \
    "-j 4x $dir/script.lua" "-j" "--profile $dir/missing.ini $dir/script.lua" "--bogus $dir/script.lua" \
    "init" "init a b"; do
    status=0
    # shellcheck disable=SC2086 # each case is several words
    "$qavlua" $bad >/dev/null 2>"$dir/err" || status=$?
    [ "$status" -eq 2 ] && grep -q "^usage: " "$dir/err" || fail "'$bad': status $status, $(cat "$dir/err")"
done
"$qavlua" --profile "$dir/missing.ini" x 2>&1 | grep -q "no profile $dir/missing.ini" || fail "missing profile"
for help in -h --help; do
    "$qavlua" $help | grep -q "^usage: qavlua init ROOT" || fail "$help"
done
"$qavlua" --version | grep -Eq "^qavlua [0-9]+\.[0-9]+\.[0-9]+ \(Lua 5\.[234]" || fail "--version"
echo "runner basics passed"

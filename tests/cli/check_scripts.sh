#!/bin/sh
# qavlua check: clean examples; one finding a line for broken calls however the library is reached;
# with luacheck installed, the generated configuration passes the examples and flags unknown names.
# usage: check_scripts.sh QAVLUA SOURCE_DIR LUACHECKRC
set -eu
qavlua=$1
source=$2
luacheckrc=$3
dir=$(mktemp -d "${TMPDIR:-/tmp}/qavlua-check.XXXXXX")
trap 'rm -rf "$dir"' EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }

"$qavlua" check "$source"/examples/*.lua "$source"/examples/busted/*.lua >"$dir/out" 2>"$dir/err" ||
    fail "examples: $(cat "$dir/out" "$dir/err")"
[ ! -s "$dir/out" ] || fail "examples: $(cat "$dir/out")"

# Each line of a sample after "--!" is the finding expected on that line ("" for none).
cat >"$dir/broken.lua" <<'LUA'
local m = libqavluacommon
local lib = require "libqavluacommon"
local zh = require("zakhost")
local lock = m.qav_Lock
m.qav_Lok(1)                                 --! unknown library function libqavluacommon.qav_Lok
libqavluacommon.qav_Lock(600, 1)             --! qav_Lock takes 3 arguments, called with 2
lib.qav_luaAssignPortID(1, 2)                --! qav_luaAssignPortID takes 1 argument, called with 2
lock(600, 1)                                 --! qav_Lock takes 3 arguments, called with 2
require("libqavluacommon").qav_IsLocked(1)   --! qav_IsLocked takes 0 arguments, called with 1
zh.clock_advanc(3)                           --! unknown zakhost function zakhost.clock_advanc
m.qav_ZAK_StartupStampAddExt(1, 2, 3, 4, 5)  --! qav_ZAK_StartupStampAddExt takes 6 to 22 arguments, called with 5
m.qav_luaAssignPortID(1, 2, select(2, ...))  --! qav_luaAssignPortID takes 1 argument, called with 2 or more
m.qav_spt_fopen "path"                       --! qav_spt_fopen takes 3 arguments, called with 1
m.qav_Lock(600, 1, nil)
m.qav_Lock(600, select(2, ...))
print(m.qav_IsLocked(), m.qav_Lock(1, 2, 3 .. tostring(m)), m.rpm_whorequire("a", "b", "c"))
m:qav_luaAssignPortID()
local t = {m = 1, lock = 2}
local m = {}
m.qav_Lok()
LUA
grep -n -- '--!' "$dir/broken.lua" | sed "s|^\([0-9]*\):.*--! |$dir/broken.lua:\1: |" >"$dir/expected"
status=0; "$qavlua" check "$dir/broken.lua" >"$dir/out" 2>/dev/null || status=$?
[ "$status" -eq 1 ] || fail "findings: status $status"
diff "$dir/expected" "$dir/out" >&2 || fail "findings differ (expected, got)"

printf 'local x = (\n' >"$dir/syntax.lua"
status=0; "$qavlua" check "$dir/syntax.lua" >"$dir/out" 2>/dev/null || status=$?
[ "$status" -eq 1 ] && grep -q "syntax.lua:2:" "$dir/out" || fail "syntax error: status $status, $(cat "$dir/out")"
status=0; "$qavlua" check "$dir/missing.lua" 2>/dev/null || status=$?
[ "$status" -eq 2 ] || fail "unreadable file: status $status"
status=0; "$qavlua" check 2>/dev/null || status=$?
[ "$status" -eq 2 ] || fail "no file: status $status"

if command -v luacheck >/dev/null; then
    (cd "$source" && luacheck --config "$luacheckrc" --no-color --codes --only 11 143 -- examples) >"$dir/lc" ||
        fail "luacheck on the examples: $(cat "$dir/lc")"
    printf 'libqavluacommon.qav_Lok()\nprint(QAVLUA_WORKER, arg[0])\n' >"$dir/lc.lua"
    status=0; luacheck --config "$luacheckrc" --no-color --codes --only 11 143 -- "$dir/lc.lua" >"$dir/lc" || status=$?
    [ "$status" -ne 0 ] && grep -q "lc.lua:1:1: (W143) accessing undefined field 'qav_Lok'" "$dir/lc" &&
        [ "$(grep -c '(W' "$dir/lc")" -eq 1 ] || fail "luacheck on a broken sample: $(cat "$dir/lc")"
fi
echo "check passed"

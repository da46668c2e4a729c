#!/bin/sh
# qavlua sweep and --coverage from the command line.
# usage: sweeps.sh QAVLUA EXAMPLES_DIR faults|reports|power-cut|coverage
set -u
qavlua=$1
examples=$2
which=$3
here=$(cd "$(dirname "$0")" && pwd)
dir=$(mktemp -d "${TMPDIR:-/tmp}/qavlua-sweep-test.XXXXXX")
trap 'rm -rf "$dir"' EXIT
fail() { echo "FAIL: $*" >&2; [ -f "$dir/out" ] && { echo "--- output:" >&2; cat "$dir/out" >&2; }; exit 1; }
has() { grep -qF -- "$2" "$1" || fail "$1 lacks: $2"; }
"$qavlua" init "$dir/root" >/dev/null || fail "init"
fixture=$here/fault_fixture.lua

# sweep STATUS KIND ARGS...: runs a sweep into $dir/out and expects its exit status (- for any).
sweep() {
    want=$1 status=0
    shift
    "$qavlua" sweep "$@" >"$dir/out" 2>&1 || status=$?
    [ "$want" = - ] || [ "$status" -eq "$want" ] || fail "sweep $*: status $status"
}

case $which in
faults)
    # Each planted failure is found, at its call, and nothing else is.
    for planted in "error P_ZAK_Close error" "leak P_ZAK_Write lock-held" "hang P_ZAK_Write hung" \
        "crash P_ZAK_Write crashed"; do
        set -- $planted
        sweep 1 faults --root "$dir/root" -j 2 --timeout 3 "$fixture" "$1"
        has "$dir/out" "16 injectable calls recorded; 16 runs"
        grep -qE "^1 failed \([0-9]+\):$" "$dir/out" || fail "$1: not exactly one failure"
        grep -A1 -E "^  call [0-9]+ \($2\)$" "$dir/out" | grep -q "^    $3: " || fail "$1: not found at $2"
        [ "$1" != leak ] || has "$dir/out" "ended holding the download lock"
    done
    # (A sanitizer build catches the signal itself and exits with its report.)
    grep -qE "killed by SIGSEGV|AddressSanitizer: SEGV" "$dir/out" || fail "the crash's signal"
    # Without the plant every failure is handled.
    sweep 0 faults --root "$dir/root" "$fixture" none
    has "$dir/out" "no failures"
    # A script that fails by itself cannot be swept.
    echo 'error("always")' >"$dir/bad.lua"
    sweep 2 faults --root "$dir/root" "$dir/bad.lua"
    has "$dir/out" "without any fault the script does not complete"
    ;;
reports)
    # JUnit: valid XML, one test case per run; shards merged give the same report as one sweep.
    sweep 1 faults --root "$dir/root" --limit 10 --json "$dir/all.json" --junit "$dir/all.xml" "$fixture" error
    has "$dir/out" "sampled evenly to 10 (--limit)"
    xmllint --noout "$dir/all.xml" || fail "JUnit file is not XML"
    [ "$(grep -c '<testcase ' "$dir/all.xml")" -eq 10 ] || fail "test cases of all.xml"
    for k in 1 2 3; do
        sweep - faults --root "$dir/root" --limit 10 --shard $k/3 --json "$dir/s$k.json" "$fixture" error
    done
    sweep 1 merge --junit "$dir/merged.xml" --json "$dir/merged.json" "$dir/s1.json" "$dir/s2.json" "$dir/s3.json"
    xmllint --noout "$dir/merged.xml" || fail "merged JUnit file is not XML"
    runs() { grep -oE '"index":[0-9]+,"point":"[^"]*","status":"[a-z-]+"' "$1"; }
    [ "$(runs "$dir/merged.json")" = "$(runs "$dir/all.json")" ] || fail "merged runs differ from one sweep"
    [ "$(grep -c '<testcase ' "$dir/merged.xml")" -eq 10 ] || fail "test cases of merged.xml"
    [ "$(grep -c '<failure type="error" message="[^"]*closing a.txt &lt;&amp;&gt; failed' "$dir/merged.xml")" -eq 1 ] ||
        fail "the failure case of merged.xml"
    sweep 2 merge "$dir/s1.json" "$dir/s3.json"
    has "$dir/out" "shards missing: 2 (of 3)"
    sweep 2 merge "$dir/s1.json" "$dir/s1.json"
    has "$dir/out" "given twice"
    sweep 2 merge "$dir/all.xml"
    has "$dir/out" "all.xml is not JSON"
    ;;
power-cut)
    recover=$examples/upgrade_flow_recover.lua
    sweep 0 power-cut --root "$dir/root" "$examples/upgrade_flow.lua" --recover "$recover"
    has "$dir/out" "no failures"
    # The fragile flow breaks in one window: from the removal of the old version until the switch.
    sweep 1 power-cut --root "$dir/root" "$examples/upgrade_flow_fragile.lua" --recover "$recover"
    range=$(sed -n 's/^[0-9]* failed (\([0-9]*-[0-9]*\)):$/\1/p' "$dir/out")
    [ -n "$range" ] || fail "fragile flow: failures not one range"
    grep -q "^  cut ${range%-*}: luafs_rm(\"../home/versions/V1\", 10) at upgrade_flow.lua:[0-9]*: removed ../home/versions/V1/" "$dir/out" ||
        fail "first failing cut point is not the removal of V1"
    grep -q "^  cut ${range#*-}: before luafs_mv(\"../home/boot.ini.new\", \"../home/boot.ini\")" "$dir/out" ||
        fail "last failing cut point is not the switch"
    has "$dir/out" "the device cannot boot V1"
    has "$dir/out" "~ /zakv8/main/home/boot.ini (content)"
    # A check that fails fails every run.
    echo 'error("not as expected")' >"$dir/check.lua"
    sweep 1 power-cut --root "$dir/root" --limit 2 "$examples/upgrade_flow.lua" --recover "$recover" --check "$dir/check.lua"
    grep -qE "^  check-failed +3$" "$dir/out" || fail "check"
    ;;
coverage)
    cat >"$dir/cov.lua" <<'LUA'
local function unused()
    return 1
end
local function twice(x)
    return x * 2
end
local rc = libqavluacommon.luafs_mkdir("../data/cov", 493, 2)
if rc ~= 0 then
    print("mkdir failed", rc)
end
print(twice(rc))
LUA
    # The lines the interpreter's own line hook sees.
    cat >"$dir/lines.lua" <<LUA
local seen = {}
debug.sethook(function(_, line)
    if debug.getinfo(2, "S").source == "@$dir/cov.lua" then seen[line] = true end
end, "l")
dofile("$dir/cov.lua")
debug.sethook()
local lines = {}
for line in pairs(seen) do lines[#lines + 1] = line end
table.sort(lines)
print(table.concat(lines, " "))
LUA
    cp -a "$dir/root" "$dir/root2"
    expected=$("$qavlua" --root "$dir/root2" "$dir/lines.lua" | tail -1)
    "$qavlua" --root "$dir/root" --coverage "$dir/cov.info" -j 2 "$dir/cov.lua" >/dev/null || fail "coverage run"
    hit() { sed -n "/^SF:.*\/$2$/,/^end_of_record/p" "$1" | sed -n 's/^DA:\([0-9]*\),[1-9][0-9]*$/\1/p' | tr '\n' ' ' | sed 's/ $//'; }
    [ "$(hit "$dir/cov.info" cov.lua)" = "$expected" ] || fail "covered lines $(hit "$dir/cov.info" cov.lua), executed $expected"
    # Lines never reached are listed with 0; -j 2 adds the two states up.
    for da in DA:2,0 DA:9,0 DA:11,2; do grep -qx "$da" "$dir/cov.info" || fail "coverage lacks $da"; done
    # Over a fault sweep: the failure branch is reached, and every run adds up.
    sweep 0 faults --root "$dir/root" --coverage "$dir/sweep.info" "$dir/cov.lua"
    runs=$(sed -n 's/^fault sweep of cov.lua: \([0-9]*\) runs in .*/\1/p' "$dir/out")
    grep -qx "DA:11,$((runs + 1))" "$dir/sweep.info" || fail "line 11 over $runs runs and the first"
    grep -qE "^DA:9,[1-9]" "$dir/sweep.info" || fail "the failure branch in the sweep's coverage"
    ;;
*)
    echo "unknown case $which" >&2
    exit 2
    ;;
esac
echo "sweep $which: ok"

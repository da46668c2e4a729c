#!/bin/sh
# Runs one example as the README says, in a fresh sandbox; checks its output and what it left.
# usage: run_example.sh QAVLUA EXAMPLES_DIR precheck|patch|parallel|busted|main
set -eu
qavlua=$1
examples=$2
which=$3
sandbox=$(mktemp -d "${TMPDIR:-/tmp}/qavlua-example.XXXXXX")
out=$sandbox.out
trap 'rm -rf "$sandbox" "$out"' EXIT
"$qavlua" init "$sandbox" >/dev/null

fail() { echo "FAIL: $*" >&2; echo "--- output:" >&2; cat "$out" >&2; exit 1; }
# has FILE TEXT...: every text is in the file.
has() {
    f=$1
    shift
    for t; do grep -qF -- "$t" "$f" || fail "$f lacks: $t"; done
}
lacks() { ! grep -qF -- "$2" "$1" || fail "$1 has: $2"; }

case $which in
precheck|main)
    script=$examples/upgrade_precheck.lua
    [ "$which" = main ] && script=$examples/main.lua
    "$qavlua" --root "$sandbox" "$script" >"$out" 2>&1 || fail "exit status $?"
    [ "$which" = main ] && has "$out" "libqavluacommon: 306 script functions"
    has "$out" "running software: V100R001" "upgrade lock taken for 600 s (locked: true)"
    # The intact candidate passes every check; the damaged one fails integrity and consistency.
    [ "$(sed -n '/^candidate V200R001$/,/^candidate/p' "$out" | grep -c '^  ok ')" -eq 5 ] || fail "intact candidate"
    has "$out" "  FAIL file integrity (SHA-256 of every file)" "upgrade lock released (code 0, locked: false)" \
        "  FAIL consistent with this NE (VNFC type, files, type codes) (code 0x31c490)" "2 finding(s)"
    report=$sandbox/zakv8/main/data/upgrade_riskcheck.xml
    has "$report" "<RiskCheck>" "<V200R001-damaged>" '<Item name="Check Item">integrity</Item>'
    lacks "$report" "<V200R001>"
    has "$sandbox/log/upgrade.log" "[UPG-LOCK]set upgrade write_lock, result: 0"
    has "$sandbox/log/diag.log" "[lua-log]pre-check of V200R001-damaged done"
    ;;
patch)
    "$qavlua" --root "$sandbox" "$examples/patch_flow.lua" >"$out" 2>&1 || fail "exit status $?"
    has "$out" "patch lock held by session 4711" "load record: #1 SPH001.PAT state 1 code 0" \
        "load record: #2 SPH002.PAT state 2 code 5005" "error ring 1: SPH002.PAT code 5005 in patch_flow"
    has "$sandbox/log/patch.log" "L3 loading SPH002.PAT failed, code 5005" "===== patch load end ====="
    has "$sandbox/log/event.log" '"info":"0x0D161001"' \
        '"info":"0x0D161002","format":"%u%u%u%d%s","values":[2,0,2,5005,"SPH002.PAT"]'
    ;;
parallel)
    "$qavlua" --root "$sandbox" -j 4 "$examples/parallel_locks.lua" >"$out" 2>&1 || fail "exit status $?"
    for w in 1 2 3 4; do has "$out" "worker $w: 200 rounds, 0 overlaps"; done
    has "$out" "all 4 workers done: counter 800 of 800 expected"
    ;;
busted)
    busted=$(command -v busted || true)
    if [ -z "$busted" ]; then echo "busted is not installed (Debian package lua-busted)"; exit 77; fi
    # busted needs the LuaFileSystem C module, which a runner built for another machine cannot load.
    echo 'require "lfs"' >"$sandbox.lfs.lua"
    if ! "$qavlua" --root "$sandbox" "$sandbox.lfs.lua" >/dev/null 2>&1; then
        rm -f "$sandbox.lfs.lua"
        echo "this qavlua cannot load LuaFileSystem (lua-filesystem), which busted needs"
        exit 77
    fi
    rm -f "$sandbox.lfs.lua"
    "$qavlua" --root "$sandbox" "$busted" "$examples/busted/upgrade_steps_test.lua" >"$out" 2>&1 ||
        fail "exit status $?"
    has "$out" "7 successes / 0 failures / 0 errors / 0 pending"
    ;;
*)
    echo "unknown example $which" >&2
    exit 2
    ;;
esac
echo "example $which: ok"

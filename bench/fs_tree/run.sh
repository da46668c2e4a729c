#!/bin/sh
# Copies, moves (across directories) and removes a generated tree through luafs_cp, luafs_mv and
# luafs_rm, and reports each as a ratio to cp -a, mv and rm -rf measured in the same run.
#
# usage: run.sh [--scale F] [--dir D] [--qavlua PATH]
#   --scale F   size factor for quick runs (default 1: about 20,000 files, 500 MB)
#   --dir D     where to build the trees (default: a new directory under /tmp)
#   --qavlua P  the runner (default: ../../build/bin/qavlua next to this script)
#   --runs N    rounds (default 3); each operation's best round is reported, and the engine and
#               the baseline take turns going first
set -eu
here=$(cd "$(dirname "$0")" && pwd)
scale=1
runs=3
base_parent=/tmp
qavlua="$here/../../build/bin/qavlua"
while [ $# -gt 0 ]; do
    case "$1" in
    --scale) scale=$2; shift 2 ;;
    --dir) base_parent=$2; shift 2 ;;
    --qavlua) qavlua=$2; shift 2 ;;
    --runs) runs=$2; shift 2 ;;
    *) echo "unknown option $1" >&2; exit 2 ;;
    esac
done
[ -x "$qavlua" ] || { echo "no qavlua at $qavlua (build first)" >&2; exit 2; }
lua=$(command -v lua5.4 || command -v lua5.3 || command -v lua5.2 || echo "$qavlua")

files=$(awk "BEGIN { printf \"%d\", 20000 * $scale }")
megabytes=$(awk "BEGIN { printf \"%d\", 500 * $scale }")
# Short paths: the engine joins paths of at most 127 characters.
base=$(mktemp -d "$base_parent/fsb.XXXXXX")
trap 'rm -rf "$base"' EXIT
root="$base/r"
"$qavlua" init "$root" >/dev/null
# Inside the sandbox, which the jailed runner also sees at its own path.
work="$root/w"
mkdir -p "$work/moved_a" "$work/moved_b"

"$lua" "$here/gen_tree.lua" "$work/src" "$files" "$megabytes"

now() { date +%s%N; }
# Time of one command in nanoseconds.
# No sync here: right after a sync the first metadata change on this disk can wait seconds for
# the journal, which would swamp the measurement.
timed() {
    t0=$(now)
    "$@"
    t1=$(now)
    echo $((t1 - t0))
}
# One engine call in a fresh qavlua process (the copy engine remembers the directories it made
# for the life of the process); the runner's own start-up time is measured and taken off.
lib() {
    printf 'local m = libqavluacommon\nlocal rc = %s\nif rc ~= 0 then io.stderr:write("engine result ", rc, "\\n") os.exit(1) end\n' "$1" >"$work/op.lua"
    "$qavlua" --root "$root" "$work/op.lua"
}
# The same script shape with no engine call, ending the same way.
startup() { lib "0"; }
best_startup=""
best_exec=""
for i in 1 2 3 4 5; do
    t=$(timed startup)
    if [ -z "$best_startup" ] || [ "$t" -lt "$best_startup" ]; then best_startup=$t; fi
    # The baselines are processes too: their start-up (that of /bin/true) is taken off likewise.
    t=$(timed /bin/true)
    if [ -z "$best_exec" ] || [ "$t" -lt "$best_exec" ]; then best_exec=$t; fi
done

best() { if [ -z "$1" ] || [ "$2" -lt "$1" ]; then echo "$2"; else echo "$1"; fi; }
b_cp="" b_lcp="" b_mv="" b_lmv="" b_rm="" b_lrm=""
round=1
while [ "$round" -le "$runs" ]; do
    rm -rf "$work/copy_a" "$work/copy_b" "$work/moved_a"/* "$work/moved_b"/*
    if [ $((round % 2)) -eq 1 ]; then
        t_cp=$(timed cp -a "$work/src" "$work/copy_a")
        t_lcp=$(timed lib "m.luafs_cp('$work/src', '$work/copy_b', 6)")
    else
        t_lcp=$(timed lib "m.luafs_cp('$work/src', '$work/copy_b', 6)")
        t_cp=$(timed cp -a "$work/src" "$work/copy_a")
    fi
    # Both copies must hold the same tree.
    if ! diff -r --no-dereference "$work/copy_a" "$work/copy_b" >/dev/null; then
        echo "luafs_cp made a different tree than cp -a" >&2
        exit 1
    fi
    t_mv=$(timed mv "$work/copy_a" "$work/moved_a/")
    t_lmv=$(timed lib "m.luafs_mv('$work/copy_b', '$work/moved_b', 0)")
    if [ $((round % 2)) -eq 1 ]; then
        t_rm=$(timed rm -rf "$work/moved_a/copy_a")
        t_lrm=$(timed lib "m.luafs_rm('$work/moved_b/copy_b', 10)")
    else
        t_lrm=$(timed lib "m.luafs_rm('$work/moved_b/copy_b', 10)")
        t_rm=$(timed rm -rf "$work/moved_a/copy_a")
    fi
    [ ! -e "$work/moved_b/copy_b" ] || { echo "luafs_rm left the tree" >&2; exit 1; }
    b_cp=$(best "$b_cp" "$t_cp") b_lcp=$(best "$b_lcp" "$t_lcp")
    b_mv=$(best "$b_mv" "$t_mv") b_lmv=$(best "$b_lmv" "$t_lmv")
    b_rm=$(best "$b_rm" "$t_rm") b_lrm=$(best "$b_lrm" "$t_lrm")
    round=$((round + 1))
done

report() {
    # name, engine ns (runner start-up taken off), baseline ns, baseline name, target
    awk -v name="$1" -v lib="$2" -v base="$3" -v bname="$4" -v target="$5" -v start="$best_startup" \
        -v exec="$best_exec" -v files="$files" -v mb="$megabytes" -v runs="$runs" 'BEGIN {
        l = lib - start; if (l < 0) l = 0
        base = base - exec; if (base < 0) base = 0
        ratio = base > 0 ? l / base : 0
        printf "%-9s %10.1f ms  baseline %10.1f ms  ratio %6.2f\n", name, l / 1e6, base / 1e6, ratio
        printf "BENCH\ttree %s, %d files, %d MB\t%s\t%s\t%.2f\t%.1f ms vs %.1f ms; best of %d\n", \
            name, files, mb, bname, target, ratio, l / 1e6, base / 1e6, runs
    }'
}
echo "start-up taken off: runner $(awk -v s="$best_startup" 'BEGIN { printf "%.1f", s / 1e6 }') ms, baseline commands $(awk -v s="$best_exec" 'BEGIN { printf "%.1f", s / 1e6 }') ms"
echo "best of $runs rounds:"
report luafs_cp "$b_lcp" "$b_cp" "cp -a" "<= 1.5"
report luafs_mv "$b_lmv" "$b_mv" "mv" "<= 1.1"
report luafs_rm "$b_lrm" "$b_rm" "rm -rf" "<= 1.2"

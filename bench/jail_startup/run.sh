#!/bin/sh
# Start-up of an empty script in the device jail, against the same script without a jail plus a
# bare bubblewrap jail running /bin/true, measured in the same run (target: at most 1.2).
# usage: run.sh [--qavlua PATH] [--runs N]   (default: ../../build/bin/qavlua, 40 runs)
# Prints the median of each and the ratio jailed / (unjailed + bare bwrap).
set -eu
here=$(cd "$(dirname "$0")" && pwd)
qavlua="$here/../../build/bin/qavlua"
runs=40
while [ $# -gt 0 ]; do
    case "$1" in
    --qavlua) qavlua=$2; shift 2 ;;
    --runs) runs=$2; shift 2 ;;
    *) echo "unknown option $1" >&2; exit 2 ;;
    esac
done
[ -x "$qavlua" ] || { echo "no qavlua at $qavlua (build first)" >&2; exit 2; }
work=$(mktemp -d "${TMPDIR:-/tmp}/bench-jail.XXXXXX")
trap 'rm -rf "$work"' EXIT
"$qavlua" init "$work/root" >/dev/null
: >"$work/empty.lua"

# The median, in milliseconds, of `runs` runs of the command, taking turns with the others so that
# a busy moment of the machine falls on all three alike.
jailed() { "$qavlua" --root "$work/root" "$work/empty.lua"; }
unjailed() { "$qavlua" --no-jail --root "$work/root" "$work/empty.lua"; }
bare() {
    bwrap --ro-bind / / --dev /dev --proc /proc --tmpfs /tmp --unshare-pid --unshare-net --unshare-ipc \
        --unshare-uts --die-with-parent /bin/true
}
for which in jailed unjailed bare; do "$which"; done # warm the caches
i=0
while [ "$i" -lt "$runs" ]; do
    for which in jailed unjailed bare; do
        t0=$(date +%s%N)
        "$which"
        t1=$(date +%s%N)
        echo $((t1 - t0)) >>"$work/$which"
    done
    i=$((i + 1))
done
median() { sort -n "$work/$1" | awk '{ v[NR] = $1 } END { printf "%.3f", v[int((NR + 1) / 2)] / 1e6 }'; }
j=$(median jailed) u=$(median unjailed) b=$(median bare)
echo "median of $runs runs: jailed $j ms, unjailed $u ms, bare bwrap $b ms"
awk -v j="$j" -v u="$u" -v b="$b" -v runs="$runs" 'BEGIN {
    printf "jail start-up  %8.2f ms  baseline %8.2f ms (unjailed + bare bwrap)  ratio %5.2f  target <= 1.2\n", j, u + b, j / (u + b)
    printf "BENCH\tjailed start-up of an empty script\tunjailed start-up + bare bwrap /bin/true\t<= 1.2\t%.2f\t%.1f ms vs %.1f + %.1f ms; median of %d\n", j / (u + b), j, u, b, runs }'

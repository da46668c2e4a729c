#!/bin/sh
# Sweep throughput and the cost of a sandbox copy, each against a baseline measured in the same run:
#   sweep_j2      a fault sweep of examples/upgrade_flow.lua with -j 2; baseline: the same runs one
#                 after another (-j 1). Target: speed-up (baseline / measured) >= 1.8 on 2 cores.
#   sandbox_copy  the copy a sweep makes of the sandbox for each run; baseline: `cp -a` of the same
#                 sandbox (a process per copy, as a shell-driven sweep would start).
#   busy_j2       two CPU-bound scripts side by side; baseline: one after the other. What two
#                 processes get from this machine at the time (other load included): the ceiling
#                 of sweep_j2.
#   jail_j2       bare bubblewrap start-ups side by side; baseline: one after the other. The
#                 ceiling for the part of each run that makes its jail.
# The sweep's copies go where TMPDIR points (default /tmp); TMPDIR=/dev/shm measures a tmpfs.
#
# usage: run.sh [--qavlua PATH] [--limit K] [--rounds N] [--files N]
#   --limit K   runs per sweep (default 60)
#   --rounds N  rounds (default 3); the best of each is reported, -j 1 and -j 2 take turns first
#   --files N   extra 16 KiB files in the sandbox, as installed packages (default 200)
set -eu
here=$(cd "$(dirname "$0")" && pwd)
qavlua="$here/../../build/bin/qavlua"
limit=60
rounds=3
files=200
while [ $# -gt 0 ]; do
    case "$1" in
    --qavlua) qavlua=$2; shift 2 ;;
    --limit) limit=$2; shift 2 ;;
    --rounds) rounds=$2; shift 2 ;;
    --files) files=$2; shift 2 ;;
    *) echo "unknown option $1" >&2; exit 2 ;;
    esac
done
[ -x "$qavlua" ] || { echo "no qavlua at $qavlua (build first)" >&2; exit 2; }
flow="$here/../../examples/upgrade_flow.lua"
work=$(mktemp -d "${TMPDIR:-/tmp}/bench-sweep.XXXXXX")
trap 'rm -rf "$work"' EXIT
"$qavlua" init "$work/root" >/dev/null
mkdir -p "$work/root/zakv8/main/home/installed"
i=0
while [ "$i" -lt "$files" ]; do
    head -c 16384 /dev/urandom >"$work/root/zakv8/main/home/installed/pkg$i.bin"
    i=$((i + 1))
done

now() { date +%s%N; }
sweep() { # -j N, JSON report; prints the wall time in ns
    t0=$(now)
    "$qavlua" sweep faults --root "$work/root" --limit "$limit" -j "$1" --json "$2" "$flow" >/dev/null || [ $? -eq 1 ]
    t1=$(now)
    echo $((t1 - t0))
}
best() { if [ -z "$1" ] || [ "$2" -lt "$1" ]; then echo "$2"; else echo "$1"; fi; }
b1="" b2=""
round=1
while [ "$round" -le "$rounds" ]; do
    if [ $((round % 2)) -eq 1 ]; then
        t1=$(sweep 1 "$work/j1.json"); t2=$(sweep 2 "$work/j2.json")
    else
        t2=$(sweep 2 "$work/j2.json"); t1=$(sweep 1 "$work/j1.json")
    fi
    b1=$(best "$b1" "$t1") b2=$(best "$b2" "$t2")
    round=$((round + 1))
done

# The sweep's own copy times (microseconds per run, from its report) against cp -a of the sandbox.
copies=$(grep -o '"copy_us":[0-9]*' "$work/j1.json" | cut -d: -f2)
runs=$(echo "$copies" | wc -l)
copy_us=$(echo "$copies" | awk '{ s += $1 } END { printf "%d", s / NR }')
run_ms=$(grep -o '"ms":[0-9]*,"copy_us"' "$work/j1.json" | cut -d: -f2 | cut -d, -f1 | awk '{ s += $1 } END { printf "%.1f", s / NR }')
# As in a sweep, each copy is removed before the next is made.
total=0
i=0
while [ "$i" -lt "$runs" ]; do
    t0=$(now)
    cp -a "$work/root" "$work/copy"
    t1=$(now)
    rm -rf "$work/copy"
    total=$((total + t1 - t0))
    i=$((i + 1))
done
cp_us=$((total / runs / 1000))

# What two busy processes get on this machine now (other load included): one CPU-bound script
# twice, one after the other and side by side. Side by side they need two sandboxes, as the
# sweep's runs have: the runner lets one run at a time into a sandbox.
echo 'local x = 0 for i = 1, 2e7 do x = x + i end' >"$work/busy.lua"
"$qavlua" init "$work/root2" >/dev/null
busy() { "$qavlua" --root "$1" "$work/busy.lua"; }
m1="" m2=""
round=1
while [ "$round" -le "$rounds" ]; do
    t0=$(now); busy "$work/root"; busy "$work/root"; t1=$(now)
    busy "$work/root" & busy "$work/root2"; wait; t2=$(now)
    m1=$(best "$m1" $((t1 - t0))) m2=$(best "$m2" $((t2 - t1)))
    round=$((round + 1))
done

# Two jails made at once: bare bubblewrap start-ups with the namespaces a run's jail makes, side by
# side against one after another. The kernel serialises part of namespace set-up, so this bounds
# the speed-up of the share of a run that is its jail, below busy_j2.
jails() { i=0; while [ "$i" -lt 20 ]; do bwrap --ro-bind / / --unshare-pid --unshare-net --die-with-parent /bin/true; i=$((i + 1)); done; }
n1="" n2=""
round=1
while [ "$round" -le "$rounds" ]; do
    t0=$(now); jails; jails; t1=$(now)
    jails & jails; wait; t2=$(now)
    n1=$(best "$n1" $((t1 - t0))) n2=$(best "$n2" $((t2 - t1)))
    round=$((round + 1))
done

echo "baselines: sweep_j2 against the same $limit runs one after another (-j 1); sandbox_copy against cp -a"
echo "of the sandbox ($(du -sk "$work/root" | cut -f1) KiB, $(find "$work/root" | wc -l) entries); best of $rounds rounds"
awk -v m="$b2" -v b="$b1" 'BEGIN {
    printf "%-12s %10.1f ms  baseline %10.1f ms  ratio %6.2f  (speed-up %.2f, target >= 1.8)\n", "sweep_j2", m / 1e6, b / 1e6, m / b, b / m
    printf "BENCH\tsweep speed-up with -j 2\tthe same runs one after another\t>= 1.8\t%.2f\t%.1f ms vs %.1f ms\n", b / m, m / 1e6, b / 1e6
}'
awk -v m="$m2" -v b="$m1" 'BEGIN {
    printf "%-12s %10.1f ms  baseline %10.1f ms  ratio %6.2f  (speed-up %.2f: the machine'"'"'s ceiling for the line above)\n", "busy_j2", m / 1e6, b / 1e6, m / b, b / m
    printf "BENCH\tspeed-up of two busy scripts side by side\tone after the other\t-\t%.2f\tthe machine'"'"'s ceiling for the sweep line\n", b / m
}'
awk -v m="$n2" -v b="$n1" 'BEGIN {
    printf "%-12s %10.1f ms  baseline %10.1f ms  ratio %6.2f  (speed-up %.2f: 40 bare jails; the ceiling for a run'"'"'s jail)\n", "jail_j2", m / 1e6, b / 1e6, m / b, b / m
    printf "BENCH\tspeed-up of bare jails started side by side\tone after the other\t-\t%.2f\tthe kernel'"'"'s ceiling for a run'"'"'s jail\n", b / m
}'
awk -v m="$copy_us" -v b="$cp_us" -v r="$run_ms" 'BEGIN {
    printf "%-12s %10.2f ms  baseline %10.2f ms  ratio %6.2f  (%.1f%% of a %.1f ms run)\n", "sandbox_copy", m / 1e3, b / 1e3, m / b, 100 * m / 1e3 / r, r
    printf "BENCH\tsandbox copy per sweep run\tcp -a of the sandbox\t-\t%.2f\t%.2f ms vs %.2f ms\n", m / b, m / 1e3, b / 1e3
}'

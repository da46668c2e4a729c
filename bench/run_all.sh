#!/bin/sh
# Runs every benchmark of bench/ and prints one table: the work, its baseline (measured in the same
# run), the target, the ratio and whether the target holds. Each benchmark prints its rows as
# "BENCH<tab>work<tab>baseline<tab>target<tab>ratio<tab>figures" (bench/common/bench_row.h); its
# whole output goes to BUILD/bench-logs/NAME.log.
#
# usage: bench/run_all.sh [--build DIR] [--quick] [--json FILE]
#   --build DIR  the build tree holding bin/ and lib/ (default build); `make bench` builds it first
#   --quick      smaller scales, for a run of about a minute; full scale otherwise
#   --json FILE  also write the rows as a JSON array to FILE
# Exit status 1 when a benchmark could not run; a missed target is reported in the table only.
set -eu
here=$(cd "$(dirname "$0")" && pwd)
build=build
quick=no
json=""
while [ $# -gt 0 ]; do
    case "$1" in
    --build) build=$2; shift 2 ;;
    --quick) quick=yes; shift ;;
    --json) json=$2; shift 2 ;;
    *) echo "unknown option $1" >&2; exit 2 ;;
    esac
done
build=$(cd "$build" && pwd)
bin="$build/bin"
logs="$build/bench-logs"
mkdir -p "$logs"
rows="$logs/rows.tsv"
: >"$rows"
failed=0

# One benchmark: its command's BENCH lines are kept; a failure becomes a row of its own.
run() {
    name=$1
    shift
    printf 'running %s ...\n' "$name" >&2
    if "$@" >"$logs/$name.log" 2>&1; then
        grep '^BENCH	' "$logs/$name.log" | cut -f2- >>"$rows" || true
    else
        printf '%s\t-\t-\t-\tfailed, see %s\n' "$name" "$logs/$name.log" >>"$rows"
        failed=1
    fi
}

for dir in "$here"/*/; do
    name=$(basename "$dir")
    case "$name" in
    common) ;;
    binding)
        if [ $quick = yes ]; then run binding "$bin/bench_binding" 1000000 400
        else run binding "$bin/bench_binding"; fi ;;
    named_locks)
        if [ $quick = yes ]; then run named_locks "$bin/bench_named_locks" 5 50000
        else run named_locks "$bin/bench_named_locks" 9 200000; fi ;;
    integrity)
        if [ $quick = yes ]; then run integrity "$dir/run.sh" "$bin/qavlua" "$bin/qavpkg" 128 50 5
        else run integrity "$dir/run.sh" "$bin/qavlua" "$bin/qavpkg" 1024 200 5; fi ;;
    fs_tree)
        if [ $quick = yes ]; then run fs_tree "$dir/run.sh" --qavlua "$bin/qavlua" --scale 0.1 --runs 3
        else run fs_tree "$dir/run.sh" --qavlua "$bin/qavlua" --runs 3; fi ;;
    jail_startup)
        if [ $quick = yes ]; then run jail_startup "$dir/run.sh" --qavlua "$bin/qavlua" --runs 15
        else run jail_startup "$dir/run.sh" --qavlua "$bin/qavlua" --runs 60; fi ;;
    sweep)
        if [ $quick = yes ]; then run sweep "$dir/run.sh" --qavlua "$bin/qavlua" --limit 20 --rounds 1
        else run sweep "$dir/run.sh" --qavlua "$bin/qavlua"; fi ;;
    *)
        # A new benchmark folder needs its line above; it is never skipped silently.
        printf '%s\t-\t-\t-\tnot run: no entry in bench/run_all.sh\n' "$name" >>"$rows"
        failed=1 ;;
    esac
done

scale=$([ $quick = yes ] && echo "quick scale" || echo "full scale")
echo
echo "Benchmarks ($scale, $(nproc) cores, $(date -u +%Y-%m-%d)); ratio = work / baseline, same run"
echo
awk -F '\t' '
function holds(target, ratio) {
    if (target ~ /^<= /) return (ratio + 0 <= substr(target, 4) + 0) ? "yes" : "NO"
    if (target ~ /^>= /) return (ratio + 0 >= substr(target, 4) + 0) ? "yes" : "NO"
    return "-"
}
BEGIN { print "| Work | Baseline | Target | Ratio | Holds | Figures |"; print "|---|---|---|---|---|---|" }
{
    h = ($4 == "-") ? "-" : holds($3, $4)
    printf "| %s | %s | %s | %s | %s | %s |\n", $1, $2, $3, $4, h, $5
}' "$rows"

if [ -n "$json" ]; then
    awk -F '\t' -v quick="$quick" '
    function q(s) { gsub(/\\/, "\\\\", s); gsub(/"/, "\\\"", s); return "\"" s "\"" }
    BEGIN { printf "{\"scale\": %s, \"rows\": [", q(quick == "yes" ? "quick" : "full") }
    {
        if (NR > 1) printf ","
        if ($4 == "-") { ratio = "null"; h = "null" }
        else {
            ratio = $4 + 0
            h = ($3 ~ /^<= /) ? (($4 + 0 <= substr($3, 4) + 0) ? "true" : "false") : \
                ($3 ~ /^>= /) ? (($4 + 0 >= substr($3, 4) + 0) ? "true" : "false") : "null"
        }
        printf "\n  {\"work\": %s, \"baseline\": %s, \"target\": %s, \"ratio\": %s, \"holds\": %s, \"figures\": %s}",
            q($1), q($2), q($3), ratio, h, q($5)
    }
    END { print "\n]}" }' "$rows" >"$json"
    echo
    echo "JSON: $json"
fi
exit $failed

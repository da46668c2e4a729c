#!/bin/sh
# Times the package integrity check ("qav_RpmGetVersionInfo" kind 7, which runs QAV_UPG_CheckFiles
# over every file node) on a generated package of 1 GiB in 200 files, against sha256sum over the
# same files in the same run, and prints the ratio (target: at most 1.1).
# usage: run.sh QAVLUA QAVPKG [TOTAL_MIB] [FILES] [ROUNDS]
set -eu
qavlua=$1
qavpkg=$2
total_mib=${3:-1024}
files=${4:-200}
rounds=${5:-3}
work=$(mktemp -d "${TMPDIR:-/tmp}/bench-integrity.XXXXXX")
trap 'rm -rf "$work"' EXIT
"$qavlua" init "$work/root" >/dev/null
pkg="$work/root/pkg"
mkdir -p "$pkg"
per_file_kib=$((total_mib * 1024 / files))
i=0
while [ "$i" -lt "$files" ]; do
    head -c "$((per_file_kib * 1024))" /dev/urandom >"$pkg/file$i.bin"
    i=$((i + 1))
done
"$qavpkg" vercfg "$pkg"
printf '[device]\nmorlo=1\n' >"$work/profile.ini"
cat >"$work/check.lua" <<LUA
local code, text = libqavluacommon.qav_RpmGetVersionInfo("$pkg/vercfg.xml", 7)
assert(code == 0 and text == "TRUE", "integrity check failed: " .. tostring(code) .. " " .. tostring(text))
LUA
now() { date +%s.%N; }
best_check=""
best_sum=""
r=0
# Warm the page cache once so both sides read the same cached files.
cat "$pkg"/*.bin >/dev/null
while [ "$r" -lt "$rounds" ]; do
    t0=$(now)
    (cd "$pkg" && sha256sum file*.bin >/dev/null)
    t1=$(now)
    "$qavlua" --root "$work/root" --profile "$work/profile.ini" "$work/check.lua"
    t2=$(now)
    sum=$(echo "$t1 - $t0" | bc -l)
    check=$(echo "$t2 - $t1" | bc -l)
    if [ -z "$best_sum" ] || [ "$(echo "$sum < $best_sum" | bc -l)" = 1 ]; then best_sum=$sum; fi
    if [ -z "$best_check" ] || [ "$(echo "$check < $best_check" | bc -l)" = 1 ]; then best_check=$check; fi
    r=$((r + 1))
done
ratio=$(echo "$best_check / $best_sum" | bc -l)
printf 'integrity check: %d MiB in %d files, best of %d rounds\n' "$total_mib" "$files" "$rounds"
printf '  sha256sum          %.3f s\n' "$best_sum"
printf '  QAV_UPG_CheckFiles %.3f s (qavlua start-up included)\n' "$best_check"
printf '  ratio              %.3f (target <= 1.1)\n' "$ratio"

#!/bin/sh
# Times the package integrity check ("qav_RpmGetVersionInfo" kind 7, which runs QAV_UPG_CheckFiles
# over every file node) on a generated package of 1 GiB in 200 files, against sha256sum over the
# same files in the same run, and against `openssl dgst -sha256` (the same hash code as the check:
# the limit), and prints the ratios (target: at most 1.1 of each).
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
best_ssl=""
r=0
# Warm the page cache once so both sides read the same cached files.
cat "$pkg"/*.bin >/dev/null
# Seconds between two readings of now, and whether a time beats the best so far.
since() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.6f", b - a }'; }
better() { [ -z "$1" ] || awk -v best="$1" -v t="$2" 'BEGIN { exit !(t < best) }'; }
while [ "$r" -lt "$rounds" ]; do
    t0=$(now)
    (cd "$pkg" && sha256sum file*.bin >/dev/null)
    t1=$(now)
    (cd "$pkg" && openssl dgst -sha256 file*.bin >/dev/null)
    t2=$(now)
    "$qavlua" --root "$work/root" --profile "$work/profile.ini" "$work/check.lua"
    t3=$(now)
    sum=$(since "$t0" "$t1")
    ssl=$(since "$t1" "$t2")
    check=$(since "$t2" "$t3")
    if better "$best_sum" "$sum"; then best_sum=$sum; fi
    if better "$best_ssl" "$ssl"; then best_ssl=$ssl; fi
    if better "$best_check" "$check"; then best_check=$check; fi
    r=$((r + 1))
done
ratio=$(awk -v a="$best_check" -v b="$best_sum" 'BEGIN { print a / b }')
ratio_ssl=$(awk -v a="$best_check" -v b="$best_ssl" 'BEGIN { print a / b }')
printf 'integrity check: %d MiB in %d files, best of %d rounds\n' "$total_mib" "$files" "$rounds"
printf '  sha256sum            %.3f s\n' "$best_sum"
printf '  openssl dgst -sha256 %.3f s\n' "$best_ssl"
printf '  QAV_UPG_CheckFiles   %.3f s (qavlua start-up included)\n' "$best_check"
printf '  ratio                %.3f to sha256sum, %.3f to openssl (target <= 1.1 of each)\n' "$ratio" "$ratio_ssl"
work_name=$(printf 'integrity check, %d MiB in %d files' "$total_mib" "$files")
printf 'BENCH\t%s\tsha256sum\t<= 1.1\t%.2f\t%.3f s vs %.3f s; best of %d\n' "$work_name" "$ratio" \
    "$best_check" "$best_sum" "$rounds"
printf 'BENCH\t%s\topenssl dgst -sha256\t<= 1.1\t%.2f\t%.3f s vs %.3f s; best of %d\n' "$work_name" \
    "$ratio_ssl" "$best_check" "$best_ssl" "$rounds"

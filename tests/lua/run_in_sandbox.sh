#!/bin/sh
# Runs one Lua test file through qavlua in a fresh device sandbox, removed afterwards.
# usage: run_in_sandbox.sh QAVLUA TEST.lua
set -eu
qavlua=$1
test_file=$2
sandbox=$(mktemp -d "${TMPDIR:-/tmp}/qavlua-test.XXXXXX")
trap 'chmod -R u+rwX "$sandbox" 2>/dev/null; rm -rf "$sandbox"' EXIT
"$qavlua" init "$sandbox" >/dev/null
"$qavlua" --root "$sandbox" "$test_file"

#!/bin/sh
# Runs one Lua test file through qavlua in a fresh device sandbox, removed afterwards. A test that
# reads the source tree (QAV_SOURCE_DIR) sees it, read-only, in the jail.
# usage: run_in_sandbox.sh QAVLUA TEST.lua
set -eu
qavlua=$1
test_file=$2
sandbox=$(mktemp -d "${TMPDIR:-/tmp}/qavlua-test.XXXXXX")
trap 'chmod -R u+rwX "$sandbox" 2>/dev/null; rm -rf "$sandbox"' EXIT
"$qavlua" init "$sandbox" >/dev/null
set -- --root "$sandbox"
[ -n "${QAV_SOURCE_DIR:-}" ] && set -- "$@" --ro-bind "$QAV_SOURCE_DIR"
"$qavlua" "$@" "$test_file"

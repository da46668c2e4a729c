#!/bin/sh
# qavlua -j 4: four states assign ports for one OS node at once; none twice in a cycle of 125.
set -eu
qavlua=$1
sandbox=$(mktemp -d "${TMPDIR:-/tmp}/qavlua-par.XXXXXX")
trap 'rm -rf "$sandbox"' EXIT
"$qavlua" init "$sandbox" >/dev/null
cat >"$sandbox/worker.lua" <<'LUA'
local m = libqavluacommon
local out = assert(io.open(string.format("%s/ports.%d", arg and os.getenv("OUT_DIR") or ".", QAVLUA_WORKER), "w"))
for _ = 1, 31 do
    local status, port = m.qav_luaAssignPortID(0x777)
    assert(status == 0)
    out:write(port, "\n")
end
out:close()
LUA
OUT_DIR="$sandbox" "$qavlua" --root "$sandbox" -j 4 "$sandbox/worker.lua"
total=$(cat "$sandbox"/ports.* | wc -l)
distinct=$(cat "$sandbox"/ports.* | sort -u | wc -l)
echo "workers: $(ls "$sandbox"/ports.* | wc -l), ports: $total, distinct: $distinct"
[ "$(ls "$sandbox"/ports.* | wc -l)" -eq 4 ] && [ "$total" -eq 124 ] && [ "$distinct" -eq 124 ]

#!/bin/sh
# qavpkg: one line per command written; a missing directory and a non-number are refused by name.
# usage: qavpkg_messages.sh QAVPKG
set -eu
qavpkg=$1
dir=$(mktemp -d "${TMPDIR:-/tmp}/qavpkg-cli.XXXXXX")
trap 'rm -rf "$dir"' EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }
mkdir -p "$dir/pkg" "$dir/root/zakv8/main/data"
echo payload >"$dir/pkg/a.bin"
echo more >"$dir/pkg/b.bin"

# command | expected standard output (exact, one line)
while IFS='|' read -r args expected; do
    # shellcheck disable=SC2086
    out=$(cd "$dir" && "$qavpkg" $args) || fail "qavpkg $args failed"
    [ "$out" = "$expected" ] || fail "qavpkg $args printed '$out', expected '$expected'"
done <<CASES
vercfg pkg --type 0x14|qavpkg vercfg: wrote pkg/vercfg.xml (2 files)
vercfg pkg --file a.bin,type=3,attr=0x1234 --output one.xml|qavpkg vercfg: wrote one.xml (1 file)
pkgdesc d.xml --entity rib --version 1.0 --entity ospf|qavpkg pkgdesc: wrote d.xml (2 entities)
entitydb root --entity core|qavpkg entitydb: wrote root/zakv8/main/data/c_entity.xml (1 entity)
patch p.pat --desc S:1:2 --payload-bytes 20|qavpkg patch: wrote p.pat (6500 bytes, 1 descriptor)
rpg r.tar.gz --name n --version V1|qavpkg rpg: wrote r.tar.gz (image.rpg, n V1)
layout pkg root V1|qavpkg layout: wrote root/zakv8/main/home/V1/base
CASES

# command | expected message on standard error (exact); each must exit 1 and write nothing
while IFS='|' read -r args expected; do
    status=0
    # shellcheck disable=SC2086
    err=$(cd "$dir" && "$qavpkg" $args 2>&1 >/dev/null) || status=$?
    [ "$status" -eq 1 ] || fail "qavpkg $args: status $status"
    [ "$err" = "$expected" ] || fail "qavpkg $args said '$err', expected '$expected'"
done <<CASES
vercfg pkg --type abc --output t.xml|qavpkg vercfg: --type needs a numeric type code (decimal or 0x hex): abc
vercfg pkg --type -1 --output t.xml|qavpkg vercfg: --type needs a numeric type code (decimal or 0x hex): -1
vercfg pkg --file a.bin,type=x --output t.xml|qavpkg vercfg: bad --file a.bin,type=x (type, node and attr take numbers)
vercfg pkg --output no/such/t.xml|qavpkg vercfg: cannot write no/such/t.xml: no directory no/such
pkgdesc gone/d.xml --entity rib|qavpkg pkgdesc: cannot write gone/d.xml: no directory gone
patch gone/p.pat|qavpkg patch: cannot write gone/p.pat: no directory gone
rpg gone/r.tar.gz|qavpkg rpg: cannot write gone/r.tar.gz: no directory gone
layout pkg root V2 --current x --nothing|qavpkg layout: unknown option --nothing
CASES
[ ! -e "$dir/t.xml" ] || fail "a refused vercfg wrote its file"
echo "qavpkg messages passed"

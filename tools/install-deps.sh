#!/bin/sh
# Installs the Debian packages the build and the tests need, when any is missing.
# As root it runs apt-get; otherwise it prints the one command to run.
# usage: tools/install-deps.sh [LUA_VERSION...]   (default 5.4)
set -eu
versions=${*:-5.4}
packages="cmake make g++ pkg-config libxml2-dev libssl-dev libcrypt-dev libgtest-dev openssl bubblewrap"
packages="$packages lua-busted" # the busted example runs its test file through qavlua
for v in $versions; do packages="$packages liblua$v-dev lua$v"; done
missing=""
for p in $packages; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing="$missing $p"
done
[ -z "$missing" ] && exit 0
if [ "$(id -u)" -eq 0 ]; then
    echo "installing:$missing"
    export DEBIAN_FRONTEND=noninteractive
    apt-get update -qq
    apt-get install -y -qq --no-install-recommends $missing >/dev/null
else
    echo "missing Debian packages; run as root:" >&2
    echo "  apt-get install -y$missing" >&2
    exit 1
fi

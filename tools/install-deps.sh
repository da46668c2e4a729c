#!/bin/sh
# Installs the Debian packages the build and the tests need, when any is missing.
# As root it runs apt-get; otherwise it prints the one command to run.
# usage: tools/install-deps.sh [LUA_VERSION | fuzz | arm ...]   (default 5.4)
#   fuzz   clang and its libFuzzer runtime, bubblewrap (tests/fuzz/run_fuzz.sh)
#   arm    the armhf cross compiler and qemu-user; adds the armhf architecture to dpkg so that
#          tools/arm-build.sh can download the armhf libraries into its sysroot
set -eu
args=${*:-5.4}
packages="cmake make g++ pkg-config libxml2-dev libssl-dev libcrypt-dev libgtest-dev openssl bubblewrap"
packages="$packages nlohmann-json3-dev" # sweep reports are read back with it
packages="$packages libxml2-utils lcov" # the sweep tests validate JUnit files; genhtml renders coverage
packages="$packages lua-busted" # the busted example runs its test file through qavlua
packages="$packages passwd libpam-modules perl" # the password tool in the device jail, crypt(3) in tests
packages="$packages lua-check"  # the generated luacheck configuration is tried on the examples
arm=no
for a in $args; do
    case $a in
    fuzz) packages="$packages clang libclang-rt-14-dev" ;;
    arm)
        arm=yes
        packages="$packages g++-arm-linux-gnueabihf qemu-user qemu-user-static file"
        ;;
    *)
        # The stock interpreter of another version too: the library must refuse to load into it.
        other=5.4
        [ "$a" = 5.4 ] && other=5.3
        packages="$packages liblua$a-dev lua$a lua$other"
        ;;
    esac
done
missing=""
for p in $packages; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing="$missing $p"
done
if [ $arm = yes ] && ! dpkg --print-foreign-architectures | grep -qx armhf; then
    missing="$missing (armhf-architecture)"
fi
[ -z "$missing" ] && exit 0
if [ "$(id -u)" -eq 0 ]; then
    echo "installing:$missing"
    export DEBIAN_FRONTEND=noninteractive
    if [ $arm = yes ] && ! dpkg --print-foreign-architectures | grep -qx armhf; then
        dpkg --add-architecture armhf
    fi
    apt-get update -qq || true
    missing=$(echo "$missing" | sed 's/ (armhf-architecture)//')
    [ -z "$missing" ] || apt-get install -y -qq --no-install-recommends $missing >/dev/null
else
    echo "missing Debian packages; run as root:" >&2
    [ $arm = yes ] && echo "  dpkg --add-architecture armhf && apt-get update" >&2
    echo "  apt-get install -y$missing" >&2
    exit 1
fi

#!/usr/bin/env bash
# The 32-bit ARM build: cross-compiles everything with cmake/armhf-toolchain.cmake and runs the
# whole test suite under qemu-user.
#   tools/arm-build.sh [build directory (default build-armhf)]
#
# The armhf libraries are not installed into the system: their Debian packages are downloaded and
# unpacked into a private sysroot (<build>/sysroot). Installing them as multiarch packages ties
# every one of them to the exact version of its amd64 twin, so a machine whose amd64 side is a
# security update ahead (or whose armhf index is mid-sync) cannot install them at all; an unpacked
# sysroot has no such coupling and leaves the machine's own packages alone.
# QAV_REQUIRE_ARM=0 lets a machine without the cross tools or the armhf index skip the stage.
set -euo pipefail
src=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$src/build-armhf}
mkdir -p "$build"
build=$(cd "$build" && pwd)
sysroot=$build/sysroot
multiarch=arm-linux-gnueabihf

skip() {
    echo "arm: $*"
    [ "${QAV_REQUIRE_ARM:-1}" = 1 ] && exit 1
    echo "arm: stage skipped (QAV_REQUIRE_ARM=0)"
    exit 0
}

"$src/tools/install-deps.sh" arm || true
command -v $multiarch-g++ >/dev/null || skip "no cross compiler ($multiarch-g++)"
command -v qemu-arm-static >/dev/null || command -v qemu-arm >/dev/null || skip "no qemu-user"

# The target's libraries and headers. The list is the closure the build needs: the -dev packages
# for headers and link names, their runtime libraries, and what those load in turn (C and C++
# runtimes come with the cross compiler).
packages="libssl-dev libssl3 liblua5.4-dev liblua5.4-0 libxml2-dev libxml2 libicu-dev libicu72
          liblzma5 zlib1g libcrypt-dev libcrypt1 libgtest-dev"
# Header-only packages are the same for every architecture ("Architecture: all").
headers="nlohmann-json3-dev"
# The marker holds the package list, so that a changed list makes the sysroot anew.
if [ "$(cat "$sysroot/.complete" 2>/dev/null)" != "$(echo $packages $headers)" ]; then
    rm -rf "$sysroot" "$build/debs"
    mkdir -p "$sysroot" "$build/debs"
    names=""
    for p in $packages; do names="$names $p:armhf"; done
    names="$names $headers"
    # apt drops to its own user for downloads; let it write here.
    chmod 777 "$build/debs"
    (cd "$build/debs" && apt-get download -qq $names) || skip "cannot download the armhf packages:$names"
    for deb in "$build/debs"/*.deb; do dpkg-deb -x "$deb" "$sysroot"; done
    # Link names that point at absolute paths (libcrypt.so -> /lib/...) must point into the sysroot.
    find "$sysroot" -type l -lname '/*' | while read -r link; do
        ln -sfn "$sysroot$(readlink "$link")" "$link"
    done
    echo $packages $headers >"$sysroot/.complete"
fi

cmake -S "$src" -B "$build" -DCMAKE_TOOLCHAIN_FILE="$src/cmake/armhf-toolchain.cmake" \
    -DQAV_ARM_SYSROOT="$sysroot" -DQAV_BUILD_BENCH=OFF >/dev/null
cmake --build "$build" -j"$(nproc)" >/dev/null
file -L "$build/lib/libqavluacommon.so" | grep -q "32-bit.*ARM" || { echo "arm: not an ARM library"; exit 1; }
cd "$build" && ctest --output-on-failure -j"$(nproc)"

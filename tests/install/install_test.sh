#!/bin/sh
# Installs the build, moves the prefix, and uses it as the README describes (sanitizer and cross
# builds skip the programs built here; QAV_TARGET_RUN, when set, starts the target's programs).
# usage: install_test.sh BUILD_DIR SOURCE_DIR LUA_VERSION [SANITIZERS]
set -eu
build=$1
source=$2
luaver=$3
sanitizers=${4:-}
run=${QAV_TARGET_RUN:-}
work=$(mktemp -d "${TMPDIR:-/tmp}/qav-install.XXXXXX")
trap 'rm -rf "$work"' EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }

cmake --install "$build" --prefix "$work/stage" >/dev/null
mv "$work/stage" "$work/prefix"
prefix=$work/prefix

for f in bin/qavlua bin/qavpkg lib/libqavluacommon.so lib/libzakhost.so lib/zakhost.so \
         include/qavluacommon/script_engine.h include/qavluacommon/zak_file.h \
         share/qavluacommon/meta/libqavluacommon.lua share/qavluacommon/meta/zakhost.lua \
         share/qavluacommon/reference.md share/qavluacommon/luacheckrc \
         share/qavluacommon/functions.lua share/qavluacommon/examples/upgrade_precheck.lua \
         lib/pkgconfig/qavluacommon.pc lib/cmake/qavluacommon/qavluacommonConfig.cmake \
         lib/cmake/qavluacommon/qavluacommonConfigVersion.cmake; do
    [ -e "$prefix/$f" ] || fail "not installed: $f"
done
# No installed object looks into the build tree.
for f in "$prefix"/bin/qavlua "$prefix"/lib/*.so; do
    if readelf -d "$f" | grep -E 'R(UN)?PATH' | grep -qF "$build"; then fail "$f refers to the build tree"; fi
done

# In a cross build the installed programs start through the emulator, from wrappers that stand
# next to each other as the installed ones do (the example finds qavpkg beside qavlua).
qavlua=$prefix/bin/qavlua
if [ -n "$run" ]; then
    mkdir "$work/emulated"
    for tool in qavlua qavpkg; do
        printf '#!/bin/sh\nexec %s "%s" "$@"\n' "$run" "$prefix/bin/$tool" >"$work/emulated/$tool"
        chmod +x "$work/emulated/$tool"
    done
    qavlua=$work/emulated/qavlua
    export QAVLUA_EXE="$qavlua" QAVLUA_EMULATOR="$run" # the runner starts its engine through it too
fi

# The installed runner in a fresh sandbox: a device script, and an installed example that builds
# its packages with the installed qavpkg.
"$qavlua" init "$work/sandbox" >/dev/null
"$qavlua" --root "$work/sandbox" "$source/tests/install/consumer/check.lua" | grep -qF "installed qavlua ran the device script" ||
    fail "device script"
"$qavlua" init "$work/sandbox2" >/dev/null
"$qavlua" --root "$work/sandbox2" "$prefix/share/qavluacommon/examples/upgrade_precheck.lua" >"$work/precheck.out" ||
    fail "installed example"
grep -qF "2 finding(s)" "$work/precheck.out" || fail "installed example output"
"$qavlua" check "$prefix"/share/qavluacommon/examples/*.lua 2>/dev/null || fail "qavlua check of the installed examples"

# pkg-config: a program embedding Lua opens the library.
export PKG_CONFIG_PATH="$prefix/lib/pkgconfig"
[ "$(pkg-config --variable=qavlua qavluacommon)" = "$prefix/lib/pkgconfig/../../bin/qavlua" ] || fail "pkg-config qavlua variable"
if [ -n "$sanitizers" ] || [ -n "$run" ]; then
    echo "install: ok (${sanitizers:-cross} build: programs outside the build not tried)"
    exit 0
fi
# shellcheck disable=SC2046
cc -o "$work/embed" "$source/tests/install/embed.c" $(pkg-config --cflags --libs qavluacommon "lua$luaver") ||
    fail "build through pkg-config"
ZAKHOST_ROOT=$work/sandbox "$work/embed" | grep -qF "status 0 port 41004" || fail "embedded library"

# The CMake package: a project set up by the README's snippet, as written there, builds the same
# program and runs its device-script test.
sed -n '/^```cmake$/,/^```$/p' "$source/README.md" | sed '1d;$d' >"$work/snippet.cmake"
grep -q 'target_link_libraries(mytool' "$work/snippet.cmake" || fail "no CMake snippet in README.md"
cmake -S "$source/tests/install/consumer" -B "$work/consumer" -DCMAKE_PREFIX_PATH="$prefix" \
    -DREADME_SNIPPET="$work/snippet.cmake" >"$work/consumer.log" 2>&1 || { cat "$work/consumer.log" >&2; fail "configure with find_package"; }
cmake --build "$work/consumer" >"$work/consumer.log" 2>&1 || { cat "$work/consumer.log" >&2; fail "build with the CMake package"; }
ZAKHOST_ROOT=$work/sandbox "$work/consumer/mytool" | grep -qF "status 0 port 41004" || fail "CMake-built program"
(cd "$work/consumer" && ctest --output-on-failure >/dev/null) || fail "the project's device-script test"
grep -qF "$prefix/share/qavluacommon/meta" "$work/consumer/found.txt" || fail "qavluacommon_META_DIR"

# A stock interpreter finds both modules in <prefix>/lib/lua/<version>.
LUA_CPATH="$prefix/lib/lua/$luaver/?.so;;" ZAKHOST_ROOT=$work/sandbox "lua$luaver" -e \
    'local m = require "libqavluacommon"; local zh = require "zakhost"; assert(select(2, m.qav_luaAssignPortID(9)) == 41004 and zh.root())' ||
    fail "stock interpreter with the installed modules"

# The installed definitions are valid Lua.
"lua$luaver" -e "dofile('$prefix/share/qavluacommon/meta/libqavluacommon.lua')" || fail "definitions"
echo "install: ok"

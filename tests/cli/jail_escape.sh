#!/bin/sh
# Every way a device script could reach the host, tried from inside the jail as root and as nobody:
# canaries outside the sandbox and the host's /etc/shadow stay unchanged (as root in a throwaway
# mount namespace whose /etc/shadow is a copy, so that even a failing test cannot change the real one).
set -eu
qavlua=$(realpath "$1")
qavpkg=$(dirname "$qavlua")/qavpkg
script=$(realpath "$(dirname "$0")")/jail_escape.lua
if [ "$(id -u)" -eq 0 ] && [ -z "${QAV_ESCAPE_NS:-}" ]; then
    exec env QAV_ESCAPE_NS=1 unshare --mount --propagation private sh -c '
        copy=$(mktemp) && cp -p /etc/shadow "$copy" && mount --bind "$copy" /etc/shadow || exit 1
        "$0" "$@"; status=$?
        umount /etc/shadow; rm -f "$copy"; exit $status' "$0" "$@"
fi
fail() { echo "FAIL: $*" >&2; exit 1; }
state() { find "$@" -printf '%p %y %s %m %u\n' | sort; sha256sum /etc/shadow "$@/canary" 2>&1; }
hash_of() { awk -F: -v u="$2" '$1 == u { print $2 }' "$1/etc/shadow"; }
verifies() { perl -e 'exit(crypt($ARGV[0], $ARGV[1]) eq $ARGV[1] ? 0 : 1)' "$1" "$2"; }

# scenario USER: USER is empty for the caller itself, else an account that setpriv switches to.
scenario() {
    who=$1
    dir=$(mktemp -d /tmp/qavlua-escape.XXXXXX)
    visible=$(dirname "$(dirname "$qavlua")")/escape-canary.$$
    trap 'rm -rf "$dir" "$visible"' EXIT
    mkdir "$dir/outside" "$visible"
    echo canary >"$dir/outside/canary"
    echo canary >"$visible/canary"
    as() { "$@"; }
    if [ -n "$who" ]; then
        chown -R "$who" "$dir" "$visible"
        as() { setpriv --reuid="$who" --regid=nogroup --clear-groups "$@"; }
    fi
    as "$qavlua" init "$dir/root" >/dev/null || fail "$who: init"
    salt='$6$escape$'
    root_hash=$(perl -e 'print crypt($ARGV[0], $ARGV[1])' 'Sandbox#Root1' "$salt")
    dash_hash=$(perl -e 'print crypt($ARGV[0], $ARGV[1])' 'Dash#User1' "$salt")
    as sh -c "sed -i 's|^root:\\*:|root:$root_hash:|' '$dir/root/etc/shadow' &&
        echo 'root -d:x:0:0::/root:/bin/sh' >>'$dir/root/etc/passwd' &&
        echo 'root -d:$dash_hash:19000:0:99999:7:::' >>'$dir/root/etc/shadow'"
    shadow_size=$(stat -c %s "$dir/root/etc/shadow")
    before=$(state "$dir/outside"; state "$visible")
    as "$qavlua" --root "$dir/root" "$script" "$dir/outside" "$visible" "$qavpkg" >"$dir/out" 2>&1 ||
        fail "$who: the escape script failed: $(cat "$dir/out")"
    after=$(state "$dir/outside"; state "$visible")
    [ "$before" = "$after" ] || fail "$who: the host changed:
$(printf '%s\n' "$before" >"$dir/b"; printf '%s\n' "$after" | diff "$dir/b" - )"
    # What the script did to its own device: the first change set root's password; the second, for
    # an account named "root -d", ran "passwd root -d", which empties root's, in the sandbox only.
    grep -q "^root password	true	0	" "$dir/out" || fail "$who: root password change: $(grep root "$dir/out")"
    [ -z "$(hash_of "$dir/root" root)" ] || fail "$who: 'root -d' did not reach the sandbox's root"
    grep -q "^shadow size	true	0	$shadow_size$" "$dir/out" || fail "$who: /etc/shadow is not the sandbox's"
    # A link left in R where a mount point must go (here for --ro-bind /mnt): the runner refuses to
    # start rather than let the jail's set-up follow it out of R.
    as ln -s "$dir/outside" "$dir/root/mnt"
    status=0
    as "$qavlua" --root "$dir/root" --ro-bind /mnt "$script" "$qavpkg" 2>"$dir/err" || status=$?
    [ "$status" -eq 2 ] && grep -q "R/mnt is a symbolic link" "$dir/err" || fail "$who: mount point link: $status"
    [ "$after" = "$(state "$dir/outside"; state "$visible")" ] || fail "$who: the link was followed"
    rm -rf "$dir" "$visible"
    trap - EXIT
    echo "jail held ${who:-as $(id -un)}"
}

scenario ""
if [ "$(id -u)" -eq 0 ]; then
    if command -v setpriv >/dev/null && id nobody >/dev/null 2>&1 &&
        setpriv --reuid=nobody --regid=nogroup --clear-groups "$qavlua" --help >/dev/null 2>&1; then
        scenario nobody
    else
        echo "not run as nobody: it cannot run $qavlua here"
    fi
fi

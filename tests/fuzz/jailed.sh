#!/bin/sh
# Runs a command with the whole file system read-only except a private /tmp and /dev/shm, when
# bubblewrap works here; otherwise runs it as it is. The call-anything runners use it: they hand
# arbitrary texts to functions that remove, move and change files. A checkout or build under /tmp
# (the command, its arguments, the working directory) stays visible, read-only, in the jail.
if command -v bwrap >/dev/null 2>&1 && bwrap --ro-bind / / --dev /dev true 2>/dev/null; then
    keep=""
    for path in "$PWD" "$@"; do
        case $path in
        /tmp/?*)
            top=/tmp/$(printf '%s' "${path#/tmp/}" | cut -d/ -f1)
            [ -e "$top" ] || continue
            case " $keep " in *" $top "*) ;; *) keep="$keep $top" ;; esac
            ;;
        esac
    done
    binds=""
    for top in $keep; do binds="$binds --ro-bind $top $top"; done
    # shellcheck disable=SC2086 # the binds are separate words; paths under /tmp carry no blanks here
    exec bwrap --ro-bind / / --dev /dev --proc /proc --tmpfs /tmp --tmpfs /dev/shm $binds --chdir "$PWD" "$@"
fi
exec "$@"

#!/bin/sh
# Runs a command with the file system read-only but a private /tmp and /dev/shm when bubblewrap
# works, else as it is: the call-anything runners hand arbitrary texts to functions that change
# files. A checkout or build under /tmp (command, arguments, working directory) stays visible.
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

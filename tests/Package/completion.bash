#!/usr/bin/env bash
# The completion offers the program's commands, and for each of them the options that its help lists.
set -euo pipefail
program="$1" completion="$2"

# shellcheck source=/dev/null
source "$completion"

# Complete <words...>: what is offered for the last word.
Complete() {
    COMP_WORDS=("$program" "$@")
    COMP_CWORD=$#
    _playout
    printf '%s\n' "${COMPREPLY[@]}" | sort | tr '\n' ' '
}

failed=0
Expect() {
    if [[ "$1" != "$2" ]]; then
        printf 'offered: %s\nexpected: %s\n' "$1" "$2" >&2
        failed=1
    fi
}

Expect "$(Complete '')" "bench info play simulate verify "
Expect "$(Complete p)" "play "
Expect "$(Complete play --me)" "--memory --metrics "
Expect "$(Complete --vers)" "--version "
for command in bench info play simulate verify; do
    listed="$("$program" "$command" --help | grep -oE '^  (-[a-z],)?--[a-z-]+' | sed 's/.*--/--/' | sort | tr '\n' ' ')"
    [[ -n "$listed" ]] || failed=1
    Expect "$(Complete "$command" --)" "$listed"
done
exit "$failed"

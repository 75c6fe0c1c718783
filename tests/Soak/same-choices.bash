#!/usr/bin/env bash
# Runs the program twice with one seed and once with another: the digest of all choices must be the same, and another
# one.
#
#   same-choices.bash PROGRAM
set -euo pipefail

# Digest <program> <seed>
Digest() {
    "$1" --seed "$2" --phases 4 | sed -nE 's/.*; choices ([0-9a-f]+)$/\1/p'
}

first="$(Digest "$1" 5)"
again="$(Digest "$1" 5)"
other="$(Digest "$1" 6)"
echo "choices of seed 5: $first and $again; of seed 6: $other"
[[ -n "$first" && "$first" == "$again" && -n "$other" && "$first" != "$other" ]]

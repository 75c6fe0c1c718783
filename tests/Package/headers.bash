#!/usr/bin/env bash
# Compiles every installed header as the only include of a file, with the flags that a client gets from
# pkg-config and our warnings as errors.
set -euo pipefail
pkg_config="$1" compiler="$2" prefix="$3"

PKG_CONFIG_PATH="$(dirname "$(find "$prefix" -name tavrin-player.pc)")"
export PKG_CONFIG_PATH compiler
headers="$("$pkg_config" --variable=includedir tavrin-player)"
contracts="$("$pkg_config" --variable=contractsdir tavrin-player)"
flags="$("$pkg_config" --cflags tavrin-player) -I$contracts"
export flags

Compile() {
    echo "#include \"$1\"" |
        $compiler -std=c++20 -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror $flags \
            -fsyntax-only -x c++ - || { echo "$1 does not compile alone" >&2; return 1; }
}
export -f Compile

mapfile -t names < <(find "$headers" -name '*.h' -printf '%P\n')
mapfile -t suites < <(find "$contracts" -name '*.h' -printf '%P\n')
if ((${#names[@]} < 30 || ${#suites[@]} < 4)); then
    echo "${#names[@]} headers and ${#suites[@]} contract suites: the installation is not complete" >&2
    exit 1
fi
names+=("${suites[@]}")
printf '%s\n' "${names[@]}" | xargs -P 2 -I{} bash -c 'Compile {}'
echo "${#names[@]} headers"

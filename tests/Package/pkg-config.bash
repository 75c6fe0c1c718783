#!/usr/bin/env bash
# Builds and runs the outside client with nothing but what pkg-config says.
set -euo pipefail
pkg_config="$1" compiler="$2" client="$3" prefix="$4" scratch="$5"

rm -rf "$scratch"
mkdir -p "$scratch"
cp "$client/engine.cpp" "$client/picture.h" "$scratch"
libraries="$(dirname "$(find "$prefix" -name tavrin-player.pc)")/.."
export PKG_CONFIG_PATH="$libraries/pkgconfig"
read -ra flags < <("$pkg_config" --cflags --libs tavrin-player)
"$compiler" -std=c++20 "$scratch/engine.cpp" -o "$scratch/engine-client" "${flags[@]}"
LD_LIBRARY_PATH="$libraries" "$scratch/engine-client"

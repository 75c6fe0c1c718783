#!/usr/bin/env bash
# Builds and runs the outside client with CMake, from a copy that has nothing of the tree around it.
set -euo pipefail
cmake="$1" generator="$2" compiler="$3" client="$4" prefix="$5" scratch="$6"

rm -rf "$scratch"
mkdir -p "$scratch"
cp -r "$client" "$scratch/source"
"$cmake" -S "$scratch/source" -B "$scratch/build" -G "$generator" \
    -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_CXX_COMPILER="$compiler" -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF
"$cmake" --build "$scratch/build"
for program in "$scratch"/build/*-client; do
    "$program"
done

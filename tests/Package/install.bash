#!/usr/bin/env bash
# Installs a build directory into an empty prefix.
set -euo pipefail
cmake="$1" build="$2" prefix="$3"

rm -rf "$prefix"
"$cmake" --install "$build" --prefix "$prefix" >/dev/null

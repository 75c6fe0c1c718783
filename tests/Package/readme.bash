#!/usr/bin/env bash
# The first C++ block of the README is, to the letter, the example that is built and run as a test.
set -euo pipefail
readme="$1" example="$2"

shown="$(awk '/^```cpp$/ { inside = 1; next } /^```$/ { if (inside) exit } inside' "$readme")"
diff -u --label README.md --label "$(basename "$example")" <(echo "$shown") "$example"

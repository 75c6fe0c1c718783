#!/usr/bin/env bash
# Every shared library carries a soname of the major version and exports symbols of our namespaces only.
set -euo pipefail
nm="$1" readelf="$2" prefix="$3" major="$4"

failed=0
libraries=0
while read -r library; do
    libraries=$((libraries + 1))
    name="$(basename "$library")"
    soname="$("$readelf" -d "$library" | sed -n 's/.*(SONAME).*\[\(.*\)\]/\1/p')"
    if [[ "$soname" != "${name%%.so*}.so.$major" ]]; then
        echo "$name: soname is '$soname', expected ${name%%.so*}.so.$major" >&2
        failed=1
    fi
    symbols="$("$nm" --dynamic --defined-only --demangle --format=posix "$library" | grep -v '^TAVRIN_[^ ]* A' || true)"
    if [[ -z "$symbols" ]]; then
        echo "$name exports nothing" >&2
        failed=1
    fi
    foreign="$(grep -vE \
        '^((vtable|VTT|typeinfo|typeinfo name) for |(non-)?virtual thunk to )?(Tavrin|qor::kp::logging)::' \
        <<<"$symbols" || true)"
    if [[ -n "$foreign" ]]; then
        printf '%s exports what is not ours:\n%s\n' "$name" "$foreign" >&2
        failed=1
    fi
done < <(find "$prefix" -name '*.so*' -type f)

if ((libraries < 4)); then
    echo "only $libraries shared libraries in $prefix" >&2
    exit 1
fi
exit "$failed"

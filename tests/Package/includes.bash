#!/usr/bin/env bash
# Libraries include only what lies below them, and of another library only its installed headers.
set -euo pipefail
root="$1" prefix="$2"

declare -A may_include=(
    [Time]='Time'
    [Tools]='Tools'
    [Logging]='Logging'
    [Player]='Time Tools Logging Player'
    [Playout]='Time Tools Logging Player Playout'
    [apps]='Time Tools Logging Player Playout'
)
ours='Time|Tools|Logging|Player|Playout'
failed=0
checked=0

Complain() {
    echo "$1 includes \"$2\": $3" >&2
    failed=1
}

headers="$(find "$prefix" -type d -path '*/include/tavrin')"
cd "$root"
for directory in "${!may_include[@]}"; do
    while IFS=: read -r file line; do
        included="$line"
        [[ "$line" =~ [\"\<]([^\"\>]+)[\"\>] ]] && included="${BASH_REMATCH[1]}"
        library="${included%%/*}"
        checked=$((checked + 1))
        if [[ "$directory" == apps && "$included" == apps/* && -f "$included" ]]; then
            continue
        elif [[ "$included" =~ ^(tests|examples|apps|benchmarks|contracts)/ || "$included" == *..* ]]; then
            Complain "$file" "$included" "not a header of a library"
        elif [[ "$included" == "$line" ]]; then
            Complain "$file" "$included" "it names no header"
        elif [[ ! "$library" =~ ^($ours)$ ]]; then
            continue
        elif [[ " ${may_include[$directory]} " != *" $library "* ]]; then
            Complain "$file" "$included" "$directory must not include $library"
        elif [[ "$library" != "$directory" && ! -f "$headers/$included" ]]; then
            Complain "$file" "$included" "it is private to $library"
        fi
    done < <(grep -rHE --include='*.h' --include='*.cpp' '^[[:space:]]*#[[:space:]]*include' "$directory")
done

if ((checked < 100)); then
    echo "only $checked includes found under $root" >&2
    exit 1
fi
echo "$checked includes"
exit "$failed"

# What the scripts share: progress lines, installing packages, configuring and building a preset.
# Sourced by them after `set -euo pipefail`; leaves the shell in the root of the tree.

cd "$(dirname "${BASH_SOURCE[0]}")/.."

# No question is ever asked, and nothing here reads what may be piped into a script.
exec </dev/null
export DEBIAN_FRONTEND=noninteractive

SECONDS=0

# One line that says what begins now and how long the script has been running.
Progress() {
    printf '==> %s  %02d:%02d  %s\n' "$(date +%H:%M:%S)" $((SECONDS / 60)) $((SECONDS % 60)) "$*"
}

Fail() {
    printf '%s\n' "$*" >&2
    exit 1
}

# The packages of the groups given that are not installed.
MissingPackages() {
    local groups package
    groups="$(IFS='|'; echo "$*")"
    for package in $(sed -nE "s/^($groups) +([^ ]+) *$/\2/p" scripts/packages | sort -u); do
        dpkg-query -W -f='${db:Status-Status}\n' "$package" 2>/dev/null | grep -qx installed ||
            echo "$package"
    done
}

# Installs what is missing of the groups given; returns at once when nothing is.
InstallPackages() {
    if ! command -v dpkg-query >/dev/null; then
        Progress "not a Debian system: the packages in scripts/packages are taken to be there"
        return
    fi
    local missing
    mapfile -t missing < <(MissingPackages "$@")
    if ((${#missing[@]} == 0)); then
        return
    fi
    Progress "installing ${missing[*]}"
    local as_root=()
    if ((EUID != 0)); then
        command -v sudo >/dev/null || Fail "not root and no sudo; install these packages: ${missing[*]}"
        as_root=(sudo --preserve-env=DEBIAN_FRONTEND)
    fi
    local apt=("${as_root[@]}" apt-get -y -q -o DPkg::Lock::Timeout=600 -o Dpkg::Use-Pty=0)
    "${apt[@]}" update || Progress "apt-get update failed; trying with the lists that are there"
    "${apt[@]}" install --no-install-recommends "${missing[@]}"
}

# Configures a preset. The compiler cache is used when there is one, and forgotten when it is gone.
Configure() {
    Progress "configuring $1"
    local launcher
    launcher="$(command -v ccache || true)"
    cmake --preset "$1" -DCMAKE_CXX_COMPILER_LAUNCHER="$launcher" "${@:2}"
}

# Configures and builds a preset.
Build() {
    Configure "$@"
    Progress "building $1"
    cmake --build --preset "$1" --parallel "$(nproc)"
}

# What a program with Clang 14's thread sanitizer is started with, a word a line: it cannot place its shadow memory
# when the kernel randomises more than 28 bits of the address space.
FixedAddresses() {
    if [[ "$(cat /proc/sys/vm/mmap_rnd_bits 2>/dev/null || echo 0)" -gt 28 ]] && setarch -R true 2>/dev/null; then
        printf '%s\n' setarch -R
    fi
}

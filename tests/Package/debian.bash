#!/usr/bin/env bash
# Installs the Debian packages into an empty system, builds clients against them and plays a clip there. Needs root.
set -euo pipefail
packages="$(realpath "$1")" examples="$(realpath "$2")" client="$(realpath "$3")"

Fail() {
    printf '%s\n' "$*" >&2
    exit 1
}
((EUID == 0)) || Fail "an empty system can only be made by root"

root="$(mktemp -d)"
trap 'rm -rf --one-file-system "$root"' EXIT

for name in libtavrin libtavrin-dev tavrin-playout; do
    compgen -G "$packages/${name}_*.deb" >/dev/null || Fail "there is no package $name in $packages"
done

# The runtime package must bring all it needs by itself, so nothing of it is named here; the compiler is the client's.
# The system comes from where this machine's own packages come from.
sources=(/etc/apt/sources.list.d/*.sources /etc/apt/sources.list.d/*.list /etc/apt/sources.list)
settings=()
for file in /etc/apt/apt.conf.d/*; do
    settings+=(--aptopt="$file")
done
present=()
for file in "${sources[@]}"; do
    if [[ -s "$file" ]]; then present+=("$file"); fi
done
mmdebstrap --variant=apt --skip=cleanup/apt/lists "${settings[@]}" bookworm "$root/system" "${present[@]}"
system="$root/system"
cp "$packages"/*.deb "$system/tmp/"
cp -r "$examples" "$system/tmp/examples"
cp -r "$client" "$system/tmp/client"

In() {
    chroot "$system" /usr/bin/env DEBIAN_FRONTEND=noninteractive HOME=/tmp LC_ALL=C.UTF-8 "$@"
}

echo "-- the program alone"
In bash -c 'apt-get install -y -q --no-install-recommends /tmp/libtavrin_*.deb /tmp/tavrin-playout_*.deb' >/dev/null
[[ "$(In playout --version)" == *[0-9].[0-9]* ]] || Fail "playout says no version"
[[ ! -e "$system/usr/include/tavrin" ]] || Fail "the headers came without the package for them"
In test -s /usr/share/man/man1/playout.1.gz || In test -s /usr/share/man/man1/playout.1 || Fail "there is no manual page"
In test -s /usr/share/bash-completion/completions/playout || Fail "there is no completion"

echo "-- a clip"
In apt-get install -y -q --no-install-recommends ffmpeg >/dev/null
In ffmpeg -nostdin -v error -f lavfi -i testsrc2=size=320x240:rate=25:duration=2 -pix_fmt yuv420p -c:v libx264 -g 25 /tmp/clip.mp4
In playout verify /tmp/clip.mp4
In playout play /tmp/clip.mp4 --fast --speed -1 --output md5:/tmp/shown >/dev/null
shown="$(grep -c . "$system/tmp/shown")"
((shown >= 50)) || Fail "of 50 pictures only $shown were shown backward"

echo "-- a client"
In bash -c 'apt-get install -y -q --no-install-recommends g++ cmake make pkg-config libgtest-dev /tmp/libtavrin-dev_*.deb' >/dev/null
In cmake -S /tmp/client -B /tmp/build >/dev/null
In cmake --build /tmp/build >/dev/null
for program in engine contracts playout; do
    In "/tmp/build/$program-client" >/dev/null || Fail "the client $program fails"
done
In bash -c 'g++ -std=c++20 /tmp/examples/readme.cpp -o /tmp/readme $(pkg-config --cflags --libs tavrin-player)'
[[ "$(In /tmp/readme | grep -c '^shown: ')" == 25 ]] || Fail "the example does not show 25 samples"

echo "-- gone again"
In apt-get purge -y -q libtavrin libtavrin-dev tavrin-playout >/dev/null
left="$(find "$system/usr" -path '*tavrin*' -o -name 'playout*' | head)"
[[ -z "$left" ]] || Fail "left behind: $left"
echo "the packages install, play, build a client and go"

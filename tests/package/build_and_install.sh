#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Builds the Debian packages from a copy of the checkout, runs lintian on them,
# installs them with apt, uses each through its installed files only (aplay
# through the skelda and skelda_hq PCMs, the example built with pkg-config,
# skelda_convert), then purges them and checks that the packages and files
# of the system are what they were before.
#
# Runs as root (or through sudo). Installs the packaging tools and build
# dependencies it lacks from apt; those stay, as tools/install_deps.sh's do.
# Refuses to start when skelda is already on the system, since purging would
# then take away what was there.
set -euo pipefail
repo=$(cd "$(dirname "$0")/../.." && pwd)
sudo=""
[ "$(id -u)" -ne 0 ] && sudo="sudo"
export DEBIAN_FRONTEND=noninteractive
apt_get() { $sudo apt-get -o DPkg::Lock::Timeout=300 "$@"; }
packages=(libasound2-plugin-skelda libskelda0 libskelda-dev skelda-tools)
phase() { echo "-- $1 ($SECONDS s)"; }
fail() { echo "FAIL: $*"; exit 1; }

work=$(mktemp -d /tmp/skelda-deb-XXXXXX)
installed=0
cleanup() {
  if [ "$installed" = 1 ]; then
    echo "-- purging the packages after a failure"
    apt_get purge -y -qq "${packages[@]}" >/dev/null 2>&1 || true
  fi
  rm -rf "$work"
}
trap cleanup EXIT

for p in "${packages[@]}"; do
  if dpkg-query -W -f='${db:Status-Status}' "$p" 2>/dev/null | grep -qv '^not-installed$'; then
    fail "$p is already on this system; purge it first"
  fi
done
if command -v pkg-config >/dev/null && pkg-config --exists skelda 2>/dev/null; then
  fail "a skelda.pc is already installed ($(pkg-config --variable=pcfiledir skelda)); remove it first"
fi

# The tree as checked out (tracked files and new ones not ignored, with their
# current contents), without build directories.
src="$work/skelda"
mkdir "$src"
git -C "$repo" ls-files -z --cached --others --exclude-standard |
  (cd "$repo" && tar --null --ignore-failed-read -T - -cf - 2>/dev/null) | tar -xf - -C "$src"

tools=(dpkg-dev debhelper lintian build-essential alsa-utils sox pkg-config)
missing=()
for p in "${tools[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ] || ! (cd "$src" && dpkg-checkbuilddeps >/dev/null 2>&1); then
  echo "installing the packaging tools and build dependencies: ${missing[*]}"
  apt_get update -qq || true  # a mirror half-way through a sync fails one list, not all
  apt_get install -y -qq "${missing[@]}" >/dev/null
  apt_get build-dep -y -qq "$src" >/dev/null
fi
phase "tools ready"

(cd "$src" && dpkg-buildpackage -b -us -uc -j2 >"$work/build.log" 2>&1) ||
  { tail -50 "$work/build.log"; fail "dpkg-buildpackage"; }
phase "packages built"

echo "lintian:"
lintian_status=0
lintian --display-info --pedantic "$work"/skelda_*.changes >"$work/lintian.log" 2>&1 || lintian_status=$?
tags=$(grep -v '^running with root privileges' "$work/lintian.log" || true)
sed 's/^/    /' <<<"${tags:-no tags}"
grep -q '^E: ' "$work/lintian.log" && fail "lintian reports errors"
[ "$lintian_status" = 0 ] || fail "lintian failed ($lintian_status)"
phase "lintian"

mkdir "$work/debs" "$work/dbgsym"
mv "$work"/*-dbgsym_*.deb "$work/dbgsym/"
mv "$work"/*.deb "$work/debs/"
for p in "${packages[@]}"; do
  deb=$(ls "$work"/debs/"${p}"_*.deb) || fail "no package $p"
  echo "$(basename "$deb"): $(dpkg-deb -c "$deb" | grep -cv '/$') files"
  dpkg-deb -c "$deb" | grep -v '/$' | sed -E 's/.* \.//; s/^/    /'
done

# Nothing the packages ship may be on the system already: it would be
# overwritten now and gone after the purge.
for deb in "$work"/debs/*.deb; do
  for f in $(dpkg-deb -c "$deb" | grep -v '/$' | sed -E 's/.* \.(\/[^ ]*).*/\1/'); do
    { [ -e "$f" ] || [ -L "$f" ]; } && fail "$f is already on the system"
  done
done

# What the packages may change, before they come.
snapshot() {  # file
  {
    dpkg-query -W -f='package ${binary:Package} ${db:Status-Abbrev}\n'
    find /etc /usr /opt /var/lib/dpkg/info /var/lib/dpkg/alternatives -xdev 2>/dev/null
  } | LC_ALL=C sort >"$1"
}
snapshot "$work/before"

installed=1
(cd "$work/debs" && apt_get install -y -qq ./*.deb >"$work/install.log" 2>&1) ||
  { cat "$work/install.log"; fail "apt-get install"; }
for p in "${packages[@]}"; do
  dpkg-query -W -f='${db:Status-Abbrev}' "$p" | grep -q '^ii' || fail "$p is not installed"
done
phase "installed"

# Everything below uses the installed files only: alsa-lib's own plugin
# directory and configuration, with the user configuration of an empty home
# naming a file PCM as the slave.
unset ALSA_PLUGIN_DIR ALSA_CONFIG_PATH XDG_CONFIG_HOME PKG_CONFIG_PATH PKG_CONFIG_SYSROOT_DIR
export HOME="$work/home"
mkdir "$HOME"
cd "$work"
cat >"$HOME/.asoundrc" <<CONF
pcm.tofile { type file slave.pcm "null" file "$work/played.wav" format "wav" }
CONF
sox -q -n -r 44100 -c 2 -b 16 "$work/in.wav" synth 1 sine 1000 vol 0.5
# The tone's frequency: zero crossings of the first channel over 0.8 s.
tone_hz() {
  sox "$1" -t dat - remix 1 trim 0.05 0.8 |
    awk '!/^;/ { if (n++ && ($2 >= 0) != (prev >= 0)) c++; prev = $2 } END { printf "%d\n", c / 1.6 + 0.5 }'
}
play() {  # pcm rate converter-line
  rm -f "$work/played.wav"
  aplay -v -D "$1:SLAVE=tofile,RATE=$2" "$work/in.wav" >"$work/aplay.log" 2>&1 ||
    { cat "$work/aplay.log"; fail "aplay -D $1"; }
  grep -qF "$3" "$work/aplay.log" || { cat "$work/aplay.log"; fail "$1 did not convert: no '$3'"; }
  local rate frames hz
  rate=$(soxi -r "$work/played.wav")
  frames=$(soxi -s "$work/played.wav")
  hz=$(tone_hz "$work/played.wav")
  [ "$rate" = "$2" ] || fail "$1 played at $rate Hz"
  # One second of input, and at most what alsa-lib's drain adds.
  [ "$frames" -ge "$2" ] && [ "$frames" -le $(($2 * 13 / 10)) ] || fail "$1 played $frames frames"
  [ "$hz" -ge 990 ] && [ "$hz" -le 1010 ] || fail "$1 turned 1000 Hz into $hz Hz"
  echo "aplay -D $1: 44100 Hz -> $rate Hz, $frames frames, tone at $hz Hz"
}
play skelda 22050 'RSMPL Converter: FIR filter, DOWN 44100 -> 22050'
play skelda_hq 96000 'RSMPL HQ Converter: 44100 -> 96000 Hz, 2 channels'
phase "played"

# The example against libskelda-dev, linked shared and static.
example=/usr/share/doc/libskelda-dev/examples/engine_example.c
if [ -f "$example" ]; then cp "$example" .; else zcat "$example.gz" >engine_example.c; fi
cc -std=c99 -Wall -Werror -o example engine_example.c $(pkg-config --cflags --libs skelda) -lm ||
  fail "the example does not build with pkg-config"
used=$(ldd ./example | awk '$1 == "libskelda.so.0" { print $3 }')
[ -n "$used" ] && [ "$(readlink -f "$used")" = "$(readlink -f "$(pkg-config --variable=libdir skelda)/libskelda.so.0")" ] ||
  { ldd ./example; fail "the example does not use the installed libskelda.so.0"; }
cc -std=c99 -static -o example_static engine_example.c $(pkg-config --cflags skelda) \
  $(pkg-config --static --libs skelda) -lm || fail "the example does not link libskelda.a"
for program in ./example ./example_static; do
  out=$("$program") || fail "$program failed"
  grep -q '48000 samples in, 4[0-9]* out' <<<"$out" || fail "$program: $out"
  echo "$program: $out"
done
phase "example built and run"

# The offline converter and its manual page.
skelda_convert -q -r 48000 "$work/in.wav" "$work/c48.wav" >/dev/null || fail "skelda_convert"
skelda_convert -q --hq -r 96000 "$work/in.wav" "$work/c96.flac" >/dev/null || fail "skelda_convert --hq"
[ "$(soxi -s c48.wav) $(soxi -r c48.wav)" = "48000 48000" ] || fail "skelda_convert wrote $(soxi c48.wav)"
[ "$(soxi -s c96.flac) $(soxi -r c96.flac)" = "96000 96000" ] || fail "skelda_convert --hq wrote $(soxi c96.flac)"
[ "$(tone_hz c96.flac)" -ge 990 ] && [ "$(tone_hz c96.flac)" -le 1010 ] ||
  fail "skelda_convert --hq moved the tone"
# One past the high-quality resampler's lowest rate, and its lowest rate
# through the skelda converter's path, which starts at 8000 Hz.
for args in "-r 3999" "--fir -r 4000"; do
  skelda_convert -q $args "$work/in.wav" "$work/bad.wav" 2>/dev/null && fail "skelda_convert $args was accepted"
  [ $? = 3 ] && [ ! -e "$work/bad.wav" ] || fail "skelda_convert $args did not give status 3"
done
[ -f "$(man -w skelda_convert)" ] || fail "no manual page"
man -P cat skelda_convert 2>/dev/null | grep -q -- '--hq' || fail "the manual page does not describe --hq"
echo "skelda_convert: 44100 -> 48000 and --hq 44100 -> 96000 converted; manual page found"
phase "skelda_convert"

# Removing takes every file away (the packages have no conffiles); purging
# then leaves the package list as it was too.
cd /
same_as_before() {  # what [grep pattern the comparison leaves out]
  snapshot "$work/after"
  if ! diff <(grep -v "${2:-^$}" "$work/before") <(grep -v "${2:-^$}" "$work/after") >"$work/left"; then
    sed 's/^/    /' "$work/left"
    fail "the system differs after $1"
  fi
}
apt_get remove -y -qq "${packages[@]}" >"$work/remove.log" 2>&1 || { cat "$work/remove.log"; fail "apt-get remove"; }
same_as_before "apt-get remove" '^package '
# (apt forgets packages removed without conffiles; dpkg purges whatever is left.)
$sudo dpkg --purge "${packages[@]}" >"$work/purge.log" 2>&1 || { cat "$work/purge.log"; fail "dpkg --purge"; }
installed=0
same_as_before "dpkg --purge"
phase "removed and purged; packages and files as before"
echo "Debian packages: built, lintian-clean, installed, used and purged in $SECONDS s"

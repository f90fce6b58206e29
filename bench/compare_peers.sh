#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# CPU time of aplay converting the same long input through alsa-lib's rate
# plugin with skelda and with the converters a user would pick instead:
# speexrate (default quality), samplerate (libsamplerate's sinc_fastest) and
# alsa-lib's built-in linear. Output goes to a file PCM writing /dev/null.
#
#   bench/compare_peers.sh [SECONDS]     (default 120 s of stereo pink noise)
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
seconds=${1:-120}

bash tools/install_deps.sh
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
ninja -C build asound_module_rate_skelda >/dev/null

work=$(mktemp -d /tmp/skelda-peers-XXXXXX)
trap 'rm -rf "$work"' EXIT
# One plugin directory holding ours and the peers' modules.
system_dir=$(pkg-config --variable=libdir alsa)/alsa-lib
mkdir "$work/plugins"
ln -s "$root/build/libasound_module_rate_skelda.so" "$work/plugins/"
for m in "$system_dir"/libasound_module_*.so; do ln -s "$m" "$work/plugins/"; done

cpu_seconds() {  # converter in.wav rate
  cat >"$work/peer.conf" <<CONF
pcm.measured {
  type rate
  converter "$1"
  slave { pcm { type file slave.pcm "null" file "/dev/null" format "raw" } rate $3 }
}
CONF
  local TIMEFORMAT='%U %S'
  { time ALSA_PLUGIN_DIR="$work/plugins" ALSA_CONFIG_PATH="/usr/share/alsa/alsa.conf:$work/peer.conf" \
      aplay -q -D measured "$2" >/dev/null 2>"$work/aplay.err"; } 2>"$work/time" \
    || { cat "$work/aplay.err" >&2; echo "aplay failed with converter $1" >&2; exit 1; }
  awk '{printf "%.2f", $1 + $2}' "$work/time"
}

printf '%-18s %8s %10s %10s %10s   %s\n' "pair ($seconds s)" skelda speexrate samplerate linear "peer CPU / skelda CPU"
for pair in 48000:16000 16000:48000 44100:22050 22050:44100 48000:8000 8000:48000 44100:48000 48000:44100; do
  in=${pair%:*}
  out=${pair#*:}
  [ -f "$work/in_$in.wav" ] || sox -q -n -r "$in" -c 2 -b 16 "$work/in_$in.wav" synth "$seconds" pinknoise vol 0.3
  ours=$(cpu_seconds skelda "$work/in_$in.wav" "$out")
  speex=$(cpu_seconds speexrate "$work/in_$in.wav" "$out")
  src=$(cpu_seconds samplerate "$work/in_$in.wav" "$out")
  lin=$(cpu_seconds linear "$work/in_$in.wav" "$out")
  ratios=$(awk -v o="$ours" -v a="$speex" -v b="$src" -v c="$lin" \
    'BEGIN { if (o < 0.01) o = 0.01; printf "speexrate %.1fx, samplerate %.1fx, linear %.1fx", a/o, b/o, c/o }')
  printf '%-18s %8s %10s %10s %10s   %s\n' "$in -> $out" "$ours" "$speex" "$src" "$lin" "$ratios"
done

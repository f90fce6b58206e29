#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Plays a WAV file through the real alsa-lib with the skelda rate converters,
# using aplay from alsa-utils, into a `file` PCM on a `null` slave, and reports
# what was converted.
#
#   tools/convert_with_aplay.sh                  generated test signals, several rate pairs
#   tools/convert_with_aplay.sh IN.wav RATE...   IN.wav converted to each RATE
#   CONVERTER=skelda_hq tools/convert_with_aplay.sh IN.wav RATE...
#   DEVICE_FORMAT=S32_LE CONVERTER=skelda_hq tools/convert_with_aplay.sh IN24.wav RATE...
#
# DEVICE_FORMAT sets the device's sample format (default: the file's own).
# Converted files are written to out/.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD

bash tools/install_deps.sh
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
ninja -C build asound_module_rate_skelda asound_module_rate_skelda_hq >/dev/null

mkdir -p out
conf=$(mktemp /tmp/skelda-aplay-XXXXXX.conf)
trap 'rm -f "$conf"' EXIT

# convert IN RATE [CONVERTER [FORMAT]]: one run of aplay through a rate PCM
# converting to RATE with CONVERTER (skelda unless $CONVERTER says
# otherwise), into a device of FORMAT (the file's unless $DEVICE_FORMAT says
# otherwise).
convert() {
  local in=$1 rate=$2 converter=${3:-${CONVERTER:-skelda}} format=${4:-${DEVICE_FORMAT:-}}
  local name out log
  name=$(basename "${in%.*}")
  out="$root/out/${name}_to_${rate}_${converter}.wav"
  log="$root/out/${name}_to_${rate}_${converter}.log"
  cat >"$conf" <<CONF
pcm.skelda_file {
  type rate
  converter "$converter"
  slave {
    pcm { type file slave.pcm "null" file "$out" format "wav" }
    rate $rate
    ${format:+format $format}
  }
}
CONF
  rm -f "$out"
  ALSA_PLUGIN_DIR="$root/build" ALSA_CONFIG_PATH="/usr/share/alsa/alsa.conf:$conf" \
    aplay -v -D skelda_file "$in" >"$log" 2>&1 || { cat "$log"; return 1; }
  printf '%s (%s Hz, %s ch, %s bits, %s frames) -> %s (%s Hz, %s bits, %s frames)\n' \
    "$in" "$(soxi -r "$in")" "$(soxi -c "$in")" "$(soxi -b "$in")" "$(soxi -s "$in")" \
    "out/$(basename "$out")" "$(soxi -r "$out")" "$(soxi -b "$out")" "$(soxi -s "$out")"
  printf '  %s\n' "$(grep -m1 -E 'RSMPL (HQ )?Converter:' "$log")"
}

if [ $# -ge 2 ]; then
  input=$1
  shift
  for rate in "$@"; do convert "$input" "$rate"; done
  exit 0
fi

# A stereo music-like test signal at 44.1 kHz (two tones and a sweep) and a
# mono one at 16 kHz, made with sox.
sox -q -n -r 44100 -c 2 -b 16 out/tones_44100.wav synth 3 sine 440 sine 1000 vol 0.5
sox -q -n -r 44100 -c 2 -b 16 out/sweep_44100.wav synth 3 sine 20-20000 vol 0.5
sox -q -n -r 16000 -c 1 -b 16 out/voice_16000.wav synth 3 sine 300-3000 vol 0.5

convert out/tones_44100.wav 48000   # linear up
convert out/tones_44100.wav 22050   # FIR down by 2
convert out/sweep_44100.wav 32000   # linear down
convert out/voice_16000.wav 48000   # FIR up by 3
convert out/voice_16000.wav 8000    # FIR down by 2

# The same material through the high-quality converter, at any pair.
sox -q -n -r 96000 -c 2 -b 16 out/hires_96000.wav synth 3 sine 997 sine 15000 vol 0.5
convert out/tones_44100.wav 48000 skelda_hq
convert out/sweep_44100.wav 32000 skelda_hq
convert out/hires_96000.wav 44100 skelda_hq
convert out/voice_16000.wav 44100 skelda_hq

# 24-bit material into a 32-bit device: skelda_hq keeps its 24 bits.
sox -q -D -n -r 96000 -c 2 -b 24 out/hires24_96000.wav synth 3 sine 997 sine 15000 vol 0.5
sox -q -D -n -r 44100 -c 2 -b 24 out/tones24_44100.wav synth 3 sine 440 sine 1000 vol 0.5
convert out/hires24_96000.wav 44100 skelda_hq S32_LE
convert out/tones24_44100.wav 48000 skelda_hq S32_LE

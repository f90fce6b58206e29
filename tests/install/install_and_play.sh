#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Installs the build into a staging directory and plays a WAV through the
# installed plugin and configuration snippet only, with aplay.
#   install_and_play.sh BUILD_DIR
set -euo pipefail
build=$1
stage=$(mktemp -d /tmp/skelda-install-XXXXXX)
trap 'rm -rf "$stage"' EXIT

DESTDIR="$stage" cmake --install "$build" >/dev/null
plugindir=$(pkg-config --variable=libdir alsa)/alsa-lib
module="$stage$plugindir/libasound_module_rate_skelda.so"
snippet="$stage/etc/alsa/conf.d/10-skelda.conf"
[ -f "$module" ] || { echo "FAIL: no module at $module"; exit 1; }
[ -L "$snippet" ] || { echo "FAIL: no conf.d link at $snippet"; exit 1; }
[ -f "$stage/usr/share/alsa/alsa.conf.d/10-skelda.conf" ] || { echo "FAIL: no snippet"; exit 1; }
find "$stage" -name rsmpl.h | grep -q . || { echo "FAIL: headers not installed"; exit 1; }
find "$stage" -name skelda.pc | grep -q . || { echo "FAIL: pkg-config file not installed"; exit 1; }
[ -f "$stage$plugindir/libasound_module_rate_skelda_hq.so" ] || { echo "FAIL: no skelda_hq module"; exit 1; }
for f in libskelda.so.0 libskelda.so libskelda.a skelda_convert skelda_convert.1; do
  find "$stage" -name "$f" | grep -q . || { echo "FAIL: $f not installed"; exit 1; }
done

# The snippet's ready PCM "skelda", with a file PCM as its slave.
cat >"$stage/tofile.conf" <<CONF
pcm.tofile { type file slave.pcm "null" file "$stage/out.wav" format "wav" }
CONF
sox -q -n -r 44100 -c 2 -b 16 "$stage/in.wav" synth 1 sine 1000 vol 0.5
ALSA_PLUGIN_DIR="$stage$plugindir" \
ALSA_CONFIG_PATH="/usr/share/alsa/alsa.conf:$stage/usr/share/alsa/alsa.conf.d/10-skelda.conf:$stage/tofile.conf" \
  LD_PRELOAD="${SKELDA_SANITIZER_PRELOAD:-}" aplay -v -D 'skelda:SLAVE=tofile,RATE=22050' "$stage/in.wav" >"$stage/aplay.log" 2>&1 \
  || { cat "$stage/aplay.log"; echo "FAIL: aplay"; exit 1; }
grep -q 'RSMPL Converter: FIR filter, DOWN 44100 -> 22050' "$stage/aplay.log" \
  || { cat "$stage/aplay.log"; echo "FAIL: converter not used"; exit 1; }
rate=$(soxi -r "$stage/out.wav")
[ "$rate" = 22050 ] || { echo "FAIL: output rate $rate"; exit 1; }
echo "installed plugin converted $(soxi -s "$stage/in.wav") frames at 44100 Hz to $(soxi -s "$stage/out.wav") frames at $rate Hz"

# The snippet's "skelda_hq" with its DITHER argument, on a 24-bit file: the
# 32-bit resampler runs, with the option taken from the compound.
sox -q -D -n -r 44100 -c 2 -b 24 "$stage/in24.wav" synth 1 sine 1000 vol 0.5
ALSA_PLUGIN_DIR="$stage$plugindir" \
ALSA_CONFIG_PATH="/usr/share/alsa/alsa.conf:$stage/usr/share/alsa/alsa.conf.d/10-skelda.conf:$stage/tofile.conf" \
  LD_PRELOAD="${SKELDA_SANITIZER_PRELOAD:-}" aplay -v -D 'skelda_hq:SLAVE=tofile,RATE=48000,DITHER=yes' "$stage/in24.wav" \
  >"$stage/aplay24.log" 2>&1 || { cat "$stage/aplay24.log"; echo "FAIL: aplay skelda_hq"; exit 1; }
grep -q 'RSMPL HQ Converter: 44100 -> 48000 Hz, 2 channels, 24-bit filters.*, dither$' "$stage/aplay24.log" \
  || { cat "$stage/aplay24.log"; echo "FAIL: skelda_hq did not run its 32-bit path with dither"; exit 1; }
echo "installed skelda_hq converted 24-bit audio through its 32-bit path, dither on"

# A program linking libskelda through the installed pkg-config file and
# headers (the sysroot prefix points pkg-config into the staging tree).
export PKG_CONFIG_SYSROOT_DIR="$stage" PKG_CONFIG_PATH="$(dirname "$(find "$stage" -name skelda.pc)")"
cc -std=c99 -Wall -Werror -o "$stage/engine_example" "$(dirname "$0")/../../examples/engine_example.c" \
  $(pkg-config --cflags --libs skelda) -lm || { echo "FAIL: example does not build"; exit 1; }
readelf -d "$stage/engine_example" | grep -q 'NEEDED.*\[libskelda\.so\.0\]' \
  || { echo "FAIL: example does not link libskelda.so.0"; exit 1; }
libdir=$(dirname "$(find "$stage" -name libskelda.so.0)")
LD_PRELOAD="${SKELDA_SANITIZER_PRELOAD:-}" LD_LIBRARY_PATH="$libdir" "$stage/engine_example" | tee "$stage/example.log"
grep -q '48000 samples in, 4[0-9]* out' "$stage/example.log" || { echo "FAIL: example did not run"; exit 1; }

# The high-quality resampler's example, through the installed library: 100
# blocks of 441 frames at 44100 Hz give exactly one second at 48000 Hz.
cc -std=c99 -Wall -Werror -o "$stage/hq_example" "$(dirname "$0")/../../examples/hq_example.c" \
  $(pkg-config --cflags --libs skelda) -lm || { echo "FAIL: hq example does not build"; exit 1; }
LD_PRELOAD="${SKELDA_SANITIZER_PRELOAD:-}" LD_LIBRARY_PATH="$libdir" "$stage/hq_example" | tee "$stage/hq.log"
grep -q '^44100 frames in, 48000 out' "$stage/hq.log" || { echo "FAIL: hq example did not run"; exit 1; }

# The 32-bit resampler's example: a second at 96000 Hz gives exactly one at
# 44100 Hz, within a 24-bit step of the ideal tone.
cc -std=c99 -Wall -Werror -o "$stage/hq32_example" "$(dirname "$0")/../../examples/hq32_example.c" \
  $(pkg-config --cflags --libs skelda) -lm || { echo "FAIL: hq32 example does not build"; exit 1; }
LD_PRELOAD="${SKELDA_SANITIZER_PRELOAD:-}" LD_LIBRARY_PATH="$libdir" "$stage/hq32_example" | tee "$stage/hq32.log"
grep -q '^96000 frames in, 44100 out, largest error 0\.[0-9]* of a 24-bit step' "$stage/hq32.log" \
  || { echo "FAIL: hq32 example did not run"; exit 1; }

# The clock-following example, through the installed library: two simulated
# minutes keep the buffer between the clocks near its target (its status
# says so) and print how far it strayed.
cc -std=c99 -Wall -Werror -o "$stage/follow_clock" "$(dirname "$0")/../../examples/follow_clock.c" \
  $(pkg-config --cflags --libs skelda) -lm || { echo "FAIL: follow_clock does not build"; exit 1; }
LD_PRELOAD="${SKELDA_SANITIZER_PRELOAD:-}" LD_LIBRARY_PATH="$libdir" "$stage/follow_clock" 2 | tee "$stage/clock.log" \
  || { echo "FAIL: follow_clock lost the clock"; exit 1; }
grep -q '^2 minutes simulated: .* underruns 0, overruns 0' "$stage/clock.log" || { echo "FAIL: follow_clock did not run"; exit 1; }

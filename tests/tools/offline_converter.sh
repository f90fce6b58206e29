#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# The offline converter: good conversions of --fir and --sinc have the right
# length and format, the --fir path matches what aplay through alsa-lib
# produced, and every bad input ends with a clear message, its own exit
# status and no output file. The default path (the high-quality resampler),
# its limits, and the depths of it and of --fir: tests/tools/convert_test.cpp.
#   offline_converter.sh BUILD_DIR
set -uo pipefail
build=$1
convert="$build/tools/skelda_convert"
work=$(mktemp -d /tmp/skelda-convert-XXXXXX)
trap 'rm -rf "$work"' EXIT
failures=0
passes=0
check() {  # name condition...
  local name=$1
  shift
  if "$@"; then passes=$((passes + 1)); else echo "FAIL: $name"; failures=$((failures + 1)); fi
}

sox -q -n -r 44100 -c 2 -b 16 "$work/stereo.wav" synth 2 sine 440 sine 1000 vol 0.5
sox -q -n -r 16000 -c 1 -b 16 "$work/mono.flac" synth 1 sine 500 vol 0.5
sox -q -n -r 48000 -c 6 -b 16 "$work/six.wav" synth 0.1 sine 500
sox -q -n -r 96000 -c 1 -b 16 "$work/hi.wav" synth 0.5 sine 500
head -c 5000 /dev/urandom >"$work/garbage.wav"
sox -q -D -n -r 44100 -c 2 -b 24 "$work/deep.wav" synth 1 sine 997 sine 3001 vol 0.89

# Good conversions: length is the input's duration at the new rate.
expect_frames() {  # out.wav frames
  [ "$(soxi -s "$1")" = "$2" ] && [ "$(soxi -b "$1")" = 16 ]
}
check "linear 44100->48000" "$convert" -q --fir -r 48000 "$work/stereo.wav" "$work/a.wav" >/dev/null
check "linear length" expect_frames "$work/a.wav" 96000
check "fir 44100->22050" "$convert" -q --fir -r 22050 "$work/stereo.wav" "$work/b.wav" >/dev/null
check "fir length" expect_frames "$work/b.wav" 44100
check "flac in, fir 16000->48000 out" "$convert" -q --fir -r 48000 "$work/mono.flac" "$work/c.flac" >/dev/null
check "flac out" bash -c "soxi -t '$work/c.flac' | grep -q flac"
check "fir up length" expect_frames "$work/c.flac" 48000
check "sinc 96000->44100" "$convert" -q --sinc -r 44100 "$work/hi.wav" "$work/d.wav" >/dev/null
check "sinc length" expect_frames "$work/d.wav" 22050

# The FIR path is the code alsa-lib runs: aplay's output (minus the silence
# its drain appends) is the same stream, sample for sample.
cat >"$work/aplay.conf" <<CONF
pcm.tofile { type rate converter "skelda" slave { pcm { type file slave.pcm "null" file "$work/aplay.raw" format "raw" } rate 22050 } }
CONF
ALSA_PLUGIN_DIR="$build" ALSA_CONFIG_PATH="/usr/share/alsa/alsa.conf:$work/aplay.conf" \
  LD_PRELOAD="${SKELDA_SANITIZER_PRELOAD:-}" aplay -q -D tofile "$work/stereo.wav" 2>/dev/null
sox "$work/b.wav" -t raw "$work/ours.raw"
check "fir equals aplay" cmp -s -n "$(stat -c %s "$work/ours.raw")" "$work/ours.raw" "$work/aplay.raw"

# Bad inputs: status, message, and nothing left behind.
bad() {  # name status message-pattern args...
  local name=$1 status=$2 pattern=$3
  shift 3
  "$convert" -q "$@" >"$work/out.txt" 2>"$work/err.txt"
  local got=$?
  check "$name: exit $status (got $got)" [ "$got" = "$status" ]
  check "$name: message" grep -q "$pattern" "$work/err.txt"
}
bad "missing input" 2 "cannot read" -r 48000 "$work/nope.wav" "$work/x.wav"
bad "garbage input" 2 "cannot read" -r 48000 "$work/garbage.wav" "$work/x.wav"
bad "six channels, --fir" 3 "at most four" --fir -r 44100 "$work/six.wav" "$work/x.wav"
bad "rate out of range, --fir" 3 "8000..48000" --fir -r 44100 "$work/hi.wav" "$work/x.wav"
bad "output rate out of range, --fir" 3 "8000..48000" --fir -r 96000 "$work/stereo.wav" "$work/x.wav"
bad "sinc ratio" 3 "1/8..8" --sinc -r 4000 "$work/hi.wav" "$work/x.wav"
bad "unwritable output" 4 "cannot write" -r 48000 "$work/stereo.wav" "$work/no/such/dir/x.wav"
bad "bad option" 1 "unknown option" --frobnicate "$work/stereo.wav" "$work/x.wav"
bad "bad depth" 1 "16, 24 or 32" --bits 20 "$work/stereo.wav" "$work/x.wav"
bad "32 bits in FLAC" 1 "at most 24 bits" --hq --bits 32 "$work/deep.wav" "$work/x.flac"
check "no output left by failures" [ ! -e "$work/x.wav" ]
check "no partial files" bash -c "! ls '$work' | grep -q partial"

echo "$passes passed, $failures failed"
[ "$failures" = 0 ]

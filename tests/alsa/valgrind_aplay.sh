#!/usr/bin/env bash
# aplay converting through the plugin under valgrind's memcheck: the FIR and
# the linear path, with a period size that makes the FIR path chunk. Any
# invalid access, use of uninitialised memory or definite/indirect leak fails.
#   valgrind_aplay.sh BUILD_DIR
set -euo pipefail
build=$1
work=$(mktemp -d /tmp/skelda-valgrind-XXXXXX)
trap 'rm -rf "$work"' EXIT
sox -q -n -r 48000 -c 2 -b 16 "$work/in.wav" synth 2 sine 440 sine 1000 vol 0.5
for rate in 16000 44100; do
  cat >"$work/conf" <<CONF
pcm.tofile { type rate converter "skelda" slave { pcm { type file slave.pcm "null" file "$work/out.raw" format "raw" } rate $rate } }
CONF
  if ! ALSA_PLUGIN_DIR="$build" ALSA_CONFIG_PATH="/usr/share/alsa/alsa.conf:$work/conf" \
    valgrind -q --tool=memcheck --error-exitcode=1 --leak-check=full \
      --show-leak-kinds=definite,indirect --errors-for-leak-kinds=definite,indirect \
      aplay -q -D tofile --period-size=3000 "$work/in.wav" 2>"$work/valgrind.log"; then
    cat "$work/valgrind.log"
    echo "FAIL: memcheck, 48000 -> $rate"
    exit 1
  fi
  echo "48000 -> $rate: memcheck clean, $(stat -c %s "$work/out.raw") bytes out"
done

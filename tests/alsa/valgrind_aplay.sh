#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# aplay converting through the plugins under valgrind's memcheck: skelda's
# FIR and linear paths, with a period size that makes the FIR path chunk, and
# skelda_hq on a period that needs interpolated phases, on one that does
# not, and on one that converts exactly at 1/3 (its small ratios' design). Any invalid access, use of uninitialised memory or definite/indirect
# leak fails.
#   valgrind_aplay.sh BUILD_DIR
set -euo pipefail
build=$1
work=$(mktemp -d /tmp/skelda-valgrind-XXXXXX)
trap 'rm -rf "$work"' EXIT
sox -q -n -r 48000 -c 2 -b 16 "$work/in.wav" synth 2 sine 440 sine 1000 vol 0.5
while read -r converter rate period; do
  cat >"$work/conf" <<CONF
pcm.tofile { type rate converter "$converter" slave { pcm { type file slave.pcm "null" file "$work/out.raw" format "raw" } rate $rate } }
CONF
  if ! ALSA_PLUGIN_DIR="$build" ALSA_CONFIG_PATH="/usr/share/alsa/alsa.conf:$work/conf" \
    valgrind -q --tool=memcheck --error-exitcode=1 --leak-check=full \
      --show-leak-kinds=definite,indirect --errors-for-leak-kinds=definite,indirect \
      aplay -q -D tofile --period-size="$period" "$work/in.wav" 2>"$work/valgrind.log"; then
    cat "$work/valgrind.log"
    echo "FAIL: memcheck, $converter 48000 -> $rate"
    exit 1
  fi
  echo "$converter 48000 -> $rate, period $period: memcheck clean, $(stat -c %s "$work/out.raw") bytes out"
done <<'RUNS'
skelda 16000 3000
skelda 44100 3000
skelda_hq 44100 3001
skelda_hq 96000 3000
skelda_hq 16000 3000
RUNS

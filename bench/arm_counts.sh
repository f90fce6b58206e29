#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Instructions per output frame on arm64 and armhf, counted under qemu-user:
# skelda, skelda_hq (S16, and S32 through its 32-bit path) and Debian's own
# builds of speexrate, speexrate_medium and samplerate for the same
# architecture, each driven through its operations table as alsa-lib drives
# it (stereo, 10 ms periods; bench/count_converter.cpp). Every converter runs
# for 1 s and for 3 s of audio and the difference of the two counts is
# divided by the extra output frames, so set-up and table building cancel
# out. Instructions are not cycles: a count says how much work the CPU is
# given, not how long it takes (no caches, no pipelines, no memory here).
#
#   bench/arm_counts.sh [arm64] [armhf]      (both when none is named)
#
# ARM_COUNTS_PAIRS="48000:768000 768000:48000" counts those pairs only. At
# 48000 <-> 768000 the 32-bit path is held to at most half of speexrate's
# count (its ratio is starred past that).
#
# Cross-builds build-<arch>-bench, downloads the peers' Debian packages for
# the architecture (apt-get download, unpacked with dpkg -x, nothing
# installed) into out/arm-counts/, and prints one Markdown table per
# architecture (also written to out/arm-counts/<arch>.md); "-" where a
# converter refuses the pair (skelda takes 8000-48000 Hz only).
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
arches=("$@")
[ ${#arches[@]} -eq 0 ] && arches=(arm64 armhf)

bash tools/install_cross_deps.sh "${arches[@]}" >/dev/null
work=$root/out/arm-counts
mkdir -p "$work"
plugin=$work/qemu_insn_count.so
cc -shared -fPIC -O2 -o "$plugin" bench/qemu_insn_count.c

pairs=("44100 48000" "48000 44100" "96000 44100" "32000 48000" "16000 48000" "48000 16000"
       "48000 8000" "22050 48000" "48000 768000" "768000 48000")
if [ -n "${ARM_COUNTS_PAIRS:-}" ]; then
  pairs=()
  for p in $ARM_COUNTS_PAIRS; do pairs+=("${p%:*} ${p#*:}"); done
fi
# Converter (module name, format): skelda_hq twice, in S16 and in S32.
converters=("skelda s16" "skelda_hq s16" "skelda_hq s32" "speexrate s16" "speexrate_medium s16"
            "samplerate s16")

for arch in "${arches[@]}"; do
  case $arch in
    arm64) triplet=aarch64-linux-gnu qemu=qemu-aarch64 ;;
    armhf) triplet=arm-linux-gnueabihf qemu=qemu-arm ;;
    *) echo "unknown architecture $arch (arm64 or armhf)" >&2; exit 2 ;;
  esac
  build=$root/build-$arch-bench
  cmake -S . -B "$build" -G Ninja --no-warn-unused-cli -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DCMAKE_TOOLCHAIN_FILE="cmake/toolchain-$arch.cmake" -DSKELDA_TESTS=OFF -DSKELDA_BENCH=ON >/dev/null
  ninja -C "$build" count_converter asound_module_rate_skelda asound_module_rate_skelda_hq >/dev/null

  # The peers as Debian ships them for this architecture.
  peers=$work/peers-$arch
  if [ ! -d "$peers/usr/lib/$triplet/alsa-lib" ]; then
    mkdir -p "$peers/debs"
    (cd "$peers/debs" && apt-get download -q "libasound2-plugins:$arch" "libspeexdsp1:$arch" \
      "libsamplerate0:$arch" >/dev/null 2>&1)
    for deb in "$peers"/debs/*.deb; do dpkg -x "$deb" "$peers"; done
  fi

  count() {  # module-dir converter in out seconds format; nothing when refused
    local log
    log=$($qemu -L "/usr/$triplet" -E "LD_LIBRARY_PATH=$peers/usr/lib/$triplet" -plugin "$plugin" -d plugin \
      "$build/bench/count_converter" "$1" "$2" "$3" "$4" "$5" "$6" 2>&1 >/dev/null) || return 0
    awk '/^insns:/ {print $2}' <<<"$log" | tail -1
  }
  per_frame() {  # module-dir converter in out format
    local a b
    a=$(count "$1" "$2" "$3" "$4" 1 "$5") b=$(count "$1" "$2" "$3" "$4" 3 "$5")
    if [ -z "$a" ] || [ -z "$b" ]; then echo "-"; return; fi
    awk -v a="$a" -v b="$b" -v r="$4" 'BEGIN { printf "%.0f", (b - a) / (2 * r) }'
  }

  {
    echo "### $arch: instructions per output frame (stereo, 10 ms periods)"
    echo
    echo "| pair | skelda | skelda_hq | skelda_hq S32 | speexrate | speexrate_medium | samplerate | skelda_hq / speexrate | skelda_hq S32 / speexrate |"
    echo "|---|---|---|---|---|---|---|---|---|"
    for pair in "${pairs[@]}"; do
      read -r in out <<<"$pair"
      row="| $in -> $out"
      declare -A n=()
      for c in "${converters[@]}"; do
        read -r name format <<<"$c"
        dir=$build
        case $name in speex* | samplerate*) dir=$peers/usr/lib/$triplet/alsa-lib ;; esac
        n["$name $format"]=$(per_frame "$dir" "$name" "$in" "$out" "$format")
        row+=" | ${n["$name $format"]}"
      done
      ratio() {  # a b [bound]: a / b, starred past the bound
        awk -v a="$1" -v b="$2" -v bound="${3:-}" 'BEGIN {
          if (a == "-" || b == "-" || b == 0) { print "-"; exit }
          r = sprintf("%.2f", a / b)
          if (bound != "" && a / b > bound) r = "**" r "**"
          print r }'
      }
      bound=""
      case "$in $out" in "48000 768000" | "768000 48000") bound=0.5 ;; esac
      row+=" | $(ratio "${n["skelda_hq s16"]}" "${n["speexrate s16"]}") | $(ratio "${n["skelda_hq s32"]}" "${n["speexrate s16"]}" "$bound") |"
      echo "$row"
    done
    echo
  } | tee "$work/$arch.md"
done

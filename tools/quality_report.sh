#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Measures what a listener meets from each converter, through alsa-lib with
# aplay (THD+N, forced period sizes, passband, image/alias rejection, group
# delay), against the peers, at 29 rate pairs from 4000 to 768000 Hz, for
# 16-bit material and for 24-bit material in S32; writes out/quality/table.md
# (ending with skelda_hq's targets and its misses) and one response plot per
# rate pair and depth, out/quality/response_<in>_<out>.png and
# response24_<in>_<out>.png. Two processes at a time, niced; about five
# minutes on two cores.
#
# SKELDA_BUILD_DIR picks the build tree (default: build; configured here as
# RelWithDebInfo when it does not exist yet, left as it is when it does).
# skelda_hq is measured when its module builds and exports its entry;
# otherwise the report says "skelda_hq not built" and goes on without it.
set -euo pipefail
cd "$(dirname "$0")/.."
build="${SKELDA_BUILD_DIR:-build}"
bash tools/install_deps.sh
for p in python3-numpy python3-scipy python3-matplotlib; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" ||
    DEBIAN_FRONTEND=noninteractive apt-get install -y -qq "$p" >/dev/null
done
if [ ! -f "$build/CMakeCache.txt" ]; then
  cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
fi
ninja -C "$build" asound_module_rate_skelda skelda_convert >/dev/null
if ! ninja -C "$build" asound_module_rate_skelda_hq >"$build/skelda_hq_build.log" 2>&1; then
  echo "skelda_hq does not build yet (see $build/skelda_hq_build.log)" >&2
fi
mkdir -p out/quality
# Debian's interpreter, the one its numpy and matplotlib packages serve.
OPENBLAS_NUM_THREADS=1 OMP_NUM_THREADS=1 nice -n 10 /usr/bin/python3 tools/quality_report.py "$build" out/quality

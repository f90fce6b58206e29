#!/usr/bin/env bash
# Measures the quality of every path and of the peer converters and draws
# the frequency-response plots: out/quality/*.png and a Markdown table.
set -euo pipefail
cd "$(dirname "$0")/.."
bash tools/install_deps.sh
for p in python3-numpy python3-matplotlib; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" ||
    DEBIAN_FRONTEND=noninteractive apt-get install -y -qq "$p" >/dev/null
done
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
ninja -C build asound_module_rate_skelda skelda_convert >/dev/null
mkdir -p out/quality
# Debian's interpreter, the one its numpy and matplotlib packages serve.
/usr/bin/python3 tools/quality_report.py build out/quality | tee out/quality/table.md

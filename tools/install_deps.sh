#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Installs, from Debian's packages, what building, testing and the aplay demo
# need, when it is missing. Runs as root (or through sudo when available).
set -euo pipefail

packages=(cmake ninja-build g++ clang pkg-config libasound2-dev alsa-utils sox
          libgtest-dev libbenchmark-dev libasound2-plugins libsndfile1-dev valgrind
          libsoxr-dev cloc qemu-user)
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  sudo=""
  [ "$(id -u)" -ne 0 ] && sudo="sudo"
  echo "installing: ${missing[*]}"
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq "${missing[@]}" >/dev/null
fi

#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Installs, from Debian's packages, what the ARM cross builds need: the cross
# compilers, qemu-user to run the target's programs, and the target's
# libraries as multiarch packages. Arguments: the targets (arm64, armhf; both
# when none are given). Runs as root (or through sudo when available).
set -euo pipefail

targets=("$@")
[ ${#targets[@]} -eq 0 ] && targets=(arm64 armhf)

sudo=""
[ "$(id -u)" -ne 0 ] && sudo="sudo"

packages=(cmake ninja-build pkg-config qemu-user)
for arch in "${targets[@]}"; do
  case "$arch" in
    arm64 | armhf) ;;
    *) echo "unknown target: $arch (arm64 or armhf)" >&2; exit 2 ;;
  esac
  packages+=("crossbuild-essential-$arch" "libc6:$arch" "libstdc++6:$arch"
             "libasound2-dev:$arch" "libgtest-dev:$arch" "libsndfile1-dev:$arch"
             "libbenchmark-dev:$arch")
done

missing=()
added=0
for arch in "${targets[@]}"; do
  if ! dpkg --print-foreign-architectures | grep -qx "$arch"; then
    $sudo dpkg --add-architecture "$arch"
    added=1
  fi
done
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ] || [ "$added" = 1 ]; then
  echo "installing: ${missing[*]}"
  # A mirror caught mid-sync can fail one foreign index; the lists it has
  # are usually enough, and the install below fails if they are not.
  $sudo apt-get update -qq || echo "apt-get update reported errors; installing from the lists it has"
  if [ ${#missing[@]} -gt 0 ]; then
    DEBIAN_FRONTEND=noninteractive $sudo apt-get install -o DPkg::Lock::Timeout=600 -y -qq \
      --no-install-recommends "${missing[@]}" >/dev/null
  fi
fi

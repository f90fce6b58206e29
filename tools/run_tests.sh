#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Builds the library and runs the whole test suite:
#  1. unit tests, end-to-end tests through the real alsa-lib (aplay included),
#     install test, offline converter test, a short soak;
#  1a. the kernel tests and the digests on x86-64 CPUs without AVX2 (Nehalem)
#     and without SSE4 (core2duo), emulated by qemu-user;
#  1b. the Debian packages: built, lintian, installed, used, purged;
#  2. the same suites built with AddressSanitizer and UndefinedBehaviorSanitizer;
#  3. the thread tests (plugin and engine) under ThreadSanitizer;
#  4. a 30-second run of every libFuzzer target over its corpus
#     (SKELDA_FUZZ_SECONDS sets the time per target).
#  5. arm64 and armhf cross builds, their suites under qemu-user with the
#     reduced workload (SKELDA_REDUCED=1; tests that need the build
#     machine's aplay are not part of cross builds).
# SKELDA_QUICK=1 runs steps 1 and 1a only.
set -euo pipefail
cd "$(dirname "$0")/.."

bash tools/install_deps.sh
export SKELDA_SOAK_SECONDS=${SKELDA_SOAK_SECONDS:-120}

# The tests' share of the code, for the log (the whole tree as git tracks it).
tests=$(cloc --exclude-dir=corpus --quiet --csv tests | awk -F, '$2 == "SUM" {print $5}')
all=$(cloc --vcs=git --quiet --csv . 2>/dev/null | awk -F, '$2 == "SUM" {print $5}')
if [ -n "$tests" ] && [ -n "$all" ]; then
  echo "== code lines: tests/ $tests of $all ($((100 * tests / all)) %)"
fi

echo "== build and test"
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
ninja -C build
(cd build && ctest --output-on-failure -LE older_cpus)

echo "== x86-64 CPUs without AVX2 and without SSE4, under qemu-user"
if [ "$(uname -m)" = x86_64 ]; then
  start=$SECONDS
  (cd build && ctest --output-on-failure --no-tests=error -L older_cpus)
  echo "older CPUs: $((SECONDS - start)) s"
fi
[ "${SKELDA_QUICK:-0}" = 1 ] && exit 0

echo "== Debian packages"
bash tests/package/build_and_install.sh

echo "== AddressSanitizer + UndefinedBehaviorSanitizer"
cmake -S . -B build-asan -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DSKELDA_SANITIZE=ON \
  -DSKELDA_BENCH=OFF >/dev/null
ninja -C build-asan
(cd build-asan && SKELDA_SOAK_SECONDS=20 ctest --output-on-failure)

echo "== ThreadSanitizer"
cmake -S . -B build-tsan -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DSKELDA_TSAN=ON \
  -DSKELDA_BENCH=OFF >/dev/null
ninja -C build-tsan test_frontend test_rsmpl
# Without address randomisation: ThreadSanitizer's fixed shadow layout
# clashes with the wide mmap randomisation of recent kernels.
norandom="setarch $(uname -m) -R"
$norandom ./build-tsan/tests/test_frontend --gtest_filter='Threads*'
$norandom ./build-tsan/tests/test_rsmpl --gtest_filter='StageDrivers*:SincKernel*'

echo "== libFuzzer, ${SKELDA_FUZZ_SECONDS:-30} s per target"
CC=clang CXX=clang++ cmake -S . -B build-fuzz -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DSKELDA_FUZZ=ON -DSKELDA_SANITIZE=ON -DSKELDA_TESTS=OFF -DSKELDA_BENCH=OFF >/dev/null
ninja -C build-fuzz
for fuzzer in build-fuzz/tests/fuzz/fuzz_*; do
  name=$(basename "$fuzzer")
  corpus=tests/fuzz/corpus/${name#fuzz_}
  scratch=$(mktemp -d)
  # New inputs go to a scratch directory so the committed corpus stays as it is.
  status=0
  "$fuzzer" -max_total_time="${SKELDA_FUZZ_SECONDS:-30}" -print_final_stats=1 \
    -artifact_prefix="$scratch/" "$scratch" "$corpus" >"$scratch/log" 2>&1 || status=$?
  echo "$name: $(grep -E '^Done' "$scratch/log" || true)"
  if [ "$status" != 0 ]; then
    tail -40 "$scratch/log"
    echo "fuzzer $name failed"
    exit 1
  fi
  rm -rf "$scratch"
done

echo "== arm64 and armhf under qemu-user, reduced workload"
bash tools/install_cross_deps.sh arm64 armhf
for arch in arm64 armhf; do
  cmake -S . -B "build-$arch" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DCMAKE_TOOLCHAIN_FILE="cmake/toolchain-$arch.cmake" -DSKELDA_BENCH=OFF >/dev/null
  ninja -C "build-$arch"
  (cd "build-$arch" && SKELDA_REDUCED=1 SKELDA_SOAK_SECONDS=10 ctest --output-on-failure)
done
echo "all suites passed"

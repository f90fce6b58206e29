// SPDX-License-Identifier: MIT
// Every build's 32-bit inner products against the plain build's, at the
// bounds hq32/state.h sets: samples at +-2^31 and coefficients whose
// magnitudes sum to just below 2^32, so that the exact sums reach 2^62 and a
// build that wraps, drops a sign or loses a lane shows. (The whole output
// loop of every build is held to the reference by hq32/stream_test.)
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "rsmpl/cpu.h"
#include "rsmpl/hq32/kernels.h"
#include "tests/support/kernel_sets.h"

namespace {

// Coefficients of random signs and sizes, scaled so that their magnitudes
// sum to just below 2^32 (the largest a phase may have).
std::vector<int32_t> bounded(uint32_t taps, std::mt19937 &rng, int sign) {
  std::vector<int64_t> raw(taps);
  int64_t total = 0;
  for (auto &v : raw) total += (v = rng() % 1000000 + 1);
  std::vector<int32_t> c(taps + 8, 0);  // the loads may read past the last tap
  for (uint32_t k = 0; k < taps; ++k) {
    const int64_t v = raw[k] * ((int64_t{1} << 32) - taps) / total;
    const int64_t m = v > INT32_MAX ? INT32_MAX : v;
    c[k] = static_cast<int32_t>(sign == 0 ? (rng() % 2 ? m : -m) : sign * m);
  }
  return c;
}

TEST(Hq32Kernels, EveryBuildsSumsMatchThePlainOnesAtTheBounds) {
  std::mt19937 rng(32);
  const auto *plain = rsmpl::kernel_set(rsmpl::kIsaScalar)->hq32;
  for (uint32_t taps : {8u, 16u, 24u, 96u, 112u, 216u, 2304u})
    for (int mode = 0; mode < 4; ++mode) {
      // mode 0: random samples and signs; 1, 2: every product at its most,
      // positive and negative; 3: INT32_MIN samples against positive
      // coefficients (the one value whose magnitude is 2^31).
      const auto coef = bounded(taps, rng, mode == 0 ? 0 : mode == 2 ? -1 : 1);
      const size_t line = taps + 24;
      std::vector<int32_t> x(2 * line);
      for (size_t i = 0; i < x.size(); ++i) {
        const size_t k = i % line;
        const int32_t sign = k < taps && coef[k] < 0 ? -1 : 1;
        x[i] = mode == 0 ? static_cast<int32_t>(rng()) : mode == 3 ? INT32_MIN : sign * INT32_MAX;
      }
      for (uint32_t at : {0u, 1u, 3u}) {
        int64_t want[2], got[2];
        plain->sums[1](x.data() + at, line, coef.data(), taps, want);
        for (const auto *set : test_support::runnable_sets())
          for (int ch : {1, 2}) {
            got[1] = 0;
            set->hq32->sums[ch - 1](x.data() + at, line, coef.data(), taps, got);
            EXPECT_EQ(got[0], want[0]) << set->name << " taps " << taps << " mode " << mode << " ch " << ch;
            if (ch == 2) EXPECT_EQ(got[1], want[1]) << set->name << " taps " << taps << " mode " << mode;
          }
      }
    }
}

}  // namespace

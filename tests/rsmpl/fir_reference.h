// The FIR kernels written the slow, obvious way: for every output r, the sum
// over all buffer samples i with k = c + M*r - L*i inside the prototype of
// P[k] * in[i], rounded half up, shifted and saturated. The constants come
// from the kernels' design table, not from the library's derived layouts.
#ifndef SKELDA_TESTS_FIR_REFERENCE_H
#define SKELDA_TESTS_FIR_REFERENCE_H

#include <cstdint>
#include <random>
#include <vector>

#include "rsmpl/fir_kernel_set.h"
#include "rsmpl/fir_tables.h"

namespace fir_test {

struct KernelSpec {
  const char *name;
  rsmpl::FirKernelId id;
  int L, M, N, shift, offset, history;
  std::vector<int> prototype;
};

inline std::vector<int> from_table(const int16_t *table, int n) {
  return std::vector<int>(table, table + n);
}

// The 1:3 table keeps each triple reversed; undo that.
inline std::vector<int> untriple(const int16_t *table, int n) {
  std::vector<int> p(n);
  for (int i = 0; i < n; i += 3)
    for (int j = 0; j < 3; ++j) p[i + j] = table[i + 2 - j];
  return p;
}

inline const std::vector<KernelSpec> &kernel_specs() {
  using namespace rsmpl;
  static const std::vector<KernelSpec> specs = {
      {"Up2", kFirUp2, 2, 1, 72, 15, 70, 35, from_table(RsmplCoeff_2_1, 72)},
      {"Down2", kFirDown2, 1, 2, 72, 16, 71, 70, from_table(RsmplCoeff_2_1, 72)},
      {"Up3", kFirUp3, 3, 1, 48, 15, 45, 15, untriple(RsmplCoeff_1_3, 48)},
      {"Down3", kFirDown3, 1, 3, 48, 16, 47, 45, from_table(RsmplCoeff_3_1, 48)},
      {"Up2To3", kFirUp2To3, 3, 2, 45, 15, 45, 15, from_table(RsmplCoeff_2_3, 45)},
      {"Down3To2", kFirDown3To2, 2, 3, 30, 15, 29, 14, from_table(RsmplCoeff_3_2, 30)},
      {"Up4", kFirUp4, 4, 1, 64, 15, 60, 15, from_table(RsmplCoeff_1_4, 64)},
      {"Down4", kFirDown4, 1, 4, 64, 17, 63, 60, from_table(RsmplCoeff_4_1, 64)},
      {"Up6", kFirUp6, 6, 1, 96, 15, 90, 15, from_table(RsmplCoeff_1_6, 96)},
      {"Down6", kFirDown6, 1, 6, 96, 17, 95, 90, from_table(RsmplCoeff_6_1, 96)},
  };
  return specs;
}

// `in` holds history + n samples; returns the L * floor(n / M) outputs.
inline std::vector<int16_t> general_form(const KernelSpec &k, const int16_t *in, int n) {
  const int groups = n < k.M ? 0 : n / k.M;
  std::vector<int16_t> out(static_cast<size_t>(groups) * k.L);
  for (int r = 0; r < groups * k.L; ++r) {
    int64_t sum = 0;
    for (int i = 0; i < n + k.history; ++i) {
      const int idx = k.offset + k.M * r - k.L * i;
      if (idx >= 0 && idx < k.N) sum += int64_t{k.prototype[idx]} * in[i];
    }
    int64_t v = (sum + (int64_t{1} << (k.shift - 1))) >> k.shift;
    out[r] = static_cast<int16_t>(v > 32767 ? 32767 : v < -32768 ? -32768 : v);
  }
  return out;
}

// Every kernel build this machine can run, scalar first.
inline std::vector<const rsmpl::FirKernelSet *> runnable_sets() {
  std::vector<const rsmpl::FirKernelSet *> sets;
  for (auto *set : {rsmpl::fir_kernels_scalar(), rsmpl::fir_kernels_sse2(),
                    rsmpl::fir_kernels_avx2(), rsmpl::fir_kernels_neon()})
    if (set) sets.push_back(set);
  return sets;
}

enum class Fill { kRandom, kFullScale, kExtremes };

// kFullScale: only +32767 / -32768, the values that drive every saturation;
// kExtremes: long runs of one extreme, so sums reach their largest magnitude.
inline std::vector<int16_t> make_signal(size_t n, Fill fill, std::mt19937 &rng) {
  std::vector<int16_t> x(n);
  std::uniform_int_distribution<int> any(-32768, 32767), coin(0, 1), run(1, 40);
  size_t i = 0;
  while (i < n) {
    if (fill == Fill::kRandom) {
      x[i++] = static_cast<int16_t>(any(rng));
    } else if (fill == Fill::kFullScale) {
      x[i++] = coin(rng) ? 32767 : -32768;
    } else {
      const int16_t v = coin(rng) ? 32767 : -32768;
      for (int k = run(rng); k > 0 && i < n; --k) x[i++] = v;
    }
  }
  return x;
}

}  // namespace fir_test

#endif

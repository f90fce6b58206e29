// SPDX-License-Identifier: MIT
// The FIR kernels and their stages written the slow, obvious way, from the
// design constants of each kernel (not from the library's derived layouts):
// output r is the sum over the buffer samples i with k = c + M*r - L*i inside
// the prototype of P[k] * in[i], rounded half up, shifted and saturated. A
// stage is that kernel run once over silence followed by the whole stream.
#ifndef SKELDA_TESTS_FIR_REFERENCE_H
#define SKELDA_TESTS_FIR_REFERENCE_H

#include <cstdint>
#include <random>
#include <vector>

#include "rsmpl/fir/kernels.h"
#include "rsmpl/fir/tables.h"
#include "skelda/rsmpl_fir.h"

namespace fir_test {

constexpr int16_t kCanary = 0x5a5a;  // fills what a call must leave alone

struct KernelSpec {
  const char *name;
  rsmpl::FirKernelId id;
  int L, M, N, shift, offset, history;
  std::vector<int> prototype;
  // The stage over it: driver, direction, ratio code, what the block call
  // accepts (shortest block, multiple; up: at most 1440 outputs) and the
  // driver's split point (down) or tail (up).
  void (*driver)(const int16_t *, int16_t *, RSMPL_Context *, int32_t);
  bool up;
  uint32_t code;
  int min_length, multiple, boundary;
};

// The 1:3 table keeps each triple reversed; undo that.
inline std::vector<int> untriple(const int16_t *t) {
  std::vector<int> p(48);
  for (int i = 0; i < 48; ++i) p[i] = t[3 * (i / 3) + 2 - i % 3];
  return p;
}
template <size_t N>
std::vector<int> P(const int16_t (&table)[N]) { return std::vector<int>(table, table + N); }

// name, id, L, M, N, s, c, H, prototype; driver, up, code,
// shortest block, multiple, split point or tail.
inline const std::vector<KernelSpec> &kernel_specs() {
  using namespace rsmpl;
  static const std::vector<KernelSpec> specs = {
      {"Up2", kFirUp2, 2, 1, 72, 15, 70, 35, P(RsmplCoeff_2_1), Upsample2_1, true, 1, 4, 1, 18},
      {"Down2", kFirDown2, 1, 2, 72, 16, 71, 70, P(RsmplCoeff_2_1), Downsample1_2, false, 1, 8, 4, 144},
      {"Up3", kFirUp3, 3, 1, 48, 15, 45, 15, untriple(RsmplCoeff_1_3), Upsample3_1, true, 2, 6, 1, 6},
      {"Down3", kFirDown3, 1, 3, 48, 16, 47, 45, P(RsmplCoeff_3_1), Downsample1_3, false, 2, 18, 6, 72},
      {"Up2To3", kFirUp2To3, 3, 2, 45, 15, 45, 15, P(RsmplCoeff_2_3), Upsample3_2, true, 0, 6, 2, 12},
      {"Down3To2", kFirDown3To2, 2, 3, 30, 15, 29, 14, P(RsmplCoeff_3_2), Downsample2_3, false, 0, 18, 6, 48},
      {"Up4", kFirUp4, 4, 1, 64, 15, 60, 15, P(RsmplCoeff_1_4), Upsample4_1, true, 3, 4, 1, 4},
      {"Down4", kFirDown4, 1, 4, 64, 17, 63, 60, P(RsmplCoeff_4_1), Downsample1_4, false, 3, 16, 4, 80},
      {"Up6", kFirUp6, 6, 1, 96, 15, 90, 15, P(RsmplCoeff_1_6), Upsample6_1, true, 4, 6, 1, 3},
      {"Down6", kFirDown6, 1, 6, 96, 17, 95, 90, P(RsmplCoeff_6_1), Downsample1_6, false, 4, 36, 6, 108},
  };
  return specs;
}

// `in` holds history + n samples; returns the L * floor(n / M) outputs.
inline std::vector<int16_t> general_form(const KernelSpec &k, const int16_t *in, int n) {
  const int outputs = n < k.M ? 0 : n / k.M * k.L;
  std::vector<int16_t> out(outputs);
  for (int r = 0; r < outputs; ++r) {
    const int top = k.offset + k.M * r;
    int64_t sum = 0;
    for (int i = top / k.L; i >= 0 && top - k.L * i < k.N; --i)
      if (i < n + k.history) sum += int64_t{k.prototype[top - k.L * i]} * in[i];
    const int64_t v = (sum + (int64_t{1} << (k.shift - 1))) >> k.shift;
    out[r] = static_cast<int16_t>(v > 32767 ? 32767 : v < -32768 ? -32768 : v);
  }
  return out;
}

inline int64_t outputs_of(const KernelSpec &k, int64_t n) { return n < k.M ? 0 : n / k.M * k.L; }

// What RSMPL_Up / RSMPL_Down accept for this stage.
inline bool allowed(const KernelSpec &k, int64_t n) {
  return n >= k.min_length && n % k.multiple == 0 && (!k.up || outputs_of(k, n) <= 1440);
}

inline uint32_t block_call(const KernelSpec &k, RSMPL_Context *ctx, const int16_t *in, int16_t *out,
                           int32_t n, uint32_t code) {
  return k.up ? RSMPL_Up(ctx, in, out, n, code) : RSMPL_Down(ctx, in, out, n, code);
}

// A whole stream through the stage from silence.
inline std::vector<int16_t> stage_reference(const KernelSpec &k, const std::vector<int16_t> &x) {
  std::vector<int16_t> buffer(k.history, 0);
  buffer.insert(buffer.end(), x.begin(), x.end());
  return general_form(k, buffer.data(), static_cast<int>(x.size()));
}

// kFullScale: only +32767 / -32768, the values that drive every saturation;
// kExtremes: long runs of one extreme, so sums reach their largest magnitude;
// kHalves: sparse multiples of 16384, whose sums land on exact halves of
// every output shift (15, 16 and 17) again and again.
enum class Fill { kRandom, kFullScale, kExtremes, kHalves };

inline std::vector<int16_t> make_signal(size_t n, Fill fill, std::mt19937 &rng) {
  std::vector<int16_t> x(n);
  std::uniform_int_distribution<int> any(-32768, 32767), coin(0, 1), run(1, 40), quarter(-2, 1);
  size_t i = 0;
  while (i < n) {
    if (fill == Fill::kRandom) {
      x[i++] = static_cast<int16_t>(any(rng));
    } else if (fill == Fill::kFullScale) {
      x[i++] = coin(rng) ? 32767 : -32768;
    } else if (fill == Fill::kHalves) {
      x[i++] = static_cast<int16_t>(coin(rng) ? 16384 * quarter(rng) : 0);
    } else {
      const int16_t v = coin(rng) ? 32767 : -32768;
      for (int k = run(rng); k > 0 && i < n; --k) x[i++] = v;
    }
  }
  return x;
}

}  // namespace fir_test

#endif

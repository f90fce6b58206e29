// SPDX-License-Identifier: MIT
// A plain model of the high-quality resampler, written from what its
// headers promise rather than from its code: the chain of stages for the
// rates, each run over the whole signal at once sample by sample (no
// passes, lines, queue or SIMD), the polyphase stage's positions as exact
// fractions n L' / M' of whole numbers, and the count of outputs ceil(N L /
// M). The stream tests hold the resampler, split every way, to it.
#ifndef SKELDA_TESTS_SUPPORT_HQ_REFERENCE_H
#define SKELDA_TESTS_SUPPORT_HQ_REFERENCE_H

#include <cstdint>
#include <cstring>
#include <numeric>
#include <vector>

#include "rsmpl/hq/designs.h"
#include "rsmpl/hq/direct.h"
#include "rsmpl/hq/wide.h"  // U128: exact positions on every target

namespace hq_ref {

using Signal = std::vector<int64_t>;  // one channel, int32 values in int64

inline int32_t round_clamp(int64_t sum, int shift) {
  const int64_t v = (sum + (int64_t{1} << (shift - 1))) >> shift;
  return static_cast<int32_t>(v > (1 << 30) - 1 ? (1 << 30) - 1 : v < -(1 << 30) ? -(1 << 30) : v);
}

inline int64_t at(const Signal &x, int64_t i) { return i < 0 || i >= static_cast<int64_t>(x.size()) ? 0 : x[i]; }

// The interpolating half-band: 2 outputs per input.
inline Signal half_up(const Signal &x, const rsmpl::HqHalfband &h) {
  Signal y(2 * x.size());
  const int64_t span = 2 * h.half - 1;
  for (int64_t i = 0; i < static_cast<int64_t>(x.size()); ++i) {
    int64_t sum = 0;
    for (uint32_t d = 0; d < h.half; ++d) sum += int64_t{h.taps[d]} * (at(x, i - d) + at(x, i - span + d));
    y[2 * i] = round_clamp(sum, 30);
    y[2 * i + 1] = at(x, i - (h.half - 1));
  }
  return y;
}

// The decimating half-band: output i from inputs up to 2 i.
inline Signal half_down(const Signal &x, const rsmpl::HqHalfband &h) {
  Signal y((x.size() + 1) / 2);
  const int64_t span = 2 * h.half - 1;
  for (int64_t i = 0; i < static_cast<int64_t>(y.size()); ++i) {
    int64_t sum = at(x, 2 * i - span) * (int64_t{1} << 30);
    for (uint32_t d = 0; d < h.half; ++d) sum += int64_t{h.taps[d]} * (at(x, 2 * (i - d)) + at(x, 2 * (i - span + d)));
    y[i] = round_clamp(sum, 31);
  }
  return y;
}

// The kernel's taps at psi = 1 - phi for a position whose fraction phi is
// r / den, times gain (Q29): as the header of the kernels says, the phase
// comes from phi's first 32 bits (f) and the rest only tells a position on
// a table phase, or a whole one, from one just past it; a whole position
// takes psi = 1 going up and psi = 0 going down.
inline std::vector<int64_t> kernel_taps(const rsmpl::HqKernel &k, uint64_t r, uint64_t den, bool whole_is_one,
                                        int64_t gain) {
  const uint32_t bits = k.phase_bits;
  const uint64_t phases = uint64_t{1} << bits;
  const uint64_t f = (r << 32) / den;          // r < den <= 2^32
  const bool past = ((r << 32) % den) != 0;  // phi lies beyond f / 2^32
  uint64_t q = 0;
  int64_t w = 0;
  if (f == 0 && !past) {
    q = whole_is_one ? phases : 0;
  } else {
    const uint64_t top = f >> (32 - bits), rest = (f << bits) & 0xffffffffu;
    if (rest == 0 && !past) {
      q = phases - top;
    } else {
      q = phases - top - 1;
      w = rest == 0 ? 0x7fffffff : static_cast<int64_t>(((uint64_t{1} << 32) - rest) >> 1);
    }
  }
  const int64_t w2 = (w * (w - (int64_t{1} << 31))) >> 32;
  const int32_t *c0 = k.table + q * 3 * k.taps, *d1 = c0 + k.taps, *d2 = d1 + k.taps;
  std::vector<int64_t> c(k.taps);
  for (uint32_t i = 0; i < k.taps; ++i) {
    const int32_t b = c0[i] + static_cast<int32_t>((int64_t{d1[i]} * w) >> 31) +
                      static_cast<int32_t>((int64_t{d2[i]} * w2) >> 31);
    c[i] = gain == (1 << 29) ? b : static_cast<int32_t>((int64_t{b} * gain) >> 29);
  }
  return c;
}

// The polyphase stage going up: output m at position m step_num / step_den
// of its input, from the kernel at one minus the position's fraction.
// At a step of exactly one sample the stage changes no rate: its input
// passes on, half the kernel late.
inline Signal poly(const Signal &x, const rsmpl::HqKernel &k, uint64_t step_num, uint64_t step_den, uint64_t count) {
  Signal y(count);
  if (step_num == step_den) {
    for (uint64_t m = 0; m < count; ++m) y[m] = at(x, static_cast<int64_t>(m) - k.taps / 2);
    return y;
  }
  for (uint64_t m = 0; m < count; ++m) {
    const rsmpl::U128 p = rsmpl::U128{m} * rsmpl::U128{step_num};
    const int64_t e = static_cast<int64_t>((p / rsmpl::U128{step_den}).low());
    const uint64_t r = (p - rsmpl::U128{static_cast<uint64_t>(e)} * rsmpl::U128{step_den}).low();
    const std::vector<int64_t> c = kernel_taps(k, r, step_den, true, 1 << 29);
    int64_t sum = 0;
    for (uint32_t i = 0; i < k.taps; ++i) sum += c[i] * at(x, e - (k.taps - 1) + i);
    y[m] = round_clamp(sum, 30);
  }
  return y;
}

// The transposed stage going down: input i at output position u_i = i
// step_num / step_den adds its kernel at ceil(u_i) - u_i, weighted by the
// step, to outputs ceil(u_i) onwards.
inline Signal poly_t(const Signal &x, const rsmpl::HqKernel &k, uint64_t step_num, uint64_t step_den, int64_t gain) {
  const uint64_t outputs = x.empty() ? 0 : ((x.size() - 1) * step_num) / step_den + k.taps + 2;
  std::vector<int64_t> acc(outputs, 0);
  if (step_num == step_den) {
    for (uint64_t i = 0; i < x.size(); ++i) acc[i + k.taps / 2] += x[i] * (int64_t{1} << 30);
  }
  for (uint64_t i = 0; step_num != step_den && i < x.size(); ++i) {
    const rsmpl::U128 u = rsmpl::U128{i} * rsmpl::U128{step_num};
    const uint64_t whole = (u / rsmpl::U128{step_den}).low();
    const uint64_t r = (u - rsmpl::U128{whole} * rsmpl::U128{step_den}).low();
    const uint64_t first = whole + (r != 0 ? 1 : 0);
    const std::vector<int64_t> c = kernel_taps(k, r, step_den, false, gain);
    for (uint32_t j = 0; j < k.taps; ++j) acc[first + j] += x[i] * c[j];
  }
  Signal y(outputs);
  for (uint64_t j = 0; j < outputs; ++j) y[j] = round_clamp(acc[j], 30);
  return y;
}

struct Chain {
  bool up;
  unsigned k;  // relaxed octaves
};

inline Chain chain_of(uint32_t in, uint32_t out) {
  const uint64_t high = out >= in ? out : in, low = out >= in ? in : out;
  unsigned k = 0;
  while (high >= (low << (k + 2))) ++k;
  return {out >= in, k};
}

inline const rsmpl::HqHalfband &relaxed(const rsmpl::HqGrade &g, unsigned distance) {
  return g.relaxed[(distance < 3 ? distance : 3) - 1];
}

// The 16-bit grade's single stage (rsmpl/hq/direct.h) at L / M: output n
// at n M / L input frames, from the T input samples ending at its floor,
// with the design's row for its fraction r / L when L rows fit, else
// between the grid's rows around it (the fraction's first 32 bits placing
// it there); at 1 / 1 the input, T/2 frames late. Input and output at
// 2^29 full scale (S16 times 2^14).
inline Signal direct(const Signal &x, uint32_t in, uint32_t out, uint64_t l, uint64_t m, uint64_t count) {
  const rsmpl::HqDirectDesign d = rsmpl::hq_direct_design(in, out);
  const uint32_t taps = d.taps;
  Signal y(count);
  std::vector<uint8_t> row(rsmpl::hq_direct_row_bytes(taps));
  auto dot = [&](int64_t e, uint64_t r, uint64_t den) {
    rsmpl::hq_direct_row(d, r, den, row.data());
    int64_t sum = 0;
    for (uint32_t k = 0; k < taps; ++k) {
      int16_t hi;
      std::memcpy(&hi, row.data() + 2 * k, 2);
      sum += (int64_t{hi} * 128 + row[2 * taps + k]) * (at(x, e - (taps - 1) + k) >> 14);
    }
    return round_clamp(sum, 7);
  };
  for (uint64_t n = 0; n < count; ++n) {
    const rsmpl::U128 p = rsmpl::U128{n} * rsmpl::U128{m};
    const int64_t e = static_cast<int64_t>((p / rsmpl::U128{l}).low());
    const uint64_t r = (p - rsmpl::U128{static_cast<uint64_t>(e)} * rsmpl::U128{l}).low();
    if (l == m) {
      y[n] = at(x, static_cast<int64_t>(n) - taps / 2);
    } else if (l <= d.rows_cap) {
      y[n] = dot(e, r, l);
    } else {
      const uint32_t g = d.grid_bits;
      const uint32_t f = static_cast<uint32_t>(((rsmpl::U128{r} << 32) / rsmpl::U128{l}).low());
      const uint32_t q = f >> (32 - g);
      const int64_t w = static_cast<int32_t>((f << g) >> 1);
      const int64_t a = dot(e, q, uint64_t{1} << g);
      const int64_t v = w == 0 ? a : a + ((dot(e, q + 1, uint64_t{1} << g) - a) * w >> 31);
      y[n] = v > (1 << 30) - 1 ? (1 << 30) - 1 : v < -(1 << 30) ? -(1 << 30) : v;
    }
  }
  return y;
}

// The whole chain at the ratio L / M (lowest terms) on one channel of
// int32 samples at 2^29 full scale; the first `count` outputs.
inline Signal convert(const Signal &x, uint32_t in, uint32_t out, uint64_t l, uint64_t m, int grade, uint64_t count) {
  if (grade == rsmpl::kHqGrade16 && rsmpl::hq_direct_fits(in, out)) return direct(x, in, out, l, m, count);
  const rsmpl::HqGrade &g = rsmpl::kHqGrades[grade];
  const Chain ch = chain_of(in, out);
  Signal y;
  if (ch.up) {
    // Stage steps 2^(k+1) M / L of its input per output.
    const Signal a = half_up(x, g.sharp);
    const uint64_t groups = (count + (1u << ch.k) - 1) >> ch.k;
    y = poly(a, g.kernel, m << (ch.k + 1), l, groups);
    for (unsigned j = 1; j <= ch.k; ++j) y = half_up(y, relaxed(g, j));
  } else {
    y = x;
    for (unsigned j = ch.k; j >= 1; --j) y = half_down(y, relaxed(g, j));
    const uint64_t num = l << (ch.k + 1), den = m;
    // The step in Q29, rounded to nearest: the weight of each input.
    const int64_t gain = static_cast<int64_t>(((num << 29) + den / 2) / den);
    y = half_down(poly_t(y, g.kernel, num, den, gain), g.sharp);
  }
  y.resize(count);
  return y;
}

// Outputs after N input frames at L / M: ceil(N L / M).
inline uint64_t due(uint64_t n, uint64_t l, uint64_t m) { return (n * l + m - 1) / m; }

}  // namespace hq_ref

#endif

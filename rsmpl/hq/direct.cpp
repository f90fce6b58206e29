// SPDX-License-Identifier: MIT
// The 16-bit grade's single stage (rsmpl/hq/direct.h): which rates take it,
// its design, and its rows of taps, made from the constant kernel table.
#include "rsmpl/hq/direct.h"

#include "rsmpl/hq/designs.h"
#include "rsmpl/hq/wide.h"

namespace rsmpl {
namespace {

constexpr uint32_t kReach = 32;  // the kernel's half-length, lower-rate units

// Input frames the kernel spans either way, and the taps that cover both.
uint32_t taps_for(uint32_t in_rate, uint32_t out_rate) {
  const uint64_t reach = out_rate >= in_rate ? kReach : (uint64_t{kReach} * in_rate + out_rate - 1) / out_rate;
  return static_cast<uint32_t>((2 * reach + 7) / 8 * 8);
}

}  // namespace

bool hq_direct_fits(uint32_t in_rate, uint32_t out_rate) {
  if (out_rate >= in_rate) return out_rate <= uint64_t{kHqDirectSpan} * in_rate;
  return taps_for(in_rate, out_rate) <= kHqDirectMaxTaps || in_rate == 2 * out_rate || in_rate == 3 * out_rate;
}

HqDirectDesign hq_direct_design(uint32_t in_rate, uint32_t out_rate) {
  HqDirectDesign d{};
  d.taps = taps_for(in_rate, out_rate);
  d.rows_cap = static_cast<uint32_t>(kHqDirectRowBytes / hq_direct_row_bytes(d.taps));
  while ((uint64_t{1} << (d.grid_bits + 1)) + 1 <= d.rows_cap) ++d.grid_bits;
  const bool down = out_rate < in_rate;
  d.stretch = down ? (uint64_t{out_rate} << 32) / in_rate : uint64_t{1} << 32;
  d.gain = down ? static_cast<int32_t>(((uint64_t{out_rate} << 29) + in_rate / 2) / in_rate) : 1 << 29;
  return d;
}

namespace {

// The kernel u units from its centre (u in 32.32, u >= 0), Q30: four-point
// Lagrange interpolation between the table's entries, the fraction between
// them in Q18 (weights, products of three Q18 factors, brought to Q30).
// Entries before the centre mirror those after it.
int64_t kernel_at(uint64_t u) {
  const HqDirectTable &k = kHqDirect16;
  const uint64_t at = u * k.oversample;  // entries, 32.32
  const uint64_t j = at >> 32;
  if (j >= uint64_t{k.half} * k.oversample) return 0;
  const int64_t f = static_cast<int64_t>((at >> 14) & 0x3ffff);
  const int64_t one = int64_t{1} << 18;
  const int64_t fm1 = f + one, f0 = f, f1 = f - one, f2 = f - 2 * one;
  const int64_t w[4] = {-(f0 * f1 * f2 / 6 >> 24), (fm1 * f1 * f2 / 2 >> 24), -(fm1 * f0 * f2 / 2 >> 24),
                        (fm1 * f0 * f1 / 6 >> 24)};
  int64_t sum = 0;
  for (int i = 0; i < 4; ++i) {
    const int64_t idx = static_cast<int64_t>(j) - 1 + i;
    sum += w[i] * k.table[idx < 0 ? -idx : idx];
  }
  return (sum + (int64_t{1} << 29)) >> 30;
}

}  // namespace

// Tap k lies k - T/2 + 1 - r / den input frames from the output's centre:
// stretch times that in the kernel's units, stepped by `stretch` a tap in
// 32.32 fixed point; times the stretch's gain going down. The row is then
// scaled to sum to exactly 1 (every row passes DC unchanged, so a steady
// input gives no pattern across the rows) and rounded to Q21: each tap
// rounded down, and the units that leaves short given to the taps that
// lost most (a tap moves by less than one unit, and the row's response
// keeps its shape: correcting one tap instead would lay its correction
// flat across the stopband). One division a row; then split into hi and
// lo.
void hq_direct_row(const HqDirectDesign &d, uint64_t r, uint64_t den, uint8_t *row) {
  const uint32_t taps = d.taps;
  const uint64_t frac = ((U128{r} << 32) / U128{den}).low();  // r / den, 32.32 (1.0 at r = den)
  const int64_t stretch = static_cast<int64_t>(d.stretch);
  int64_t at = stretch * (1 - static_cast<int64_t>(taps / 2)) - static_cast<int64_t>((U128{d.stretch} * U128{frac} >> 32).low());
  int64_t v[kHqDirectTapsMost];
  int64_t sum = 0;
  for (uint32_t t = 0; t < taps; ++t, at += stretch) {
    const int64_t h = kernel_at(static_cast<uint64_t>(at < 0 ? -at : at));
    v[t] = d.gain == (1 << 29) ? h : (h * d.gain) >> 29;  // Q30
    sum += v[t];
  }
  // v 2^21 / sum with 20 more bits: v times 2^60 / sum, less 19 bits (the
  // sum of a row lies near 2^30, and |v| within it).
  const int64_t inv = static_cast<int64_t>((uint64_t{1} << 60) / static_cast<uint64_t>(sum));
  int32_t c[kHqDirectTapsMost];
  uint32_t rest[kHqDirectTapsMost];
  uint32_t count[257] = {};
  int64_t whole = 0;
  for (uint32_t t = 0; t < taps; ++t) {
    const int64_t q = (v[t] * inv) >> 19;
    c[t] = static_cast<int32_t>(q >> 20);
    rest[t] = static_cast<uint32_t>(q & ((1 << 20) - 1));
    ++count[rest[t] >> 12];
    whole += c[t];
  }
  // The units short, to the taps with the largest remainders: whole buckets
  // of the remainder's top 8 bits from the top, then the first taps of the
  // bucket where they run out.
  int64_t short_by = (int64_t{1} << 21) - whole;
  uint32_t bucket = 256;
  while (bucket > 0 && short_by >= count[bucket - 1]) short_by -= count[--bucket];
  for (uint32_t t = 0; t < taps; ++t) {
    const uint32_t b = rest[t] >> 12;
    if (b >= bucket) {
      ++c[t];
    } else if (bucket > 0 && b == bucket - 1 && short_by > 0) {
      ++c[t];
      --short_by;
    }
  }
  int16_t *hi = reinterpret_cast<int16_t *>(row);
  uint8_t *lo = row + 2 * size_t{taps};
  for (uint32_t t = 0; t < taps; ++t) {
    hi[t] = static_cast<int16_t>(c[t] >> kHqDirectShift);
    lo[t] = static_cast<uint8_t>(c[t] & ((1 << kHqDirectShift) - 1));
  }
}

}  // namespace rsmpl

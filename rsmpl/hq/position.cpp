// SPDX-License-Identifier: MIT
// The exact position arithmetic of rsmpl/hq/position.h.
#include "rsmpl/hq/position.h"

namespace rsmpl {
namespace {

constexpr uint64_t kSaturated = uint64_t{1} << 62;
// Whole-sample distances beyond this are answered as saturated: no stream
// call asks about more than a few times 2^32 samples ahead.
constexpr int64_t kFar = int64_t{1} << 40;

// (p - p.i) 2^32 den: the position's fraction as a numerator.
U128 fraction_numerator(const HqPos &p, uint64_t den) { return U128{p.f} * U128{den} + U128{p.e}; }

uint64_t saturate(const U128 &v) {
  if (!v.fits64() || v.low() > kSaturated) return kSaturated;
  return v.low();
}

}  // namespace

HqStep hq_step_exact(uint64_t num, uint64_t den) {
  HqStep s{};
  s.den = den;
  s.si = static_cast<uint32_t>(num / den);
  const uint64_t r = (num % den) << 32;
  s.sf = static_cast<uint32_t>(r / den);
  s.se = static_cast<uint32_t>(r % den);
  return s;
}

HqStep hq_step_fixed(uint32_t whole, uint64_t fraction) {
  HqStep s{};
  s.den = uint64_t{1} << 32;
  s.si = whole;
  s.sf = static_cast<uint32_t>(fraction >> 32);
  s.se = static_cast<uint32_t>(fraction);
  return s;
}

HqPos hq_rebase(const HqPos &p, uint64_t old_den, uint64_t new_den) {
  HqPos r = p;
  r.e = static_cast<uint32_t>(uint64_t{p.e} * new_den / old_den);
  return r;
}

uint64_t hq_count_below(const HqPos &p, const HqStep &s, unsigned k, int64_t a) {
  if (p.i >= a) return 0;
  const int64_t diff = a - p.i;
  if (diff > kFar) return kSaturated;
  const U128 x = ((U128{static_cast<uint64_t>(diff)} * U128{s.den}) << 32) - fraction_numerator(p, s.den);
  return saturate(ceil_div(x << k, hq_step_numerator(s)));
}

uint64_t hq_count_at_most(const HqPos &p, const HqStep &s, unsigned k, int64_t a) {
  if (p.i > a || (p.i == a && (p.f != 0 || p.e != 0))) return 0;
  const int64_t diff = a - p.i;
  if (diff > kFar) return kSaturated;
  const U128 x = ((U128{static_cast<uint64_t>(diff)} * U128{s.den}) << 32) - fraction_numerator(p, s.den);
  return saturate((x << k) / hq_step_numerator(s) + U128{1});
}

int64_t hq_floor_at(const HqPos &p, const HqStep &s, unsigned k, uint64_t j, bool *fraction) {
  const U128 num = (fraction_numerator(p, s.den) << k) + U128{j} * hq_step_numerator(s);
  const U128 unit = U128{s.den} << (32 + k);
  const U128 whole = num / unit;
  *fraction = !(whole * unit == num);
  return p.i + static_cast<int64_t>(whole.low());
}

}  // namespace rsmpl

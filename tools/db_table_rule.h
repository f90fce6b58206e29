// SPDX-License-Identifier: MIT
// The rule behind the decibel table: entry k holds 10^(i / 20) for
// i = 90 - k dB as mantissa * 2^(exponent - 30), with the exponent the
// smallest integer E such that the factor is at most 2^E and the mantissa
// the factor times 2^(30 - E) rounded to nearest. The generator prints the
// table from it and a test rebuilds it.
#ifndef SKELDA_TOOLS_DB_TABLE_RULE_H
#define SKELDA_TOOLS_DB_TABLE_RULE_H

#include <cmath>
#include <cstdint>

namespace db_rule {

constexpr int kEntries = 181;  // +90 dB down to -90 dB

struct Entry {
  int16_t exponent;
  int32_t mantissa;
};

inline Entry EntryFor(int k) {
  const int decibels = 90 - k;
  // Powers of ten by whole decibels in long double: the 0 dB entry must be
  // exactly 1 so its exponent is 0, and the rounding of the others must not
  // depend on the last bit of a double.
  const long double factor = std::pow(10.0L, decibels / 20.0L);
  int exponent = static_cast<int>(std::ceil(std::log2(factor)));
  if (decibels == 0) exponent = 0;
  while (std::ldexp(1.0L, exponent) < factor) ++exponent;
  while (std::ldexp(1.0L, exponent - 1) >= factor) --exponent;
  const long double mantissa = std::round(std::ldexp(factor, 30 - exponent));
  return Entry{static_cast<int16_t>(exponent), static_cast<int32_t>(mantissa)};
}

}  // namespace db_rule

#endif

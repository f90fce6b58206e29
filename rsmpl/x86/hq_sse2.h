// SPDX-License-Identifier: MIT
// What the SSE2 and AVX2 builds of the high-quality resampler's kernels
// share, in SSE2 instructions: the output step on (hi, lo) sums in 32-bit
// lanes. Each build includes it in its own unnamed namespace.
#ifndef SKELDA_RSMPL_X86_HQ_SSE2_H
#define SKELDA_RSMPL_X86_HQ_SSE2_H

#include <emmintrin.h>

#include <cstdint>

#include "rsmpl/hq/state.h"

namespace rsmpl {
namespace {

// The high-quality output step on four (hi, lo) sum pairs in 32-bit lanes,
// as hq/state.h describes it: (hi + ((lo + 2^(F-1)) >> S)) >> 14, F = 14 + S.
// Returns 32-bit lanes ready to pack; packing saturates to 16 bits.
inline __m128i hq_step_lanes(__m128i hi, __m128i lo, uint32_t shift) {
  const __m128i bias = _mm_set1_epi32(1 << (shift + kHqHiShift - 1));
  const __m128i sum = _mm_add_epi32(
      hi, _mm_sra_epi32(_mm_add_epi32(lo, bias), _mm_cvtsi32_si128(static_cast<int>(shift))));
  return _mm_srai_epi32(sum, kHqHiShift);
}

}  // namespace
}  // namespace rsmpl

#endif

// SPDX-License-Identifier: MIT
// What the SSE2 and AVX2 builds of the high-quality resampler's kernels
// share, in SSE2 instructions: the output step on (hi, lo) sums in 32-bit
// lanes and the lane kernels' stores. Each build includes it in its own unnamed namespace.
#ifndef SKELDA_RSMPL_X86_HQ_SSE2_H
#define SKELDA_RSMPL_X86_HQ_SSE2_H

#include <emmintrin.h>

#include <cstdint>

#include "rsmpl/hq/kernel.h"
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

// The lane kernels' eight outputs of one channel (y0) or two (y0, y1,
// interleaved frame by frame), lane j's frame to out + j step.
template <int Channels>
inline void hq_store_lanes_sse2(__m128i y0, __m128i y1, int16_t *out, size_t step) {
  alignas(16) int16_t t[2 * kHqLanes];
  if constexpr (Channels == 2) {
    _mm_store_si128(reinterpret_cast<__m128i *>(t), _mm_unpacklo_epi16(y0, y1));
    _mm_store_si128(reinterpret_cast<__m128i *>(t + kHqLanes), _mm_unpackhi_epi16(y0, y1));
  } else {
    _mm_store_si128(reinterpret_cast<__m128i *>(t), y0);
  }
  hq_store_lanes<Channels>(t, out, step);
}

}  // namespace
}  // namespace rsmpl

#endif

// Folding the 32-bit lane sums of up to four outputs at once and applying
// the output step in vector registers (SSE2 instructions only; the AVX2
// build uses it after folding its 256-bit halves). Included by the SIMD
// builds inside their own unnamed namespaces.
#ifndef SKELDA_RSMPL_FIR_REDUCE_SSE2_H
#define SKELDA_RSMPL_FIR_REDUCE_SSE2_H

#include <emmintrin.h>

#include <cstdint>
#include <cstring>

namespace rsmpl {
namespace {

// x + y per lane, saturated to the int32 range instead of wrapping.
inline __m128i adds_epi32(__m128i x, __m128i y) {
  const __m128i sum = _mm_add_epi32(x, y);
  // Overflow: both operands share a sign that the sum does not have.
  const __m128i overflow =
      _mm_srai_epi32(_mm_andnot_si128(_mm_xor_si128(x, y), _mm_xor_si128(x, sum)), 31);
  const __m128i limit = _mm_xor_si128(_mm_srai_epi32(x, 31), _mm_set1_epi32(0x7FFFFFFF));
  return _mm_or_si128(_mm_and_si128(overflow, limit), _mm_andnot_si128(overflow, sum));
}

// a, b, c, d hold four lane sums each; returns their four totals. The first
// fold is exact (checked at compile time by fits_phase_parallel), the last
// one saturates: a total past the int32 range saturates the output anyway.
inline __m128i fold4(__m128i a, __m128i b, __m128i c, __m128i d) {
  const __m128i ab = _mm_add_epi32(_mm_unpacklo_epi32(a, b), _mm_unpackhi_epi32(a, b));
  const __m128i cd = _mm_add_epi32(_mm_unpacklo_epi32(c, d), _mm_unpackhi_epi32(c, d));
  return adds_epi32(_mm_unpacklo_epi64(ab, cd), _mm_unpackhi_epi64(ab, cd));
}

// Output step on four saturated int32 totals: floor((S + 2^(s-1)) / 2^s) is
// computed as ((S >> 1) + 2^(s-2)) >> (s-1), which cannot overflow and gives
// the same value for every S; packs saturates to 16 bits.
template <int Shift, int Count>
inline void output_step4(__m128i totals, int16_t *dst) {
  const __m128i biased =
      _mm_add_epi32(_mm_srai_epi32(totals, 1), _mm_set1_epi32(1 << (Shift - 2)));
  const __m128i packed = _mm_packs_epi32(_mm_srai_epi32(biased, Shift - 1), biased);
  if constexpr (Count == 4) {
    _mm_storel_epi64(reinterpret_cast<__m128i *>(dst), packed);
  } else {
    if constexpr (Count >= 2) {
      const int32_t pair = _mm_cvtsi128_si32(packed);
      std::memcpy(dst, &pair, sizeof pair);
    }
    if constexpr (Count % 2 == 1)
      dst[Count - 1] = static_cast<int16_t>(_mm_extract_epi16(packed, Count - 1));
  }
}

template <class Shape, int Base>
inline void reduce_from(const __m128i *sums, int16_t *dst) {
  constexpr int count = Shape::L - Base < 4 ? Shape::L - Base : 4;
  const __m128i zero = _mm_setzero_si128();
  const __m128i a = sums[Base];
  const __m128i b = count > 1 ? sums[Base + 1] : zero;
  const __m128i c = count > 2 ? sums[Base + 2] : zero;
  const __m128i d = count > 3 ? sums[Base + 3] : zero;
  output_step4<Shape::kShift, count>(fold4(a, b, c, d), dst + Base);
  if constexpr (Base + 4 < Shape::L) reduce_from<Shape, Base + 4>(sums, dst);
}

// Reduces the per-phase lane sums of one group (sums[0..L-1]) to its L
// outputs, four at a time, and stores them.
template <class Shape>
inline void reduce_group(const __m128i *sums, int16_t *dst) {
  reduce_from<Shape, 0>(sums, dst);
}

}  // namespace
}  // namespace rsmpl

#endif

// SPDX-License-Identifier: MIT
// What the SSE2 and AVX2 builds of the FIR kernels share, in SSE2
// instructions: widening pair sums to 64 bits, the 8- and 4-tap remainders
// of an inner product, and summing a group's short phases side by side,
// folding up to four outputs at once and applying the output step in
// vector registers. Each build includes it in its own unnamed namespace.
#ifndef SKELDA_RSMPL_X86_FIR_SSE2_H
#define SKELDA_RSMPL_X86_FIR_SSE2_H

#include <emmintrin.h>

#include <cstdint>
#include <cstring>
#include <utility>

#include "rsmpl/fir/shape.h"

namespace rsmpl {
namespace {

// Four int32 lanes sign-extended and summed into two int64 lanes.
inline __m128i widen_pairs(__m128i part) {
  const __m128i sign = _mm_srai_epi32(part, 31);
  return _mm_add_epi64(_mm_unpacklo_epi32(part, sign), _mm_unpackhi_epi32(part, sign));
}

// Adds the products of the Rest (0, 4, 8 or 12) taps from `done` on,
// widened, to the two int64 lanes of acc; returns their total.
template <int Rest>
inline int64_t finish_dot(__m128i acc, const int16_t *x, const int16_t *w, int done) {
  static_assert(Rest % 4 == 0 && Rest < 16, "spans are padded to a multiple of 4");
  if constexpr (Rest >= 8) {
    const __m128i xs = _mm_loadu_si128(reinterpret_cast<const __m128i *>(x + done));
    const __m128i ws = _mm_loadu_si128(reinterpret_cast<const __m128i *>(w + done));
    acc = _mm_add_epi64(acc, widen_pairs(_mm_madd_epi16(xs, ws)));
    done += 8;
  }
  if constexpr (Rest % 8 == 4) {
    const __m128i xs = _mm_loadl_epi64(reinterpret_cast<const __m128i *>(x + done));
    const __m128i ws = _mm_loadl_epi64(reinterpret_cast<const __m128i *>(w + done));
    acc = _mm_add_epi64(acc, widen_pairs(_mm_madd_epi16(xs, ws)));
  }
  acc = _mm_add_epi64(acc, _mm_unpackhi_epi64(acc, acc));
  return _mm_cvtsi128_si64(acc);
}

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

// Output step on int32 totals that saturated rather than wrapped:
// floor((S + 2^(s-1)) / 2^s) is computed as ((S >> 1) + 2^(s-2)) >> (s-1),
// which cannot overflow and gives the same value for every S. Returns
// 32-bit lanes ready to pack; packing saturates to 16 bits.
template <int Shift>
inline __m128i step_lanes(__m128i totals) {
  const __m128i biased =
      _mm_add_epi32(_mm_srai_epi32(totals, 1), _mm_set1_epi32(1 << (Shift - 2)));
  return _mm_srai_epi32(biased, Shift - 1);
}

// The output step on four totals, storing the first Count outputs.
template <int Shift, int Count>
inline void output_step4(__m128i totals, int16_t *dst) {
  const __m128i lanes = step_lanes<Shift>(totals);
  const __m128i packed = _mm_packs_epi32(lanes, lanes);
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

// One group of a kernel whose phases all span 16 taps: each phase's four
// 32-bit lane sums come from Dot::sum16 (exact, see fits_phase_parallel),
// then all phases are folded together and stored. Everything is read before
// anything is stored.
template <class Shape, class Dot>
inline void group_side_by_side(const int16_t *span, int16_t *dst) {
  constexpr auto &layout = kPhaseLayout<Shape>;
  __m128i sums[Shape::L];
  for (int phi = 0; phi < Shape::L; ++phi)
    sums[phi] = Dot::sum16(span + layout.phase[phi].start, layout.phase[phi].taps);
  reduce_from<Shape, 0>(sums, dst);
}

// Four consecutive groups of a kernel with 16-tap phases and M of 1 or 2,
// one group per 32-bit lane. For tap pair p (taps 2p, 2p+1) group j needs
// the samples at j * M + start + 2p and the one after: with M = 2 those
// pairs are the consecutive words of one load, with M = 1 they come from
// interleaving two loads one sample apart. Each phase keeps two sums (tap
// pairs of even and of odd p, exact in 32 bits by fits_phase_parallel) that
// one saturating add joins.
template <class Shape>
inline __m128i tap_pairs(const int16_t *x, int p) {
  if constexpr (Shape::M == 2) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i *>(x + 2 * p));
  } else {
    const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i *>(x + 2 * p));
    const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i *>(x + 2 * p + 1));
    return _mm_unpacklo_epi16(a, b);
  }
}

// The weights of tap pair p of every phase as 32-bit words, for broadcast.
template <class Shape>
struct PairWeights {
  int32_t word[Shape::L][8];
};
template <class Shape>
constexpr PairWeights<Shape> make_pair_weights() {
  PairWeights<Shape> weights{};
  for (int phi = 0; phi < Shape::L; ++phi)
    for (int p = 0; p < 8; ++p) {
      const auto &taps = kPhaseLayout<Shape>.phase[phi].taps;
      weights.word[phi][p] = static_cast<int32_t>(static_cast<uint16_t>(taps[2 * p]) |
                                                  static_cast<uint32_t>(static_cast<uint16_t>(taps[2 * p + 1])) << 16);
    }
  return weights;
}
template <class Shape>
inline constexpr PairWeights<Shape> kPairWeights = make_pair_weights<Shape>();

template <class Shape, int P, std::size_t... Phi>
inline void accumulate_pair(const int16_t *span, __m128i *even, __m128i *odd,
                            std::index_sequence<Phi...>) {
  constexpr auto &layout = kPhaseLayout<Shape>;
  __m128i *sums = P % 2 == 0 ? even : odd;
  ((sums[Phi] = _mm_add_epi32(
        sums[Phi], _mm_madd_epi16(tap_pairs<Shape>(span + layout.phase[Phi].start, P),
                                  _mm_set1_epi32(kPairWeights<Shape>.word[Phi][P])))),
   ...);
}

template <class Shape, std::size_t... P>
inline void accumulate_all(const int16_t *span, __m128i *even, __m128i *odd,
                           std::index_sequence<P...>) {
  (accumulate_pair<Shape, static_cast<int>(P)>(span, even, odd,
                                               std::make_index_sequence<Shape::L>{}),
   ...);
}

// y[phi] holds phase phi's outputs of `Groups` consecutive groups (4 or 8)
// as 16-bit lanes; dst receives them group by group, phase by phase.
template <int L, int Groups>
inline void store_interleaved(const __m128i *y, int16_t *dst) {
  auto store = [&](int at, __m128i v) {
    _mm_storeu_si128(reinterpret_cast<__m128i *>(dst + at), v);
  };
  if constexpr (L == 2) {
    if constexpr (Groups == 8) store(8, _mm_unpackhi_epi16(y[0], y[1]));
    store(0, _mm_unpacklo_epi16(y[0], y[1]));
  } else if constexpr (L == 4) {
    const __m128i lo01 = _mm_unpacklo_epi16(y[0], y[1]), lo23 = _mm_unpacklo_epi16(y[2], y[3]);
    store(0, _mm_unpacklo_epi32(lo01, lo23));
    store(8, _mm_unpackhi_epi32(lo01, lo23));
    if constexpr (Groups == 8) {
      const __m128i hi01 = _mm_unpackhi_epi16(y[0], y[1]), hi23 = _mm_unpackhi_epi16(y[2], y[3]);
      store(16, _mm_unpacklo_epi32(hi01, hi23));
      store(24, _mm_unpackhi_epi32(hi01, hi23));
    }
  } else {
    alignas(16) int16_t lanes[L][8];
    for (int phi = 0; phi < L; ++phi) _mm_store_si128(reinterpret_cast<__m128i *>(lanes[phi]), y[phi]);
    for (int j = 0; j < Groups; ++j)
      for (int phi = 0; phi < L; ++phi) dst[j * L + phi] = lanes[phi][j];
  }
}


// Whether a build may convert groups in batches: short phases, M of 1 or 2.
template <class Shape>
constexpr bool batches_groups() {
  return (Shape::M == 1 || Shape::M == 2) && fits_phase_parallel<Shape>();
}

template <class Shape>
inline int32_t four_groups_at_once(const int16_t *in, int16_t *out, int32_t groups) {
  if constexpr (batches_groups<Shape>()) {
    int32_t g = 0;
    // With M = 1 the loads of a batch reach 8 samples past its first pair;
    // stop where that would pass the span of the call's last group.
    for (; g + 4 + (Shape::M == 1 ? 4 : 0) <= groups; g += 4) {
      const int16_t *span = in + static_cast<std::ptrdiff_t>(g) * Shape::M;
      __m128i even[Shape::L], odd[Shape::L];
      for (int phi = 0; phi < Shape::L; ++phi) even[phi] = odd[phi] = _mm_setzero_si128();
      accumulate_all<Shape>(span, even, odd, std::make_index_sequence<8>{});
      __m128i y[Shape::L];
      for (int phi = 0; phi < Shape::L; ++phi) {
        const __m128i lanes = step_lanes<Shape::kShift>(adds_epi32(even[phi], odd[phi]));
        y[phi] = _mm_packs_epi32(lanes, lanes);
      }
      store_interleaved<Shape::L, 4>(y, out + static_cast<std::ptrdiff_t>(g) * Shape::L);
    }
    return g;
  } else {
    (void)in, (void)out, (void)groups;
    return 0;
  }
}

}  // namespace
}  // namespace rsmpl

#endif

// SPDX-License-Identifier: MIT
// AVX2 build of the FIR kernels (compiled with -mavx2, used only when the CPU
// reports AVX2). Sixteen products per vpmaddwd, the same overflow-safe runs as
// the SSE2 build, then 8- and 4-tap remainders.
#include <immintrin.h>

#include "rsmpl/fir/kernel.h"
#include "rsmpl/x86/fir_sse2.h"

namespace rsmpl {
namespace {

inline __m256i widen_pairs256(__m256i part) {
  return _mm256_add_epi64(_mm256_cvtepi32_epi64(_mm256_castsi256_si128(part)),
                          _mm256_cvtepi32_epi64(_mm256_extracti128_si256(part, 1)));
}

// Eight consecutive groups at once, one per 32-bit lane of a 256-bit
// register; otherwise as four_groups_at_once. Group j of tap pair p needs
// the samples at j * M + start + 2p and the one after:
// - M = 2: the consecutive words of one load;
// - M = 1: two 128-bit loads one sample apart, interleaved and joined;
// - M = 3 (3-to-2): four loads 6 samples apart, each holding two groups'
//   pairs at words (0, 1) and (3, 4), which a byte shuffle lines up.
template <class Shape>
inline __m256i tap_pairs8(const int16_t *x, int p) {
  x += 2 * p;
  auto load = [](const int16_t *at) { return _mm_loadu_si128(reinterpret_cast<const __m128i *>(at)); };
  if constexpr (Shape::M == 2) {
    return _mm256_loadu_si256(reinterpret_cast<const __m256i *>(x));
  } else if constexpr (Shape::M == 1) {
    const __m128i a = load(x), b = load(x + 1);
    return _mm256_set_m128i(_mm_unpackhi_epi16(a, b), _mm_unpacklo_epi16(a, b));
  } else {
    const __m256i pick = _mm256_setr_epi8(0, 1, 2, 3, 6, 7, 8, 9, -1, -1, -1, -1, -1, -1, -1, -1,
                                          0, 1, 2, 3, 6, 7, 8, 9, -1, -1, -1, -1, -1, -1, -1, -1);
    const __m256i first = _mm256_shuffle_epi8(_mm256_set_m128i(load(x + 12), load(x)), pick);
    const __m256i second = _mm256_shuffle_epi8(_mm256_set_m128i(load(x + 18), load(x + 6)), pick);
    return _mm256_unpacklo_epi64(first, second);
  }
}

template <class Shape>
constexpr bool batches_eight_groups() {
  return Shape::M <= 3 && fits_phase_parallel<Shape>();
}

template <class Shape, int P, std::size_t... Phi>
inline void accumulate_pair8(const int16_t *span, __m256i *even, __m256i *odd,
                             std::index_sequence<Phi...>) {
  constexpr auto &layout = kPhaseLayout<Shape>;
  __m256i *sums = P % 2 == 0 ? even : odd;
  ((sums[Phi] = _mm256_add_epi32(
        sums[Phi], _mm256_madd_epi16(tap_pairs8<Shape>(span + layout.phase[Phi].start, P),
                                     _mm256_set1_epi32(kPairWeights<Shape>.word[Phi][P])))),
   ...);
}

template <class Shape, std::size_t... P>
inline void accumulate_all8(const int16_t *span, __m256i *even, __m256i *odd,
                            std::index_sequence<P...>) {
  (accumulate_pair8<Shape, static_cast<int>(P)>(span, even, odd,
                                                std::make_index_sequence<Shape::L>{}),
   ...);
}

// With M of 1 or 2 the batch's loads end exactly at the span of its last
// group; with M = 3 they reach 3 samples further, so one more group must
// follow.
template <class Shape>
inline int32_t eight_groups_at_once(const int16_t *in, int16_t *out, int32_t groups) {
  int32_t g = 0;
  for (; g + 8 + (Shape::M == 3 ? 1 : 0) <= groups; g += 8) {
    const int16_t *span = in + static_cast<std::ptrdiff_t>(g) * Shape::M;
    __m256i even[Shape::L], odd[Shape::L];
    for (int phi = 0; phi < Shape::L; ++phi) even[phi] = odd[phi] = _mm256_setzero_si256();
    accumulate_all8<Shape>(span, even, odd, std::make_index_sequence<8>{});
    __m128i y[Shape::L];
    for (int phi = 0; phi < Shape::L; ++phi) {
      const __m128i lo = adds_epi32(_mm256_castsi256_si128(even[phi]), _mm256_castsi256_si128(odd[phi]));
      const __m128i hi = adds_epi32(_mm256_extracti128_si256(even[phi], 1),
                                    _mm256_extracti128_si256(odd[phi], 1));
      y[phi] = _mm_packs_epi32(step_lanes<Shape::kShift>(lo), step_lanes<Shape::kShift>(hi));
    }
    store_interleaved<Shape::L, 8>(y, out + static_cast<std::ptrdiff_t>(g) * Shape::L);
  }
  return g;
}

struct Avx2Dot {
  template <class Shape, int Taps>
  static int64_t dot(const int16_t *x, const int16_t *w) {
    constexpr int vectors = Taps / 16;
    constexpr int run = vectors > 0 ? safe_run_vectors<Shape, 16>() : 1;
    __m256i acc = _mm256_setzero_si256();
    for (int v0 = 0; v0 < vectors; v0 += run) {
      __m256i part = _mm256_setzero_si256();
      for (int v = v0; v < v0 + run && v < vectors; ++v) {
        const __m256i xs = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(x + 16 * v));
        const __m256i ws = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(w + 16 * v));
        part = _mm256_add_epi32(part, _mm256_madd_epi16(xs, ws));
      }
      acc = _mm256_add_epi64(acc, widen_pairs256(part));
    }
    const __m128i rest = _mm_add_epi64(_mm256_castsi256_si128(acc), _mm256_extracti128_si256(acc, 1));
    return finish_dot<Taps % 16>(rest, x, w, 16 * vectors);
  }

  // One 16-product multiply, its halves folded: 4 taps a lane.
  static __m128i sum16(const int16_t *x, const int16_t *w) {
    const __m256i products =
        _mm256_madd_epi16(_mm256_loadu_si256(reinterpret_cast<const __m256i *>(x)),
                          _mm256_loadu_si256(reinterpret_cast<const __m256i *>(w)));
    return _mm_add_epi32(_mm256_castsi256_si128(products), _mm256_extracti128_si256(products, 1));
  }

  // Short phases: one 16-product multiply per phase, its halves folded (4
  // taps a lane, exact), then all phases folded together.
  template <class Shape>
  static int32_t groups_at_once(const int16_t *in, int16_t *out, int32_t groups) {
    if constexpr (batches_eight_groups<Shape>()) {
      const int32_t done = eight_groups_at_once<Shape>(in, out, groups);
      const std::ptrdiff_t m = Shape::M, l = Shape::L;
      return done + four_groups_at_once<Shape>(in + done * m, out + done * l, groups - done);
    } else {
      return four_groups_at_once<Shape>(in, out, groups);
    }
  }

  template <class Shape>
  static void group(const int16_t *span, int16_t *dst) {
    if constexpr (fits_phase_parallel<Shape>()) {
      group_side_by_side<Shape, Avx2Dot>(span, dst);
    } else {
      group_per_phase<Shape, Avx2Dot>(span, dst);
    }
  }
};

constexpr FirKernels kAvx2 = make_fir_kernels<Avx2Dot>();

}  // namespace

const FirKernels *fir_kernels_avx2() { return &kAvx2; }

}  // namespace rsmpl


// AVX2 build of the FIR kernels (this file alone is compiled with -mavx2 and
// only used when the CPU reports AVX2). Sixteen products per vpmaddwd, the
// same overflow-safe runs as the SSE2 build, then 8- and 4-tap remainders.
#include "rsmpl/fir_kernel_set.h"

#if defined(__AVX2__)
#include <immintrin.h>

#include <cstring>

#include "rsmpl/fir_kernel.h"
#include "rsmpl/fir_sse2_helpers.h"

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

  // Both sums stay in 32-bit lanes: the coefficients are sized for that.
  static int64_t hq_dot(const int16_t *x, const int16_t *coef, uint32_t taps, uint32_t shift) {
    __m256i hi = _mm256_setzero_si256(), lo = _mm256_setzero_si256();
    for (uint32_t t = 0; t < taps; t += 16) {
      const __m256i xs = load(x + t);
      hi = _mm256_add_epi32(hi, _mm256_madd_epi16(xs, load(coef + t)));
      lo = _mm256_add_epi32(lo, _mm256_madd_epi16(xs, load(coef + taps + t)));
    }
    const __m128i sums = fold(hi, lo, hi, lo);
    return combine(_mm_cvtsi128_si32(sums), _mm_extract_epi32(sums, 1), shift);
  }

  // Two frames of one or two channels: the channels share each coefficient
  // load, and the (up to) four outputs share the reduction and the output
  // step, taken in 32-bit lanes as hq_state.h describes.
  template <int Channels>
  static void hq_frames(const int16_t *x0, const int16_t *x1, size_t line, const int16_t *c0,
                        const int16_t *c1, uint32_t taps, uint32_t shift, int16_t *y,
                        size_t frame_step) {
    // Accumulators by frame and channel: hi and lo sums.
    __m256i h00 = _mm256_setzero_si256(), h01 = h00, h10 = h00, h11 = h00;
    __m256i l00 = h00, l01 = h00, l10 = h00, l11 = h00;
    for (uint32_t t = 0; t < taps; t += 16) {
      const __m256i hi0 = load(c0 + t), lo0 = load(c0 + taps + t);
      const __m256i hi1 = load(c1 + t), lo1 = load(c1 + taps + t);
      __m256i x = load(x0 + t);
      h00 = _mm256_add_epi32(h00, _mm256_madd_epi16(x, hi0));
      l00 = _mm256_add_epi32(l00, _mm256_madd_epi16(x, lo0));
      x = load(x1 + t);
      h10 = _mm256_add_epi32(h10, _mm256_madd_epi16(x, hi1));
      l10 = _mm256_add_epi32(l10, _mm256_madd_epi16(x, lo1));
      if constexpr (Channels == 2) {
        x = load(x0 + line + t);
        h01 = _mm256_add_epi32(h01, _mm256_madd_epi16(x, hi0));
        l01 = _mm256_add_epi32(l01, _mm256_madd_epi16(x, lo0));
        x = load(x1 + line + t);
        h11 = _mm256_add_epi32(h11, _mm256_madd_epi16(x, hi1));
        l11 = _mm256_add_epi32(l11, _mm256_madd_epi16(x, lo1));
      }
    }
    // Lanes (frame 0 ch 0, frame 0 ch 1, frame 1 ch 0, frame 1 ch 1).
    const __m128i hi = fold(h00, h01, h10, h11), lo = fold(l00, l01, l10, l11);
    const __m128i lanes = hq_step_lanes(hi, lo, shift), v = _mm_packs_epi32(lanes, lanes);
    if constexpr (Channels == 2) {
      const int32_t f0 = _mm_cvtsi128_si32(v), f1 = _mm_extract_epi32(v, 1);
      std::memcpy(y, &f0, sizeof f0);
      std::memcpy(y + frame_step, &f1, sizeof f1);
    } else {
      const int16_t f0 = static_cast<int16_t>(_mm_extract_epi16(v, 0));
      const int16_t f1 = static_cast<int16_t>(_mm_extract_epi16(v, 2));
      y[0] = f0;
      y[frame_step] = f1;
    }
  }

  // Eight outputs of one phase for one or two channels, one per 32-bit lane:
  // each tap pair is one load of the eight lanes' sample pairs per channel
  // against a broadcast coefficient pair, for hi and for lo; no reduction.
  template <int Channels>
  static void hq_lanes(const int16_t *const *rows, size_t next, uint32_t m, uint32_t groups,
                       const int16_t *coef, uint32_t shift, int16_t *out) {
    __m256i h0 = _mm256_setzero_si256(), l0 = h0, h1 = h0, l1 = h0;
    const ptrdiff_t cstep = 4 * static_cast<ptrdiff_t>(m);
    for (uint32_t i = 0; i < m; ++i) {
      const int16_t *x = rows[i], *c = coef + 4 * i;
      for (uint32_t g = 0; g < groups; ++g, x -= 4, c += cstep) {
        const __m256i hi = _mm256_set1_epi32(pair(c)), lo = _mm256_set1_epi32(pair(c + 2));
        const __m256i v = load(x);
        h0 = _mm256_add_epi32(_mm256_madd_epi16(v, hi), h0);
        l0 = _mm256_add_epi32(_mm256_madd_epi16(v, lo), l0);
        if constexpr (Channels == 2) {
          const __m256i w = load(x + next);
          h1 = _mm256_add_epi32(_mm256_madd_epi16(w, hi), h1);
          l1 = _mm256_add_epi32(_mm256_madd_epi16(w, lo), l1);
        }
      }
    }
    lanes_step(h0, l0, shift, out);
    if constexpr (Channels == 2) lanes_step(h1, l1, shift, out + kHqLanes);
  }

 private:
  // hq_step_lanes at twice the width, eight outputs stored.
  static void lanes_step(__m256i hi, __m256i lo, uint32_t shift, int16_t *out) {
    const __m256i s = _mm256_add_epi32(
        hi, _mm256_sra_epi32(_mm256_add_epi32(lo, _mm256_set1_epi32(1 << (shift + kHqHiShift - 1))),
                             _mm_cvtsi32_si128(static_cast<int>(shift))));
    const __m256i y = _mm256_srai_epi32(s, kHqHiShift);
    const __m128i packed = _mm_packs_epi32(_mm256_castsi256_si128(y), _mm256_extracti128_si256(y, 1));
    _mm_storeu_si128(reinterpret_cast<__m128i *>(out), packed);
  }
  static int32_t pair(const int16_t *p) {
    int32_t v;
    std::memcpy(&v, p, sizeof v);
    return v;
  }
  static __m256i load(const int16_t *p) { return _mm256_loadu_si256(reinterpret_cast<const __m256i *>(p)); }
  // The totals of a, b, c, d's lanes, in that order.
  static __m128i fold(__m256i a, __m256i b, __m256i c, __m256i d) {
    const __m256i ab = _mm256_hadd_epi32(a, b), cd = _mm256_hadd_epi32(c, d);
    const __m256i abcd = _mm256_hadd_epi32(ab, cd);
    return _mm_add_epi32(_mm256_castsi256_si128(abcd), _mm256_extracti128_si256(abcd, 1));
  }
  static int64_t combine(int32_t hi, int32_t lo, uint32_t shift) {
    return static_cast<int64_t>(hi) * (int64_t{1} << shift) + lo;
  }
};

constexpr FirKernelSet kAvx2Set = make_kernel_set<Avx2Dot>("avx2");

}  // namespace

const FirKernelSet *fir_kernels_avx2() {
  return __builtin_cpu_supports("avx2") ? &kAvx2Set : nullptr;
}

}  // namespace rsmpl

#else

namespace rsmpl {
const FirKernelSet *fir_kernels_avx2() { return nullptr; }
}  // namespace rsmpl

#endif

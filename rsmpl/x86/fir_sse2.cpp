// SPDX-License-Identifier: MIT
// SSE2 build of the FIR kernels, the x86-64 baseline. Products come in pairs
// from pmaddwd; the 32-bit pair sums are accumulated only over runs of vectors
// whose taps cannot overflow 32 bits (worked out at compile time from the
// tables) and then widened to 64 bits, so the sum stays exact.
#include <emmintrin.h>

#include "rsmpl/fir/kernel.h"
#include "rsmpl/x86/fir_sse2.h"

namespace rsmpl {
namespace {

struct Sse2Dot {
  template <class Shape, int Taps>
  static int64_t dot(const int16_t *x, const int16_t *w) {
    constexpr int vectors = Taps / 8;
    constexpr int run = safe_run_vectors<Shape, 8>();
    __m128i acc = _mm_setzero_si128();
    for (int v0 = 0; v0 < vectors; v0 += run) {
      __m128i part = _mm_setzero_si128();
      for (int v = v0; v < v0 + run && v < vectors; ++v) {
        const __m128i xs = _mm_loadu_si128(reinterpret_cast<const __m128i *>(x + 8 * v));
        const __m128i ws = _mm_loadu_si128(reinterpret_cast<const __m128i *>(w + 8 * v));
        part = _mm_add_epi32(part, _mm_madd_epi16(xs, ws));
      }
      acc = _mm_add_epi64(acc, widen_pairs(part));
    }
    return finish_dot<Taps % 8>(acc, x, w, 8 * vectors);
  }

  static __m128i sum16(const int16_t *x, const int16_t *w) {
    return _mm_add_epi32(
        _mm_madd_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i *>(x)),
                       _mm_loadu_si128(reinterpret_cast<const __m128i *>(w))),
        _mm_madd_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i *>(x + 8)),
                       _mm_loadu_si128(reinterpret_cast<const __m128i *>(w + 8))));
  }

  // Short phases: all of a group's phases summed side by side and folded
  // together; long ones one inner product each.
  template <class Shape>
  static int32_t groups_at_once(const int16_t *in, int16_t *out, int32_t groups) {
    return four_groups_at_once<Shape>(in, out, groups);
  }

  template <class Shape>
  static void group(const int16_t *span, int16_t *dst) {
    if constexpr (fits_phase_parallel<Shape>()) {
      group_side_by_side<Shape, Sse2Dot>(span, dst);
    } else {
      group_per_phase<Shape, Sse2Dot>(span, dst);
    }
  }
};

constexpr FirKernels kSse2 = make_fir_kernels<Sse2Dot>();

}  // namespace

const FirKernels *fir_kernels_sse2() { return &kSse2; }

}  // namespace rsmpl


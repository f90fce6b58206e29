// SPDX-License-Identifier: MIT
// The one loop every FIR kernel runs: for each group, each phase's inner
// product over its span, then the output step. Only the inner product differs
// between the builds (fir/kernels_scalar.cpp, x86/fir_*.cpp, arm/fir_*.cpp);
// each of them includes this header with its own `Dot` and compiler flags.
//
// Everything here sits in an unnamed namespace on purpose: the header is
// compiled once per instruction set, and each translation unit must keep its
// own copies instead of letting the linker pick one built for another CPU.
#ifndef SKELDA_RSMPL_FIR_KERNEL_H
#define SKELDA_RSMPL_FIR_KERNEL_H

#include <cstdint>
#include <utility>

#include "rsmpl/fir/kernels.h"
#include "rsmpl/fir/shape.h"
#include "rsmpl/fixed.h"

namespace rsmpl {
namespace {

// Round half up, shift right by s, saturate to 16 bits.
template <int Shift>
inline int16_t output_step(int64_t sum) {
  return round_shift16(sum, Shift);
}

// The L outputs of one group, one inner product per phase, stored only once
// all of them are computed. Builds that can do better for some shapes
// provide their own `group`, with the same read-all-then-store order, and
// fall back to this one for the rest.
template <class Shape, class Dot, std::size_t... Phase>
inline void group_per_phase(const int16_t *span, int16_t *dst, std::index_sequence<Phase...>) {
  constexpr auto &layout = kPhaseLayout<Shape>;
  constexpr int taps = PhaseLayout<Shape>::kTaps;
  const int16_t y[Shape::L] = {output_step<Shape::kShift>(
      Dot::template dot<Shape, taps>(span + layout.phase[Phase].start, layout.phase[Phase].taps))...};
  for (int k = 0; k < Shape::L; ++k) dst[k] = y[k];
}

template <class Shape, class Dot>
inline void group_per_phase(const int16_t *span, int16_t *dst) {
  group_per_phase<Shape, Dot>(span, dst, std::make_index_sequence<Shape::L>{});
}

// G = n / M groups, L outputs each. All inputs of a group are read before any
// of its outputs is stored, so the stage drivers may overlap `out` with `in`
// as far as the kernels allow. A count below M (or negative) writes nothing.
template <class Shape, class Dot>
void fir_kernel(const int16_t *in, int16_t *out, int32_t n) {
  static_assert(kPhaseLayout<Shape>.valid, "phase spans must cover the prototype inside the buffer");
  if (n < Shape::M) return;
  const int32_t groups = n / Shape::M;
  // Builds that can convert several groups at once do so first; the groups
  // left over go one at a time.
  int32_t g = Dot::template groups_at_once<Shape>(in, out, groups);
  for (; g < groups; ++g)
    Dot::template group<Shape>(in + static_cast<std::ptrdiff_t>(g) * Shape::M,
                               out + static_cast<std::ptrdiff_t>(g) * Shape::L);
}

template <class Dot>
constexpr FirKernels make_fir_kernels() {
  return FirKernels{{fir_kernel<ShapeUp2, Dot>, fir_kernel<ShapeDown2, Dot>,
                     fir_kernel<ShapeUp3, Dot>, fir_kernel<ShapeDown3, Dot>,
                     fir_kernel<ShapeUp2To3, Dot>, fir_kernel<ShapeDown3To2, Dot>,
                     fir_kernel<ShapeUp4, Dot>, fir_kernel<ShapeDown4, Dot>,
                     fir_kernel<ShapeUp6, Dot>, fir_kernel<ShapeDown6, Dot>}};
}

}  // namespace
}  // namespace rsmpl

#endif

// SPDX-License-Identifier: MIT
// What every FIR kernel is: L outputs per M inputs from an N-tap symmetric
// prototype applied at offset c, output shift s. From these constants the
// per-phase tap vectors are derived at compile time, so the kernels and the
// plain general-form reference in the tests start from the same five numbers
// and the same table, and nothing is transcribed twice.
#ifndef SKELDA_RSMPL_FIR_SHAPE_H
#define SKELDA_RSMPL_FIR_SHAPE_H

#include <cstdint>

#include "rsmpl/fir/tables.h"

namespace rsmpl {

// How a table stores the prototype.
enum class TableOrder {
  kPrototype,       // P[0..N-1]
  kTriplesReversed  // every consecutive triple reversed (input-major 1:3)
};

template <int L_, int M_, int N_, int Shift_, int Offset_, const int16_t *Table_,
          TableOrder Order_ = TableOrder::kPrototype>
struct FirShape {
  static constexpr int L = L_;            // outputs per group
  static constexpr int M = M_;            // inputs per group
  static constexpr int N = N_;            // prototype length
  static constexpr int kShift = Shift_;   // output shift s
  static constexpr int kOffset = Offset_; // prototype index of in[0] for output 0
  // Samples in front of the first new one that the kernel reads.
  static constexpr int kHistory = (Offset_ - M_) / L_ + 1;
  static constexpr int kTapsPerOutput = N_ / L_;

  static constexpr int prototype(int k) {
    return Order_ == TableOrder::kPrototype ? Table_[k] : Table_[3 * (k / 3) + 2 - k % 3];
  }
};

using ShapeUp2 = FirShape<2, 1, 72, 15, 70, RsmplCoeff_2_1>;
using ShapeDown2 = FirShape<1, 2, 72, 16, 71, RsmplCoeff_2_1>;
using ShapeUp3 = FirShape<3, 1, 48, 15, 45, RsmplCoeff_1_3, TableOrder::kTriplesReversed>;
using ShapeDown3 = FirShape<1, 3, 48, 16, 47, RsmplCoeff_3_1>;
using ShapeUp2To3 = FirShape<3, 2, 45, 15, 45, RsmplCoeff_2_3>;
using ShapeDown3To2 = FirShape<2, 3, 30, 15, 29, RsmplCoeff_3_2>;
using ShapeUp4 = FirShape<4, 1, 64, 15, 60, RsmplCoeff_1_4>;
using ShapeDown4 = FirShape<1, 4, 64, 17, 63, RsmplCoeff_4_1>;
using ShapeUp6 = FirShape<6, 1, 96, 15, 90, RsmplCoeff_1_6>;
using ShapeDown6 = FirShape<1, 6, 96, 17, 95, RsmplCoeff_6_1>;

// Taps of every phase, rounded up to a multiple of 4 with zero taps so that
// the inner products need no odd tail. The padding goes in front when that
// stays inside the buffer (the 2-to-3 kernel's spans start past in[0]), else
// behind; either way the span stays within the history plus the group.
template <class Shape>
struct PhaseLayout {
  static constexpr int kTaps = (Shape::kTapsPerOutput + 3) / 4 * 4;
  struct Phase {
    int start;             // first input index read for output `phase` of group 0
    int16_t taps[kTaps];   // oldest sample first
  };
  Phase phase[Shape::L];
  bool valid;  // every span inside [0, history + M), every prototype tap used once
};

template <class Shape>
constexpr PhaseLayout<Shape> make_phase_layout() {
  PhaseLayout<Shape> layout{};
  layout.valid = true;
  constexpr int pad = PhaseLayout<Shape>::kTaps - Shape::kTapsPerOutput;
  int used = 0;
  for (int phi = 0; phi < Shape::L; ++phi) {
    // Output phi of group 0 reads in[i] with k = c + M*phi - L*i in 0..N-1.
    const int top = Shape::kOffset + Shape::M * phi;
    int first = 0;
    while (top - Shape::L * first > Shape::N - 1) ++first;
    int count = 0;
    for (int i = first; top - Shape::L * i >= 0; ++i) ++count;
    if (count != Shape::kTapsPerOutput) layout.valid = false;
    used += count;
    const bool front = first - pad >= 0;
    auto &p = layout.phase[phi];
    p.start = front ? first - pad : first;
    for (int t = 0; t < count; ++t)
      p.taps[(front ? pad : 0) + t] = static_cast<int16_t>(Shape::prototype(top - Shape::L * (first + t)));
    if (p.start + PhaseLayout<Shape>::kTaps > Shape::kHistory + Shape::M) layout.valid = false;
  }
  if (used != Shape::N) layout.valid = false;
  return layout;
}

template <class Shape>
inline constexpr PhaseLayout<Shape> kPhaseLayout = make_phase_layout<Shape>();

// Longest run of consecutive W-sample vectors whose pairwise 32-bit partial
// sums cannot overflow: a lane's partial is bounded by 32768 times the sum of
// the magnitudes of its taps, which must stay below 2^31.
template <class Shape, int W>
constexpr int safe_run_vectors() {
  constexpr auto &layout = kPhaseLayout<Shape>;
  constexpr int vectors = PhaseLayout<Shape>::kTaps / W;
  for (int run = vectors; run > 1; --run) {
    bool ok = true;
    for (int phi = 0; phi < Shape::L; ++phi)
      for (int v0 = 0; v0 < vectors; v0 += run)
        for (int lane = 0; lane < W / 2; ++lane) {
          int64_t sum = 0;
          for (int v = v0; v < v0 + run && v < vectors; ++v)
            for (int h = 0; h < 2; ++h) {
              const int w = layout.phase[phi].taps[v * W + 2 * lane + h];
              sum += w < 0 ? -w : w;
            }
          if (sum * 32768 > INT32_MAX) ok = false;
        }
    if (ok) return run;
  }
  return 1;
}

// Whether the SIMD builds may sum a group's phases side by side: every phase
// spans 16 taps, and the 32-bit partial sums of 4 taps (one lane after the
// multiplies) and of 8 taps (two lanes folded) cannot overflow. Only the
// final fold to a full sum may, and that one saturates.
template <class Shape>
constexpr bool fits_phase_parallel() {
  if (PhaseLayout<Shape>::kTaps != 16) return false;
  constexpr auto &layout = kPhaseLayout<Shape>;
  for (int phi = 0; phi < Shape::L; ++phi) {
    for (int lane = 0; lane < 2; ++lane) {
      int64_t folded = 0;  // lanes `lane` and `lane + 2`
      for (int quarter : {lane, lane + 2}) {
        int64_t sum = 0;
        for (int t : {2 * quarter, 2 * quarter + 1, 2 * quarter + 8, 2 * quarter + 9}) {
          const int w = layout.phase[phi].taps[t];
          sum += w < 0 ? -w : w;
        }
        if (sum * 32768 > INT32_MAX) return false;
        folded += sum;
      }
      if (folded * 32768 > INT32_MAX) return false;
    }
  }
  return true;
}

}  // namespace rsmpl

#endif

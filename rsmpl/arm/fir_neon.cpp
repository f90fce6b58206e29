// SPDX-License-Identifier: MIT
// NEON build of the FIR kernels, for 64-bit ARM (always there) and 32-bit
// ARM (the arm/*_neon.cpp files alone are compiled with -mfpu=neon there, and
// only used when the kernel reports NEON in the auxiliary vector).
//
// One inner product: products of four taps at a time accumulate in the four
// 32-bit lanes of a vmlal_s16 over runs of taps that cannot overflow a lane
// (worked out at compile time from the tables), then vpadal widens each run
// into two 64-bit lanes, so the sum stays exact.
//
// Eight groups at once, for M of 1 to 4: lane j of every vector holds group
// j's sample for one tap (vld1q for M = 1, vld2q..vld4q deinterleave the
// others), so each tap is one multiply-accumulate by a lane of the weight
// vector per four groups. A lane holds one output's partial sums, the taps
// dealt over as few accumulators as keep each within 32 bits; the output
// step rounds, shifts and saturates in vector registers.
#include <arm_neon.h>

#include "rsmpl/fir/kernel.h"

namespace rsmpl {
namespace {

constexpr int64_t kLaneLimit = INT32_MAX;

// Longest run of consecutive 4-tap blocks over which lane j (taps 4b + j)
// cannot leave 32 bits in any phase: 32768 times the sum of the magnitudes of
// its taps stays at or below INT32_MAX.
template <class Shape>
constexpr int lane_run_blocks() {
  constexpr auto &layout = kPhaseLayout<Shape>;
  constexpr int blocks = PhaseLayout<Shape>::kTaps / 4;
  for (int run = blocks; run > 1; --run) {
    bool ok = true;
    for (int phi = 0; phi < Shape::L; ++phi)
      for (int b0 = 0; b0 < blocks; b0 += run)
        for (int lane = 0; lane < 4; ++lane) {
          int64_t sum = 0;
          for (int b = b0; b < b0 + run && b < blocks; ++b) {
            const int w = layout.phase[phi].taps[4 * b + lane];
            sum += w < 0 ? -w : w;
          }
          if (sum * 32768 > kLaneLimit) ok = false;
        }
    if (ok) return run;
  }
  return 1;
}

// Fewest accumulators A such that, in the batched groups, the taps t with
// t % A == a summed into accumulator a cannot leave 32 bits in any phase.
template <class Shape>
constexpr int accumulator_classes() {
  constexpr auto &layout = kPhaseLayout<Shape>;
  constexpr int taps = PhaseLayout<Shape>::kTaps;
  for (int classes = 1; classes < taps; ++classes) {
    bool ok = true;
    for (int phi = 0; phi < Shape::L; ++phi)
      for (int a = 0; a < classes; ++a) {
        int64_t sum = 0;
        for (int t = a; t < taps; t += classes) {
          const int w = layout.phase[phi].taps[t];
          sum += w < 0 ? -w : w;
        }
        if (sum * 32768 > kLaneLimit) ok = false;
      }
    if (ok) return classes;
  }
  return taps;
}

// Each phase's taps padded with zeros to whole 8-tap vectors.
template <class Shape>
struct PaddedTaps {
  static constexpr int kWidth = (PhaseLayout<Shape>::kTaps + 7) / 8 * 8;
  int16_t w[Shape::L][kWidth];
};
template <class Shape>
constexpr PaddedTaps<Shape> make_padded_taps() {
  PaddedTaps<Shape> padded{};
  for (int phi = 0; phi < Shape::L; ++phi)
    for (int t = 0; t < PhaseLayout<Shape>::kTaps; ++t)
      padded.w[phi][t] = kPhaseLayout<Shape>.phase[phi].taps[t];
  return padded;
}
template <class Shape>
inline constexpr PaddedTaps<Shape> kPaddedTaps = make_padded_taps<Shape>();

// The output step on 32-bit totals: the rounding shift cannot overflow (the
// rounding constant is added at full precision), the narrowing saturates.
template <int Shift>
inline int16x4_t step32(int32x4_t totals) {
  return vqmovn_s32(vrshrq_n_s32(totals, Shift));
}

// The same on 64-bit totals, two lanes each.
template <int Shift>
inline int16x4_t step64(int64x2_t a, int64x2_t b) {
  return vqmovn_s32(vcombine_s32(vqmovn_s64(vrshrq_n_s64(a, Shift)),
                                 vqmovn_s64(vrshrq_n_s64(b, Shift))));
}

// Lanes j = 0..7 of tap t of a batch whose first group's span starts at p:
// the samples p[t + M j]. Taps come in blocks of M, one deinterleaving load
// each; `Load` is that load.
template <int M>
struct BlockLoad;
template <>
struct BlockLoad<1> {
  int16x8_t val[1];
  explicit BlockLoad(const int16_t *p) : val{vld1q_s16(p)} {}
};
template <>
struct BlockLoad<2> {
  int16x8_t val[2];
  explicit BlockLoad(const int16_t *p) {
    const int16x8x2_t v = vld2q_s16(p);
    val[0] = v.val[0], val[1] = v.val[1];
  }
};
template <>
struct BlockLoad<3> {
  int16x8_t val[3];
  explicit BlockLoad(const int16_t *p) {
    const int16x8x3_t v = vld3q_s16(p);
    val[0] = v.val[0], val[1] = v.val[1], val[2] = v.val[2];
  }
};
template <>
struct BlockLoad<4> {
  int16x8_t val[4];
  explicit BlockLoad(const int16_t *p) {
    const int16x8x4_t v = vld4q_s16(p);
    val[0] = v.val[0], val[1] = v.val[1], val[2] = v.val[2], val[3] = v.val[3];
  }
};

template <class Shape>
constexpr bool batches_eight_groups() {
  return Shape::M <= 4;
}

// A block load past the last tap of a phase reads up to M - 1 samples past
// the span of the batch's last group: then one more group must follow.
template <class Shape>
constexpr int batch_overread_groups() {
  return PhaseLayout<Shape>::kTaps % Shape::M != 0 ? 1 : 0;
}

// Tap T of phase Phi on eight groups (x: lane j is group j's sample), into
// accumulator T % A: a multiply by one lane of the weight vector.
template <class Shape, int Phi, int T, int A>
inline void mac_tap(int16x8_t x, int32x4_t *lo, int32x4_t *hi) {
  if constexpr (T < PhaseLayout<Shape>::kTaps) {
    const int16x8_t w = vld1q_s16(kPaddedTaps<Shape>.w[Phi] + 8 * (T / 8));
    constexpr int a = T % A;
#if defined(__aarch64__)
    lo[a] = vmlal_laneq_s16(lo[a], vget_low_s16(x), w, T % 8);
    hi[a] = vmlal_high_laneq_s16(hi[a], x, w, T % 8);
#else
    const int16x4_t half = T % 8 < 4 ? vget_low_s16(w) : vget_high_s16(w);
    lo[a] = vmlal_lane_s16(lo[a], vget_low_s16(x), half, T % 4);
    hi[a] = vmlal_lane_s16(hi[a], vget_high_s16(x), half, T % 4);
#endif
  }
}

template <class Shape, int Phi, int A, int B, std::size_t... K>
inline void mac_block(const int16_t *p, int32x4_t *lo, int32x4_t *hi, std::index_sequence<K...>) {
  const BlockLoad<Shape::M> x(p + B * Shape::M);
  (mac_tap<Shape, Phi, B * Shape::M + static_cast<int>(K), A>(x.val[K], lo, hi), ...);
}

template <class Shape, int Phi, int A, std::size_t... B>
inline void mac_blocks(const int16_t *p, int32x4_t *lo, int32x4_t *hi, std::index_sequence<B...>) {
  (mac_block<Shape, Phi, A, static_cast<int>(B)>(p, lo, hi, std::make_index_sequence<Shape::M>{}), ...);
}

// One phase's outputs of eight groups as 16-bit lanes. With one or two
// accumulators the totals stay in 32 bits (two join with a saturating add:
// a total past the int32 range saturates the output anyway); more are
// widened to 64 bits and added there.
template <class Shape, int Phi>
inline int16x8_t batch_phase(const int16_t *span) {
  constexpr int A = accumulator_classes<Shape>();
  constexpr int blocks = (PhaseLayout<Shape>::kTaps + Shape::M - 1) / Shape::M;
  constexpr int shift = Shape::kShift;
  int32x4_t lo[A], hi[A];
  for (int a = 0; a < A; ++a) lo[a] = hi[a] = vdupq_n_s32(0);
  mac_blocks<Shape, Phi, A>(span + kPhaseLayout<Shape>.phase[Phi].start, lo, hi,
                            std::make_index_sequence<blocks>{});
  if constexpr (A == 1) {
    return vcombine_s16(step32<shift>(lo[0]), step32<shift>(hi[0]));
  } else if constexpr (A == 2) {
    return vcombine_s16(step32<shift>(vqaddq_s32(lo[0], lo[1])),
                        step32<shift>(vqaddq_s32(hi[0], hi[1])));
  } else {
    int64x2_t acc[4] = {vmovl_s32(vget_low_s32(lo[0])), vmovl_s32(vget_high_s32(lo[0])),
                        vmovl_s32(vget_low_s32(hi[0])), vmovl_s32(vget_high_s32(hi[0]))};
    for (int a = 1; a < A; ++a) {
      acc[0] = vaddw_s32(acc[0], vget_low_s32(lo[a]));
      acc[1] = vaddw_s32(acc[1], vget_high_s32(lo[a]));
      acc[2] = vaddw_s32(acc[2], vget_low_s32(hi[a]));
      acc[3] = vaddw_s32(acc[3], vget_high_s32(hi[a]));
    }
    return vcombine_s16(step64<shift>(acc[0], acc[1]), step64<shift>(acc[2], acc[3]));
  }
}

// y[phi] holds phase phi's outputs of eight groups; dst receives them group
// by group, phase by phase.
template <int L>
inline void store_interleaved(const int16x8_t *y, int16_t *dst) {
  if constexpr (L == 1) {
    vst1q_s16(dst, y[0]);
  } else if constexpr (L == 2) {
    vst2q_s16(dst, (int16x8x2_t{{y[0], y[1]}}));
  } else if constexpr (L == 3) {
    vst3q_s16(dst, (int16x8x3_t{{y[0], y[1], y[2]}}));
  } else if constexpr (L == 4) {
    vst4q_s16(dst, (int16x8x4_t{{y[0], y[1], y[2], y[3]}}));
#if defined(__aarch64__)
  } else if constexpr (L == 6) {
    // Phases paired into 32-bit words, then three words a group.
    const int16x8x2_t a = vzipq_s16(y[0], y[1]), b = vzipq_s16(y[2], y[3]), c = vzipq_s16(y[4], y[5]);
    for (int half = 0; half < 2; ++half)
      vst3q_s32(reinterpret_cast<int32_t *>(dst + 24 * half),
                (int32x4x3_t{{vreinterpretq_s32_s16(a.val[half]), vreinterpretq_s32_s16(b.val[half]),
                              vreinterpretq_s32_s16(c.val[half])}}));
#endif
  } else {
    int16_t lanes[L][8];
    for (int phi = 0; phi < L; ++phi) vst1q_s16(lanes[phi], y[phi]);
    for (int j = 0; j < 8; ++j)
      for (int phi = 0; phi < L; ++phi) dst[j * L + phi] = lanes[phi][j];
  }
}

template <class Shape, std::size_t... Phi>
inline void batch_eight(const int16_t *span, int16_t *dst, std::index_sequence<Phi...>) {
  // Every input of the batch is read before anything is stored.
  const int16x8_t y[Shape::L] = {batch_phase<Shape, static_cast<int>(Phi)>(span)...};
  store_interleaved<Shape::L>(y, dst);
}

struct NeonDot {
  template <class Shape, int Taps>
  static int64_t dot(const int16_t *x, const int16_t *w) {
    static_assert(Taps % 4 == 0, "spans are padded to a multiple of 4");
    constexpr int blocks = Taps / 4;
    constexpr int run = lane_run_blocks<Shape>();
    int64x2_t acc = vdupq_n_s64(0);
    for (int b0 = 0; b0 < blocks; b0 += run) {
      const int end = b0 + run < blocks ? b0 + run : blocks;
      int32x4_t part = vdupq_n_s32(0);
      int b = b0;
      for (; b + 2 <= end; b += 2) {  // two blocks per load, same lanes
        const int16x8_t xs = vld1q_s16(x + 4 * b), ws = vld1q_s16(w + 4 * b);
        part = vmlal_s16(part, vget_low_s16(xs), vget_low_s16(ws));
        part = vmlal_s16(part, vget_high_s16(xs), vget_high_s16(ws));
      }
      if (b < end) part = vmlal_s16(part, vld1_s16(x + 4 * b), vld1_s16(w + 4 * b));
      acc = vpadalq_s32(acc, part);
    }
    return vgetq_lane_s64(acc, 0) + vgetq_lane_s64(acc, 1);
  }

  template <class Shape>
  static int32_t groups_at_once(const int16_t *in, int16_t *out, int32_t groups) {
    if constexpr (batches_eight_groups<Shape>()) {
      int32_t g = 0;
      for (; g + 8 + batch_overread_groups<Shape>() <= groups; g += 8)
        batch_eight<Shape>(in + static_cast<std::ptrdiff_t>(g) * Shape::M,
                           out + static_cast<std::ptrdiff_t>(g) * Shape::L,
                           std::make_index_sequence<Shape::L>{});
      return g;
    } else {
      (void)in, (void)out, (void)groups;
      return 0;
    }
  }

  template <class Shape>
  static void group(const int16_t *span, int16_t *dst) {
    group_per_phase<Shape, NeonDot>(span, dst);
  }
};

constexpr FirKernels kNeon = make_fir_kernels<NeonDot>();

}  // namespace

const FirKernels *fir_kernels_neon() { return &kNeon; }

}  // namespace rsmpl


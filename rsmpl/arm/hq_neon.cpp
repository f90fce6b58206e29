// SPDX-License-Identifier: MIT
// NEON build of the high-quality resampler's kernels, for 64-bit ARM and for
// 32-bit ARM with NEON: vmlal products summed in 32-bit lanes, which the
// coefficients are sized for (hq/state.h). The small ratios' lane loops are
// inline assembly (see lane_sums); on 64-bit ARM the decimating designs
// fold (folded_sums); stereo pair rows fill four frames at a time (row).
#include <arm_neon.h>

#include <utility>

#include "rsmpl/hq/kernel.h"

namespace rsmpl {
namespace {

// The four lanes summed modulo 2^32: exact when the total fits 32 bits.
inline int32_t sum_lanes(int32x4_t v) {
#if defined(__aarch64__)
  return vaddvq_s32(v);
#else
  const int32x2_t pair = vadd_s32(vget_low_s32(v), vget_high_s32(v));
  return vget_lane_s32(vpadd_s32(pair, pair), 0);
#endif
}

// The lane kernel's inner loop over `n` tap pairs of one row: each pass
// loads the pair's coefficients (hi, hi, lo, lo) and, per channel, the eight
// lanes' sample pairs split into first and second samples, and adds the
// sixteen products into the sums of lanes 0-3 (a) and 4-7 (b); the sample
// pointers step back two pairs, the coefficients on by one pair. Assembly,
// because GCC 12 given the same loop in intrinsics moves the split pairs
// between registers on every pass.
struct LaneSums {
  int32x4_t ha, hb, la, lb;
};

#if defined(__aarch64__)
// First samples in F (all eight lanes), second in G.
#define HQ_LANE_MACS(S, F, G)                                   \
  "smlal  %[" S "ha].4s, " F ".4h, %[cv].h[0]\n\t"              \
  "smlal  %[" S "la].4s, " F ".4h, %[cv].h[2]\n\t"              \
  "smlal2 %[" S "hb].4s, " F ".8h, %[cv].h[0]\n\t"              \
  "smlal2 %[" S "lb].4s, " F ".8h, %[cv].h[2]\n\t"              \
  "smlal  %[" S "ha].4s, " G ".4h, %[cv].h[1]\n\t"              \
  "smlal  %[" S "la].4s, " G ".4h, %[cv].h[3]\n\t"              \
  "smlal2 %[" S "hb].4s, " G ".8h, %[cv].h[1]\n\t"              \
  "smlal2 %[" S "lb].4s, " G ".8h, %[cv].h[3]\n\t"
#define HQ_LANE_COEF "ldr %d[cv], [%[c]], #8\n\t"
#define HQ_LANE_LOAD(P, R) "ld2 {" R "}, [%[" P "]], %[back]\n\t"
#define HQ_LANE_NEXT "subs %w[n], %w[n], #1\n\tb.ne 1b\n\t"
#define HQ_LANE_X HQ_LANE_LOAD("x", "v28.8h, v29.8h") 
#define HQ_LANE_Y HQ_LANE_LOAD("y", "v30.8h, v31.8h")
#define HQ_LANE_X_MACS HQ_LANE_MACS("x", "v28", "v29")
#define HQ_LANE_Y_MACS HQ_LANE_MACS("y", "v30", "v31")
#define HQ_LANE_CLOBBERS "v28", "v29", "v30", "v31", "cc", "memory"
#else
// First samples of lanes 0-3 and 4-7 in FA and FB, second in GA and GB.
#define HQ_LANE_MACS(S, FA, FB, GA, GB)                         \
  "vmlal.s16 %q[" S "ha], " FA ", %P[cv][0]\n\t"                \
  "vmlal.s16 %q[" S "la], " FA ", %P[cv][2]\n\t"                \
  "vmlal.s16 %q[" S "hb], " FB ", %P[cv][0]\n\t"                \
  "vmlal.s16 %q[" S "lb], " FB ", %P[cv][2]\n\t"                \
  "vmlal.s16 %q[" S "ha], " GA ", %P[cv][1]\n\t"                \
  "vmlal.s16 %q[" S "la], " GA ", %P[cv][3]\n\t"                \
  "vmlal.s16 %q[" S "hb], " GB ", %P[cv][1]\n\t"                \
  "vmlal.s16 %q[" S "lb], " GB ", %P[cv][3]\n\t"
#define HQ_LANE_COEF "vld1.16 {%P[cv]}, [%[c]]!\n\t"
#define HQ_LANE_LOAD(P, R) "vld2.16 {" R "}, [%[" P "]], %[back]\n\t"
#define HQ_LANE_NEXT "subs %[n], %[n], #1\n\tbne 1b\n\t"
#define HQ_LANE_X HQ_LANE_LOAD("x", "d24-d27")
#define HQ_LANE_Y HQ_LANE_LOAD("y", "d28-d31")
#define HQ_LANE_X_MACS HQ_LANE_MACS("x", "d24", "d25", "d26", "d27")
#define HQ_LANE_Y_MACS HQ_LANE_MACS("y", "d28", "d29", "d30", "d31")
#define HQ_LANE_CLOBBERS "d24", "d25", "d26", "d27", "d28", "d29", "d30", "d31", "cc", "memory"
#endif

// One channel: `x` its sums, x its first pair's samples.
inline void lane_sums(LaneSums &xs, const int16_t *&x, const int16_t *&c, uint32_t n) {
  int16x4_t cv;
  asm("1:\n\t" HQ_LANE_COEF HQ_LANE_X HQ_LANE_X_MACS HQ_LANE_NEXT
      : [xha] "+w"(xs.ha), [xhb] "+w"(xs.hb), [xla] "+w"(xs.la), [xlb] "+w"(xs.lb), [x] "+r"(x),
        [c] "+r"(c), [n] "+r"(n), [cv] "=&x"(cv)
      : [back] "r"(ptrdiff_t{-8})
      : HQ_LANE_CLOBBERS);
}

// Two channels sharing the coefficients: x and y their first pairs.
inline void lane_sums(LaneSums &xs, LaneSums &ys, const int16_t *&x, const int16_t *&y,
                      const int16_t *&c, uint32_t n) {
  int16x4_t cv;
  asm("1:\n\t" HQ_LANE_COEF HQ_LANE_X HQ_LANE_Y HQ_LANE_X_MACS HQ_LANE_Y_MACS HQ_LANE_NEXT
      : [xha] "+w"(xs.ha), [xhb] "+w"(xs.hb), [xla] "+w"(xs.la), [xlb] "+w"(xs.lb),
        [yha] "+w"(ys.ha), [yhb] "+w"(ys.hb), [yla] "+w"(ys.la), [ylb] "+w"(ys.lb), [x] "+r"(x),
        [y] "+r"(y), [c] "+r"(c), [n] "+r"(n), [cv] "=&x"(cv)
      : [back] "r"(ptrdiff_t{-8})
      : HQ_LANE_CLOBBERS);
}

#if defined(__aarch64__)
// The folded lane loop (hq/state.h: a decimating design that folds): each
// pass takes the tap pair (b, b + M) from p and the mirrored pair (A - b -
// M, A - b) from q, adds each sample to its mirror in 32 bits and multiplies
// the sums by the pair's coefficients widened to 32 bits, four taps of
// eight lanes in twelve instructions where vmlal takes sixteen; p steps
// back two pairs, q on two. The sums wrap as the unfolded ones may.
#define HQ_FOLD_MACS(S, P0, P1, Q0, Q1, A, B, C, D)            \
  "saddl  " A ".4s, " P0 ".4h, " Q1 ".4h\n\t"                  \
  "saddl2 " B ".4s, " P0 ".8h, " Q1 ".8h\n\t"                  \
  "saddl  " C ".4s, " P1 ".4h, " Q0 ".4h\n\t"                  \
  "saddl2 " D ".4s, " P1 ".8h, " Q0 ".8h\n\t"                  \
  "mla %[" S "ha].4s, " A ".4s, %[cw].s[0]\n\t"                \
  "mla %[" S "la].4s, " A ".4s, %[cw].s[2]\n\t"                \
  "mla %[" S "hb].4s, " B ".4s, %[cw].s[0]\n\t"                \
  "mla %[" S "lb].4s, " B ".4s, %[cw].s[2]\n\t"                \
  "mla %[" S "ha].4s, " C ".4s, %[cw].s[1]\n\t"                \
  "mla %[" S "la].4s, " C ".4s, %[cw].s[3]\n\t"                \
  "mla %[" S "hb].4s, " D ".4s, %[cw].s[1]\n\t"                \
  "mla %[" S "lb].4s, " D ".4s, %[cw].s[3]\n\t"
#define HQ_FOLD_COEF "ldr %d[cw], [%[c]], #8\n\tsxtl %[cw].4s, %[cw].4h\n\t"
#define HQ_FOLD_X                                                \
  "ld2 {v24.8h, v25.8h}, [%[xp]], %[back]\n\t"                   \
  "ld2 {v26.8h, v27.8h}, [%[xq]], %[on]\n\t"
#define HQ_FOLD_Y                                                \
  "ld2 {v16.8h, v17.8h}, [%[yp]], %[back]\n\t"                   \
  "ld2 {v18.8h, v19.8h}, [%[yq]], %[on]\n\t"
#define HQ_FOLD_NEXT "cmp %[c], %[end]\n\tb.ne 1b\n\t"
#define HQ_FOLD_X_MACS HQ_FOLD_MACS("x", "v24", "v25", "v26", "v27", "v28", "v29", "v30", "v31")
#define HQ_FOLD_Y_MACS HQ_FOLD_MACS("y", "v16", "v17", "v18", "v19", "v20", "v21", "v22", "v23")

inline void folded_sums(LaneSums &xs, const int16_t *xp, const int16_t *xq, const int16_t *c, uint32_t n) {
  int32x4_t cw;
  const int16_t *end = c + 4 * static_cast<size_t>(n);
  asm("1:\n\t" HQ_FOLD_COEF HQ_FOLD_X HQ_FOLD_X_MACS HQ_FOLD_NEXT
      : [xha] "+w"(xs.ha), [xhb] "+w"(xs.hb), [xla] "+w"(xs.la), [xlb] "+w"(xs.lb), [xp] "+r"(xp),
        [xq] "+r"(xq), [c] "+r"(c), [cw] "=&w"(cw)
      : [back] "r"(ptrdiff_t{-8}), [on] "r"(ptrdiff_t{8}), [end] "r"(end)
      : "v24", "v25", "v26", "v27", "v28", "v29", "v30", "v31", "cc", "memory");
}

inline void folded_sums(LaneSums &xs, LaneSums &ys, const int16_t *xp, const int16_t *xq, size_t next,
                        const int16_t *c, uint32_t n) {
  int32x4_t cw;
  const int16_t *yp = xp + next, *yq = xq + next, *end = c + 4 * static_cast<size_t>(n);
  asm("1:\n\t" HQ_FOLD_COEF HQ_FOLD_X HQ_FOLD_Y HQ_FOLD_X_MACS HQ_FOLD_Y_MACS HQ_FOLD_NEXT
      : [xha] "+w"(xs.ha), [xhb] "+w"(xs.hb), [xla] "+w"(xs.la), [xlb] "+w"(xs.lb),
        [yha] "+w"(ys.ha), [yhb] "+w"(ys.hb), [yla] "+w"(ys.la), [ylb] "+w"(ys.lb), [xp] "+r"(xp),
        [xq] "+r"(xq), [yp] "+r"(yp), [yq] "+r"(yq), [c] "+r"(c), [cw] "=&w"(cw)
      : [back] "r"(ptrdiff_t{-8}), [on] "r"(ptrdiff_t{8}), [end] "r"(end)
      : "v16", "v17", "v18", "v19", "v20", "v21", "v22", "v23", "v24", "v25", "v26", "v27", "v28",
        "v29", "v30", "v31", "cc", "memory");
}
#endif

struct NeonDot {
  // Both sums stay in 32-bit lanes: the coefficients are sized for that, and
  // lanes that wrap on the way still add up to the exact total.
  static int64_t dot(const int16_t *x, const int16_t *coef, uint32_t taps, uint32_t shift) {
    int32x4_t hi0 = vdupq_n_s32(0), hi1 = hi0, lo0 = hi0, lo1 = hi0;
    for (uint32_t t = 0; t < taps; t += 8) {
      const int16x8_t xs = vld1q_s16(x + t);
      const int16x8_t h = vld1q_s16(coef + t), l = vld1q_s16(coef + taps + t);
      hi0 = vmlal_s16(hi0, vget_low_s16(xs), vget_low_s16(h));
      hi1 = vmlal_s16(hi1, vget_high_s16(xs), vget_high_s16(h));
      lo0 = vmlal_s16(lo0, vget_low_s16(xs), vget_low_s16(l));
      lo1 = vmlal_s16(lo1, vget_high_s16(xs), vget_high_s16(l));
    }
    const int32_t hi = sum_lanes(vaddq_s32(hi0, hi1)), lo = sum_lanes(vaddq_s32(lo0, lo1));
    return static_cast<int64_t>(hi) * (int64_t{1} << shift) + lo;
  }

  // Two frames of one or two channels: the channels share each coefficient
  // load, the outputs one reduction and output step, taken in 32-bit lanes
  // as hq/state.h describes (lanes that wrap still add up exactly). Every
  // accumulator is a named register: arrays of them end up in memory.
  template <int Channels>
  static void frames(const int16_t *x0, const int16_t *x1, size_t line, const int16_t *c0,
                     const int16_t *c1, uint32_t taps, uint32_t shift, int16_t *y, size_t frame_step) {
    int32x4_t h00 = vdupq_n_s32(0), h01 = h00, h10 = h00, h11 = h00;  // hi sums by frame, channel
    int32x4_t l00 = h00, l01 = h00, l10 = h00, l11 = h00;              // lo sums
    const int16_t *x01 = x0 + line, *x11 = x1 + line;
    for (uint32_t t = 0; t < taps; t += 8) {
      const int16x8_t hi0 = vld1q_s16(c0 + t), lo0 = vld1q_s16(c0 + taps + t);
      const int16x8_t hi1 = vld1q_s16(c1 + t), lo1 = vld1q_s16(c1 + taps + t);
      int16x8_t v = vld1q_s16(x0 + t);
      h00 = mla8(h00, v, hi0);
      l00 = mla8(l00, v, lo0);
      v = vld1q_s16(x1 + t);
      h10 = mla8(h10, v, hi1);
      l10 = mla8(l10, v, lo1);
      if constexpr (Channels == 2) {
        v = vld1q_s16(x01 + t);
        h01 = mla8(h01, v, hi0);
        l01 = mla8(l01, v, lo0);
        v = vld1q_s16(x11 + t);
        h11 = mla8(h11, v, hi1);
        l11 = mla8(l11, v, lo1);
      }
    }
    // Lanes (frame 0 ch 0, frame 0 ch 1, frame 1 ch 0, frame 1 ch 1).
    const int16x4_t out = step(fold4(h00, h01, h10, h11), fold4(l00, l01, l10, l11), shift);
    if constexpr (Channels == 2) {
      vst1_lane_s32(reinterpret_cast<int32_t *>(y), vreinterpret_s32_s16(out), 0);
      vst1_lane_s32(reinterpret_cast<int32_t *>(y + frame_step), vreinterpret_s32_s16(out), 1);
    } else {
      vst1_lane_s16(y, out, 0);
      vst1_lane_s16(y + frame_step, out, 2);
    }
  }

  // Eight outputs of one phase for one or two channels, four per register,
  // row by row through lane_sums.
  template <int Channels>
  static void lanes(const int16_t *const *rows, size_t at, size_t next, uint32_t m,
                    uint32_t groups, const int16_t *coef, uint32_t shift, int16_t *out, size_t out_step) {
    const int32x4_t zero = vdupq_n_s32(0);
    LaneSums s0{zero, zero, zero, zero}, s1 = s0;
    const int16_t *c = coef;
    for (uint32_t i = 0; i < m; ++i) {
      const int16_t *x = rows[i] + at, *y = x + next;
      if constexpr (Channels == 2)
        lane_sums(s0, s1, x, y, c, groups);
      else
        lane_sums(s0, x, c, groups);
    }
    finish<Channels>(s0, s1, shift, out, out_step);
  }

#if defined(__aarch64__)
  static constexpr bool kFolds = true;
  // The lane kernel for a design that folds (A = 2 M groups active taps):
  // rows i and M - i (row 0 with itself, one pair on) meet in folded_sums,
  // G / 2 pair groups each, then the centre tap A / 2 alone.
  template <int Channels>
  static void folded(const int16_t *const *rows, size_t at, size_t next, uint32_t m,
                     uint32_t groups, const int16_t *coef, uint32_t shift, int16_t *out, size_t out_step) {
    const int32x4_t zero = vdupq_n_s32(0);
    LaneSums s0{zero, zero, zero, zero}, s1 = s0;
    const uint32_t half = groups / 2;
    for (uint32_t i = 0; i < m; ++i) {
      const int16_t *p = rows[i] + at, *q = (i == 0 ? rows[0] - 2 : rows[m - i]) + at - 4 * (groups - 1);
      const int16_t *c = coef + 4 * static_cast<size_t>(i) * groups;
      if constexpr (Channels == 2)
        folded_sums(s0, s1, p, q, next, c, half);
      else
        folded_sums(s0, p, q, c, half);
    }
    const int16_t *centre = rows[0] + at - 2 * static_cast<size_t>(groups), *cc = coef + 4 * half;
    centre_mla(s0, vld2q_s16(centre).val[0], cc[0], cc[2]);
    if constexpr (Channels == 2) centre_mla(s1, vld2q_s16(centre + next).val[0], cc[0], cc[2]);
    finish<Channels>(s0, s1, shift, out, out_step);
  }
#else
  static constexpr bool kFolds = false;
#endif

  // A row of two channels four frames at a time when the frames are 32-bit
  // words: each word holds both channels' samples, the words one frame
  // earlier in the row come from one ext, and trn splits the two channels'
  // pairs apart. Other rows as the plain build takes them.
  template <int Channels>
  static void row(int16_t *pair, size_t next, const int16_t *x, size_t step, uint32_t count, int16_t b0,
                  int16_t b1) {
    if (Channels == 2 && (reinterpret_cast<uintptr_t>(x) | (2 * step)) % 4 == 0 && count >= 4) {
      int16x8_t before = vcombine_s16(vdup_n_s16(0), vcreate_s16(
          static_cast<uint64_t>(static_cast<uint16_t>(b0)) << 32 | static_cast<uint64_t>(static_cast<uint16_t>(b1)) << 48));
      const int32_t *w = reinterpret_cast<const int32_t *>(x);
      const size_t words = step / 2;
      for (; count >= 4; count -= 4, pair += 8) {
        int32x4_t v = vreinterpretq_s32_s16(before);
        v = vld1q_lane_s32(w, v, 0);
        v = vld1q_lane_s32(w + words, v, 1);
        v = vld1q_lane_s32(w + 2 * words, v, 2);
        v = vld1q_lane_s32(w + 3 * words, v, 3);
        w += 4 * words;
        const int16x8_t now = vreinterpretq_s16_s32(v);
        const int16x8_t then = vreinterpretq_s16_s32(vextq_s32(vreinterpretq_s32_s16(before), v, 3));
#if defined(__aarch64__)
        vst1q_s16(pair, vtrn1q_s16(now, then));
        vst1q_s16(pair + next, vtrn2q_s16(now, then));
#else
        const int16x8x2_t t = vtrnq_s16(now, then);
        vst1q_s16(pair, t.val[0]);
        vst1q_s16(pair + next, t.val[1]);
#endif
        before = now;
      }
      x = reinterpret_cast<const int16_t *>(w);
      b0 = vgetq_lane_s16(before, 6);
      b1 = vgetq_lane_s16(before, 7);
    }
    hq_row_plain<Channels>(pair, next, x, step, count, b0, b1);
  }

 private:
  // Eight lanes' sums to outputs, lane j's to out + j out_step.
  template <int Channels>
  static void finish(const LaneSums &s0, const LaneSums &s1, uint32_t shift, int16_t *out, size_t out_step) {
    const int16x8_t y0 = vcombine_s16(step(s0.ha, s0.la, shift), step(s0.hb, s0.lb, shift));
    if constexpr (Channels == 2) {
      const int16x8_t y1 = vcombine_s16(step(s1.ha, s1.la, shift), step(s1.hb, s1.lb, shift));
      if ((reinterpret_cast<uintptr_t>(out) | (2 * out_step)) % 4 == 0)
        store_words(out, out_step, y0, y1, std::make_index_sequence<kHqLanes / 2>());
      else
        store_frames(out, out_step, int16x8x2_t{{y0, y1}}, std::make_index_sequence<kHqLanes>());
    } else {
      store_frames(out, out_step, y0, std::make_index_sequence<kHqLanes>());
    }
  }
#if defined(__aarch64__)
  static void centre_mla(LaneSums &s, int16x8_t x, int16_t hi, int16_t lo) {
    s.ha = vmlal_n_s16(s.ha, vget_low_s16(x), hi);
    s.la = vmlal_n_s16(s.la, vget_low_s16(x), lo);
    s.hb = vmlal_high_n_s16(s.hb, x, hi);
    s.lb = vmlal_high_n_s16(s.lb, x, lo);
  }
#endif
  // Lane j's two outputs to out + j step as one 32-bit word, for frames
  // that are 32-bit aligned.
  template <size_t... J>
  static void store_words(int16_t *out, size_t step, int16x8_t y0, int16x8_t y1, std::index_sequence<J...>) {
#if defined(__aarch64__)
    const int32x4_t a = vreinterpretq_s32_s16(vzip1q_s16(y0, y1)), b = vreinterpretq_s32_s16(vzip2q_s16(y0, y1));
#else
    const int16x8x2_t z = vzipq_s16(y0, y1);
    const int32x4_t a = vreinterpretq_s32_s16(z.val[0]), b = vreinterpretq_s32_s16(z.val[1]);
#endif
    (vst1q_lane_s32(reinterpret_cast<int32_t *>(out + J * step), a, J), ...);
    (vst1q_lane_s32(reinterpret_cast<int32_t *>(out + (J + 4) * step), b, J), ...);
  }
  // Lane j's output(s) to out + j step: one store per frame, 16-bit aligned.
  template <size_t... J>
  static void store_frames(int16_t *out, size_t step, int16x8x2_t y, std::index_sequence<J...>) {
    (vst2q_lane_s16(out + J * step, y, J), ...);
  }
  template <size_t... J>
  static void store_frames(int16_t *out, size_t step, int16x8_t y, std::index_sequence<J...>) {
    (vst1q_lane_s16(out + J * step, y, J), ...);
  }
  // Eight products of 16-bit lanes added into four 32-bit lanes, two each.
  static int32x4_t mla8(int32x4_t acc, int16x8_t x, int16x8_t c) {
#if defined(__aarch64__)
    return vmlal_high_s16(vmlal_s16(acc, vget_low_s16(x), vget_low_s16(c)), x, c);
#else
    return vmlal_s16(vmlal_s16(acc, vget_low_s16(x), vget_low_s16(c)), vget_high_s16(x), vget_high_s16(c));
#endif
  }
  // The output step on (hi, lo) sums: (hi + ((lo + 2^(F-1)) >> S)) >> 14,
  // narrowed with saturation.
  static int16x4_t step(int32x4_t hi, int32x4_t lo, uint32_t shift) {
    const int32x4_t bias = vdupq_n_s32(1 << (shift + kHqHiShift - 1));
    const int32x4_t sum = vaddq_s32(hi, vshlq_s32(vaddq_s32(lo, bias), vdupq_n_s32(-static_cast<int32_t>(shift))));
    return vqmovn_s32(vshrq_n_s32(sum, kHqHiShift));
  }
  // The totals of a, b, c, d's lanes, in that order, modulo 2^32.
  static int32x4_t fold4(int32x4_t a, int32x4_t b, int32x4_t c, int32x4_t d) {
#if defined(__aarch64__)
    return vpaddq_s32(vpaddq_s32(a, b), vpaddq_s32(c, d));
#else
    auto pair = [](int32x4_t p, int32x4_t q) {
      return vpadd_s32(vpadd_s32(vget_low_s32(p), vget_high_s32(p)), vpadd_s32(vget_low_s32(q), vget_high_s32(q)));
    };
    return vcombine_s32(pair(a, b), pair(c, d));
#endif
  }
};

constexpr HqKernels kNeon = make_hq_kernels<NeonDot>();

}  // namespace

const HqKernels *hq_kernels_neon() { return &kNeon; }

}  // namespace rsmpl

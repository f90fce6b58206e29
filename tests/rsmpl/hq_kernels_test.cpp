// Each kernel build's high-quality inner products against their plain
// forms, on coefficients at the bounds that keep every sum within 32 bits
// (hq_state.h: the sum of |hi| times 32768 plus 2^(31 - S) below 2^31, |lo|
// at most 2^(S - 1)) and random or full-scale samples: hq_dot against an
// int64 sum; hq_frames<1|2> and hq_lanes<1|2> through the output loop that
// runs them (hq_produce), on states whose coefficients and samples the test
// writes, against the same loop over hq_frames_by_dot and hq_lanes_plain.
// Real designs stay far from these bounds, so streams cannot show a lane
// that wraps.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "rsmpl/hq_kernel.h"
#include "support/hq_reference.h"

namespace {

int64_t plain_dot(const int16_t *x, const int16_t *coef, uint32_t taps, uint32_t shift) {
  int64_t hi = 0, lo = 0;
  for (uint32_t t = 0; t < taps; ++t) hi += int64_t{x[t]} * coef[t], lo += int64_t{x[t]} * coef[taps + t];
  return hi * (int64_t{1} << shift) + lo;
}

struct PlainDot {
  static int64_t hq_dot(const int16_t *x, const int16_t *c, uint32_t taps, uint32_t s) {
    return plain_dot(x, c, taps, s);
  }
  template <int Channels>
  static void hq_frames(const int16_t *x0, const int16_t *x1, size_t line, const int16_t *c0, const int16_t *c1,
                        uint32_t taps, uint32_t s, int16_t *y, size_t step) {
    rsmpl::hq_frames_by_dot<PlainDot, Channels>(x0, x1, line, c0, c1, taps, s, y, step);
  }
  template <int Channels>
  static void hq_lanes(const int16_t *const *rows, size_t next, uint32_t m, uint32_t groups, const int16_t *coef,
                       uint32_t s, int16_t *out) {
    rsmpl::hq_lanes_plain<Channels>(rows, next, m, groups, coef, s, out);
  }
};

// n hi and n lo at the bounds for shift s: |hi| adding up to the largest sum
// allowed; all of one sign (sign 1 or -1) or of random signs (0). Sign 2:
// a few halves of the peak (2^13 in hi), so that sums fall on exact halves
// of an output step.
void bounded(int16_t *hi, int16_t *lo, uint32_t n, uint32_t s, int sign, std::mt19937 &rng) {
  std::fill(hi, hi + n, 0);
  std::fill(lo, lo + n, 0);
  for (int i = 0; sign == 2 && i < 3; ++i) hi[rng() % n] = rng() % 2 ? 8192 : -8192;
  if (sign == 2) return;
  for (int left = (1 << 16) - (1 << (16 - s)) - 1; left > 0;) {
    const uint32_t k = rng() % n;
    const int step = std::min<int>({left, 1 + int(rng() % 4096), 32767 - hi[k]});
    hi[k] = static_cast<int16_t>(hi[k] + step);
    left -= step;
  }
  const int half = 1 << (s - 1);
  for (uint32_t k = 0; k < n; ++k) {
    hi[k] = static_cast<int16_t>((sign != 0 ? sign : rng() % 2 ? 1 : -1) * hi[k]);
    const int any = int(rng() % half);
    lo[k] = static_cast<int16_t>(sign > 0 ? any : sign < 0 ? -1 - any : rng() % 2 ? any : -1 - any);
  }
}

// Coefficient signs and samples; one extreme throughout meets, in every
// window, the largest sum of the coefficients' sign.
const std::pair<int, hq_test::Fill> kModes[] = {{0, hq_test::kRandom}, {0, hq_test::kFullScale}, {1, hq_test::kHigh},
                                                {1, hq_test::kLow},    {-1, hq_test::kLow},      {2, hq_test::kRandom}};

TEST(HqKernels, DotMatchesThePlainSum) {
  std::mt19937 rng(31);
  for (const auto *set : hq_test::runnable_sets())
    for (uint32_t taps : {16u, 64u, 80u, 144u, 1536u, 2048u})
      for (const auto &[sign, fill] : kModes) {
        uint32_t s = rsmpl::kHqHiShift;  // the largest S <= 14 with T 2^S < 2^17
        while ((taps << s) >= (1u << 17)) --s;
        std::vector<int16_t> coef(1 + 2 * taps);  // at odd addresses, as windows start anywhere
        bounded(coef.data() + 1, coef.data() + 1 + taps, taps, s, sign, rng);
        const auto x = hq_test::make_input(fill, 1 + taps, rng);
        const int16_t *c = coef.data() + 1;
        EXPECT_EQ(set->hq_dot(x.data() + 1, c, taps, s), plain_dot(x.data() + 1, c, taps, s))
            << set->name << " taps " << taps << " sign " << sign << " fill " << fill;
      }
}

// A state at ratio L / M with bounded coefficients in every phase (its tap
// pairs for a small ratio's design) and the samples in every line (pair
// rows), full; each build's output loop against the plain one on copies,
// with room for 7 frames (an odd last frame goes alone) and then the rest.
void check_loop(uint32_t in, uint32_t out, uint32_t l, uint32_t m, std::mt19937 &rng) {
  for (uint32_t ch : {1u, 2u, 3u})
    for (const auto &[sign, fill] : kModes) {
      auto st = hq_test::make_state(in, out, ch, l, m);
      ASSERT_TRUE(st);
      const bool lanes = st->direct != 0;
      const uint32_t n = lanes ? st->active : st->taps, phases = lanes ? l : st->phases + 1;
      int16_t *coef = lanes ? st->pair_coefficients() : st->coefficients();
      std::vector<int16_t> hi(n), lo(n);
      for (uint32_t q = 0; q < phases; ++q, coef += 2 * n) {
        bounded(hi.data(), lo.data(), n, st->lo_shift, sign, rng);
        for (uint32_t k = 0; k < n; ++k) {  // a pair's (hi, hi, lo, lo), or hi then lo
          coef[lanes ? 4 * (k / 2) + k % 2 : k] = hi[k];
          coef[lanes ? 4 * (k / 2) + 2 + k % 2 : n + k] = lo[k];
        }
      }
      const auto x = hq_test::make_input(fill, ch * (lanes ? st->pair_line_size() : st->line_cap), rng);
      std::copy(x.begin(), x.end(), lanes ? st->pairs(0) : st->line(0));
      st->fill = st->line_cap;
      const uint32_t ready = static_cast<uint32_t>(rsmpl::hq_outputs_for(st.get(), 0));
      const std::vector<char> bytes(reinterpret_cast<char *>(st.get()), reinterpret_cast<char *>(st.get()) + st->bytes);
      auto run = [&](auto produce) {
        std::vector<char> copy(bytes);
        auto *state = reinterpret_cast<RSMPL_HqState *>(copy.data());
        std::vector<int16_t> y(size_t{ready} * ch);
        EXPECT_EQ(produce(state, y.data(), 7), 7u);
        EXPECT_EQ(produce(state, y.data() + 7 * ch, ready - 7), ready - 7);
        return y;
      };
      const auto want = run(rsmpl::hq_produce<PlainDot>);
      for (const auto *set : hq_test::runnable_sets())
        EXPECT_EQ(run(set->hq_produce), want) << set->name << " " << in << "->" << out << " at " << l << "/" << m
                                              << ", " << ch << " ch, sign " << sign << " fill " << fill;
    }
}

TEST(HqKernels, FramesMatchTheirPlainForm) {
  std::mt19937 rng(32);
  check_loop(44100, 48000, 160, 147, rng);  // 64 taps, S = 10
  check_loop(96000, 44100, 147, 320, rng);  // 144 taps, S = 9
  check_loop(192000, 8000, 1, 24, rng);     // 1536 taps, S = 6
}

TEST(HqKernels, LanesMatchTheirPlainForm) {
  std::mt19937 rng(33);
  const uint32_t ratios[][4] = {{24000, 48000, 2, 1}, {32000, 48000, 3, 2}, {48000, 16000, 1, 3}, {48000, 30000, 5, 8},
                                {8000, 64000, 8, 1},  {56000, 8000, 1, 7},  {44100, 48000, 8, 7}};
  for (const auto &r : ratios) check_loop(r[0], r[1], r[2], r[3], rng);
}

}  // namespace

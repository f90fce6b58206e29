// Helpers for the sinc interpolator tests: a context on the heap, a stream
// driver that records when each output falls, and a plain double-precision
// model of the same windowed-sinc filter to check the fixed-point path.
#ifndef SKELDA_TESTS_SINC_TEST_SUPPORT_H
#define SKELDA_TESTS_SINC_TEST_SUPPORT_H

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <memory>
#include <vector>

#include "rsmpl/context.h"
#include "skelda/rsmpl.h"
#include "tools/sinc_table_rule.h"

namespace sinc_test {

struct ContextDeleter {
  void operator()(RSMPL_Context *ctx) const { ::operator delete(ctx); }
};
using ContextPtr = std::unique_ptr<RSMPL_Context, ContextDeleter>;

inline ContextPtr NewContext() {
  ContextPtr ctx(static_cast<RSMPL_Context *>(::operator new(RSMPL_GetContextSize())));
  EXPECT_EQ(RSMPL_InitContext(ctx.get()), RSMPL_OK);
  return ctx;
}

// One recorded output: its value and the input time it stands for, in
// input samples from the first sample of the stream.
struct Output {
  int16_t value;
  double time;
  double ratio;     // ratio in force when it was produced
  bool complete;    // every tap fell on input the stream had delivered
  int call;         // which call of the stream produced it, from 0
};

// Feeds a stream into a context block by block and records each output
// with its time. The time follows from the state at the call's entry: an
// output at Q16 position p of a call whose block starts at stream index B,
// with history half-length N, stands for input time B + p - (N + 1).
class StreamDriver {
 public:
  explicit StreamDriver(RSMPL_Context *ctx, double ratioInForce = 1.0)
      : ctx_(ctx), ratioInForce_(ratioInForce), pendingRatio_(ratioInForce) {}

  void SetRatio(float ratio) {
    ASSERT_EQ(RSMPL_SetResampleRatio(ctx_, nullptr, nullptr, &extra_, ratio), RSMPL_OK);
    pendingRatio_ = ratio;
  }

  // Runs one call on input[consumed .. consumed + n) and returns its count.
  uint32_t Run(const std::vector<int16_t> &input, int32_t n) {
    const rsmpl::SincState entry = ctx_->sinc;
    const int32_t growth = static_cast<int32_t>(entry.halfLength - entry.historyHalfLength);
    // Room the caller sizes: ceil(n * r) + extraOutSamples at the ratio in
    // force. The buffer is exactly that long so the address sanitizer
    // catches any write past it.
    const uint32_t room =
        static_cast<uint32_t>(std::ceil(n * ratioInForce_)) + (growth < 0 ? extra_ : 1);
    std::vector<int16_t> out(room);
    uint32_t count = 0;
    const uint32_t status = RSMPL_Resample(ctx_, input.data() + consumed_, out.data(), n, &count);
    EXPECT_EQ(status, RSMPL_OK);
    if (status != RSMPL_OK) return 0;  // nothing consumed, ratio still pending
    EXPECT_LE(count, room);
    const double stepSamples = entry.step / 16777216.0;
    const double start = entry.position / 65536.0;
    for (uint32_t k = 0; k < count && k < room; ++k) {
      const double position = start + k * stepSamples;
      const double time = consumed_ + position - (entry.historyHalfLength + 1.0);
      const bool complete = std::floor(position) < n;
      outputs.push_back({out[k], time, ratioInForce_, complete, calls_});
    }
    consumed_ += n;
    ++calls_;
    ratioInForce_ = pendingRatio_;
    extra_ = 1;
    return count;
  }

  std::vector<Output> outputs;

 private:
  RSMPL_Context *ctx_;
  double ratioInForce_;
  double pendingRatio_;
  uint32_t extra_ = 1;
  int64_t consumed_ = 0;
  int calls_ = 0;
};

// The same low-pass evaluated exactly: prototype stretched by min(ratio, 1)
// and scaled by the same gain, input taken as zero before the stream.
inline double ReferenceAt(const std::vector<int16_t> &input, double time, double ratio) {
  const double stretch = ratio < 1.0 ? ratio : 1.0;
  const double reach = 13.0 / stretch + 1.0;
  double sum = 0.0;
  for (int64_t m = static_cast<int64_t>(std::floor(time - reach));
       m <= static_cast<int64_t>(std::ceil(time + reach)); ++m) {
    if (m < 0 || m >= static_cast<int64_t>(input.size())) continue;
    sum += input[m] * sinc_rule::Prototype((time - m) * stretch * 128.0);
  }
  return sum * stretch;
}

inline std::vector<int16_t> Sine(size_t length, double cyclesPerSample, double amplitude,
                                 double phase = 0.3) {
  std::vector<int16_t> x(length);
  for (size_t i = 0; i < length; ++i) {
    x[i] = static_cast<int16_t>(
        std::lround(amplitude * std::sin(2.0 * M_PI * cyclesPerSample * i + phase)));
  }
  return x;
}

// Deterministic pseudo-random numbers, so failures reproduce.
class Lcg {
 public:
  explicit Lcg(uint32_t seed) : state_(seed) {}
  uint32_t Next() {
    state_ = state_ * 1664525u + 1013904223u;
    return state_ >> 8;
  }
  int32_t Uniform(int32_t lo, int32_t hi) {  // inclusive
    return lo + static_cast<int32_t>(Next() % static_cast<uint32_t>(hi - lo + 1));
  }

 private:
  uint32_t state_;
};

}  // namespace sinc_test

#endif

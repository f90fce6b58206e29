// The sinc interpolation kernel on real signals: agreement with a
// double-precision model, tone purity per ratio, block-size invariance,
// ratio changes, fractional delay and the edges of the sample area.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <vector>

#include "skelda/fixed_point.h"
#include "tests/rsmpl/sinc_test_support.h"
#include "support/workload.h"

namespace {

using sinc_test::Lcg;
using sinc_test::NewContext;
using sinc_test::Output;
using sinc_test::ReferenceAt;
using sinc_test::Sine;
using sinc_test::StreamDriver;

// Sets `ratio` and pushes the whole input through in blocks of `block`
// samples (the last one shorter), recording every output.
std::vector<Output> RunStream(const std::vector<int16_t> &input, float ratio, int32_t block) {
  auto ctx = NewContext();
  StreamDriver driver(ctx.get());
  driver.SetRatio(ratio);
  size_t done = 0;
  while (done < input.size()) {
    const int32_t n = static_cast<int32_t>(std::min<size_t>(block, input.size() - done));
    driver.Run(input, n);
    done += n;
  }
  return driver.outputs;
}

std::vector<int16_t> Values(const std::vector<Output> &outputs) {
  std::vector<int16_t> v;
  for (const Output &o : outputs) v.push_back(o.value);
  return v;
}

// Largest difference from the double model over outputs whose taps all lie
// on delivered input, skipping the first `skip` outputs.
double WorstReferenceError(const std::vector<int16_t> &input, const std::vector<Output> &outputs,
                           size_t skip = 0) {
  double worst = 0.0;
  for (size_t k = skip; k < outputs.size(); ++k) {
    const Output &o = outputs[k];
    if (!o.complete) continue;
    const double want = std::clamp(ReferenceAt(input, o.time, o.ratio), -32768.0, 32767.0);
    worst = std::max(worst, std::fabs(o.value - want));
  }
  return worst;
}

const float kRatios[] = {1.0f, 2.0f, 0.5f, 3.0f, 1.0f / 3.0f, 4.0f, 0.75f, 8.0f, 0.125f};

// Pre-shift of the input at ratio r: the bits it drops bound the error.
int PreShift(float ratio) {
  const int whole = static_cast<int>(1.0 / ratio + 1e-6);
  return whole <= 1 ? 0 : (whole == 2 ? 1 : (whole <= 4 ? 2 : 3));
}

TEST(SincKernel, MatchesTheDoubleModelOnNoise) {
  Lcg random(7);
  std::vector<int16_t> input(workload(12000, 4000));
  for (int16_t &x : input) x = static_cast<int16_t>(random.Uniform(-16000, 16000));
  for (float ratio : kRatios) {
    const std::vector<Output> outputs = RunStream(input, ratio, 701);
    ASSERT_GT(outputs.size(), 1000u);
    const double worst = WorstReferenceError(input, outputs);
    // Table interpolation and rounding cost a few units; the pre-shift
    // drops up to 3 input bits below ratio 1/2.
    const double bound = 4.0 + 2.0 * (1 << PreShift(ratio));
    EXPECT_LE(worst, bound) << "ratio " << ratio;
    std::printf("ratio %-8g worst difference from double model: %.2f\n", ratio, worst);
  }
}

// SNR of a tone against the ideal tone at each output's time.
double ToneSnrDb(const std::vector<Output> &outputs, double cyclesPerSample, double amplitude,
                 double phase, size_t skip) {
  double signal = 0.0, noise = 0.0;
  for (size_t k = skip; k < outputs.size(); ++k) {
    const double ideal = amplitude * std::sin(2.0 * M_PI * cyclesPerSample * outputs[k].time + phase);
    signal += ideal * ideal;
    noise += (outputs[k].value - ideal) * (outputs[k].value - ideal);
  }
  return 10.0 * std::log10(signal / noise);
}

// Output frequency in cycles per output sample, from the positive-going
// zero crossings, independent of any timing model.
double MeasuredFrequency(const std::vector<Output> &outputs, size_t skip) {
  double first = -1.0, last = -1.0;
  int crossings = 0;
  for (size_t k = skip + 1; k < outputs.size(); ++k) {
    const double a = outputs[k - 1].value, b = outputs[k].value;
    if (a < 0 && b >= 0) {
      const double at = (k - 1) + a / (a - b);
      if (first < 0) first = at; else ++crossings;
      last = at;
    }
  }
  return crossings / (last - first);
}

TEST(SincKernel, TonesComeOutCleanAtTheExpectedFrequency) {
  struct Floor {
    float ratio;
    double minSnrDb;
  };
  // Floors sit a few dB below the measured figures. The sum is cut to Q14
  // before the gain, so outputs move in steps of two units (about 81 dB for
  // this tone); each bit of input pre-shift below ratio 1/2 costs 6 dB more.
  const Floor floors[] = {{1.0f, 78}, {2.0f, 78}, {0.5f, 75}, {3.0f, 78}, {1.0f / 3.0f, 70},
                          {4.0f, 78}, {0.75f, 80}, {8.0f, 78}, {0.125f, 67}};
  const double amplitude = 20000.0, phase = 0.3;
  for (const Floor &f : floors) {
    // A tone well inside the band that survives the conversion.
    const double cycles = 0.0917 * std::min(1.0, static_cast<double>(f.ratio));
    const std::vector<int16_t> input = Sine(24000, cycles, amplitude, phase);
    const std::vector<Output> outputs = RunStream(input, f.ratio, 1000);
    // The first call still runs at ratio 1; measure from the second on.
    size_t skip = 0;
    while (skip < outputs.size() && outputs[skip].call == 0) ++skip;
    const double snr = ToneSnrDb(outputs, cycles, amplitude, phase, skip);
    const double expected = cycles / f.ratio;
    const double measured = MeasuredFrequency(outputs, skip);
    std::printf("ratio %-8g tone SNR %.1f dB, frequency %.6f (expected %.6f)\n", f.ratio, snr,
                measured, expected);
    EXPECT_GE(snr, f.minSnrDb) << "ratio " << f.ratio;
    EXPECT_NEAR(measured, expected, expected * 1e-3) << "ratio " << f.ratio;
    // Every steady call turns 1000 inputs into 1000 * ratio outputs.
    for (int call = 2; call < 23; ++call) {
      const auto produced = std::count_if(outputs.begin(), outputs.end(),
                                          [call](const Output &o) { return o.call == call; });
      EXPECT_NEAR(static_cast<double>(produced), 1000.0 * f.ratio, 1.0) << "call " << call;
    }
  }
}

TEST(SincKernel, RatioOneIsTheLowPassDelayedByFourteen) {
  const std::vector<int16_t> input = Sine(3000, 0.02, 20000.0);
  const std::vector<Output> outputs = RunStream(input, 1.0f, 1440);
  ASSERT_EQ(outputs.size(), input.size());
  for (size_t k = 100; k < outputs.size(); ++k) {
    ASSERT_NEAR(outputs[k].value, input[k - 14], 3) << k;
  }
}

TEST(SincKernel, RatioTwoDoublesEveryBlock) {
  auto ctx = NewContext();
  StreamDriver driver(ctx.get());
  driver.SetRatio(2.0f);
  const std::vector<int16_t> input = Sine(5000, 0.05, 10000.0);
  EXPECT_EQ(driver.Run(input, 500), 500u);  // still at ratio 1
  for (int i = 0; i < 4; ++i) EXPECT_EQ(driver.Run(input, 1000), 2000u);
}

TEST(SincKernel, RatioOneEighthYieldsOneOutputPerEightInputs) {
  auto ctx = NewContext();
  StreamDriver driver(ctx.get());
  driver.SetRatio(0.125f);
  const std::vector<int16_t> input = Sine(1400 + 1280 * 5, 0.01, 10000.0);
  EXPECT_EQ(driver.Run(input, 1400), 1400u - 91u);  // still at ratio 1
  for (int i = 0; i < 5; ++i) EXPECT_EQ(driver.Run(input, 1280), 160u);
}

TEST(SincKernel, FullScaleSquareSaturatesInsteadOfWrapping) {
  // A square wave whose period matches the coefficient signs drives the sum
  // towards the absolute coefficient sum; just above ratio 1/2 and 1/3 that
  // exceeds what a 32-bit Q30 sum holds.
  for (float ratio : {1.0f, 2.0f, 0.51f, 0.34f, 0.9f}) {
    std::vector<int16_t> input(6000);
    for (size_t i = 0; i < input.size(); ++i) {
      input[i] = (i / 3) % 2 == 0 ? 32767 : -32768;
    }
    const std::vector<Output> outputs = RunStream(input, ratio, 1440);
    int worst = 0;
    for (size_t k = 30; k < outputs.size(); ++k) {
      if (!outputs[k].complete) continue;
      const double want = std::clamp(ReferenceAt(input, outputs[k].time, outputs[k].ratio),
                                      -32768.0, 32767.0);
      worst = std::max(worst, static_cast<int>(std::fabs(outputs[k].value - want)));
    }
    EXPECT_LE(worst, 4 + 2 * (1 << PreShift(ratio))) << "ratio " << ratio;
  }
  // An input chosen as the sign of each tap's coefficient is the worst case.
  for (float ratio : {0.51f, 0.34f, 0.6f}) {
    auto ctx = NewContext();
    ASSERT_EQ(RSMPL_SetResampleRatio(ctx.get(), nullptr, nullptr, nullptr, ratio), RSMPL_OK);
    // After a first block of 1440 the position is 0 and the history
    // half-length the new one, so the next block's first output stands for
    // input time 1440 - (halfLength + 1).
    const double firstTime = 1440.0 - (ctx->sinc.halfLength + 1.0);
    std::vector<int16_t> input(2880);
    for (size_t m = 0; m < input.size(); ++m) {
      const double h = sinc_rule::Prototype((firstTime - static_cast<double>(m)) * ratio * 128.0);
      input[m] = h >= 0 ? 32767 : -32768;
    }
    std::vector<int16_t> out(1440);
    uint32_t count = 0;
    ASSERT_EQ(RSMPL_Resample(ctx.get(), input.data(), out.data(), 1440, &count), RSMPL_OK);
    ASSERT_EQ(ctx->sinc.position, 0);
    ASSERT_EQ(RSMPL_Resample(ctx.get(), input.data() + 1440, out.data(), 1440, &count), RSMPL_OK);
    ASSERT_GT(count, 0u);
    EXPECT_EQ(out[0], 32767) << "ratio " << ratio;
  }
}

// A position is Q16 and each call rounds the end of its last step to it,
// so where the step is not a whole number of Q16 units (ratios 3 and 0.75
// here) every call may shift the stream's timing by up to half a unit; the
// output then depends on the cut by those few microsamples. Where the step
// is exact the output must not depend on the cut at all; in every case each
// cut must agree with the double model at its own output times.
TEST(SincStream, OutputDoesNotDependOnHowTheStreamIsCut) {
  Lcg random(99);
  std::vector<int16_t> input = Sine(workload(9000, 3000), 0.037, 15000.0);
  for (size_t i = 0; i < input.size(); ++i) input[i] += static_cast<int16_t>(random.Uniform(-500, 500));
  for (float ratio : kRatios) {
    const bool exactStep = ToUFix(24, 1.0f / ratio) % 256 == 0;
    // The first call commits the ratio; keep it the same in every cut.
    const int32_t first = 400;
    std::vector<std::vector<Output>> results;
    for (int cut = 0; cut < 4; ++cut) {
      auto ctx = NewContext();
      StreamDriver driver(ctx.get());
      driver.SetRatio(ratio);
      driver.Run(input, first);
      size_t done = first;
      Lcg sizes(static_cast<uint32_t>(cut) + 1);
      while (done < input.size()) {
        int32_t n = 1;
        if (cut == 0) n = 1440;
        if (cut == 1) n = 1;
        if (cut == 2) n = sizes.Uniform(1, 1440);
        if (cut == 3) {  // sized for a random number of outputs
          const int32_t limit = static_cast<int32_t>(ratio * 1440.0f);
          uint32_t needed = 0;
          ASSERT_EQ(RSMPL_GetNumInSamples(ctx.get(), sizes.Uniform(1, limit), &needed), RSMPL_OK);
          n = static_cast<int32_t>(std::clamp<uint32_t>(needed, 1, 1440));
        }
        n = static_cast<int32_t>(std::min<size_t>(n, input.size() - done));
        driver.Run(input, n);
        done += n;
      }
      results.push_back(driver.outputs);
    }
    for (int cut = 0; cut < 4; ++cut) {
      EXPECT_LE(WorstReferenceError(input, results[cut]), 4.0 + 2.0 * (1 << PreShift(ratio)))
          << "ratio " << ratio << " cut " << cut;
      if (cut == 0) continue;
      if (exactStep) {
        EXPECT_EQ(Values(results[cut]), Values(results[0])) << "ratio " << ratio << " cut " << cut;
      } else {
        EXPECT_NEAR(static_cast<double>(results[cut].size()),
                    static_cast<double>(results[0].size()), 1.0)
            << "ratio " << ratio << " cut " << cut;
      }
    }
  }
}

TEST(SincStream, RatioChangeTakesEffectOneCallLater) {
  struct Change {
    float from, to;
  };
  const Change changes[] = {{2.0f, 3.0f}, {1.0f, 0.5f}, {0.5f, 1.0f}, {0.125f, 8.0f}, {4.0f, 0.25f}};
  const std::vector<int16_t> input = Sine(8000, 0.01, 12000.0);
  for (const Change &c : changes) {
    auto steady = NewContext();
    auto changed = NewContext();
    StreamDriver a(steady.get()), b(changed.get());
    a.SetRatio(c.from);
    b.SetRatio(c.from);
    a.Run(input, 1000);
    b.Run(input, 1000);
    b.SetRatio(c.to);
    const size_t before = b.outputs.size();
    const uint32_t countA = a.Run(input, 1000);
    const uint32_t countB = b.Run(input, 1000);
    // The call after the change still runs at the old step: its outputs are
    // those of the unchanged stream, cut where the filter growth ends them.
    ASSERT_LE(std::min(countA, countB), countA);
    for (uint32_t k = 0; k < std::min(countA, countB); ++k) {
      if (!b.outputs[before + k].complete) break;
      ASSERT_EQ(b.outputs[before + k].value, a.outputs[before + k].value)
          << c.from << " -> " << c.to << " output " << k;
    }
    // Only the following call runs at the new ratio.
    const uint32_t next = b.Run(input, 1000);
    // The position may start up to one old step into the block.
    EXPECT_NEAR(next, 1000.0 * c.to, c.to / c.from + c.to + 1) << c.from << " -> " << c.to;
    // And it agrees with the double model.
    EXPECT_LE(WorstReferenceError(input, b.outputs, before + countB), 4.0 + 2.0 * 8)
        << c.from << " -> " << c.to;
  }
}

TEST(SincStream, HalfSampleDelayShiftsTheSignal) {
  const double cycles = 0.05, amplitude = 16000.0, phase = 0.7;
  const std::vector<int16_t> input = Sine(4000, cycles, amplitude, phase);
  std::vector<int16_t> plain, shifted;
  for (float delay : {0.0f, 0.5f}) {
    auto ctx = NewContext();
    uint32_t lo = 0, hi = 0;
    ASSERT_EQ(RSMPL_SetFracDelay(ctx.get(), &lo, &hi, delay), RSMPL_OK);
    std::vector<int16_t> out(input.size() + 2);
    size_t done = 0, produced = 0;
    while (done < input.size()) {
      uint32_t count = 0;
      ASSERT_EQ(RSMPL_Resample(ctx.get(), input.data() + done, out.data() + produced, 1000, &count),
                RSMPL_OK);
      done += 1000;
      produced += count;
    }
    out.resize(produced);
    (delay == 0.0f ? plain : shifted) = out;
  }
  ASSERT_GE(shifted.size(), 3900u);
  for (size_t k = 100; k < shifted.size(); ++k) {
    // Output k of the shifted stream samples the input at k + 0.5 - 14.
    const double ideal = amplitude * std::sin(2.0 * M_PI * cycles * (k + 0.5 - 14.0) + phase);
    ASSERT_NEAR(shifted[k], ideal, 4.0) << k;
    const double unshifted = amplitude * std::sin(2.0 * M_PI * cycles * (k - 14.0) + phase);
    ASSERT_NEAR(plain[k], unshifted, 4.0) << k;
  }
}

TEST(SincEdges, GrowthOverHalfTheBlockPadsHistoryWithSilence) {
  auto ctx = NewContext();
  std::vector<int16_t> lead(300), out(2000);
  for (size_t i = 0; i < lead.size(); ++i) lead[i] = static_cast<int16_t>(i + 1);
  uint32_t count = 0;
  ASSERT_EQ(RSMPL_Resample(ctx.get(), lead.data(), out.data(), 300, &count), RSMPL_OK);
  ASSERT_EQ(RSMPL_SetResampleRatio(ctx.get(), nullptr, nullptr, nullptr, 0.125f), RSMPL_OK);
  // Growth 91 < n = 100 < 182.
  std::vector<int16_t> block(100);
  for (size_t i = 0; i < block.size(); ++i) block[i] = static_cast<int16_t>(-1 - int(i));
  ASSERT_EQ(RSMPL_Resample(ctx.get(), block.data(), out.data(), 100, &count), RSMPL_OK);
  EXPECT_EQ(count, 9u);  // positions 0..8, below 100 - 91
  // 209 history samples: 82 silent, the 27 kept before, then the block.
  for (int i = 0; i < 82; ++i) EXPECT_EQ(ctx->samples[i], 0) << i;
  for (int i = 0; i < 27; ++i) EXPECT_EQ(ctx->samples[82 + i], 274 + i) << i;
  for (int i = 0; i < 100; ++i) EXPECT_EQ(ctx->samples[109 + i], -1 - i) << i;
  EXPECT_EQ(ctx->sinc.historyHalfLength, 104u);
}

TEST(SincEdges, FullBlockAtTheLongestFilterKeepsTheNewestSample) {
  auto ctx = NewContext();
  StreamDriver driver(ctx.get());
  driver.SetRatio(0.125f);
  std::vector<int16_t> input(200 + 1440 * 3);
  for (size_t i = 0; i < input.size(); ++i) input[i] = static_cast<int16_t>((i * 37) % 20000 - 10000);
  driver.Run(input, 200);
  for (int i = 0; i < 3; ++i) driver.Run(input, 1440);
  ASSERT_EQ(ctx->sinc.historyHalfLength, 104u);
  // The history ends with the newest 209 samples, the very last included.
  for (int i = 0; i < 209; ++i) {
    ASSERT_EQ(ctx->samples[i], input[input.size() - 209 + i]) << i;
  }
  EXPECT_LE(WorstReferenceError(input, driver.outputs), 4.0 + 2.0 * 8);
}

TEST(SincEdges, ShrinkingFilterStaysInsideTheArea) {
  auto ctx = NewContext();
  StreamDriver driver(ctx.get());
  const std::vector<int16_t> input = Sine(200 + 1440 * 3, 0.005, 15000.0);
  driver.SetRatio(0.125f);
  driver.Run(input, 200);
  driver.Run(input, 1440);
  driver.SetRatio(8.0f);  // shrinks by 91: the next call runs 91 samples past its block
  const size_t before = driver.outputs.size();
  const uint32_t count = driver.Run(input, 1440);
  EXPECT_EQ(count, (1440u + 91u + 7u) / 8u);
  driver.Run(input, 1440);
  // Outputs whose taps lie on delivered input match the model, before and
  // after the transition.
  EXPECT_LE(WorstReferenceError(input, driver.outputs), 4.0 + 2.0 * 8);
  EXPECT_GT(driver.outputs.size(), before + count + 11000);
}

TEST(SincEdges, ABlockTooShortForItsFirstOutputYieldsNothing) {
  auto ctx = NewContext();
  uint32_t lo = 0, hi = 0, count = 9;
  ASSERT_EQ(RSMPL_SetFracDelay(ctx.get(), &lo, &hi, 1.0f), RSMPL_OK);
  int16_t one = 500, out[4] = {};
  ASSERT_EQ(RSMPL_Resample(ctx.get(), &one, out, 1, &count), RSMPL_OK);
  EXPECT_EQ(count, 0u);
  EXPECT_EQ(ctx->sinc.position, 0);  // carried, rebased by one sample
  ASSERT_EQ(RSMPL_Resample(ctx.get(), &one, out, 1, &count), RSMPL_OK);
  EXPECT_EQ(count, 1u);

  // At ratio 1/8, one-sample blocks yield an output every eighth call and
  // the position never runs ahead of the input.
  auto slow = NewContext();
  StreamDriver driver(slow.get());
  driver.SetRatio(0.125f);
  const std::vector<int16_t> input = Sine(3000, 0.01, 8000.0);
  driver.Run(input, 100);
  for (int i = 0; i < 2000; ++i) {
    ASSERT_LE(driver.Run(input, 1), 1u);
    ASSERT_GE(slow->sinc.position, 0);
    ASSERT_LT(slow->sinc.position, 8 * 65536);
  }
}

TEST(SincEdges, InPlaceConversionMatchesSeparateBuffers) {
  const std::vector<int16_t> input = Sine(1440, 0.03, 9000.0);
  for (float ratio : {1.0f, 0.5f, 0.125f}) {
    auto a = NewContext(), b = NewContext();
    ASSERT_EQ(RSMPL_SetResampleRatio(a.get(), nullptr, nullptr, nullptr, ratio), RSMPL_OK);
    ASSERT_EQ(RSMPL_SetResampleRatio(b.get(), nullptr, nullptr, nullptr, ratio), RSMPL_OK);
    std::vector<int16_t> separate(1440), inplace = input;
    uint32_t ca = 0, cb = 0;
    for (int i = 0; i < 3; ++i) {
      inplace = input;
      ASSERT_EQ(RSMPL_Resample(a.get(), input.data(), separate.data(), 1440, &ca), RSMPL_OK);
      ASSERT_EQ(RSMPL_Resample(b.get(), inplace.data(), inplace.data(), 1440, &cb), RSMPL_OK);
      ASSERT_EQ(ca, cb);
      for (uint32_t k = 0; k < ca; ++k) ASSERT_EQ(separate[k], inplace[k]) << k;
    }
  }
}

// Random ratios, delays and block sizes, with output buffers sized exactly
// as a caller would (ceil(n * r) + extraOutSamples at the ratio in force):
// the address sanitizer build proves no access outside them or the context.
TEST(SincEdges, AdversarialSequencesStayInBounds) {
  Lcg random(2024);
  auto ctx = NewContext();
  std::vector<int16_t> input(1440);
  double inForce = 1.0, pending = 1.0;
  uint32_t extra = 1;
  for (int call = 0; call < 3000; ++call) {
    const uint32_t action = random.Next() % 10;
    if (action == 0) {
      const float ratio = 0.125f + (random.Next() % 10000) * (7.875f / 9999.0f);
      uint32_t lo = 0, hi = 0;
      ASSERT_EQ(RSMPL_SetResampleRatio(ctx.get(), &lo, &hi, &extra, ratio), RSMPL_OK);
      pending = ratio;
    } else if (action == 1) {
      uint32_t lo = 0, hi = 0;
      ASSERT_EQ(RSMPL_SetFracDelay(ctx.get(), &lo, &hi, (random.Next() % 1001) / 1000.0f),
                RSMPL_OK);
      inForce = pending = 1.0;
      extra = 1;
    }
    const int32_t growth =
        static_cast<int32_t>(ctx->sinc.halfLength - ctx->sinc.historyHalfLength);
    const int32_t shortest = std::max(growth, 0) + 1;
    const int32_t n = random.Next() % 3 == 0 ? random.Uniform(shortest, std::min(1440, shortest + 3))
                                             : random.Uniform(shortest, 1440);
    for (int32_t i = 0; i < n; ++i) {
      input[i] = random.Next() % 2 ? 32767 : -32768;
    }
    const uint32_t room = static_cast<uint32_t>(std::ceil(n * inForce)) + (growth < 0 ? extra : 1);
    std::vector<int16_t> out(room);
    uint32_t count = 0;
    ASSERT_EQ(RSMPL_Resample(ctx.get(), input.data(), out.data(), n, &count), RSMPL_OK);
    ASSERT_LE(count, room) << "call " << call;
    ASSERT_GE(ctx->sinc.position, 0);
    ASSERT_LT(ctx->sinc.position, 9 * 65536);
    inForce = pending;
    extra = 1;
  }
}

}  // namespace

// SPDX-License-Identifier: MIT
// The high-quality resampler as a listener meets it, through its public
// calls: -1 dBFS tones come out at their grade's floor (everything but the
// tone, distortion, noise and images over the whole output band, at least
// 143.5 dB down at 997 Hz and 140 dB at 0.4 of the lower rate for 24-bit
// tones in S32; 91 dB for 16-bit ones), what lies above the output's band
// going down is rejected (140 and 100 dB), and the passband is flat to 0.45
// of the lower rate (0.003 dB), at today's pairs and the new ones, the
// highest and lowest rates included.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "tests/support/hq_stream.h"

namespace {

const double kAmplitude = 0.8912509381337456;  // -1 dBFS

// One channel through a fresh state of `grade`; S32 with a 24-bit tone for
// grade 24, S16 for grade 16. Output frames [skip, skip + count) as
// fractions of full scale.
std::vector<double> convert_tone(int grade, uint32_t in, uint32_t out, double hz, double amplitude, size_t count,
                                 size_t *skip) {
  hq_test::Resampler r(grade, in, out, 1);
  const RSMPL_HqInfo info = r.info();
  *skip = size_t(2.0 * info.delayMicroseconds * 1e-6 * out) + 64;
  const size_t frames = size_t(double(*skip + count) * in / out) + 64;
  std::vector<int32_t> x32(frames), y32(*skip + count + 64);
  std::vector<int16_t> x16(frames), y16(y32.size());
  for (size_t i = 0; i < frames; ++i) {
    const double v = amplitude * std::sin(2 * M_PI * hz * double(i) / in);
    x32[i] = int32_t(std::lround(v * 8388607)) * 256;
    x16[i] = int16_t(std::lround(v * 32767));
  }
  uint32_t n = uint32_t(frames), m = uint32_t(y32.size());
  if (grade == 1)
    EXPECT_EQ(r.process(x32.data(), RSMPL_HQ_S32, &n, y32.data(), RSMPL_HQ_S32, &m), RSMPL_OK);
  else
    EXPECT_EQ(r.process(x16.data(), RSMPL_HQ_S16, &n, y16.data(), RSMPL_HQ_S16, &m), RSMPL_OK);
  EXPECT_GE(m, *skip + count);
  std::vector<double> y(count);
  for (size_t i = 0; i < count; ++i) y[i] = grade == 1 ? y32[*skip + i] / 2147483648.0 : y16[*skip + i] / 32768.0;
  return y;
}

// The tone at `cycles` per sample fitted (sine, cosine and DC), and the
// level of what is left below it, in dB; `amplitude` gets the fit's.
double residual_db(const std::vector<double> &y, double cycles, double *amplitude) {
  double ss = 0, kk = 0, sk = 0, ys = 0, yk = 0, s1 = 0, k1 = 0, y1 = 0;
  const double n = double(y.size());
  for (size_t i = 0; i < y.size(); ++i) {
    const double s = std::sin(2 * M_PI * cycles * double(i)), k = std::cos(2 * M_PI * cycles * double(i));
    ss += s * s, kk += k * k, sk += s * k, ys += y[i] * s, yk += y[i] * k, s1 += s, k1 += k, y1 += y[i];
  }
  // Normal equations of [s k 1], solved by Cramer's rule.
  const double m[3][3] = {{ss, sk, s1}, {sk, kk, k1}, {s1, k1, n}}, v[3] = {ys, yk, y1};
  auto det = [](const double a[3][3]) {
    return a[0][0] * (a[1][1] * a[2][2] - a[1][2] * a[2][1]) - a[0][1] * (a[1][0] * a[2][2] - a[1][2] * a[2][0]) +
           a[0][2] * (a[1][0] * a[2][1] - a[1][1] * a[2][0]);
  };
  double c[3];
  for (int j = 0; j < 3; ++j) {
    double t[3][3];
    for (int r = 0; r < 3; ++r)
      for (int q = 0; q < 3; ++q) t[r][q] = q == j ? v[r] : m[r][q];
    c[j] = det(t) / det(m);
  }
  double left = 0;
  for (size_t i = 0; i < y.size(); ++i) {
    const double e = y[i] - c[0] * std::sin(2 * M_PI * cycles * double(i)) - c[1] * std::cos(2 * M_PI * cycles * double(i)) - c[2];
    left += e * e;
  }
  *amplitude = std::hypot(c[0], c[1]);
  return 10 * std::log10(left / n / (*amplitude * *amplitude / 2));
}

const uint32_t kPairs[][2] = {{44100, 48000}, {48000, 44100}, {96000, 44100}, {48000, 16000}, {32000, 48000},
                              {44100, 352800}, {384000, 48000}, {44100, 705600}, {768000, 48000}, {8000, 768000},
                              {768000, 8000}, {4000, 48000},  {48000, 4000},  {5512, 44100},  {192000, 768000}};

TEST(HqQuality, TonesComeOutAtTheirGradesFloor) {
  for (const auto &p : kPairs)
    for (int grade = 0; grade < 2; ++grade) {
      const double lower = std::min(p[0], p[1]);
      for (double hz : {997.0, 0.4 * lower}) {
        if (hz > 0.45 * lower) continue;
        SCOPED_TRACE(::testing::Message() << p[0] << " -> " << p[1] << " grade " << (grade ? 24 : 16) << ", " << hz << " Hz");
        size_t skip = 0;
        const std::vector<double> y = convert_tone(grade, p[0], p[1], hz, kAmplitude, 24000, &skip);
        double amplitude = 0;
        const double db = residual_db(y, hz / p[1], &amplitude);
        EXPECT_NEAR(amplitude, kAmplitude, kAmplitude * 4e-4);
        EXPECT_LE(db, grade ? (hz == 997.0 ? -143.5 : -140.0) : -91.0);
      }
    }
}

// Going down, a tone between 0.55 of the output rate and the input's
// Nyquist would alias into the output: it comes out 140 dB (grade 24) or
// 100 dB (grade 16) below full scale at most.
TEST(HqQuality, WhatLiesAboveTheOutputsBandIsRejected) {
  for (const auto &p : kPairs) {
    if (p[1] >= p[0]) continue;
    for (int grade = 0; grade < 2; ++grade)
      for (double at : {0.55, 0.75, 1.3, 2.7}) {
        const double hz = at * p[1];
        if (hz >= 0.5 * p[0]) continue;
        SCOPED_TRACE(::testing::Message() << p[0] << " -> " << p[1] << " grade " << grade << ", " << hz << " Hz");
        size_t skip = 0;
        const std::vector<double> y = convert_tone(grade, p[0], p[1], hz, kAmplitude, 8000, &skip);
        double power = 0;
        for (double v : y) power += v * v;
        // Against a full-scale sine's power; the 16-bit output's own
        // rounding lies near -101 dB.
        EXPECT_LE(10 * std::log10(power / double(y.size()) / 0.5 + 1e-30), grade ? -140.0 : -98.0);
      }
  }
}

TEST(HqQuality, ThePassbandIsFlat) {
  for (const auto &p : kPairs)
    for (int grade = 0; grade < 2; ++grade) {
      const double lower = std::min(p[0], p[1]);
      for (double at : {0.01, 0.1, 0.2, 0.3, 0.4, 0.45}) {
        size_t skip = 0;
        const double hz = at * lower;
        const std::vector<double> y = convert_tone(grade, p[0], p[1], hz, 0.5, 8192, &skip);
        double amplitude = 0;
        residual_db(y, hz / p[1], &amplitude);
        EXPECT_NEAR(20 * std::log10(amplitude / 0.5), 0.0, grade ? 0.003 : 0.01)
            << p[0] << " -> " << p[1] << " grade " << grade << " at " << at;
      }
    }
}

}  // namespace

// The skelda_hq converter through the real alsa-lib, and its operations
// table as alsa-lib calls it. Output n of a stream stands for input position
// n / ratio - delay, with the ratio the periods' and the delay the one the
// dump names, so a tone's every output frame is known in advance: the tests
// compare against that prediction, not against a tone fitted freely.
#include <alsa/asoundlib.h>
#include <alsa/pcm_rate.h>
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <numeric>
#include <string>
#include <vector>

#include "support/alsa_pipeline.h"
#include "support/error_capture.h"
#include "support/signal.h"

namespace {

// What the dump line says.
struct HqDump {
  unsigned in_rate = 0, out_rate = 0, channels = 0, taps = 0, ratio_out = 0, ratio_in = 0;
  char filter[16] = {};
  double delay_ms = -1;
  // The delay in whole input frames (the dump rounds it to the microsecond).
  unsigned delay_frames() const { return unsigned(std::lround(delay_ms * in_rate / 1000)); }
};

bool parse_dump(const std::string &dump, HqDump &d) {
  const size_t at = dump.find("RSMPL HQ Converter: ");
  if (at == std::string::npos) return false;
  const std::string line = dump.substr(at, dump.find('\n', at) - at);
  const size_t ratio = line.find(", ratio ");
  if (line.find("windowed sinc") != std::string::npos)
    std::snprintf(d.filter, sizeof d.filter, "windowed sinc");
  else if (line.find("minimax") != std::string::npos)
    std::snprintf(d.filter, sizeof d.filter, "minimax");
  else
    return false;
  const std::string rest = line.substr(line.find(d.filter) + std::strlen(d.filter));
  return std::sscanf(line.c_str(), "RSMPL HQ Converter: %u -> %u Hz, %u channels,", &d.in_rate,
                     &d.out_rate, &d.channels) == 3 &&
         std::sscanf(rest.c_str(), " %u taps", &d.taps) == 1 &&
         ratio != std::string::npos &&
         std::sscanf(line.c_str() + ratio, ", ratio %u/%u, delay %lf ms", &d.ratio_out,
                     &d.ratio_in, &d.delay_ms) == 3;
}

// A tone of `hz` (whole Hz) starting at input frame `start` with phase 0,
// through an exact converter running at ratio_out/ratio_in with a delay of
// `delay` input frames: the phase, in cycles, of output frame `origin` + i.
struct TonePrediction {
  uint64_t hz, in_rate, ratio_out, ratio_in, delay;
  int64_t start = 0;
  uint64_t origin = 0;
  double cycles(uint64_t i) const {
    const uint64_t n = origin + i;
    // hz (n M - (delay + start) L) / (L in_rate), reduced exactly first.
    const int64_t period = int64_t(ratio_out * in_rate);
    const int64_t shift = int64_t(delay) + start;
    int64_t pos = int64_t((n % uint64_t(period)) * ratio_in % uint64_t(period)) -
                  (shift % period) * int64_t(ratio_out) % period;
    pos = ((pos % period) + period) % period;
    return double(int64_t(hz) * pos % period) / double(period);
  }
};

struct ToneFit {
  double thdn_db;       // fitted tone over everything else
  double phase_error;   // radians the output lags (+) or leads the prediction
  double gain;          // fitted amplitude over the input's
  double worst_window;  // largest RMS residual over `window` frames, over the overall RMS
  double worst_sample;  // largest |residual| in LSB
};

// Least squares of channel c's frames [first, last) against a sin + b cos of
// the predicted phase. Nothing else is fitted, so a dc offset counts as noise.
ToneFit fit_tone(const std::vector<int16_t> &interleaved, unsigned channels, unsigned c,
                 size_t first, size_t last, const TonePrediction &p, double amplitude,
                 size_t window) {
  const size_t n = last - first;
  std::vector<double> s(n), k(n), x(n);
  double ss = 0, kk = 0, sk = 0, xs = 0, xk = 0;
  for (size_t i = 0; i < n; ++i) {
    const double w = 2 * M_PI * p.cycles(first + i);
    s[i] = std::sin(w);
    k[i] = std::cos(w);
    x[i] = interleaved[(first + i) * channels + c];
    ss += s[i] * s[i]; kk += k[i] * k[i]; sk += s[i] * k[i];
    xs += x[i] * s[i]; xk += x[i] * k[i];
  }
  const double det = ss * kk - sk * sk;
  const double a = (xs * kk - xk * sk) / det, b = (xk * ss - xs * sk) / det;
  ToneFit f{};
  double signal = 0, noise = 0, sum = 0;
  std::vector<double> e(n);
  for (size_t i = 0; i < n; ++i) {
    const double tone = a * s[i] + b * k[i];
    e[i] = x[i] - tone;
    signal += tone * tone;
    noise += e[i] * e[i];
    sum += e[i] * e[i];
    if (i >= window) sum -= e[i - window] * e[i - window];
    if (i + 1 >= window) f.worst_window = std::max(f.worst_window, std::max(sum, 0.0));
    f.worst_sample = std::max(f.worst_sample, std::fabs(e[i]));
  }
  f.thdn_db = 10 * std::log10(signal / noise);
  f.phase_error = -std::atan2(b, a);
  f.gain = std::hypot(a, b) / amplitude;
  f.worst_window = std::sqrt(f.worst_window / window / (noise / n));
  return f;
}

const double kAmplitude = 32767 * 0.8912509381337456;  // -1 dBFS
const unsigned kTones[8] = {997, 1499, 2003, 2503, 3001, 3499, 4001, 4493};

struct HqPair {
  unsigned in_rate, out_rate;
};

// Each channel carries its own tone; every output frame is checked against
// the tone the ratio and the dumped delay predict, fitted only in amplitude,
// so a frame lost or repeated at a period seam, a wrong delay, crosstalk or a
// swapped channel all show.
TEST(AlsaHqPath, PeriodsConvertExactlyAndTonesComeOutClean) {
  const HqPair pairs[] = {{44100, 48000}, {48000, 44100}, {32000, 48000},
                          {22050, 48000}, {96000, 44100}, {48000, 16000}};
  const unsigned long periods[] = {1024, 1000, 441, 0};  // 0: aplay's default
  const unsigned channel_counts[] = {2, 8, 1, 2};        // by period: each pair sees all three
  for (const HqPair &p : pairs) {
    for (size_t k = 0; k < std::size(periods); ++k) {
      const unsigned channels = channel_counts[k];
      SCOPED_TRACE(::testing::Message() << p.in_rate << " -> " << p.out_rate << ", period "
                                        << periods[k] << ", " << channels << " ch");
      PipelineRequest r;
      r.in_rate = p.in_rate;
      r.out_rate = p.out_rate;
      r.channels = channels;
      r.period_frames = periods[k];
      r.pad_last_period = true;
      r.converter = "skelda_hq";
      const size_t frames = p.in_rate;  // one second
      const std::vector<double> hz(kTones, kTones + channels);
      const PipelineResult out =
          play_through_alsa(r, interleaved_sines(p.in_rate, hz, kAmplitude, frames));
      ASSERT_EQ(out.error, 0) << out.failed_call;
      HqDump d;
      ASSERT_TRUE(parse_dump(out.dump, d)) << out.dump;
      const unsigned long g = std::gcd(out.client_period, out.slave_period);
      EXPECT_EQ(d.in_rate, p.in_rate);
      EXPECT_EQ(d.out_rate, p.out_rate);
      EXPECT_EQ(d.channels, channels);
      ASSERT_EQ(d.ratio_out, out.slave_period / g);
      ASSERT_EQ(d.ratio_in, out.client_period / g);
      ASSERT_GT(d.taps, 0u);
      // Ratios of small terms run their own, shorter design; the delay is
      // the windowed sinc's either way.
      const bool small = d.ratio_out <= 8 && d.ratio_in <= 8;
      EXPECT_STREQ(d.filter, small ? "minimax" : "windowed sinc");
      EXPECT_EQ(d.taps < 2 * d.delay_frames(), small);
      EXPECT_LE(d.delay_ms, 2.0);

      const size_t whole = (frames + out.client_period - 1) / out.client_period;
      const size_t got = out.output.size() / channels;
      EXPECT_EQ(got, whole * out.slave_period);
      // From the first output with a full history to the last one of the tone.
      const size_t first = size_t(2 * d.delay_frames()) * d.ratio_out / d.ratio_in + 1;
      const size_t last = std::min(got, size_t((frames - 1) * d.ratio_out / d.ratio_in));
      double worst_thdn = 1e9;
      for (unsigned c = 0; c < channels; ++c) {
        SCOPED_TRACE(::testing::Message() << "channel " << c);
        const TonePrediction tp{kTones[c], p.in_rate, d.ratio_out, d.ratio_in, d.delay_frames()};
        const ToneFit f = fit_tone(out.output, channels, c, first, last, tp, kAmplitude, 32);
        EXPECT_GE(f.thdn_db, 93.0);
        EXPECT_NEAR(f.phase_error, 0.0, 0.001);
        EXPECT_NEAR(f.gain, 1.0, 0.0116);  // the passband's +-0.1 dB
        EXPECT_LT(f.worst_window, 2.0);
        EXPECT_LT(f.worst_sample, 3.0);
        worst_thdn = std::min(worst_thdn, f.thdn_db);
      }
      std::printf("hq %u -> %u, period %lu -> %lu, %u ch: %zu frames, taps %u, delay %.3f ms, "
                  "THD+N %.2f dB (worst channel)\n",
                  p.in_rate, p.out_rate, out.client_period, out.slave_period, channels, got,
                  d.taps, d.delay_ms, worst_thdn);
    }
  }
}

// The module's operations table, called directly as alsa-lib calls it.
using OpenFn = int (*)(unsigned, void **, snd_pcm_rate_ops_t *);

class HqModuleOps : public ::testing::Test {
 protected:
  void SetUp() override {
    const char *dir = std::getenv("ALSA_PLUGIN_DIR");
    ASSERT_NE(dir, nullptr) << "run through ctest";
    handle_ = dlopen((std::string(dir) + "/libasound_module_rate_skelda_hq.so").c_str(), RTLD_NOW);
    ASSERT_NE(handle_, nullptr) << dlerror();
    open_ = reinterpret_cast<OpenFn>(dlsym(handle_, "_snd_pcm_rate_skelda_hq_open"));
    ASSERT_NE(open_, nullptr);
    ASSERT_EQ(open_(SND_PCM_RATE_PLUGIN_VERSION, &obj_, &ops_), 0);
  }
  void TearDown() override {
    if (obj_ != nullptr) ops_.close(obj_);
    if (handle_ != nullptr) dlclose(handle_);
  }
  static snd_pcm_rate_info_t info(unsigned in_rate, unsigned out_rate, unsigned channels,
                                  snd_pcm_uframes_t in_period = 0,
                                  snd_pcm_uframes_t out_period = 0) {
    snd_pcm_rate_info_t i{};
    i.in = {SND_PCM_FORMAT_S16, in_rate, in_period * 4, in_period};
    i.out = {SND_PCM_FORMAT_S16, out_rate, out_period * 4, out_period};
    i.channels = channels;
    return i;
  }
  // alsa-lib's order in hw_params and prepare.
  int start(snd_pcm_rate_info_t i) {
    int rc = ops_.init(obj_, &i);
    if (rc == 0) rc = ops_.adjust_pitch(obj_, &i);
    if (rc == 0) ops_.reset(obj_);
    return rc;
  }
  std::string dump() {
    snd_output_t *out = nullptr;
    if (snd_output_buffer_open(&out) != 0) return "";
    ops_.dump(obj_, out);
    char *text = nullptr;
    const size_t n = snd_output_buffer_string(out, &text);
    std::string s(text, n);
    snd_output_close(out);
    return s;
  }

  void *handle_ = nullptr;
  OpenFn open_ = nullptr;
  void *obj_ = nullptr;
  snd_pcm_rate_ops_t ops_{};
};

// An hour at 44100 -> 48000 in alsa-lib's 1024 -> 1114 periods: every call
// converts exactly (nothing reported), and a tone in the last seconds sits
// where the exact ratio and the dumped delay put it after 172 million
// frames. Silence up to then keeps the input cheap.
TEST_F(HqModuleOps, AnHourOfPeriodsEndsWhereTheRatioPutsIt) {
  const unsigned in_rate = 44100, out_rate = 48000, in_period = 1024, out_period = 1114;
  ErrorCapture errors;
  ASSERT_EQ(start(info(in_rate, out_rate, 1, in_period, out_period)), 0);
  HqDump d;
  ASSERT_TRUE(parse_dump(dump(), d)) << dump();
  ASSERT_EQ(d.ratio_out * in_period, d.ratio_in * out_period);
  const uint64_t periods = (uint64_t{3600} * in_rate + in_period - 1) / in_period;
  const uint64_t tone_start = periods * in_period - 2 * in_rate;  // the last two seconds
  const uint64_t kept_from = periods * out_period - out_rate;     // the last second out
  const unsigned hz = 997;
  std::vector<int16_t> src(in_period), dst(out_period), tail;
  for (uint64_t k = 0; k < periods; ++k) {
    for (unsigned i = 0; i < in_period; ++i) {
      const uint64_t at = k * in_period + i;
      src[i] = at < tone_start ? 0
                               : static_cast<int16_t>(std::lround(
                                     kAmplitude * std::sin(2 * M_PI * double((at - tone_start) * hz % in_rate) / in_rate)));
    }
    ops_.convert_s16(obj_, dst.data(), out_period, src.data(), in_period);
    const uint64_t out_at = k * out_period;
    for (unsigned i = 0; i < out_period; ++i)
      if (out_at + i >= kept_from) tail.push_back(dst[i]);
  }
  EXPECT_TRUE(errors.reports().empty()) << errors.reports().front().message;
  ASSERT_EQ(tail.size(), out_rate);
  TonePrediction tp{hz, in_rate, d.ratio_out, d.ratio_in, d.delay_frames()};
  tp.start = int64_t(tone_start);
  tp.origin = kept_from;
  const ToneFit f = fit_tone(tail, 1, 0, 0, tail.size(), tp, kAmplitude, 32);
  // One frame off is 0.13 rad at 997 Hz.
  EXPECT_NEAR(f.phase_error, 0.0, 0.001);
  EXPECT_GE(f.thdn_db, 93.0);
  std::printf("hq an hour of %u -> %u periods (%llu): phase %.2g rad off, THD+N %.2f dB\n",
              in_period, out_period, static_cast<unsigned long long>(periods), f.phase_error,
              f.thdn_db);
}

// Every refusal returns the error alsa-lib expects and says why through
// snd_lib_error; one that comes after a good set-up leaves it working.
TEST_F(HqModuleOps, RefusalsReturnAnErrorAndSayWhy) {
  enum Call { kInit, kAdjust, kAdjustBeforeInit };
  const struct {
    const char *what;
    Call call;
    snd_pcm_rate_info_t info;
    int expected;
  } cases[] = {
      {"input rate 0", kInit, info(0, 48000, 2), -EINVAL},
      {"input rate 7999", kInit, info(7999, 48000, 2), -EINVAL},
      {"output rate 192001", kInit, info(44100, 192001, 2), -EINVAL},
      {"0 channels", kInit, info(44100, 48000, 0), -EINVAL},
      {"9 channels", kInit, info(44100, 48000, 9), -EINVAL},
      {"periods far from the rates", kInit, info(44100, 48000, 2, 1024, 1024), -EIO},
      {"both periods 0", kAdjust, info(44100, 48000, 2, 0, 0), -EIO},
      {"input period 0", kAdjust, info(44100, 48000, 2, 0, 1114), -EIO},
      {"output period 0", kAdjust, info(44100, 48000, 2, 1024, 0), -EIO},
      {"period beyond 32 bits", kAdjust, info(44100, 48000, 2, 1ull << 32, 1114), -EIO},
      {"ratio 2 for 1.09", kAdjust, info(44100, 48000, 2, 1024, 2048), -EIO},
      {"adjust_pitch before init", kAdjustBeforeInit, info(44100, 48000, 2, 1024, 1114), -EINVAL},
  };
  const std::vector<int16_t> src = interleaved_sines(44100, {997, 1499}, kAmplitude, 1024);
  std::vector<int16_t> before(1114 * 2), after(1114 * 2);
  for (int configured = 0; configured < 2; ++configured) {
    for (const auto &c : cases) {
      if (configured && c.call == kAdjustBeforeInit) continue;
      SCOPED_TRACE(::testing::Message() << c.what << (configured ? ", after a good set-up" : ""));
      TearDown();
      SetUp();
      snd_pcm_rate_info_t i = c.info;
      if (configured) {
        ASSERT_EQ(start(info(44100, 48000, 2, 1024, 1114)), 0);
        ops_.convert_s16(obj_, before.data(), 1114, src.data(), 1024);
      } else if (c.call == kAdjust) {
        snd_pcm_rate_info_t unknown = i;  // periods not known yet
        unknown.in.period_size = unknown.out.period_size = 0;
        ASSERT_EQ(ops_.init(obj_, &unknown), 0);
      }
      const std::string dumped = dump();
      ErrorCapture errors;
      EXPECT_EQ(c.call == kInit ? ops_.init(obj_, &i) : ops_.adjust_pitch(obj_, &i), c.expected);
      ASSERT_EQ(errors.reports().size(), 1u);
      EXPECT_FALSE(errors.reports()[0].message.empty());
      if (!configured || c.expected != -EINVAL) continue;
      // Nothing changed: the same set-up converts the same period again.
      EXPECT_EQ(dump(), dumped);
      ops_.reset(obj_);
      ops_.convert_s16(obj_, after.data(), 1114, src.data(), 1024);
      EXPECT_EQ(after, before);
    }
  }
}

// convert_s16 writes exactly dst_frames frames of the set-up's channels,
// whatever the frame counts (a count that does not convert exactly is
// reported once), and nothing at all outside init .. free. Input is silence,
// so any frame still holding the guard pattern was never written.
TEST_F(HqModuleOps, ConvertWritesExactlyTheRoomGivenAndOnlyWhenSetUp) {
  const size_t guard = 256;
  const int16_t pattern = 0x7A5A;
  unsigned channels = 8;  // before any set-up, room for the most
  auto written = [&](unsigned src_frames, unsigned dst_frames) {
    const std::vector<int16_t> src(size_t(src_frames) * channels, 0);
    std::vector<int16_t> dst(size_t(dst_frames) * channels + 2 * guard, pattern);
    ops_.convert_s16(obj_, dst.data() + guard, dst_frames, src.data(), src_frames);
    const auto first = dst.begin() + guard, last = dst.end() - guard;
    EXPECT_TRUE(std::all_of(dst.begin(), first, [&](int16_t v) { return v == pattern; }) &&
                std::all_of(last, dst.end(), [&](int16_t v) { return v == pattern; }))
        << "written outside " << dst_frames << " frames";
    return size_t(std::count_if(first, last, [&](int16_t v) { return v != pattern; }));
  };
  ops_.reset(obj_);
  EXPECT_EQ(written(1024, 1114), 0u) << "before init";
  ErrorCapture errors;
  ASSERT_EQ(start(info(44100, 48000, channels, 1024, 1114)), 0);
  const struct {
    unsigned src, dst;
  } calls[] = {{1024, 1114}, {10, 5000}, {5000, 10}, {0, 1114}, {1024, 0}, {1, 1}, {1024, 1114}};
  for (const auto &c : calls) EXPECT_EQ(written(c.src, c.dst), size_t(c.dst) * channels) << c.src << " -> " << c.dst;
  EXPECT_EQ(errors.reports().size(), 1u);
  ops_.free(obj_);
  EXPECT_EQ(written(1024, 1114), 0u) << "after free";
  ops_.free(obj_);
  // Set up again after a smaller state, for more channels and outputs.
  ASSERT_EQ(start(info(8000, 8000, 1, 1000, 1000)), 0);
  ASSERT_EQ(start(info(8000, 192000, 8, 1000, 24000)), 0);
  EXPECT_EQ(written(1000, 24000), 24000u * 8);
  ASSERT_EQ(start(info(192000, 8000, 2, 24000, 1000)), 0);
  channels = 2;
  EXPECT_EQ(written(24000, 1000), 1000u * 2);
  EXPECT_EQ(errors.reports().size(), 1u);
}

}  // namespace

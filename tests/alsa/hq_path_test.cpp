// SPDX-License-Identifier: MIT
// The skelda_hq converter through the real alsa-lib, and its operations
// table called directly as alsa-lib calls it. Output n of a stream stands
// for input position n / ratio - delay, with the periods' ratio and the
// delay the dump names, so a tone's every output frame is known in advance:
// the tests fit only its amplitude against that prediction.
#include <alsa/asoundlib.h>
#include <alsa/pcm_rate.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <numeric>
#include <string>
#include <vector>

#include "tests/frontend/converter_fixture.h"
#include "tests/support/alsa_pipeline.h"
#include "tests/support/channel_areas.h"
#include "tests/support/error_capture.h"

namespace {

// "RSMPL HQ Converter: 44100 -> 48000 Hz, 2 channels, 16-bit filters,
// ratio 160/147, delay 0.964 ms (42.517 input frames)".
struct HqDump {
  unsigned in_rate = 0, out_rate = 0, channels = 0, bits = 0, ratio_out = 0, ratio_in = 0;
  double delay_ms = -1;
  unsigned long long delay_whole = 0;
  unsigned delay_milli = 0;  // thousandths of an input frame
};

bool parse_dump(const std::string &dump, HqDump &d) {
  const size_t at = dump.find("RSMPL HQ Converter: ");
  return at != std::string::npos &&
         std::sscanf(dump.c_str() + at,
                     "RSMPL HQ Converter: %u -> %u Hz, %u channels, %u-bit filters, ratio %u/%u, delay %lf ms "
                     "(%llu.%u input frames)",
                     &d.in_rate, &d.out_rate, &d.channels, &d.bits, &d.ratio_out, &d.ratio_in, &d.delay_ms,
                     &d.delay_whole, &d.delay_milli) == 9;
}

const double kAmplitude = 32767 * 0.8912509381337456;  // -1 dBFS
const unsigned kTones[8] = {997, 1499, 2003, 2503, 3001, 3499, 4001, 4493};

// A tone of `hz` whole Hz with phase 0 at input frame `start`, through an
// exact converter at L/M with a delay of `whole` + `milli` / 1000 input
// frames: the phase in cycles of output frame origin + n is hz ((origin + n)
// M / L - whole - milli / 1000 - start) / rate, the whole part reduced
// exactly, so that an hour's frame counts lose nothing.
struct Tone {
  int64_t hz, rate, l, m, shift;  // shift: whole + start
  unsigned milli = 0;
  uint64_t origin = 0;
  double cycles(uint64_t n) const {
    const int64_t period = l * rate;
    const int64_t pos = ((int64_t((origin + n) % period) * m - shift % period * l) % period + period) % period;
    return double(hz * pos % period) / period - double(hz) * milli / 1000.0 / rate;
  }
};

int16_t tone_sample(unsigned hz, unsigned rate, uint64_t i) {
  return int16_t(std::lround(kAmplitude * std::sin(2 * M_PI * double(i * hz % rate) / rate)));
}

// Channel c's tone: the kTones below 0.4 of the lower rate, in turn.
unsigned tone_of(unsigned c, unsigned lower_rate) {
  unsigned usable = 0;
  while (usable < 8 && kTones[usable] < 0.4 * lower_rate) ++usable;
  return kTones[c % usable];
}

// Interleaved frames of a tone a channel at `rate`.
std::vector<int16_t> tones(unsigned rate, unsigned channels, size_t frames, unsigned lower_rate) {
  std::vector<int16_t> x(frames * channels);
  for (size_t i = 0; i < x.size(); ++i) x[i] = tone_sample(tone_of(i % channels, lower_rate), rate, i / channels);
  return x;
}

// Least squares of channel c's frames [first, last) against a sin + b cos
// of the predicted phase, nothing else fitted: THD+N, the phase error, the
// gain within the passband's 0.1 dB, and no seam (no window of 32 input
// frames' worth whose RMS residual stands out, no sample 3 LSB off).
void expect_tone(const std::vector<int16_t> &y, unsigned channels, unsigned c, size_t first, size_t last,
                 const Tone &tone) {
  const size_t n = last - first, window = std::max<size_t>(32, 32 * tone.l / tone.m);
  std::vector<double> s(n), k(n), e(n);
  double ss = 0, kk = 0, sk = 0, xs = 0, xk = 0;
  for (size_t i = 0; i < n; ++i) {
    const double w = 2 * M_PI * tone.cycles(first + i), x = y[(first + i) * channels + c];
    s[i] = std::sin(w), k[i] = std::cos(w);
    ss += s[i] * s[i], kk += k[i] * k[i], sk += s[i] * k[i], xs += x * s[i], xk += x * k[i];
  }
  const double det = ss * kk - sk * sk, a = (xs * kk - xk * sk) / det, b = (xk * ss - xs * sk) / det;
  double signal = 0, noise = 0, sum = 0, worst_window = 0, worst_sample = 0;
  for (size_t i = 0; i < n; ++i) {
    const double fitted = a * s[i] + b * k[i];
    e[i] = y[(first + i) * channels + c] - fitted;
    signal += fitted * fitted;
    noise += e[i] * e[i];
    sum += e[i] * e[i] - (i >= window ? e[i - window] * e[i - window] : 0);
    if (i + 1 >= window) worst_window = std::max(worst_window, sum);
    worst_sample = std::max(worst_sample, std::fabs(e[i]));
  }
  EXPECT_GE(10 * std::log10(signal / noise), 93.0) << "channel " << c;
  EXPECT_NEAR(std::atan2(b, a), 0.0, 0.001) << "channel " << c;  // one frame off: 0.13 rad at 997 Hz
  EXPECT_NEAR(std::hypot(a, b) / kAmplitude, 1.0, 0.0116) << "channel " << c;
  EXPECT_LT(std::sqrt(worst_window / window / (noise / n)), 2.0) << "channel " << c;
  EXPECT_LT(worst_sample, 3.0) << "channel " << c;
}

// Each channel carries its own tone, checked frame by frame against the
// prediction, so a frame lost or repeated at a period seam, a wrong delay,
// crosstalk or a swapped channel all show: today's pairs, the high rates of
// DACs (352.8 to 768 kHz) and the lowest (4 and 5.5 kHz), both ways, at
// alsa-lib's own period sizes and at forced ones, with up to 16 channels.
TEST(AlsaHqPath, PeriodsConvertExactlyAndTonesComeOutClean) {
  const unsigned pairs[][2] = {{44100, 48000}, {48000, 44100}, {32000, 48000},  {22050, 48000},
                               {96000, 44100}, {48000, 16000}, {44100, 352800}, {384000, 48000},
                               {48000, 768000}, {705600, 44100}, {8000, 768000}, {4000, 48000},
                               {44100, 5512}};
  const unsigned long periods[] = {1024, 1000, 441, 0};  // 0: aplay's default
  const unsigned channel_counts[] = {2, 16, 1, 3};       // by period: each pair sees all
  for (const auto &p : pairs)
    for (size_t k = 0; k < std::size(periods); ++k) {
      const unsigned ch = channel_counts[k];
      SCOPED_TRACE(::testing::Message() << p[0] << " -> " << p[1] << ", period " << periods[k] << ", " << ch << " ch");
      PipelineRequest r;
      r.in_rate = p[0], r.out_rate = p[1], r.channels = ch, r.period_frames = periods[k];
      r.pad_last_period = true;
      r.converter = "skelda_hq";
      // A quarter of a second, whole periods.
      const size_t frames = p[0] / 4;
      const unsigned lower = std::min(p[0], p[1]);
      const PipelineResult out = play_through_alsa(r, tones(p[0], ch, frames, lower));
      ASSERT_EQ(out.error, 0) << out.failed_call;
      HqDump d;
      ASSERT_TRUE(parse_dump(out.dump, d)) << out.dump;
      const unsigned long g = std::gcd(out.client_period, out.slave_period);
      EXPECT_TRUE(d.in_rate == p[0] && d.out_rate == p[1] && d.channels == ch && d.bits == 16) << out.dump;
      ASSERT_EQ(d.ratio_out, out.slave_period / g);
      ASSERT_EQ(d.ratio_in, out.client_period / g);
      // At most 50 samples of the lower rate.
      EXPECT_LE(d.delay_ms, 50.0 * 1000 / std::min(p[0], p[1]));
      const size_t got = out.output.size() / ch;
      EXPECT_EQ(got, (frames + out.client_period - 1) / out.client_period * out.slave_period);
      // From the first output with a full history to the tone's last one.
      const size_t first = size_t(2 * (d.delay_whole + 1)) * d.ratio_out / d.ratio_in + 1;
      const size_t last = std::min(got, size_t(frames - 1) * d.ratio_out / d.ratio_in);
      for (unsigned c = 0; c < ch; ++c)
        expect_tone(out.output, ch, c, first, last,
                    Tone{tone_of(c, lower), p[0], d.ratio_out, d.ratio_in, int64_t(d.delay_whole), d.delay_milli});
    }
}

extern "C" int _snd_pcm_rate_skelda_hq_open(unsigned, void **, snd_pcm_rate_ops_t *);

// A converter's operations table, called as alsa-lib calls it.
struct Converter {
  void *obj = nullptr;
  snd_pcm_rate_ops_t ops{};
  unsigned channels = 1;  // of the last start
  explicit Converter(int (*open)(unsigned, void **, snd_pcm_rate_ops_t *) = _snd_pcm_rate_skelda_hq_open,
                     unsigned version = SND_PCM_RATE_PLUGIN_VERSION) {
    EXPECT_EQ(open(version, &obj, &ops), 0);
  }
  ~Converter() {  // as alsa-lib ends a stream: hw_free, then close
    ops.free(obj);
    ops.close(obj);
  }
  int start(snd_pcm_rate_info_t i) {  // alsa-lib's order in hw_params and prepare
    channels = i.channels;
    int rc = ops.init(obj, &i);
    if (rc == 0) rc = ops.adjust_pitch(obj, &i);
    if (rc == 0) ops.reset(obj);
    return rc;
  }
  std::string dump() {
    snd_output_t *out = nullptr;
    if (snd_output_buffer_open(&out) != 0) return "";
    ops.dump(obj, out);
    char *text = nullptr;
    const size_t n = snd_output_buffer_string(out, &text);
    std::string s(text, n);
    snd_output_close(out);
    return s;
  }
  // Interleaved S16 frames: as channel areas when the module takes them
  // (the formats protocol), else through convert_s16.
  void convert(std::vector<int16_t> &dst, unsigned dst_frames, const std::vector<int16_t> &src, unsigned src_frames,
               size_t at = 0) {
    if (ops.convert_s16 != nullptr) return ops.convert_s16(obj, dst.data() + at, dst_frames, src.data(), src_frames);
    const auto d = test_support::interleaved_areas(dst.data() + at, channels, 16);
    const auto s = test_support::interleaved_areas(src.data(), channels, 16);
    ops.convert(obj, d.data(), 0, dst_frames, s.data(), 0, src_frames);
  }
};

// An hour at 44100 -> 48000 in alsa-lib's 1024 -> 1114 periods: every call
// converts exactly (nothing reported), and a tone in the last two seconds
// sits where the exact ratio and the dumped delay put it after 172 million
// frames.
TEST(HqModuleOps, AnHourOfPeriodsEndsWhereTheRatioPutsIt) {
  Converter hq;
  const unsigned rate = 44100, in_period = 1024, out_period = 1114;
  ErrorCapture errors;
  ASSERT_EQ(hq.start(rate_info(rate, 48000, 1, in_period, out_period)), 0);
  HqDump d;
  ASSERT_TRUE(parse_dump(hq.dump(), d)) << hq.dump();
  const uint64_t periods = (uint64_t{3600} * rate + in_period - 1) / in_period;
  const uint64_t tone_start = periods * in_period - 2 * rate, kept_from = periods * out_period - 48000;
  std::vector<int16_t> src(in_period), dst(out_period), tail;
  for (uint64_t k = 0; k < periods; ++k) {
    for (unsigned i = 0; i < in_period; ++i) {
      const uint64_t at = k * in_period + i;
      src[i] = at < tone_start ? 0 : tone_sample(kTones[0], rate, at - tone_start);
    }
    hq.convert(dst, out_period, src, in_period);
    for (unsigned i = 0; i < out_period; ++i)
      if (k * out_period + i >= kept_from) tail.push_back(dst[i]);
  }
  EXPECT_TRUE(errors.reports().empty());
  ASSERT_EQ(tail.size(), 48000u);
  expect_tone(tail, 1, 0, 0, tail.size(),
              Tone{kTones[0], rate, d.ratio_out, d.ratio_in, int64_t(d.delay_whole + tone_start), d.delay_milli,
                   kept_from});
}

// Every refusal returns the error alsa-lib expects and says why once; after
// a good set-up, one that leaves the stream alone (all but init with
// periods it cannot follow, which starts over at the rates) leaves it
// converting the same. init with one period unknown waits for both.
TEST(HqModuleOps, RefusalsReturnAnErrorAndSayWhy) {
  const struct {
    const char *what;
    bool init;
    snd_pcm_rate_info_t info;
    int expected;
  } cases[] = {
      {"output rate 768001", true, rate_info(44100, 768001, 2), -EINVAL},
      {"input rate 3999", true, rate_info(3999, 48000, 2), -EINVAL},
      {"65 channels", true, rate_info(44100, 48000, 65), -EINVAL},
      {"periods more than 1/8 from the rates", true, rate_info(44100, 48000, 2, 1024, 1254), -EIO},
      {"init, output period 0", true, rate_info(44100, 48000, 2, 1024, 0), 0},
      {"both periods 0", false, rate_info(44100, 48000, 2), -EIO},
      {"input period 0", false, rate_info(44100, 48000, 2, 0, 1114), -EIO},
      {"output period 0", false, rate_info(44100, 48000, 2, 1024, 0), -EIO},
      {"the largest period (beyond 32 bits where it can be)", false,
       rate_info(44100, 48000, 2, static_cast<snd_pcm_uframes_t>(-1), 1114), -EIO},
      {"ratio 2 for 1.09", false, rate_info(44100, 48000, 2, 1024, 2048), -EIO},
  };
  const std::vector<int16_t> src = tones(44100, 2, 1024, 44100);
  std::vector<int16_t> before(2 * 1114), after(2 * 1114);
  for (const auto &c : cases) {
    SCOPED_TRACE(c.what);
    Converter hq;
    ASSERT_EQ(hq.start(rate_info(44100, 48000, 2, 1024, 1114)), 0);
    hq.convert(before, 1114, src, 1024);
    const std::string dumped = hq.dump();
    ErrorCapture errors;
    snd_pcm_rate_info_t i = c.info;
    EXPECT_EQ(c.init ? hq.ops.init(hq.obj, &i) : hq.ops.adjust_pitch(hq.obj, &i), c.expected);
    EXPECT_EQ(errors.reports().size(), c.expected != 0 ? 1u : 0u);
    if (c.init && c.expected != -EINVAL) continue;
    EXPECT_EQ(hq.dump(), dumped);
    hq.ops.reset(hq.obj);
    hq.convert(after, 1114, src, 1024);
    EXPECT_EQ(after, before);
  }
  Converter hq;
  ErrorCapture errors;
  snd_pcm_rate_info_t i = rate_info(44100, 48000, 2, 1024, 1114);
  EXPECT_EQ(hq.ops.adjust_pitch(hq.obj, &i), -EINVAL) << "before init";
  EXPECT_EQ(errors.reports().size(), 1u);
  // Periods just within 1/8 of the rates' ratio (1253.9 frames) are taken.
  EXPECT_EQ(hq.start(rate_info(44100, 48000, 2, 1024, 1253)), 0);
}

// convert_s16 writes exactly dst_frames frames of the set-up's channels,
// whatever the counts, and nothing before init or after free. Channel c's
// input is (c + 1) 1000 throughout: once a window is in, every frame is
// exactly that (each phase passes DC unchanged), also those a short input
// leaves to repeat the last frame made; with no input they are silence. A
// count that does not convert exactly is reported once. The frame counts
// alsa-lib asks for go by the periods' ratio, rounded to nearest. On areas
// and, for an older alsa-lib, through convert_s16.
TEST(HqModuleOps, ConvertWritesExactlyTheRoomGivenAndOnlyWhenSetUp) {
  for (unsigned version : {unsigned{SND_PCM_RATE_PLUGIN_VERSION}, 0x010002u}) {
    SCOPED_TRACE(version);
    Converter hq(_snd_pcm_rate_skelda_hq_open, version);
    const int16_t guard = 0x7A5A;
    unsigned channels = 8;
    auto convert = [&](unsigned src_frames, unsigned dst_frames) {
      std::vector<int16_t> src(size_t(src_frames) * channels), dst((dst_frames + 128) * channels, guard);
      for (size_t i = 0; i < src.size(); ++i) src[i] = int16_t(1000 * (1 + i % channels));
      hq.convert(dst, dst_frames, src, src_frames, 64 * channels);
      return dst;
    };
    auto written = [&](const std::vector<int16_t> &dst) {
      const auto body = dst.begin() + 64 * channels, tail = dst.end() - 64 * channels;
      EXPECT_TRUE(std::all_of(dst.begin(), body, [&](int16_t v) { return v == guard; }) &&
                  std::all_of(tail, dst.end(), [&](int16_t v) { return v == guard; }));
      return size_t(std::count_if(body, tail, [&](int16_t v) { return v != guard; }));
    };
    hq.ops.reset(hq.obj);
    EXPECT_EQ(written(convert(1024, 1114)), 0u) << "before init";
    ErrorCapture errors;
    ASSERT_EQ(hq.start(rate_info(44100, 48000, channels, 1024, 1114)), 0);
    EXPECT_TRUE(hq.ops.output_frames(hq.obj, 1024) == 1114 && hq.ops.input_frames(hq.obj, 1114) == 1024 &&
                hq.ops.output_frames(hq.obj, 256) == 279 && hq.ops.input_frames(hq.obj, 1) == 1);  // 278.5, 0.92
    const unsigned calls[][3] = {{1024, 1114, 2}, {10, 5000, 1}, {5000, 10, 2}, {0, 1114, 0}, {1024, 0, 2}, {1, 1, 2}};
    for (const auto &c : calls) {  // c[2]: 1 DC throughout, 0 silence, 2 unchecked
      const auto dst = convert(c[0], c[1]);
      EXPECT_EQ(written(dst), size_t(c[1]) * channels) << c[0] << " -> " << c[1];
      for (size_t i = 64 * channels; c[2] < 2 && i < (64 + c[1]) * channels; ++i)
        ASSERT_EQ(dst[i], c[2] * 1000 * (1 + int(i % channels))) << "frame " << i / channels - 64;
    }
    EXPECT_EQ(errors.reports().size(), 1u);
    hq.ops.free(hq.obj);
    EXPECT_EQ(written(convert(1024, 1114)), 0u) << "after free";
    hq.ops.free(hq.obj);
    // Set up again after a smaller state, for more channels and outputs.
    ASSERT_EQ(hq.start(rate_info(8000, 8000, 1, 1000, 1000)), 0);
    ASSERT_EQ(hq.start(rate_info(8000, 192000, 8, 1000, 24000)), 0);
    EXPECT_EQ(written(convert(1000, 24000)), 24000u * 8);
    channels = 2;
    ASSERT_EQ(hq.start(rate_info(192000, 8000, 2, 24000, 1000)), 0);
    EXPECT_EQ(written(convert(24000, 1000)), 1000u * 2);
    EXPECT_EQ(errors.reports().size(), 1u);
  }
}

// skelda's FIR stream leaves the resampler (taken on periods that do not
// convert exactly at the factor) for the FIR path when the periods do, and
// says nothing about it. The resampler's state grows with a set-up for more
// channels (AddressSanitizer sees a period written past a small one).
TEST(HqModuleOps, SkeldaReturnsToTheFirPathOnEvenPeriods) {
  Converter skelda(_snd_pcm_rate_skelda_open);
  ErrorCapture errors;
  ASSERT_EQ(skelda.start(rate_info(24000, 48000, 1, 1000, 2001)), 0);
  ASSERT_EQ(skelda.start(rate_info(48000, 16000, 2, 1024, 341)), 0);
  std::vector<int16_t> src(2 * 1024, 1000), dst(2 * 341);
  skelda.convert(dst, 341, src, 1024);
  EXPECT_NE(skelda.dump().find("Windowed sinc at periods 1024 -> 341"), std::string::npos);
  snd_pcm_rate_info_t i = rate_info(48000, 16000, 2, 1023, 341);
  ASSERT_EQ(skelda.ops.adjust_pitch(skelda.obj, &i), 0);
  EXPECT_EQ(skelda.dump(), "RSMPL Converter: FIR filter, DOWN 48000 -> 16000\n");
  EXPECT_EQ(errors.reports().size(), 2u);
}

}  // namespace

// SPDX-License-Identifier: MIT
// skelda_convert's files, decoded, against the library's own conversion of
// the same samples: on the default path (also spelled --hq), the 32-bit
// resampler's public calls at the rates' ratio (S16 out with its dither for
// 16-bit files, S32 out rounded to 24 bits for 24-bit ones), the first
// round(delay x out / in) outputs dropped, the delay GetPosition's; with
// --fir, the skelda converter's operations at whole periods, on input
// rounded to 16 bits. 16-bit, 24-bit and float files of odd channel counts,
// gated tones near full scale that overshoot after filtering (so saturation
// shows: it must clip, never wrap), several of the tool's 4096-frame blocks,
// every --bits and dither setting, each container the manual names; and
// the default path's limits: the lowest and highest rates and the most
// channels convert, one past each is refused.
#include <gtest/gtest.h>
#include <sndfile.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "skelda/rsmpl_hq.h"
#include "src/rate_rsmpl.h"

namespace {

enum Input { kPcm16, kPcm24, kFloat };
const char *const kInputNames[] = {"16-bit", "24-bit", "float"};

// Three of the tool's 4096-frame blocks and two frames: after the last
// whole period of --fir at 44100 -> 22050 (1024 -> 512 frames)
// one output frame is still owed, and a 96000 -> 44100 block of two frames
// makes at most one.
const size_t kFrames = 3 * 4096 + 2;

// Channel c: a -0.1 dBFS tone at 0.45 (less 0.03 per channel) of the lower
// rate, switched on and off abruptly at its own times. Float input goes
// past full scale (1.25, -1.5) in a few samples, and holds exactly 1.0 in
// one; PCM is at its depth, as int32 at full scale 2^31.
struct Signal {
  std::vector<float> floats;
  std::vector<int32_t> ints;  // what the tool reads: float scaled, rounded and clipped
};

Signal make_signal(Input input, unsigned rate, unsigned lower, unsigned channels) {
  Signal s;
  const double amplitude = std::pow(10.0, -0.1 / 20);
  for (size_t f = 0; f < kFrames; ++f)
    for (unsigned c = 0; c < channels; ++c) {
      const bool on = (f + 397 * c) % 1500 < 1100;
      const double w = 2 * M_PI * (0.45 - 0.03 * c) * lower / rate;
      double v = on ? amplitude * std::sin(w * double(f) + c) : 0.0;
      if (input == kFloat && f % 1777 == 5) v = c % 2 ? 1.25 : -1.5;
      if (input == kFloat && f == 4100) v = 1.0;
      const int bits = input == kPcm16 ? 16 : 24;
      const double scale = std::ldexp(1.0, bits - 1);
      int64_t q = input == kFloat ? 0 : std::llround(v * scale);
      q = std::clamp<int64_t>(q, -int64_t(scale), int64_t(scale) - 1);
      const float fv = float(v);
      s.floats.push_back(fv);
      const double wide = input == kFloat ? std::round(double(fv) * 2147483648.0) : double(q * (int64_t{1} << (32 - bits)));
      s.ints.push_back(int32_t(std::clamp(wide, -2147483648.0, 2147483647.0)));
    }
  return s;
}

std::string write_input(const std::string &path, Input input, unsigned rate, unsigned channels, const Signal &s) {
  SF_INFO info{};
  info.samplerate = int(rate);
  info.channels = int(channels);
  info.format = SF_FORMAT_WAV | (input == kPcm16 ? SF_FORMAT_PCM_16 : input == kPcm24 ? SF_FORMAT_PCM_24 : SF_FORMAT_FLOAT);
  SNDFILE *f = sf_open(path.c_str(), SFM_WRITE, &info);
  if (f == nullptr) return sf_strerror(nullptr);
  const sf_count_t n = input == kFloat ? sf_writef_float(f, s.floats.data(), sf_count_t(kFrames))
                                       : sf_writef_int(f, s.ints.data(), sf_count_t(kFrames));
  sf_close(f);
  return n == sf_count_t(kFrames) ? "" : "short write";
}

struct Decoded {
  SF_INFO info{};
  std::vector<int32_t> samples;  // int32 at full scale 2^31
};

Decoded read_output(const std::string &path) {
  Decoded d;
  SNDFILE *f = sf_open(path.c_str(), SFM_READ, &d.info);
  if (f == nullptr) return d;
  d.samples.resize(size_t(d.info.frames) * size_t(d.info.channels));
  d.samples.resize(size_t(sf_readf_int(f, d.samples.data(), d.info.frames)) * size_t(d.info.channels));
  sf_close(f);
  return d;
}

// The output frames the manual promises: the input's duration at the new
// rate, to the nearest frame.
size_t owed(unsigned in_rate, unsigned out_rate) { return size_t(std::llround(double(kFrames) * out_rate / in_rate)); }

struct FreeState {
  void operator()(RSMPL_Hq32State *s) const { std::free(s); }
};

// What the default path promises: the 32-bit resampler at the rates' ratio,
// output n standing for input position n / ratio, to the output's depth.
std::vector<int32_t> hq_reference(const std::vector<int32_t> &x, unsigned channels, unsigned in_rate,
                                  unsigned out_rate, int bits, bool dither) {
  uint32_t size = 0;
  EXPECT_EQ(RSMPL_Hq32GetStateSize(in_rate, out_rate, channels, &size), RSMPL_OK);
  std::unique_ptr<RSMPL_Hq32State, FreeState> st(static_cast<RSMPL_Hq32State *>(std::malloc(size)));
  EXPECT_EQ(RSMPL_Hq32Init(st.get(), size, in_rate, out_rate, channels), RSMPL_OK);
  EXPECT_EQ(RSMPL_Hq32SetDither(st.get(), dither), RSMPL_OK);
  RSMPL_HqPosition where{};
  EXPECT_EQ(RSMPL_Hq32GetPosition(st.get(), &where), RSMPL_OK);
  // The chain's delay (input frames, to 2^-32), in output frames to the
  // nearest: outputs before it stand for positions before the input's
  // start. Silence after the input flushes it.
  const long double delay = where.delayFrames + std::ldexp((long double)where.delayFraction, -32);
  const size_t skip = size_t(std::llround(delay * out_rate / in_rate));
  std::vector<int32_t> in(x);
  in.resize(x.size() + size_t(where.delayFrames + 2) * channels, 0);
  uint32_t n = uint32_t(in.size() / channels), m = 0;
  RSMPL_Hq32OutputFrames(st.get(), n, &m);
  std::vector<int32_t> y(size_t(m) * channels);
  std::vector<int16_t> y16(y.size());
  EXPECT_EQ(RSMPL_Hq32Process(st.get(), in.data(), RSMPL_HQ_S32, &n,
                              bits == 16 ? static_cast<void *>(y16.data()) : y.data(),
                              bits == 16 ? RSMPL_HQ_S16 : RSMPL_HQ_S32, &m),
            RSMPL_OK);
  for (size_t i = 0; i < y.size(); ++i) {
    if (bits == 16) y[i] = int32_t(y16[i]) * 65536;
    if (bits == 24) y[i] = int32_t(std::min<int64_t>((int64_t{y[i]} + 128) >> 8, 8388607)) * 256;
  }
  const size_t frames = owed(in_rate, out_rate);
  EXPECT_GE(size_t(m), skip + frames);
  if (size_t(m) < skip + frames) return {};
  return std::vector<int32_t>(y.begin() + ptrdiff_t(skip * channels), y.begin() + ptrdiff_t((skip + frames) * channels));
}

// What --fir promises: the skelda converter's operations, period by period,
// on the input rounded to 16 bits; its 16 bits out at any depth.
std::vector<int32_t> plugin_reference(const std::vector<int32_t> &x, unsigned channels, unsigned in_rate,
                                      unsigned out_rate, unsigned in_period, unsigned out_period) {
  void *obj = nullptr;
  snd_pcm_rate_ops_t ops{};
  EXPECT_EQ(_snd_pcm_rate_skelda_open(SND_PCM_RATE_PLUGIN_VERSION, &obj, &ops), 0);
  snd_pcm_rate_info_t info{{SND_PCM_FORMAT_S16, in_rate, 0, in_period}, {SND_PCM_FORMAT_S16, out_rate, 0, out_period}, channels};
  EXPECT_EQ(ops.init(obj, &info), 0);
  EXPECT_EQ(ops.adjust_pitch(obj, &info), 0);
  std::vector<int16_t> in;
  for (int32_t v : x) in.push_back(int16_t(std::min<int64_t>((int64_t{v} + 32768) >> 16, 32767)));
  const size_t periods = (kFrames + in_period - 1) / in_period;
  in.resize(periods * in_period * channels, 0);
  std::vector<int16_t> out(periods * out_period * channels);
  for (size_t p = 0; p < periods; ++p)
    ops.convert_s16(obj, &out[p * out_period * channels], out_period, &in[p * in_period * channels], in_period);
  ops.free(obj);
  ops.close(obj);
  std::vector<int32_t> y;
  for (size_t i = 0; i < owed(in_rate, out_rate) * channels; ++i) y.push_back(int32_t(out[i]) * 65536);
  return y;
}

class ConvertTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char dir[] = "/tmp/skelda-convert-test-XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    dir_ = dir;
  }
  void TearDown() override { std::system(("rm -rf '" + dir_ + "'").c_str()); }
  // Runs the tool; its exit status, its summary line in summary_ and the
  // first line of its complaints in complaint_.
  int convert(const std::string &args, const std::string &in, const std::string &out) {
    const std::string said = dir_ + "/summary.txt", complained = dir_ + "/complaint.txt";
    const std::string command = std::string(SKELDA_CONVERT) + " -q " + args + " '" + in + "' '" + out + "' >" +
                                said + " 2>" + complained;
    const int status = std::system(command.c_str());
    summary_ = first_line(said);
    complaint_ = first_line(complained);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  static std::string first_line(const std::string &path) {
    std::FILE *f = std::fopen(path.c_str(), "r");
    char line[512] = "";
    if (f != nullptr && std::fgets(line, sizeof line, f) == nullptr) line[0] = '\0';
    if (f != nullptr) std::fclose(f);
    return line;
  }
  std::string summary_, complaint_;
  std::string dir_;
};

const struct {
  unsigned in_rate, out_rate;
} kPairs[] = {{44100, 48000}, {48000, 44100}, {96000, 44100}, {RSMPL_HQ_RATE_MIN, 48000}, {RSMPL_HQ_RATE_MAX, 44100}};
const unsigned kOddChannels[] = {1, 3, 5, 7};
const struct {
  const char *extension;
  int type;
} kContainers[] = {{"wav", SF_FORMAT_WAV}, {"flac", SF_FORMAT_FLAC}, {"aiff", SF_FORMAT_AIFF},
                   {"caf", SF_FORMAT_CAF}, {"w64", SF_FORMAT_W64},   {"au", SF_FORMAT_AU}};

// Every input, --bits and dither setting on the default path (a third of the
// rows spelling it --hq), each row with its own channel count, rates and
// container: the decoded samples are exactly the resampler's, and the peaks
// that overshoot full scale are clipped.
TEST_F(ConvertTest, DefaultPathFilesHoldTheResamplersSamples) {
  int row = 0, clipped_rows = 0;
  for (Input input : {kPcm16, kPcm24, kFloat})
    for (int bits_asked : {0, 16, 24, 32})
      for (bool dither : {true, false}) {
        const unsigned channels = kOddChannels[row % 4];
        const auto pair = kPairs[row % 5];
        const auto container = kContainers[row % 6].type == SF_FORMAT_FLAC && bits_asked == 32 ? kContainers[0]
                                                                                                : kContainers[row % 6];
        const char *const path = row % 3 == 1 ? "--hq " : "";
        ++row;
        const int in_bits = input == kPcm16 ? 16 : input == kPcm24 ? 24 : 32;
        const int bits = bits_asked != 0 ? bits_asked : container.type == SF_FORMAT_FLAC ? std::min(in_bits, 24) : in_bits;
        const std::string args = path + ("-r " + std::to_string(pair.out_rate)) +
                                 (bits_asked ? " --bits " + std::to_string(bits_asked) : "") +
                                 (dither ? "" : " --no-dither");
        SCOPED_TRACE(::testing::Message() << kInputNames[input] << ", " << channels << " channels, " << pair.in_rate
                                          << " -> " << args << ", ." << container.extension);
        const Signal s = make_signal(input, pair.in_rate, std::min(pair.in_rate, pair.out_rate), channels);
        const std::string in = dir_ + "/in.wav", out = dir_ + "/out." + container.extension;
        ASSERT_EQ(write_input(in, input, pair.in_rate, channels, s), "");
        ASSERT_EQ(convert(args, in, out), 0);
        // The summary names both depths.
        EXPECT_NE(summary_.find(std::to_string(channels) + " ch, " + std::to_string(in_bits) + " bits"), std::string::npos)
            << summary_;
        EXPECT_NE(summary_.find(std::to_string(pair.out_rate) + " Hz, " + std::to_string(bits) + " bits"), std::string::npos)
            << summary_;
        const Decoded d = read_output(out);
        EXPECT_EQ(d.info.format & SF_FORMAT_TYPEMASK, container.type);
        EXPECT_EQ(d.info.format & SF_FORMAT_SUBMASK,
                  bits == 16 ? SF_FORMAT_PCM_16 : bits == 24 ? SF_FORMAT_PCM_24 : SF_FORMAT_PCM_32);
        EXPECT_EQ(d.info.samplerate, int(pair.out_rate));
        ASSERT_EQ(d.info.channels, int(channels));
        ASSERT_EQ(size_t(d.info.frames), owed(pair.in_rate, pair.out_rate));
        const auto want = hq_reference(s.ints, channels, pair.in_rate, pair.out_rate, bits, dither && bits == 16);
        ASSERT_EQ(d.samples.size(), want.size());
        size_t first_difference = 0;
        while (first_difference < want.size() && d.samples[first_difference] == want[first_difference]) ++first_difference;
        EXPECT_EQ(first_difference, want.size()) << "frame " << first_difference / channels << ", channel "
                                                 << first_difference % channels;
        const int32_t top = bits == 32 ? INT32_MAX : bits == 24 ? 8388607 * 256 : 32767 * 65536;
        clipped_rows += std::count(want.begin(), want.end(), top) > 0;
      }
  // The signals reach full scale after filtering, so a wrap would show.
  EXPECT_GE(clipped_rows, row / 2);
}

// The default path's limits: the lowest rate up to the highest and back,
// and the most channels, hold the resampler's samples; a rate or a channel
// past them is refused with status 3 and a message naming the limit, and
// leaves no file behind.
TEST_F(ConvertTest, DefaultPathConvertsToItsLimitsAndRefusesPastThem) {
  const unsigned lo = RSMPL_HQ_RATE_MIN, hi = RSMPL_HQ_RATE_MAX, most = RSMPL_HQ_MAX_CHANNELS;
  const struct {
    unsigned in_rate, out_rate, channels;
    const char *refusal;  // null: converts
  } cases[] = {
      {lo, hi, 1, nullptr},          {hi, lo, 2, nullptr},
      {8000, 44100, most, nullptr},  {8000, 44100, most + 1, "at most 64"},
      {lo - 1, 48000, 1, "4000..768000"}, {48000, lo - 1, 1, "4000..768000"},
      {hi + 1, 48000, 1, "4000..768000"}, {48000, hi + 1, 1, "4000..768000"},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(::testing::Message() << c.in_rate << " -> " << c.out_rate << ", " << c.channels << " channels");
    const Signal s = make_signal(kPcm16, c.in_rate, std::min(c.in_rate, c.out_rate), c.channels);
    const std::string in = dir_ + "/in.wav", out = dir_ + "/out.wav";
    ASSERT_EQ(write_input(in, kPcm16, c.in_rate, c.channels, s), "");
    const int status = convert("-r " + std::to_string(c.out_rate), in, out);
    if (c.refusal != nullptr) {
      EXPECT_EQ(status, 3);
      EXPECT_NE(complaint_.find(c.refusal), std::string::npos) << complaint_;
      size_t files = 0;  // in.wav and the two the tool's streams went to
      for (const auto &entry : std::filesystem::directory_iterator(dir_)) files += entry.is_regular_file();
      EXPECT_EQ(files, 3u) << "left behind by a refusal";
      continue;
    }
    ASSERT_EQ(status, 0) << complaint_;
    const Decoded d = read_output(out);
    ASSERT_EQ(d.info.channels, int(c.channels));
    ASSERT_EQ(size_t(d.info.frames), owed(c.in_rate, c.out_rate));
    EXPECT_TRUE(d.samples == hq_reference(s.ints, c.channels, c.in_rate, c.out_rate, 16, true));
    std::filesystem::remove(out);
  }
}

// --fir (the skelda converter): 16-bit input as it is, deeper input rounded
// to 16 bits without --no-dither's dither exactly, and with dither within a
// few steps of it; written at the input's depth or --bits.
TEST_F(ConvertTest, FirFilesHoldTheConvertersSamples) {
  const struct {
    Input input;
    const char *args;
    unsigned channels, in_rate, out_rate, in_period, out_period;
    int bits;
    bool dithered;
  } cases[] = {
      {kPcm16, "--fir -r 22050", 1, 44100, 22050, 882, 441, 16, false},
      {kPcm16, "--fir -r 48000 --bits 24", 3, 16000, 48000, 320, 960, 24, false},
      {kPcm24, "--fir -r 24000 --no-dither", 3, 48000, 24000, 1000, 500, 24, false},
      {kPcm24, "--fir -r 16000 --no-dither --bits 16", 1, 48000, 16000, 960, 320, 16, false},
      {kFloat, "--fir -r 22050 --no-dither", 3, 44100, 22050, 882, 441, 32, false},
      {kPcm24, "--fir -r 24000", 3, 48000, 24000, 1000, 500, 24, true},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(::testing::Message() << kInputNames[c.input] << ", " << c.channels << " channels, " << c.in_rate
                                      << " " << c.args);
    const Signal s = make_signal(c.input, c.in_rate, std::min(c.in_rate, c.out_rate), c.channels);
    const std::string in = dir_ + "/in.wav", out = dir_ + "/out.wav";
    ASSERT_EQ(write_input(in, c.input, c.in_rate, c.channels, s), "");
    ASSERT_EQ(convert(c.args, in, out), 0);
    const Decoded d = read_output(out);
    EXPECT_EQ(d.info.format & SF_FORMAT_SUBMASK,
              c.bits == 16 ? SF_FORMAT_PCM_16 : c.bits == 24 ? SF_FORMAT_PCM_24 : SF_FORMAT_PCM_32);
    ASSERT_EQ(d.info.channels, int(c.channels));
    ASSERT_EQ(size_t(d.info.frames), owed(c.in_rate, c.out_rate));
    const auto want = plugin_reference(s.ints, c.channels, c.in_rate, c.out_rate, c.in_period, c.out_period);
    ASSERT_EQ(d.samples.size(), want.size());
    if (!c.dithered) {
      EXPECT_TRUE(d.samples == want);
      continue;
    }
    // Dither moves each input by at most one step each way, so an output by
    // at most the filter's gain in steps; and it moves some.
    int64_t worst = 0;
    for (size_t i = 0; i < want.size(); ++i) worst = std::max(worst, std::abs(int64_t{d.samples[i]} - want[i]) >> 16);
    EXPECT_LE(worst, 3);
    EXPECT_NE(d.samples, want);
  }
}

}  // namespace

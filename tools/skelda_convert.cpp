// SPDX-License-Identifier: MIT
// Offline converter: reads any format libsndfile reads, converts it with the
// high-quality resampler (any rates 4000..768000 Hz, up to 64 channels, 32
// bits inside) or, on request, with the code the skelda plugin runs in
// alsa-lib (FIR for factors 2, 3 and 6, linear otherwise) or the engine's
// sinc interpolator at any ratio from 1/8 to 8, and writes signed audio of
// the input's depth (16, 24 or 32 bits; --bits chooses), dithered when it
// goes down to 16 bits. The
// output appears only when complete: it is written to a temporary file
// beside it and renamed at the end.
//
// Samples travel as int32 at full scale 2^31 throughout: 16-bit converters
// take them rounded to 16 bits and give them back shifted up, which every
// depth holds exactly.
#include <sndfile.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <numeric>
#include <string>
#include <vector>

#include "skelda/rsmpl.h"
#include "skelda/rsmpl_hq.h"
#include "src/rate_rsmpl.h"

namespace {

const char kUsage[] =
    "usage: skelda_convert [options] INPUT OUTPUT\n"
    "  -r, --rate HZ     output rate (default 48000)\n"
    "  --hq              the high-quality resampler (the default: any pair of\n"
    "                    rates from 4000 to 768000 Hz, up to 64 channels)\n"
    "  --fir             the skelda plugin's FIR filters or linear interpolation\n"
    "                    (rates 8000..48000 Hz, up to four channels)\n"
    "  -s, --sinc        the sinc interpolator (ratio 1/8 to 8, any rates)\n"
    "  -b, --bits N      output depth: 16, 24 or 32 bits (default: the input's;\n"
    "                    32 for float input, 24 in FLAC)\n"
    "  --no-dither       round down to 16 bits without TPDF dither\n"
    "  -q, --quiet       no progress bar\n"
    "Output is signed PCM in the container the OUTPUT name suggests (.wav\n"
    ".flac .aiff .au .caf .w64); WAV otherwise. Only the high-quality\n"
    "resampler carries more than 16 bits through the conversion.\n";

struct Options {
  std::string input, output;
  int rate = 48000;
  int bits = 0;  // 0: the input's depth
  bool dither = true;
  bool sinc = false;
  bool fir = false;
  bool quiet = false;
};

// Exit statuses, so scripts can tell the failures apart.
enum Exit { kOk = 0, kUsageError = 1, kInputError = 2, kUnsupported = 3, kOutputError = 4 };

[[noreturn]] void fail(Exit code, const std::string &message) {
  std::fprintf(stderr, "skelda_convert: %s\n", message.c_str());
  std::exit(code);
}

Options parse(int argc, char **argv) {
  Options o;
  std::vector<std::string> files;
  for (int i = 1; i < argc; ++i) {
    const std::string a = argv[i];
    if ((a == "-r" || a == "--rate") && i + 1 < argc) {
      char *end = nullptr;
      const long r = std::strtol(argv[++i], &end, 10);
      if (*end != '\0' || r <= 0 || r > 1000000) fail(kUsageError, "bad rate: " + std::string(argv[i]));
      o.rate = static_cast<int>(r);
    } else if ((a == "-b" || a == "--bits") && i + 1 < argc) {
      const std::string b = argv[++i];
      if (b != "16" && b != "24" && b != "32") fail(kUsageError, "bad depth: " + b + " (16, 24 or 32)");
      o.bits = std::stoi(b);
    } else if (a == "--no-dither") {
      o.dither = false;
    } else if (a == "-s" || a == "--sinc") {
      o.sinc = true;
      o.fir = false;
    } else if (a == "--fir") {
      o.fir = true;
      o.sinc = false;
    } else if (a == "--hq") {
      o.fir = o.sinc = false;
    } else if (a == "-q" || a == "--quiet") {
      o.quiet = true;
    } else if (a == "-h" || a == "--help") {
      std::fputs(kUsage, stdout);
      std::exit(kOk);
    } else if (!a.empty() && a[0] == '-' && a != "-") {
      std::fputs(kUsage, stderr);
      fail(kUsageError, "unknown option " + a);
    } else {
      files.push_back(a);
    }
  }
  if (files.size() != 2) {
    std::fputs(kUsage, stderr);
    fail(kUsageError, "need one INPUT and one OUTPUT");
  }
  o.input = files[0];
  o.output = files[1];
  return o;
}

int container_for(const std::string &name) {
  const size_t dot = name.rfind('.');
  std::string ext = dot == std::string::npos ? "" : name.substr(dot + 1);
  for (char &c : ext) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  if (ext == "flac") return SF_FORMAT_FLAC;
  if (ext == "aiff" || ext == "aif") return SF_FORMAT_AIFF;
  if (ext == "au") return SF_FORMAT_AU;
  if (ext == "caf") return SF_FORMAT_CAF;
  if (ext == "w64") return SF_FORMAT_W64;
  return SF_FORMAT_WAV;
}

// Converts interleaved frames in pieces; finish() flushes what is held back.
// The 16-bit converters (the plugin's path, the sinc interpolator) are these.
class Converter16 {
 public:
  virtual ~Converter16() = default;
  virtual void convert(const int16_t *in, size_t frames, std::vector<int16_t> &out) = 0;
  virtual void finish(std::vector<int16_t> &out) = 0;
  virtual std::string description() const = 0;
};

// The same on int32 samples at full scale 2^31: what main drives.
class Converter {
 public:
  virtual ~Converter() = default;
  virtual void convert(const int32_t *in, size_t frames, std::vector<int32_t> &out) = 0;
  virtual void finish(std::vector<int32_t> &out) = 0;
  virtual std::string description() const = 0;
};

// Rounds int32 samples to 16 bits, with TPDF dither of +-1 LSB when asked
// (a fixed-seed xorshift32, so the same file always gives the same output).
class Narrower {
 public:
  explicit Narrower(bool dither) : dither_(dither) {}
  void run(const int32_t *in, size_t n, int16_t *out) {
    for (size_t i = 0; i < n; ++i) {
      int64_t d = 0;
      if (dither_) {
        noise_ ^= noise_ << 13;
        noise_ ^= noise_ >> 17;
        noise_ ^= noise_ << 5;
        d = int64_t{noise_ >> 16} + (noise_ & 0xffff) - 65536;
      }
      const int64_t v = (int64_t{in[i]} + 32768 + d) >> 16;
      out[i] = static_cast<int16_t>(v > INT16_MAX ? INT16_MAX : v < INT16_MIN ? INT16_MIN : v);
    }
  }

 private:
  bool dither_;
  uint32_t noise_ = 0x2545f491;
};

// A 16-bit converter behind the int32 interface: input rounded to 16 bits
// (dithered when it carries more), output shifted up.
class Via16 : public Converter {
 public:
  Via16(std::unique_ptr<Converter16> narrow, unsigned channels, bool dither)
      : narrow_(std::move(narrow)), channels_(channels), input_(dither) {}
  void convert(const int32_t *in, size_t frames, std::vector<int32_t> &out) override {
    in16_.resize(frames * channels_);
    input_.run(in, in16_.size(), in16_.data());
    out16_.clear();
    narrow_->convert(in16_.data(), frames, out16_);
    widen(out);
  }
  void finish(std::vector<int32_t> &out) override {
    out16_.clear();
    narrow_->finish(out16_);
    widen(out);
  }
  std::string description() const override { return narrow_->description(); }

 private:
  void widen(std::vector<int32_t> &out) {
    for (int16_t v : out16_) out.push_back(int32_t{v} * 65536);
  }
  std::unique_ptr<Converter16> narrow_;
  unsigned channels_;
  Narrower input_;
  std::vector<int16_t> in16_, out16_;
};

// The plugin's own path, driven as alsa-lib drives it: periods in the exact
// rate ratio, one convert_s16 call per period.
class PluginConverter : public Converter16 {
 public:
  PluginConverter(unsigned in_rate, unsigned out_rate, unsigned channels) : channels_(channels) {
    if (_snd_pcm_rate_skelda_open(SND_PCM_RATE_PLUGIN_VERSION, &obj_, &ops_) != 0)
      fail(kOutputError, "out of memory");
    const unsigned g = std::gcd(in_rate, out_rate);
    const unsigned scale = std::max(1u, 1024u / (in_rate / g));
    in_period_ = in_rate / g * scale;
    out_period_ = out_rate / g * scale;
    snd_pcm_rate_info_t info{};
    info.in.rate = in_rate;
    info.out.rate = out_rate;
    info.in.period_size = in_period_;
    info.out.period_size = out_period_;
    info.channels = channels;
    if (ops_.init(obj_, &info) != 0 || ops_.adjust_pitch(obj_, &info) != 0)
      fail(kUnsupported, "the converter cannot serve " + std::to_string(in_rate) + " -> " +
                             std::to_string(out_rate) + " Hz");
    ops_.reset(obj_);
    snd_output_t *text = nullptr;
    snd_output_buffer_open(&text);
    ops_.dump(obj_, text);
    char *s = nullptr;
    const size_t n = snd_output_buffer_string(text, &s);
    name_.assign(s, n);
    while (!name_.empty() && name_.back() == '\n') name_.pop_back();
    snd_output_close(text);
    pending_.reserve(size_t(in_period_) * channels);
  }
  ~PluginConverter() override {
    ops_.free(obj_);
    ops_.close(obj_);
  }
  void convert(const int16_t *in, size_t frames, std::vector<int16_t> &out) override {
    const size_t period_samples = size_t(in_period_) * channels_;
    for (size_t i = 0; i < frames * channels_; ++i) {
      pending_.push_back(in[i]);
      if (pending_.size() == period_samples) run_period(out);
    }
  }
  void finish(std::vector<int16_t> &out) override {
    if (pending_.empty()) return;
    pending_.resize(size_t(in_period_) * channels_, 0);  // like alsa-lib's drain
    run_period(out);
  }
  std::string description() const override { return name_; }

 private:
  void run_period(std::vector<int16_t> &out) {
    const size_t at = out.size();
    out.resize(at + size_t(out_period_) * channels_);
    ops_.convert_s16(obj_, out.data() + at, out_period_, pending_.data(), in_period_);
    pending_.clear();
  }
  void *obj_ = nullptr;
  snd_pcm_rate_ops_t ops_{};
  unsigned channels_, in_period_, out_period_;
  std::vector<int16_t> pending_;
  std::string name_;
};

// The engine's sinc interpolator, one context per channel, blocks sized with
// RSMPL_GetNumInSamples. Its group delay is removed from the output.
class SincConverter : public Converter16 {
 public:
  SincConverter(unsigned in_rate, unsigned out_rate, unsigned channels)
      : channels_(channels), ratio_(float(out_rate) / float(in_rate)) {
    for (unsigned c = 0; c < channels; ++c) {
      contexts_.emplace_back(static_cast<RSMPL_Context *>(std::malloc(RSMPL_GetContextSize())));
      if (!contexts_.back()) fail(kOutputError, "out of memory");
      RSMPL_InitContext(contexts_.back().get());
      uint32_t min_in = 0, max_in = 0, extra = 0;
      if (RSMPL_SetResampleRatio(contexts_.back().get(), &min_in, &max_in, &extra, ratio_) != RSMPL_OK)
        fail(kUnsupported, "the sinc ratio must lie in 1/8..8");
      extra_ = extra;
      // A new ratio takes effect at the end of the next call, so one short
      // block of silence (the history is silent anyway) commits it before
      // the first real sample; what it produces is discarded.
      std::vector<int16_t> silence(std::max<uint32_t>(min_in, 1), 0);
      std::vector<int16_t> discard(silence.size() + extra + 16);
      uint32_t produced = 0;
      if (RSMPL_Resample(contexts_.back().get(), silence.data(), discard.data(),
                         int32_t(silence.size()), &produced) != RSMPL_OK)
        fail(kUnsupported, "the sinc interpolator refused the ratio");
    }
    uint32_t delay = 0;
    RSMPL_GetResampleDelay(contexts_[0].get(), &delay);
    skip_ = static_cast<size_t>(std::lround((delay + 1) * double(ratio_)));
    name_ = "RSMPL sinc interpolator, ratio " + std::to_string(ratio_);
  }
  void convert(const int16_t *in, size_t frames, std::vector<int16_t> &out) override {
    held_.insert(held_.end(), in, in + frames * channels_);
    drain(out, false);
  }
  void finish(std::vector<int16_t> &out) override {
    uint32_t delay = 0;
    RSMPL_GetResampleDelay(contexts_[0].get(), &delay);
    held_.resize(held_.size() + size_t(delay + 2) * channels_, 0);  // flush the filter
    drain(out, true);
  }
  std::string description() const override { return name_; }

 private:
  struct Free {
    void operator()(RSMPL_Context *c) const { std::free(c); }
  };

  void drain(std::vector<int16_t> &out, bool last) {
    const size_t available = held_.size() / channels_;
    size_t used = 0;
    std::vector<int16_t> block, converted;
    for (;;) {
      const size_t left = available - used;
      int32_t want = std::min<int32_t>(1024, int32_t(ratio_ * 1440.0f));
      uint32_t need = 0;
      while (want > 1 && (RSMPL_GetNumInSamples(contexts_[0].get(), want, &need) != RSMPL_OK ||
                          need > 1440))
        want -= 16;
      if (need == 0) need = 1;
      if (need > left) {
        if (!last || left == 0) break;
        need = static_cast<uint32_t>(left);
      }
      block.resize(need);
      converted.assign(size_t(std::ceil(need * double(ratio_))) + extra_ + 16, 0);
      uint32_t produced = 0;
      std::vector<int16_t> frames;
      for (unsigned c = 0; c < channels_; ++c) {
        for (uint32_t i = 0; i < need; ++i) block[i] = held_[(used + i) * channels_ + c];
        if (RSMPL_Resample(contexts_[c].get(), block.data(), converted.data(), int32_t(need),
                           &produced) != RSMPL_OK)
          fail(kOutputError, "the sinc interpolator refused a block");
        frames.resize(size_t(produced) * channels_);
        for (uint32_t k = 0; k < produced; ++k) frames[size_t(k) * channels_ + c] = converted[k];
      }
      const size_t drop = std::min<size_t>(skip_, produced);
      skip_ -= drop;
      out.insert(out.end(), frames.begin() + drop * channels_, frames.end());
      used += need;
    }
    held_.erase(held_.begin(), held_.begin() + used * channels_);
  }

  unsigned channels_;
  float ratio_;
  uint32_t extra_ = 1;
  size_t skip_ = 0;
  std::vector<std::unique_ptr<RSMPL_Context, Free>> contexts_;
  std::vector<int16_t> held_;
  std::string name_;
};

// The 32-bit high-quality resampler over all channels at once. The first
// round(delay x out / in) outputs (those that stand for positions before the
// input's start, the chain's delay) are dropped, and the end is flushed with
// silence, so the output lines up with the input to within half a frame. Results go out at the output's depth: to 16 bits by the
// resampler itself (with its dither when asked), to 24 bits rounded here,
// so that the file's writer only drops bits that are zero.
class HqConverter : public Converter {
 public:
  HqConverter(unsigned in_rate, unsigned out_rate, unsigned channels, int bits, bool dither)
      : channels_(channels), bits_(bits) {
    uint32_t bytes = 0;
    if (RSMPL_Hq32GetStateSize(in_rate, out_rate, channels, &bytes) != RSMPL_OK)
      fail(kUnsupported, "the high-quality resampler converts 4000..768000 Hz and up to 64 channels");
    state_.reset(static_cast<RSMPL_Hq32State *>(std::malloc(bytes)));
    if (!state_ || RSMPL_Hq32Init(state_.get(), bytes, in_rate, out_rate, channels) != RSMPL_OK ||
        RSMPL_Hq32SetDither(state_.get(), dither) != RSMPL_OK)
      fail(kOutputError, "out of memory");
    RSMPL_HqInfo info;
    RSMPL_HqPosition where;
    RSMPL_Hq32GetInfo(state_.get(), &info);
    RSMPL_Hq32GetPosition(state_.get(), &where);
    // The delay in input frames as 32.32 fixed point, to output frames.
    const uint64_t delay = (where.delayFrames << 32) | where.delayFraction;
    delay_ = static_cast<uint32_t>(where.delayFrames) + 1;
    skip_ = (delay * out_rate / in_rate + (uint64_t{1} << 31)) >> 32;
    name_ = "RSMPL high-quality resampler, 24-bit filters, delay " + std::to_string(info.delayMicroseconds) + " us";
  }
  void convert(const int32_t *in, size_t frames, std::vector<int32_t> &out) override {
    uint32_t room = 0;
    RSMPL_Hq32OutputFrames(state_.get(), static_cast<uint32_t>(frames), &room);
    const size_t at = out.size(), samples = size_t(room) * channels_;
    out.resize(at + samples);
    uint32_t used = static_cast<uint32_t>(frames), made = room;
    RSMPL_Status status;
    if (bits_ == 16) {
      out16_.resize(samples);
      status = RSMPL_Hq32Process(state_.get(), in, RSMPL_HQ_S32, &used, out16_.data(), RSMPL_HQ_S16, &made);
      for (size_t i = 0; i < size_t(made) * channels_; ++i) out[at + i] = int32_t{out16_[i]} * 65536;
    } else {
      status = RSMPL_Hq32Process(state_.get(), in, RSMPL_HQ_S32, &used, out.data() + at, RSMPL_HQ_S32, &made);
      if (bits_ == 24)
        for (size_t i = at; i < at + size_t(made) * channels_; ++i) {
          const int64_t v = (int64_t{out[i]} + 128) >> 8;
          out[i] = static_cast<int32_t>(v > 8388607 ? 8388607 : v) * 256;
        }
    }
    if (status != RSMPL_OK || used != frames) fail(kOutputError, "the resampler refused a block");
    out.resize(at + size_t(made) * channels_);
    const size_t drop = std::min<size_t>(skip_, made);
    out.erase(out.begin() + at, out.begin() + at + drop * channels_);
    skip_ -= drop;
  }
  void finish(std::vector<int32_t> &out) override {
    const std::vector<int32_t> silence(size_t(delay_ + 1) * channels_, 0);
    convert(silence.data(), delay_ + 1, out);
  }
  std::string description() const override { return name_; }

 private:
  struct Free {
    void operator()(void *p) const { std::free(p); }
  };
  unsigned channels_;
  int bits_;
  uint32_t delay_ = 0;
  uint64_t skip_ = 0;
  std::unique_ptr<RSMPL_Hq32State, Free> state_;
  std::vector<int16_t> out16_;
  std::string name_;
};

class Progress {
 public:
  Progress(bool enabled, sf_count_t total) : enabled_(enabled && isatty(2)), total_(total) {}
  void update(sf_count_t done) {
    if (!enabled_ || total_ <= 0) return;
    const int percent = static_cast<int>(100 * done / total_);
    if (percent == shown_) return;
    shown_ = percent;
    char bar[41];
    std::memset(bar, '.', 40);
    std::memset(bar, '#', size_t(percent * 40 / 100));
    bar[40] = '\0';
    std::fprintf(stderr, "\rconverting [%s] %3d%%", bar, percent);
    if (percent == 100) std::fputc('\n', stderr);
  }

 private:
  bool enabled_;
  sf_count_t total_;
  int shown_ = -1;
};

}  // namespace

int main(int argc, char **argv) {
  const Options o = parse(argc, argv);

  SF_INFO in_info{};
  SNDFILE *in = sf_open(o.input.c_str(), SFM_READ, &in_info);
  if (in == nullptr) fail(kInputError, "cannot read " + o.input + ": " + sf_strerror(nullptr));
  const unsigned channels = static_cast<unsigned>(in_info.channels);
  const unsigned in_rate = static_cast<unsigned>(in_info.samplerate);
  const unsigned out_rate = static_cast<unsigned>(o.rate);
  const bool hq = !o.fir && !o.sinc;
  if (channels > (hq ? unsigned{RSMPL_HQ_MAX_CHANNELS} : kMaxChannels))
    fail(kUnsupported, o.input + " has " + std::to_string(channels) + " channels; at most " +
                           (hq ? "64" : "four") + " are converted" + (hq ? "" : " with --fir or --sinc"));
  if (hq) {
    if (in_rate < RSMPL_HQ_RATE_MIN || in_rate > RSMPL_HQ_RATE_MAX || out_rate < RSMPL_HQ_RATE_MIN ||
        out_rate > RSMPL_HQ_RATE_MAX)
      fail(kUnsupported, "the high-quality resampler converts rates in 4000..768000 Hz (" + std::to_string(in_rate) +
                             " -> " + std::to_string(out_rate) + ")");
  } else if (o.sinc) {
    const double ratio = double(out_rate) / in_rate;
    if (ratio < 0.125 || ratio > 8.0)
      fail(kUnsupported, "ratio " + std::to_string(ratio) + " is outside 1/8..8");
  } else if (in_rate < kRateMin || in_rate > kRateMax || out_rate < kRateMin || out_rate > kRateMax) {
    fail(kUnsupported, "--fir converts rates in 8000..48000 Hz (" + std::to_string(in_rate) + " -> " +
                           std::to_string(out_rate) + "); without it any rates in 4000..768000 Hz");
  }

  // The depth: asked for, or the input's (float and 32-bit PCM give 32
  // bits, which FLAC cannot hold: 24 there).
  const int sub = in_info.format & SF_FORMAT_SUBMASK;
  const bool floating = sub == SF_FORMAT_FLOAT || sub == SF_FORMAT_DOUBLE;
  const int in_bits = sub == SF_FORMAT_PCM_24 ? 24 : sub == SF_FORMAT_PCM_32 || floating ? 32 : 16;
  const int container = container_for(o.output);
  if (o.bits == 32 && container == SF_FORMAT_FLAC) fail(kUsageError, "FLAC holds at most 24 bits");
  const int bits = o.bits != 0 ? o.bits : container == SF_FORMAT_FLAC ? std::min(in_bits, 24) : in_bits;
  // Dither where samples lose bits on the way to 16: at the output of the
  // 32-bit resampler, at the input of the 16-bit converters.
  const bool dither = o.dither && (hq ? bits == 16 : in_bits > 16);

  std::unique_ptr<Converter> converter;
  if (hq)
    converter = std::make_unique<HqConverter>(in_rate, out_rate, channels, bits, dither);
  else if (o.sinc)
    converter = std::make_unique<Via16>(std::make_unique<SincConverter>(in_rate, out_rate, channels), channels, dither);
  else
    converter = std::make_unique<Via16>(std::make_unique<PluginConverter>(in_rate, out_rate, channels), channels, dither);

  SF_INFO out_info{};
  out_info.samplerate = o.rate;
  out_info.channels = in_info.channels;
  out_info.format = container | (bits == 16 ? SF_FORMAT_PCM_16 : bits == 24 ? SF_FORMAT_PCM_24 : SF_FORMAT_PCM_32);
  const std::string temporary = o.output + ".partial-" + std::to_string(getpid());
  SNDFILE *out = sf_open(temporary.c_str(), SFM_WRITE, &out_info);
  if (out == nullptr) fail(kOutputError, "cannot write " + o.output + ": " + sf_strerror(nullptr));
  auto abandon = [&](const std::string &why) {
    sf_close(out);
    std::remove(temporary.c_str());
    fail(kOutputError, why);
  };

  // Output frames owed: the input's duration at the new rate.
  const sf_count_t owed =
      static_cast<sf_count_t>(std::llround(double(in_info.frames) * out_rate / in_rate));
  sf_count_t written = 0, read_total = 0;
  Progress progress(!o.quiet, in_info.frames);
  std::vector<int32_t> buffer(4096 * size_t(channels)), converted;
  std::vector<double> floats(floating ? buffer.size() : 0);
  // Writes what has been converted, never past the frames owed (the padding
  // of the last period and the filter's flush are cut off). The samples
  // carry no bits below the output's depth, so libsndfile's narrowing of
  // int32 to it is exact.
  auto write = [&]() {
    const sf_count_t frames =
        std::min(static_cast<sf_count_t>(converted.size() / channels), owed - written);
    if (frames > 0 && sf_writef_int(out, converted.data(), frames) != frames)
      abandon("cannot write " + o.output + ": " + sf_strerror(out));
    written += std::max<sf_count_t>(frames, 0);
    converted.clear();
  };
  // int32 at full scale 2^31: PCM as libsndfile widens it, float and double
  // scaled from +-1.0, rounded and clipped.
  auto read = [&]() -> sf_count_t {
    if (!floating) return sf_readf_int(in, buffer.data(), 4096);
    const sf_count_t n = sf_readf_double(in, floats.data(), 4096);
    for (sf_count_t i = 0; i < n * sf_count_t{channels}; ++i) {
      const double v = std::round(floats[size_t(i)] * 2147483648.0);
      buffer[size_t(i)] = v >= 2147483647.0 ? INT32_MAX : v <= -2147483648.0 ? INT32_MIN : static_cast<int32_t>(v);
    }
    return n;
  };
  for (;;) {
    const sf_count_t n = read();
    if (n <= 0) break;
    read_total += n;
    converter->convert(buffer.data(), size_t(n), converted);
    write();
    progress.update(read_total);
  }
  if (sf_error(in) != SF_ERR_NO_ERROR) abandon("cannot read " + o.input + ": " + sf_strerror(in));
  converter->finish(converted);
  write();
  progress.update(in_info.frames);
  sf_close(in);
  if (sf_close(out) != 0) {
    std::remove(temporary.c_str());
    fail(kOutputError, "cannot finish " + o.output);
  }
  if (std::rename(temporary.c_str(), o.output.c_str()) != 0) {
    std::remove(temporary.c_str());
    fail(kOutputError, "cannot write " + o.output + ": " + std::strerror(errno));
  }
  std::printf("%s: %u Hz, %u ch, %d bits, %lld frames -> %s: %d Hz, %d bits%s, %lld frames\n%s\n",
              o.input.c_str(), in_rate, channels, in_bits, static_cast<long long>(in_info.frames),
              o.output.c_str(), o.rate, bits, dither ? " dithered" : "", static_cast<long long>(written),
              converter->description().c_str());
  return kOk;
}

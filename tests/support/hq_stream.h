// SPDX-License-Identifier: MIT
// Driving either grade of the high-quality resampler (the 16-bit and the
// 32-bit calls) through one interface, in random splits with every Process
// rule held at each call, and the samples' way in and out of the plain
// model (tests/support/hq_reference.h).
#ifndef SKELDA_TESTS_SUPPORT_HQ_STREAM_H
#define SKELDA_TESTS_SUPPORT_HQ_STREAM_H

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
#include <vector>

#include "skelda/rsmpl_hq.h"
#include "tests/support/hq_reference.h"

namespace hq_test {

// One state of either grade, in a block of its own.
class Resampler {
 public:
  Resampler(int grade, uint32_t in, uint32_t out, uint32_t channels) : grade_(grade), channels_(channels) {
    uint32_t size = 0;
    const RSMPL_Status s = grade_ == 0 ? RSMPL_HqGetStateSize(in, out, channels, &size)
                                       : RSMPL_Hq32GetStateSize(in, out, channels, &size);
    EXPECT_EQ(s, RSMPL_OK);
    mem_.reset(static_cast<uint8_t *>(std::aligned_alloc(64, (size + 63) / 64 * 64)));
    size_ = size;
    EXPECT_EQ(grade_ == 0 ? RSMPL_HqInit(st16(), size, in, out, channels) : RSMPL_Hq32Init(st32(), size, in, out, channels),
              RSMPL_OK);
  }
  int grade() const { return grade_; }
  uint32_t channels() const { return channels_; }
  uint32_t size() const { return size_; }
  RSMPL_HqState *st16() { return reinterpret_cast<RSMPL_HqState *>(mem_.get()); }
  RSMPL_Hq32State *st32() { return reinterpret_cast<RSMPL_Hq32State *>(mem_.get()); }
  // The 16-bit calls take S16 only.
  RSMPL_Status process(const void *in, uint32_t in_format, uint32_t *in_frames, void *out, uint32_t out_format,
                       uint32_t *out_frames) {
    if (grade_ == 0)
      return RSMPL_HqProcess(st16(), static_cast<const int16_t *>(in), in_frames, static_cast<int16_t *>(out),
                             out_frames);
    return RSMPL_Hq32Process(st32(), in, in_format, in_frames, out, out_format, out_frames);
  }
  RSMPL_Status set_ratio(uint32_t out, uint32_t in) {
    return grade_ == 0 ? RSMPL_HqSetRatio(st16(), out, in) : RSMPL_Hq32SetRatio(st32(), out, in);
  }
  RSMPL_Status set_scale(uint64_t scale) {
    return grade_ == 0 ? RSMPL_HqSetRatioScale(st16(), scale) : RSMPL_Hq32SetRatioScale(st32(), scale);
  }
  RSMPL_Status glide(uint64_t scale, uint32_t frames) {
    return grade_ == 0 ? RSMPL_HqGlideScale(st16(), scale, frames) : RSMPL_Hq32GlideScale(st32(), scale, frames);
  }
  RSMPL_Status reset() { return grade_ == 0 ? RSMPL_HqReset(st16()) : RSMPL_Hq32Reset(st32()); }
  uint32_t outputs(uint32_t in_frames) {
    uint32_t n = 0;
    EXPECT_EQ(grade_ == 0 ? RSMPL_HqOutputFrames(st16(), in_frames, &n) : RSMPL_Hq32OutputFrames(st32(), in_frames, &n),
              RSMPL_OK);
    return n;
  }
  uint32_t inputs(uint32_t out_frames) {
    uint32_t n = 0;
    EXPECT_EQ(grade_ == 0 ? RSMPL_HqInputFrames(st16(), out_frames, &n) : RSMPL_Hq32InputFrames(st32(), out_frames, &n),
              RSMPL_OK);
    return n;
  }
  RSMPL_HqInfo info() {
    RSMPL_HqInfo i{};
    EXPECT_EQ(grade_ == 0 ? RSMPL_HqGetInfo(st16(), &i) : RSMPL_Hq32GetInfo(st32(), &i), RSMPL_OK);
    return i;
  }
  RSMPL_HqPosition position() {
    RSMPL_HqPosition p{};
    EXPECT_EQ(grade_ == 0 ? RSMPL_HqGetPosition(st16(), &p) : RSMPL_Hq32GetPosition(st32(), &p), RSMPL_OK);
    return p;
  }

 private:
  struct Free {
    void operator()(uint8_t *p) const { std::free(p); }
  };
  int grade_;
  uint32_t channels_;
  uint32_t size_ = 0;
  std::unique_ptr<uint8_t, Free> mem_;
};

struct FreeState {
  void operator()(void *p) const { std::free(p); }
};
using State16 = std::unique_ptr<RSMPL_HqState, FreeState>;
using State32 = std::unique_ptr<RSMPL_Hq32State, FreeState>;

// A state of the 16-bit or 32-bit calls at these rates, set to out / in
// (null when any call refuses).
inline State16 make_state16(uint32_t in_rate, uint32_t out_rate, uint32_t channels, uint32_t out, uint32_t in) {
  uint32_t size = 0;
  if (RSMPL_HqGetStateSize(in_rate, out_rate, channels, &size) != RSMPL_OK) return nullptr;
  State16 st(static_cast<RSMPL_HqState *>(std::aligned_alloc(64, (size + 63) / 64 * 64)));
  if (RSMPL_HqInit(st.get(), size, in_rate, out_rate, channels) != RSMPL_OK ||
      RSMPL_HqSetRatio(st.get(), out, in) != RSMPL_OK)
    return nullptr;
  return st;
}
inline State32 make_state32(uint32_t in_rate, uint32_t out_rate, uint32_t channels, uint32_t out, uint32_t in) {
  uint32_t size = 0;
  if (RSMPL_Hq32GetStateSize(in_rate, out_rate, channels, &size) != RSMPL_OK) return nullptr;
  State32 st(static_cast<RSMPL_Hq32State *>(std::aligned_alloc(64, (size + 63) / 64 * 64)));
  if (RSMPL_Hq32Init(st.get(), size, in_rate, out_rate, channels) != RSMPL_OK ||
      RSMPL_Hq32SetRatio(st.get(), out, in) != RSMPL_OK)
    return nullptr;
  return st;
}

inline size_t sample_bytes(uint32_t format) { return format == RSMPL_HQ_S32 ? 4 : 2; }

// Interleaved frames of `format` into the model's int32 channels (2^29 full
// scale), and the model's output back into `format` (with the dither the
// header describes when `dither`).
inline std::vector<hq_ref::Signal> inside(const std::vector<uint8_t> &bytes, uint32_t format, uint32_t channels) {
  const size_t width = sample_bytes(format), frames = bytes.size() / (width * channels);
  std::vector<hq_ref::Signal> x(channels, hq_ref::Signal(frames));
  for (size_t i = 0; i < frames; ++i)
    for (uint32_t c = 0; c < channels; ++c) {
      const uint8_t *p = bytes.data() + (i * channels + c) * width;
      if (format == RSMPL_HQ_S32) {
        int32_t v;
        std::memcpy(&v, p, 4);
        x[c][i] = v >> 2;
      } else {
        int16_t v;
        std::memcpy(&v, p, 2);
        x[c][i] = int64_t{v} * 16384;
      }
    }
  return x;
}

inline std::vector<uint8_t> outside(const std::vector<hq_ref::Signal> &y, uint32_t format, bool dither) {
  const uint32_t channels = static_cast<uint32_t>(y.size());
  const size_t frames = y.empty() ? 0 : y[0].size(), width = sample_bytes(format);
  std::vector<uint8_t> bytes(frames * channels * width);
  uint32_t u = 0x2545f491;
  for (size_t i = 0; i < frames; ++i)
    for (uint32_t c = 0; c < channels; ++c) {
      uint8_t *p = bytes.data() + (i * channels + c) * width;
      const int64_t v = y[c][i];
      if (format == RSMPL_HQ_S32) {
        // The stages' range clamped to +-2^29 (full scale), times 4.
        const int32_t o = static_cast<int32_t>((v > (1 << 29) - 1 ? (1 << 29) - 1 : v < -(1 << 29) ? -(1 << 29) : v) * 4);
        std::memcpy(p, &o, 4);
      } else {
        int64_t d = 0;
        if (dither) {
          u ^= u << 13;
          u ^= u >> 17;
          u ^= u << 5;
          d = (static_cast<int64_t>(u >> 16) + static_cast<int64_t>(u & 0xffff) - 65536) / 4;
        }
        const int64_t s = (v + (1 << 13) + d) >> 14;
        const int16_t o = static_cast<int16_t>(s > INT16_MAX ? INT16_MAX : s < INT16_MIN ? INT16_MIN : s);
        std::memcpy(p, &o, 2);
      }
    }
  return bytes;
}

// What the model makes of `in` at L / M: the first `count` frames.
inline std::vector<uint8_t> model(const std::vector<uint8_t> &in, uint32_t in_format, uint32_t out_format,
                                  uint32_t channels, uint32_t in_rate, uint32_t out_rate, uint64_t l, uint64_t m,
                                  int grade, uint64_t count, bool dither) {
  std::vector<hq_ref::Signal> x = inside(in, in_format, channels), y;
  for (const auto &ch : x) y.push_back(hq_ref::convert(ch, in_rate, out_rate, l, m, grade, count));
  return outside(y, out_format, dither);
}

// Where two byte streams part, if they do.
inline ::testing::AssertionResult same(const std::vector<uint8_t> &got, const std::vector<uint8_t> &want, size_t frame) {
  if (got == want) return ::testing::AssertionSuccess();
  const auto at = std::mismatch(got.begin(), got.end(), want.begin(), want.end()).first;
  return ::testing::AssertionFailure() << got.size() / frame << " frames (want " << want.size() / frame
                                       << "), the first differing is frame " << (at - got.begin()) / frame;
}

// Feeds `in` in calls offering random counts and random room (at times too
// little for what the input makes due), and holds every call to the rules:
// it takes all its input when its room holds what OutputFrames predicts,
// else stops only where one frame more would make more due than fits; it
// writes no byte past its room; the input InputFrames asks for a call's
// outputs makes exactly those due. Returns the output.
inline std::vector<uint8_t> feed(Resampler &r, const std::vector<uint8_t> &in, uint32_t in_format, uint32_t out_format,
                                 std::mt19937 &rng, uint32_t most = 1500) {
  const size_t in_frame = sample_bytes(in_format) * r.channels(), out_frame = sample_bytes(out_format) * r.channels();
  const size_t frames = in.size() / in_frame;
  std::vector<uint8_t> out;
  size_t at = 0;
  int idle = 0;
  while (at < frames && idle < 4) {
    const uint32_t offered = static_cast<uint32_t>(std::min<size_t>(1 + rng() % most, frames - at));
    const uint32_t predicted = r.outputs(offered);
    if (predicted != 0) {
      const uint32_t need = r.inputs(predicted);
      EXPECT_LE(need, offered) << "InputFrames asks more than makes the predicted outputs";
      if (need > 0) EXPECT_LT(r.outputs(need - 1), predicted) << "InputFrames is not the least";
      EXPECT_GE(r.outputs(need), predicted) << "InputFrames does not make the outputs due";
    }
    const uint32_t room = rng() % 3 == 0 ? static_cast<uint32_t>(rng() % (predicted + 2)) : predicted + rng() % 4;
    std::vector<uint8_t> buf((room + 1) * out_frame, 0xa5);
    uint32_t in_n = offered, out_n = room;
    EXPECT_EQ(r.process(in.data() + at * in_frame, in_format, &in_n, buf.data(), out_format, &out_n), RSMPL_OK);
    EXPECT_LE(out_n, room);
    EXPECT_TRUE(std::all_of(buf.begin() + room * out_frame, buf.end(), [](uint8_t b) { return b == 0xa5; }))
        << "wrote past its room";
    if (room >= predicted) {
      EXPECT_EQ(in_n, offered) << "room for all it makes due, yet input left";
      EXPECT_EQ(out_n, predicted);
    } else if (in_n < offered) {
      // One frame more would have made more due than the room left.
      EXPECT_GT(r.outputs(1), room - out_n) << "stopped although the next frame's outputs fit";
    }
    out.insert(out.end(), buf.begin(), buf.begin() + out_n * out_frame);
    at += in_n;
    idle = in_n == 0 ? idle + 1 : 0;
  }
  EXPECT_EQ(at, frames) << "the stream stalled";
  return out;
}

}  // namespace hq_test

#endif

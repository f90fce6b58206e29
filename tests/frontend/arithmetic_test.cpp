// SPDX-License-Identifier: MIT
// Pitch and frame arithmetic and the linear converters against the plain
// reference (support/frontend_reference.h), on random and boundary input.
#include <limits>

#include "tests/frontend/converter_fixture.h"
#include "tests/support/error_capture.h"
#include "tests/support/frontend_reference.h"

namespace {

constexpr uint32_t kOne = ref::kOne;
constexpr uint64_t kMaxFrames = std::numeric_limits<snd_pcm_uframes_t>::max();

// Random width up to `bits`, then random bits: small and large values alike.
uint64_t any(std::mt19937_64 &rng, unsigned bits) {
  const unsigned width = rng() % (bits + 1);
  return width == 0 ? 0 : rng() >> (64 - width);
}

TEST_F(ConverterTest, FrameCountsRoundToNearest) {
  std::mt19937_64 rng(1);
  // Counts of 0 and 1, the largest, and exact results just above, at and
  // just below a half, for both functions.
  std::vector<std::pair<uint64_t, uint32_t>> counts = {
      {0, kOne}, {0, 0}, {5, 0}, {1, kOne / 2 - 1}, {1, kOne / 2}, {1, kOne / 2 + 1},
      {1, 2 * kOne - 1}, {1, 2 * kOne}, {1, 2 * kOne + 1}, {1, 0x300000}, {3, 0x300000},
      {UINT32_MAX, UINT32_MAX}, {(uint64_t{1} << 44) - 1, 1}};
  for (int k = 0; k < 5000; ++k) counts.emplace_back(any(rng, 44), any(rng, 32));
  for (auto [frames, pitch] : counts) {
    if (frames > kMaxFrames) continue;
    rec_->pitch = pitch;
    SCOPED_TRACE(::testing::Message() << frames << " frames at pitch " << pitch);
    // Where frames count in 32 bits, only results that fit can be returned.
    if (const uint64_t in = ref::input_frames(frames, pitch); in <= kMaxFrames)
      ASSERT_EQ(ops_.input_frames(obj_, frames), in);
    if (frames > UINT32_MAX) continue;
    if (const uint64_t out = ref::output_frames(frames, pitch); out <= kMaxFrames)
      ASSERT_EQ(ops_.output_frames(obj_, frames), out);
  }
}

// Every period pair, served or refused, gives the reference's status, pitch
// and shift, changes nothing else, and a refusal is reported once.
TEST_F(ConverterTest, AdjustPitchFindsThePitchThePeriodsNeed) {
  ASSERT_EQ(init(44100, 48000, 1), 0);
  constexpr uint64_t k40 = uint64_t{1} << 40;
  // Zero sides, worked values, the estimate at 0 and 1, at 2^32 - 1 and one
  // past, the largest periods and one past, and pitches at a shift's edge
  // (0xFFFF0, 0x100000).
  std::vector<std::pair<uint64_t, uint64_t>> periods = {
      {0, 0}, {0, 1}, {1, 0}, {441, 480}, {1115, 1024}, {1024, 1024}, {1, 1000}, {740, 1},
      {1 << 21, 1}, {(1 << 19) + 1, 1}, {349526, 2863316991}, {349526, 2863316992}, {1, 8192},
      {k40, k40}, {k40 + 1, k40}, {k40, k40 + 1}, {6144, 1024}, {32768, 65535}, {32768, 65536}};
  std::mt19937_64 rng(2);
  for (int k = 0; k < 5000; ++k) {
    const unsigned bits = k % 2 ? 14 : 26;  // ordinary periods, and far apart
    periods.emplace_back(any(rng, bits), any(rng, bits));
  }
  ErrorCapture errors;
  for (auto [in, out] : periods) {
    if (in > kMaxFrames || out > kMaxFrames) continue;
    SCOPED_TRACE(::testing::Message() << in << " -> " << out);
    const ref::Pitch want = ref::adjust(in, out, {0, rec_->pitch, rec_->pitch_shift});
    rsmpl_converter expected;
    std::memcpy(&expected, rec_, sizeof expected);
    expected.pitch = want.pitch;
    expected.pitch_shift = want.shift;
    errors.clear();
    ASSERT_EQ(adjust(in, out), want.result);
    ASSERT_EQ(rec_->pitch, want.pitch);
    ASSERT_EQ(rec_->pitch_shift, want.shift);
    ASSERT_EQ(std::memcmp(&expected, rec_, sizeof expected), 0);
    ASSERT_EQ(errors.reports().size(), want.result == 0 ? 0u : 1u);
    if (want.result == 0) continue;
    const ErrorReport &r = errors.reports()[0];
    EXPECT_EQ(r.message, "invalid pcm period_size " + std::to_string(long(in)) + " -> " +
                             std::to_string(long(out)));  // as alsa-lib prints sizes: %ld
    EXPECT_EQ(r.function, "pcm_rsmpl_adjust_pitch");
    EXPECT_EQ(r.file, "src/rate_rsmpl.cpp");
    EXPECT_EQ(r.err, 0);
  }
}

// Streams of three calls at random pitches, shifts, channel and frame counts
// (the up converter carrying its samples from call to call), each call
// exactly as the reference has it: frames written, frames left alone, the
// carried samples and the overflow reports.
TEST_F(ConverterTest, LinearConvertersMatchTheReference) {
  std::mt19937_64 rng(3);
  ErrorCapture errors;
  const uint32_t up_edges[] = {kOne + 1, 0x300000, UINT32_MAX - kOne};
  const uint32_t down_edges[] = {1, 7, 8, kOne - 1, kOne};
  for (int k = 0; k < 600; ++k) {
    const bool up = k % 2 == 0;
    const unsigned channels = 1 + rng() % kMaxChannels;
    ASSERT_EQ(init(up ? 44100 : 48000, up ? 48000 : 44100, channels), 0);
    uint32_t pitch =
        up ? kOne + 1 + any(rng, 32) % (UINT32_MAX - 2 * kOne)  // 1.0 < pitch < max - 1.0
           : 1 + any(rng, 19) % kOne;                           // 0 < pitch <= 1.0
    if (k < 20) pitch = up ? up_edges[k / 2 % 3] : down_edges[k / 2 % 5];
    // The shift adjust_pitch chooses, or any (the down converter ignores it).
    const uint32_t shift = up && k % 4 != 2 ? 48 - __builtin_clzll(pitch) : rng() % 64;
    SCOPED_TRACE(::testing::Message()
                 << (up ? "up" : "down") << " at " << pitch << " >> " << shift);
    rec_->pitch = pitch;
    rec_->pitch_shift = shift;
    const std::vector<int16_t> work = random_samples(rng, kWorkSamples);
    std::copy(work.begin(), work.end(), rec_->work);
    std::vector<int16_t> carried(work.begin(), work.begin() + channels);
    for (int call = 0; call < 3; ++call) {
      const unsigned src_frames = any(rng, 10);
      // Mostly the frames the pitch yields, one less or one more.
      const int64_t yields = up                ? ref::output_frames(src_frames, pitch)
                             : src_frames == 0 ? 0
                                               : (src_frames - 1) * uint64_t(pitch) / kOne + 1;
      const unsigned dst_frames =
          rng() % 4 ? std::max<int64_t>(0, std::min<int64_t>(yields, 2048) + int64_t(rng() % 3) - 1)
                    : any(rng, 10);
      const std::vector<int16_t> src = random_samples(rng, size_t(src_frames) * channels);
      std::vector<int16_t> dst(size_t(dst_frames + 2) * channels, 0x5A5A);
      errors.clear();
      ops_.convert_s16(obj_, dst.data(), dst_frames, src.data(), src_frames);
      bool overflow = false;
      for (unsigned c = 0; c < channels; ++c) {
        const std::vector<int16_t> x = ref::deinterleave(src, channels, c);
        std::vector<int16_t> want = up ? ref::expand(x, carried[c], pitch, shift, dst_frames)
                                       : ref::shrink(x, pitch, dst_frames, &overflow);
        want.resize(dst_frames + 2, 0x5A5A);
        ASSERT_EQ(ref::deinterleave(dst, channels, c), want)
            << "call " << call << ", channel " << c;
        ASSERT_EQ(rec_->work[c], carried[c]);
      }
      ASSERT_TRUE(std::equal(work.begin() + channels, work.end(), rec_->work + channels));
      ASSERT_EQ(errors.reports().size(), overflow ? channels : 0u);
      for (const ErrorReport &r : errors.reports())
        EXPECT_TRUE(r.message == "dst_frames overflow" && r.function == "src_linear_shrink_s16");
    }
  }
}

}  // namespace

// The FIR block drivers: chunking leaves no seams, channels stay apart, and
// odd period sizes never produce unconverted or stale samples.
#include <random>

#include "frontend/converter_fixture.h"
#include "support/engine_reference.h"
#include "support/error_capture.h"

namespace {

std::vector<int16_t> random_frames(size_t frames, unsigned channels, unsigned seed) {
  std::mt19937 rng(seed);
  std::uniform_int_distribution<int> sample(-32768, 32767);
  std::vector<int16_t> x(frames * channels);
  for (int16_t &s : x) s = static_cast<int16_t>(sample(rng));
  return x;
}

class FirDriverTest : public ConverterTest {
 protected:
  void configure(unsigned factor, bool up, unsigned channels) {
    const unsigned low = 8000;
    ASSERT_EQ(init(up ? low : low * factor, up ? low * factor : low, channels), 0);
    ASSERT_EQ(rec_->factor, factor);
    ops_.reset(obj_);
  }
  // Plays `periods` (input frame counts) one after another through
  // convert_s16 and returns the concatenated output.
  std::vector<int16_t> play(const std::vector<int16_t> &input, const std::vector<unsigned> &periods,
                            unsigned factor, bool up) {
    const unsigned ch = rec_->channels;
    std::vector<int16_t> out;
    size_t at = 0;
    for (unsigned frames : periods) {
      const unsigned out_frames = up ? frames * factor : frames / factor;
      std::vector<int16_t> dst(size_t(out_frames) * ch);
      ops_.convert_s16(obj_, dst.data(), out_frames, input.data() + at * ch, frames);
      out.insert(out.end(), dst.begin(), dst.end());
      at += frames;
    }
    return out;
  }
};

struct StreamCase {
  unsigned factor;
  bool up;
  unsigned channels;
  std::vector<unsigned> periods;
};

// Periods cut into chunks, channel by channel through one work buffer, give
// every channel exactly the one-call conversion of that channel alone.
TEST_F(FirDriverTest, PeriodsAndChunksLeaveNoSeams) {
  const StreamCase cases[] = {
      {2, false, 1, {2000, 2000, 1024}},       // chunks 960 + 1040
      {2, false, 2, {3000, 1440, 8, 4000}},    // 960, 960, 1080; one-chunk; tiny
      {3, false, 4, {1446, 6000, 18, 960}},
      {6, false, 3, {1440, 2880, 36, 7200}},
      {2, true, 1, {1000, 720, 4, 2000}},      // chunks 480 + 520
      {3, true, 2, {481, 480, 6, 1000}},       // 320 + 161
      {6, true, 4, {500, 240, 6, 1000}},       // 160, 160, 180
      {6, true, 1, {1, 2, 3, 5, 7}},           // below the engine's minimum
      {2, true, 2, {3, 1, 2}},
  };
  for (const StreamCase &c : cases) {
    SCOPED_TRACE(::testing::Message() << "factor " << c.factor << (c.up ? " up " : " down ")
                                      << c.channels << " channels");
    configure(c.factor, c.up, c.channels);
    size_t total = 0;
    for (unsigned p : c.periods) total += p;
    const std::vector<int16_t> input = random_frames(total, c.channels, c.factor * 10 + c.channels);
    const std::vector<int16_t> out = play(input, c.periods, c.factor, c.up);
    for (unsigned ch = 0; ch < c.channels; ++ch) {
      const std::vector<int16_t> expected =
          engine_convert_channel(deinterleave(input, c.channels, ch), c.factor, c.up);
      ASSERT_EQ(deinterleave(out, c.channels, ch), expected) << "channel " << ch;
    }
  }
}

TEST_F(FirDriverTest, EmptyCallsTouchNothing) {
  for (bool up : {true, false}) {
    configure(3, up, 2);
    std::vector<int16_t> dst(64, 555);
    const std::vector<int16_t> src(64, 1000);
    ops_.convert_s16(obj_, dst.data(), 10, src.data(), 0);
    EXPECT_EQ(dst, std::vector<int16_t>(64, 555));
    configure(3, up, 0);
    ops_.convert_s16(obj_, dst.data(), 10, src.data(), 30);
    EXPECT_EQ(dst, std::vector<int16_t>(64, 555));
  }
}

// A down period that is not a whole number of groups converts its whole
// groups and drops the rest: every sample written is a converted one, and
// the mismatch is reported once per configuration.
TEST_F(FirDriverTest, PartialGroupsAreDroppedAndReportedOnce) {
  configure(6, false, 1);
  const std::vector<int16_t> input = random_frames(1441, 1, 5);
  std::vector<int16_t> dst(240 + 8, 12345);
  ErrorCapture errors;
  ops_.convert_s16(obj_, dst.data(), 240, input.data(), 1441);
  const std::vector<int16_t> expected = engine_convert_channel(
      std::vector<int16_t>(input.begin(), input.begin() + 1440), 6, false);
  EXPECT_EQ(std::vector<int16_t>(dst.begin(), dst.begin() + 240), expected);
  EXPECT_EQ(std::vector<int16_t>(dst.begin() + 240, dst.end()), std::vector<int16_t>(8, 12345));
  ops_.convert_s16(obj_, dst.data(), 240, input.data(), 1441);
  EXPECT_EQ(errors.reports().size(), 1u);
}

// dst_frames bounds what is written; frames beyond the converted ones are
// silenced rather than left stale.
TEST_F(FirDriverTest, OutputIsBoundedAndCompletedToDstFrames) {
  for (bool up : {true, false}) {
    SCOPED_TRACE(up ? "up" : "down");
    configure(2, up, 2);
    const unsigned in_frames = 600, produced = up ? 1200 : 300;
    const std::vector<int16_t> input = random_frames(in_frames, 2, 9);
    const std::vector<int16_t> left = engine_convert_channel(deinterleave(input, 2, 0), 2, up);

    std::vector<int16_t> dst(2 * (produced + 50), 777);
    ops_.reset(obj_);
    ops_.convert_s16(obj_, dst.data(), produced - 50, input.data(), in_frames);
    for (unsigned f = 0; f < produced - 50; ++f) ASSERT_EQ(dst[2 * f], left[f]);
    for (size_t i = 2 * (produced - 50); i < dst.size(); ++i) ASSERT_EQ(dst[i], 777) << i;

    std::fill(dst.begin(), dst.end(), 777);
    ops_.reset(obj_);
    ops_.convert_s16(obj_, dst.data(), produced + 50, input.data(), in_frames);
    for (unsigned f = 0; f < produced; ++f) ASSERT_EQ(dst[2 * f], left[f]);
    for (size_t i = 2 * produced; i < dst.size(); ++i) ASSERT_EQ(dst[i], 0) << i;
  }
}

}  // namespace

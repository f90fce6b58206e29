// SPDX-License-Identifier: MIT
// The FIR block drivers: any cut of a stream into periods, and of periods
// into chunks, gives each channel exactly the engine's one-call conversion of
// that channel, within the 1440-sample work buffer. Periods that do not
// convert exactly stay within dst_frames, silence what they cannot fill and
// are reported once.
#include <algorithm>

#include "tests/frontend/converter_fixture.h"
#include "tests/support/error_capture.h"
#include "tests/support/frontend_reference.h"

namespace {

constexpr int16_t kGuard = 0x5A5A;

// The record's work buffer is swapped for one with a guard zone behind it.
class FirDriverTest : public ConverterTest {
 protected:
  void configure(unsigned factor, bool up, unsigned channels) {
    reopen();
    ASSERT_EQ(init(up ? 8000 : 8000 * factor, up ? 8000 * factor : 8000, channels), 0);
    std::swap(rec_->work, work_);
  }
  void TearDown() override {
    if (work_ != guarded_.data()) std::swap(rec_->work, work_);
    ConverterTest::TearDown();
  }
  bool guard_intact() const {
    return std::count(guarded_.begin() + kWorkSamples, guarded_.end(), kGuard) == 64;
  }
  std::vector<int16_t> guarded_ = std::vector<int16_t>(kWorkSamples + 64, kGuard);
  int16_t *work_ = guarded_.data();
  std::mt19937_64 rng_{6};
};

TEST_F(FirDriverTest, AnyCutOfTheStreamGivesTheEngineConversion) {
  // Periods at and one past each chunk limit, tails the engine call refuses
  // (not a multiple of 4 or 6, or short) and periods below one chunk.
  const struct {
    unsigned factor;
    bool up;
    unsigned channels;
    std::vector<unsigned> periods;
  } cases[] = {{2, false, 1, {1440, 1442, 2002, 4, 2}},  {3, false, 4, {1446, 6000, 18, 3}},
               {6, false, 3, {1440, 1446, 2880, 36, 6}}, {2, true, 1, {720, 721, 1000, 4, 1}},
               {3, true, 2, {480, 481, 1000, 6, 2}},     {6, true, 4, {240, 241, 500, 1, 7}}};
  ErrorCapture errors;
  for (const auto &c : cases) {
    SCOPED_TRACE(::testing::Message() << "factor " << c.factor << (c.up ? " up, " : " down, ")
                                      << c.channels << " channels");
    configure(c.factor, c.up, c.channels);
    std::vector<int16_t> input, out;
    for (unsigned frames : c.periods) {
      const std::vector<int16_t> src = random_samples(rng_, size_t(frames) * c.channels);
      const unsigned out_frames = c.up ? frames * c.factor : frames / c.factor;
      std::vector<int16_t> dst(size_t(out_frames) * c.channels);
      ops_.convert_s16(obj_, dst.data(), out_frames, src.data(), frames);
      input.insert(input.end(), src.begin(), src.end());
      out.insert(out.end(), dst.begin(), dst.end());
    }
    for (unsigned ch = 0; ch < c.channels; ++ch)
      ASSERT_EQ(ref::deinterleave(out, c.channels, ch),
                ref::fir_stage(ref::deinterleave(input, c.channels, ch), c.factor, c.up))
          << "channel " << ch;
    EXPECT_TRUE(guard_intact());
  }
  EXPECT_TRUE(errors.reports().empty());
}

TEST_F(FirDriverTest, UnevenPeriodsStayWithinDstFrames) {
  const struct {
    unsigned factor;
    bool up;
    unsigned channels, src_frames, dst_frames;
  } rows[] = {{6, false, 2, 1441, 240},  {2, false, 2, 2000, 1000}, {2, false, 2, 2000, 999},
              {2, false, 2, 2000, 1001}, {2, false, 2, 2000, 300},  {2, true, 2, 1000, 2000},
              {2, true, 2, 1000, 1999},  {2, true, 2, 1000, 2001},  {3, false, 2, 0, 10},
              {3, true, 2, 0, 10},       {3, false, 0, 30, 9},      {3, true, 0, 30, 89}};
  for (const auto &r : rows) {
    SCOPED_TRACE(::testing::Message() << "factor " << r.factor << (r.up ? " up, " : " down, ")
                                      << r.src_frames << " -> " << r.dst_frames);
    configure(r.factor, r.up, r.channels);
    const unsigned made = r.up ? r.src_frames * r.factor : r.src_frames / r.factor;
    const std::vector<int16_t> src =
        random_samples(rng_, size_t(r.src_frames) * std::max(r.channels, 1u));
    std::vector<int16_t> dst(size_t(r.dst_frames + 8) * 4, kGuard);
    ErrorCapture errors;
    ops_.convert_s16(obj_, dst.data(), r.dst_frames, src.data(), r.src_frames);
    const bool silent = r.src_frames == 0 || r.channels == 0;
    for (unsigned ch = 0; ch < r.channels; ++ch) {
      std::vector<int16_t> want =
          ref::fir_stage(ref::deinterleave(src, r.channels, ch), r.factor, r.up);
      want.resize(std::min(made, r.dst_frames));
      want.resize(silent ? 0 : r.dst_frames, 0);
      want.resize(dst.size() / r.channels, kGuard);
      ASSERT_EQ(ref::deinterleave(dst, r.channels, ch), want) << "channel " << ch;
    }
    if (r.channels == 0) EXPECT_EQ(dst, std::vector<int16_t>(dst.size(), kGuard));
    ops_.convert_s16(obj_, dst.data(), r.dst_frames, src.data(), r.src_frames);
    const bool exact = made == r.dst_frames && r.src_frames % r.factor == 0;
    EXPECT_EQ(errors.reports().size(), silent || exact ? 0u : 1u);
    EXPECT_TRUE(guard_intact());
  }
}

}  // namespace

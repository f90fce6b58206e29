// The entry, the operations table and the simple operations.
#include <cstring>

#include "frontend/converter_fixture.h"

namespace {

struct SentinelTable {
  snd_pcm_rate_ops_t ops;
  SentinelTable() {
    std::memset(&ops, 0, sizeof ops);
    ops.version = 0xABCD;
    ops.get_supported_rates = reinterpret_cast<decltype(ops.get_supported_rates)>(0x1234);
    ops.dump = reinterpret_cast<decltype(ops.dump)>(0x5678);
  }
};

TEST(PluginEntry, TableFillDependsOnlyOnTheOldProtocolVersion) {
  const struct {
    unsigned version;
    bool all_twelve;
  } cases[] = {{0x10001, false}, {0x10002, true}, {0x10003, true}, {0x10000, true}, {0x20000, true}};
  for (const auto &c : cases) {
    SCOPED_TRACE(c.version);
    SentinelTable t;
    void *obj = nullptr;
    ASSERT_EQ(_snd_pcm_rate_skelda_open(c.version, &obj, &t.ops), 0);
    EXPECT_EQ(t.ops.close, pcm_rsmpl_close);
    EXPECT_EQ(t.ops.init, pcm_rsmpl_init);
    EXPECT_EQ(t.ops.free, pcm_rsmpl_free);
    EXPECT_EQ(t.ops.reset, pcm_rsmpl_reset);
    EXPECT_EQ(t.ops.adjust_pitch, pcm_rsmpl_adjust_pitch);
    EXPECT_EQ(t.ops.convert, nullptr);
    EXPECT_EQ(t.ops.convert_s16, pcm_rsmpl_convert_s16);
    EXPECT_EQ(t.ops.input_frames, pcm_rsmpl_input_frames);
    EXPECT_EQ(t.ops.output_frames, pcm_rsmpl_output_frames);
    if (c.all_twelve) {
      EXPECT_EQ(t.ops.version, 0x10002u);
      EXPECT_EQ(t.ops.get_supported_rates, pcm_rsmpl_get_supported_rates);
      EXPECT_EQ(t.ops.dump, pcm_rsmpl_dump);
    } else {
      EXPECT_EQ(t.ops.version, 0xABCDu);
      EXPECT_EQ(reinterpret_cast<uintptr_t>(t.ops.get_supported_rates), 0x1234u);
      EXPECT_EQ(reinterpret_cast<uintptr_t>(t.ops.dump), 0x5678u);
    }
    pcm_rsmpl_close(obj);
  }
}

TEST_F(ConverterTest, FreshRecordHoldsOpenValues) {
  EXPECT_EQ(rec_->factor, 1u);
  EXPECT_EQ(rec_->up_code, -1);
  EXPECT_EQ(rec_->down_code, -1);
  EXPECT_EQ(rec_->pitch, 0u);
  EXPECT_EQ(rec_->pitch_shift, 0u);
  EXPECT_EQ(rec_->channels, 0u);
  for (RSMPL_Context *ctx : rec_->contexts) EXPECT_EQ(ctx, nullptr);
  EXPECT_EQ(rec_->work, nullptr);
  EXPECT_EQ(rec_->convert_fn, nullptr);
  EXPECT_STREQ(rec_->name, "");
}

TEST_F(ConverterTest, SupportedRatesAreFixed) {
  for (int configured = 0; configured < 2; ++configured) {
    if (configured) ASSERT_EQ(init(44100, 48000, 2), 0);
    unsigned lo = 0, hi = 0;
    EXPECT_EQ(ops_.get_supported_rates(obj_, &lo, &hi), 0);
    EXPECT_EQ(lo, 8000u);
    EXPECT_EQ(hi, 48000u);
  }
}

std::string dump_text(const snd_pcm_rate_ops_t &ops, void *obj) {
  snd_output_t *out = nullptr;
  EXPECT_EQ(snd_output_buffer_open(&out), 0);
  ops.dump(obj, out);
  char *text = nullptr;
  const size_t n = snd_output_buffer_string(out, &text);
  std::string s(text, n);
  snd_output_close(out);
  return s;
}

TEST_F(ConverterTest, DumpPrintsTheChosenConverter) {
  EXPECT_EQ(dump_text(ops_, obj_), "RSMPL Converter: \n");
  ASSERT_EQ(init(8000, 16000, 1), 0);
  EXPECT_EQ(dump_text(ops_, obj_), "RSMPL Converter: FIR filter, UP 8000 -> 16000\n");
}

TEST_F(ConverterTest, ResetRightAfterOpenTouchesNothing) {
  ops_.reset(obj_);
  EXPECT_EQ(rec_->work, nullptr);
  EXPECT_EQ(rec_->channels, 0u);
}

TEST_F(ConverterTest, ResetClearsOnlyTheCarriedSamplesAndTheHistory) {
  ASSERT_EQ(init(44100, 48000, 2), 0);
  for (unsigned i = 0; i < kWorkSamples; ++i) rec_->work[i] = static_cast<int16_t>(i + 1);
  auto *history = reinterpret_cast<int16_t *>(rec_->contexts[1]);
  history[0] = 77;
  const uint32_t pitch = rec_->pitch;
  ops_.reset(obj_);
  EXPECT_EQ(rec_->work[0], 0);
  EXPECT_EQ(rec_->work[1], 0);
  for (unsigned i = 2; i < kWorkSamples; ++i) ASSERT_EQ(rec_->work[i], static_cast<int16_t>(i + 1));
  EXPECT_EQ(history[0], 0);
  EXPECT_EQ(rec_->pitch, pitch);
  EXPECT_STREQ(rec_->name, "Linear, UP 44100 -> 48000");
}

TEST_F(ConverterTest, FreeTwiceReleasesOnce) {
  ASSERT_EQ(init(44100, 22050, 4), 0);
  ops_.free(obj_);
  for (RSMPL_Context *ctx : rec_->contexts) EXPECT_EQ(ctx, nullptr);
  EXPECT_EQ(rec_->work, nullptr);
  ops_.free(obj_);  // must find only null slots
  EXPECT_STREQ(rec_->name, "FIR filter, DOWN 44100 -> 22050");
}

// Calls outside the span from init to free leave the output alone.
TEST_F(ConverterTest, ConvertOutsideAConfiguredSpanDoesNothing) {
  std::vector<int16_t> src(64, 1000), dst(64, -7);
  ops_.convert_s16(obj_, dst.data(), 32, src.data(), 32);
  EXPECT_EQ(dst, std::vector<int16_t>(64, -7));
  ASSERT_EQ(init(48000, 24000, 2), 0);
  ops_.free(obj_);
  ops_.convert_s16(obj_, dst.data(), 16, src.data(), 32);
  EXPECT_EQ(dst, std::vector<int16_t>(64, -7));
}

TEST_F(ConverterTest, ConvertCallsTheInstalledConverter) {
  ASSERT_EQ(init(48000, 48000, 1), 0);
  snd_pcm_rate_info_t i = info(48000, 48000, 1, 256, 256);
  ASSERT_EQ(ops_.adjust_pitch(obj_, &i), 0);
  std::vector<int16_t> src(256), dst(256, 0);
  for (int k = 0; k < 256; ++k) src[k] = static_cast<int16_t>(k * 97 - 12000);
  ops_.convert_s16(obj_, dst.data(), 256, src.data(), 256);
  EXPECT_EQ(dst, src);
}

}  // namespace

// SPDX-License-Identifier: MIT
// Every operation's rules as tables: the entry by protocol version, init by
// its parameters and allocations, the converter each rate pair gets, and the
// other operations in every state a record can be in. A refused call changes
// nothing it is not documented to change.
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <string>
#include <tuple>

#include "tests/frontend/converter_fixture.h"
#include "tests/support/error_capture.h"
#include "tests/support/frontend_reference.h"

// test_frontend is linked with --wrap=malloc,--wrap=calloc, so the library's
// allocations come here and can be refused one at a time.
extern "C" void *__real_malloc(size_t);
extern "C" void *__real_calloc(size_t, size_t);
namespace {
int g_allowed = -1;
bool refuse() { return g_allowed >= 0 && g_allowed-- == 0; }
}  // namespace
extern "C" void *__wrap_malloc(size_t n) { return refuse() ? nullptr : __real_malloc(n); }
extern "C" void *__wrap_calloc(size_t n, size_t m) {
  return refuse() ? nullptr : __real_calloc(n, m);
}

namespace {

// Lets `succeed` more of the library's malloc/calloc calls through and
// refuses the next one; -1 lets all through.
void fail_allocation_after(int succeed) { g_allowed = succeed; }

// A context as RSMPL_InitContext leaves it.
bool fresh(const RSMPL_Context *ctx) {
  std::vector<unsigned char> clean(RSMPL_GetContextSize());
  RSMPL_InitContext(reinterpret_cast<RSMPL_Context *>(clean.data()));
  return std::memcmp(ctx, clean.data(), clean.size()) == 0;
}

TEST(PluginEntry, OpenFillsTheTableItsVersionHas) {
  const snd_pcm_rate_ops_t all = {
      pcm_rsmpl_close, pcm_rsmpl_init, pcm_rsmpl_free, pcm_rsmpl_reset, pcm_rsmpl_adjust_pitch,
      nullptr, pcm_rsmpl_convert_s16, pcm_rsmpl_input_frames, pcm_rsmpl_output_frames, 0x10002,
      pcm_rsmpl_get_supported_rates, pcm_rsmpl_dump};
  const struct {
    unsigned version;
    int fail, result;
  } rows[] = {{0x10000, -1, 0}, {0x10001, -1, 0}, {0x10002, -1, 0}, {0x10003, -1, 0},
              {0x10002, 0, -ENOMEM}};
  for (const auto &r : rows) {
    SCOPED_TRACE(::testing::Message() << std::hex << r.version << " refusing " << r.fail);
    snd_pcm_rate_ops_t ops, want;
    std::memset(&ops, 0xA5, sizeof ops);  // what the caller's table held
    std::memcpy(&want, &ops, sizeof ops);
    if (r.result == 0) std::memcpy(&want, &all, offsetof(snd_pcm_rate_ops_t, version));
    if (r.result == 0 && r.version != 0x10001) {  // only the old protocol's table is shorter
      want.version = all.version;
      want.get_supported_rates = all.get_supported_rates;
      want.dump = all.dump;
    }
    void *obj = &ops;
    fail_allocation_after(r.fail);
    const int rc = _snd_pcm_rate_skelda_open(r.version, &obj, &ops);
    fail_allocation_after(-1);
    ASSERT_EQ(rc, r.result);
    EXPECT_EQ(std::memcmp(&ops, &want, sizeof ops), 0);
    EXPECT_EQ(obj == &ops, r.result != 0);
    if (r.result != 0) continue;
    rsmpl_converter opened;  // as documented: all zero but the factor and the codes
    std::memset(&opened, 0, sizeof opened);
    opened.factor = 1;
    opened.up_code = opened.down_code = -1;
    EXPECT_EQ(std::memcmp(obj, &opened, sizeof opened), 0);
    pcm_rsmpl_close(obj);
  }
}

auto selection(const rsmpl_converter &r) {
  return std::make_tuple(r.factor, r.up_code, r.down_code, r.convert_fn, std::string(r.name));
}

// init from a stereo FIR record with history: the converter for each FIR
// ratio at its boundary and one past it both ways, then the channel, rate
// and allocation rules. The allocations are the work buffer, then one
// context per channel.
TEST_F(ConverterTest, InitRulesAtTheirBoundaries) {
  enum Kind { kFirUp, kFirDown, kLinearUp, kLinearDown, kKept };
  const struct {
    unsigned in_rate, out_rate, channels;
    int fail, result;
    Kind kind = kKept;
    unsigned factor = 0;
    int32_t code = -1;
  } rows[] = {
      {8000, 16000, 2, -1, 0, kFirUp, 2, 1}, {8000, 15999, 2, -1, 0, kLinearUp},
      {8000, 16001, 2, -1, 0, kLinearUp}, {8000, 24000, 2, -1, 0, kFirUp, 3, 2},
      {8000, 32000, 2, -1, 0, kLinearUp}, {8000, 40000, 2, -1, 0, kLinearUp},
      {8000, 48000, 2, -1, 0, kFirUp, 6, 4}, {8000, 56000, 2, -1, 0, kLinearUp},
      {16000, 8000, 2, -1, 0, kFirDown, 2, 1}, {16001, 8000, 2, -1, 0, kLinearDown},
      {24000, 8000, 2, -1, 0, kFirDown, 3, 2}, {32000, 8000, 2, -1, 0, kLinearDown},
      {48000, 8000, 2, -1, 0, kFirDown, 6, 4}, {56000, 8000, 2, -1, 0, kLinearDown},
      {48000, 48000, 2, -1, 0, kLinearDown}, {48000, 48001, 2, -1, 0, kLinearUp},
      {3000000000u, 1000000000u, 2, -1, 0, kFirDown, 3, 2},
      {4294967295u, 2147483648u, 2, -1, 0, kLinearDown},
      {1 << 20, 1, 2, -1, 0, kLinearDown},  // a pitch of exactly a half rounds up
      {(1 << 20) + 1, 1, 2, -1, 0, kLinearDown},  // just below a half rounds down
      {44100, 48000, 4, -1, 0, kLinearUp}, {44100, 48000, 5, -1, -EINVAL},
      {44100, 48000, 0, -1, 0, kLinearUp}, {44100, 48000, 1000, -1, -EINVAL},
      {1, 48000, 1, -1, 0, kLinearUp}, {0, 48000, 1, -1, -EINVAL},
      {48000, 1, 1, -1, 0, kLinearDown}, {48000, 0, 1, -1, -EINVAL},
      {44100, 48000, 3, 0, -ENOMEM}, {44100, 48000, 3, 1, -ENOMEM},
      {44100, 48000, 3, 3, -ENOMEM}, {44100, 48000, 3, 4, 0, kLinearUp}};
  const char *formats[] = {"FIR filter, UP %d -> %d", "FIR filter, DOWN %d -> %d",
                           "Linear, UP %d -> %d", "Linear, DOWN %d -> %d"};
  const rsmpl_convert_fn converters[] = {src_fir_up_s16, src_fir_down_s16, src_linear_expand_s16,
                                         src_linear_shrink_s16};
  for (const auto &r : rows) {
    SCOPED_TRACE(::testing::Message() << r.in_rate << " -> " << r.out_rate << ", " << r.channels
                                      << " ch, refusing allocation " << r.fail);
    reopen();
    ASSERT_EQ(init(8000, 24000, 2), 0);
    std::vector<int16_t> src(2 * 300, 1000), dst(2 * 900);
    ops_.convert_s16(obj_, dst.data(), 900, src.data(), 300);
    rsmpl_converter before;
    std::memcpy(&before, rec_, sizeof before);
    rsmpl_converter want = before;
    fail_allocation_after(r.fail);
    const int rc = init(r.in_rate, r.out_rate, r.channels);
    fail_allocation_after(-1);
    ASSERT_EQ(rc, r.result);
    if (r.result == -EINVAL) {
      EXPECT_EQ(std::memcmp(&before, rec_, sizeof before), 0);
      continue;
    }
    EXPECT_EQ(rec_->channels, r.channels);
    EXPECT_EQ(rec_->pitch, ref::init_pitch(r.in_rate, r.out_rate));
    EXPECT_EQ(rec_->work == nullptr, r.fail == 0);
    for (unsigned c = 0; c < kMaxChannels; ++c) {
      const bool held = c < r.channels && (r.result == 0 || int(c) < r.fail - 1);
      if (r.fail == 0) {
        EXPECT_EQ(rec_->contexts[c], before.contexts[c]) << "slot " << c;  // kept
      } else {
        ASSERT_EQ(rec_->contexts[c] != nullptr, held) << "slot " << c;
        if (held) EXPECT_TRUE(fresh(rec_->contexts[c])) << "slot " << c;
      }
    }
    if (r.kind != kKept) {
      want.factor = r.factor;
      want.up_code = r.kind == kFirUp ? r.code : -1;
      want.down_code = r.kind == kFirDown ? r.code : -1;
      want.convert_fn = converters[r.kind];
      std::snprintf(want.name, sizeof want.name, formats[r.kind], int(r.in_rate), int(r.out_rate));
    }
    EXPECT_EQ(selection(*rec_), selection(want));
  }
}

// The rest of the operations in every state a record can be in: opened;
// converting linear, FIR, or FIR on uneven periods through the resampler;
// without channels; freed; after an init that could not allocate the work
// buffer or the second context. convert_s16 converts only from a successful
// init to free; reset restarts the conversion (the same period converts the
// same again) and changes nothing else; free releases the buffers (twice is
// harmless) and keeps the rest; the rates and the dump hold in any state.
TEST_F(ConverterTest, EachOperationInEachState) {
  const struct {
    unsigned in_rate, out_rate, channels, in_period, out_period;
    bool freed;
    int refuse;
    bool converts;
    const char *name;
  } rows[] = {
      {0, 0, 0, 441, 480, false, -1, false, ""},
      {44100, 48000, 2, 441, 480, false, -1, true, "Linear, UP 44100 -> 48000"},
      {48000, 16000, 4, 480, 160, false, -1, true, "FIR filter, DOWN 48000 -> 16000"},
      {48000, 16000, 2, 1024, 341, false, -1, true,
       "Windowed sinc at periods 1024 -> 341, DOWN 48000 -> 16000"},
      {44100, 48000, 0, 441, 480, false, -1, false, "Linear, UP 44100 -> 48000"},
      {44100, 48000, 2, 441, 480, true, -1, false, "Linear, UP 44100 -> 48000"},
      {44100, 48000, 2, 441, 480, false, 0, false, "Linear, UP 44100 -> 48000"},
      {44100, 48000, 2, 441, 480, false, 2, false, "Linear, UP 44100 -> 48000"}};
  std::mt19937_64 rng(4);
  const std::vector<int16_t> src = random_samples(rng, kMaxChannels * 1024);
  ErrorCapture errors;  // the uneven periods are reported; that is checked elsewhere
  for (const auto &r : rows) {
    SCOPED_TRACE(::testing::Message() << r.name << ", " << r.channels << " ch, freed " << r.freed
                                      << ", refusing allocation " << r.refuse);
    reopen();
    if (r.in_rate != 0) {
      ASSERT_EQ(init(r.in_rate, r.out_rate, r.channels), 0);
      ASSERT_EQ(adjust(r.in_period, r.out_period), 0);
      ops_.reset(obj_);
      if (r.freed) ops_.free(obj_);
      fail_allocation_after(r.refuse);
      const int rc = r.refuse < 0 ? 0 : init(r.in_rate, r.out_rate, r.channels);
      fail_allocation_after(-1);
      EXPECT_EQ(rc, r.refuse < 0 ? 0 : -ENOMEM);
    }
    unsigned lo = 0, hi = 0;
    EXPECT_EQ(ops_.get_supported_rates(obj_, &lo, &hi), 0);
    EXPECT_EQ(lo, 8000u);
    EXPECT_EQ(hi, 48000u);
    snd_output_t *out = nullptr;
    ASSERT_EQ(snd_output_buffer_open(&out), 0);
    ops_.dump(obj_, out);
    char *text = nullptr;
    const size_t length = snd_output_buffer_string(out, &text);
    EXPECT_EQ(std::string(text, length), std::string("RSMPL Converter: ") + r.name + "\n");
    snd_output_close(out);

    const std::vector<int16_t> untouched(kMaxChannels * r.out_period, 0x5A5A);
    std::vector<int16_t> first = untouched, again = untouched;
    ops_.convert_s16(obj_, first.data(), r.out_period, src.data(), r.in_period);
    EXPECT_EQ(first != untouched, r.converts);

    rsmpl_converter before;
    std::memcpy(&before, rec_, sizeof before);
    std::vector<int16_t> work;
    if (rec_->work != nullptr) work.assign(rec_->work, rec_->work + kWorkSamples);
    ops_.reset(obj_);
    EXPECT_EQ(std::memcmp(&before, rec_, sizeof before), 0);
    for (unsigned c = 0; c < kMaxChannels; ++c)
      if (rec_->contexts[c] != nullptr) EXPECT_TRUE(fresh(rec_->contexts[c])) << "slot " << c;
    std::fill_n(work.begin(), std::min<size_t>(work.size(), rec_->channels), 0);
    if (rec_->work != nullptr) EXPECT_TRUE(std::equal(work.begin(), work.end(), rec_->work));
    ops_.convert_s16(obj_, again.data(), r.out_period, src.data(), r.in_period);
    EXPECT_EQ(again, first);

    for (RSMPL_Context *&ctx : before.contexts) ctx = nullptr;
    before.work = nullptr;
    before.hq = nullptr;  // the resampler state of uneven FIR periods
    before.hq_bytes = 0;
    for (int twice = 0; twice < 2; ++twice) {
      ops_.free(obj_);
      EXPECT_EQ(std::memcmp(&before, rec_, sizeof before), 0);
    }
  }
}

}  // namespace

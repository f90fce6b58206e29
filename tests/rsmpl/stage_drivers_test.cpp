// The stage drivers and the block calls over them: a stream cut into any
// allowed blocks equals one pass of the kernel over silence plus the whole
// stream; in place equals out of place; the kept history; the status codes
// and their order, with nothing touched on failure.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>

#include "rsmpl/context.h"
#include "rsmpl/fir_reference.h"
#include "skelda/rsmpl_fir.h"
#include "support/workload.h"

namespace {

using fir_test::general_form;
using fir_test::kernel_specs;
using fir_test::make_signal;

struct Stage {
  const char *name;
  bool up;
  uint32_t code;
  rsmpl::FirKernelId kernel;
  int min_length, multiple, max_length;  // what RSMPL_Up / RSMPL_Down accept
  int boundary;                          // split point (down) or tail (up)
};

const Stage kStages[] = {
    {"Downsample1_2", false, 1, rsmpl::kFirDown2, 8, 4, 4000, 144},
    {"Downsample1_3", false, 2, rsmpl::kFirDown3, 18, 6, 4000, 72},
    {"Downsample1_4", false, 3, rsmpl::kFirDown4, 16, 4, 4000, 80},
    {"Downsample1_6", false, 4, rsmpl::kFirDown6, 36, 6, 4000, 108},
    {"Downsample2_3", false, 0, rsmpl::kFirDown3To2, 18, 6, 4000, 48},
    {"Upsample2_1", true, 1, rsmpl::kFirUp2, 4, 1, 720, 18},
    {"Upsample3_1", true, 2, rsmpl::kFirUp3, 6, 1, 480, 6},
    {"Upsample4_1", true, 3, rsmpl::kFirUp4, 4, 1, 360, 4},
    {"Upsample6_1", true, 4, rsmpl::kFirUp6, 6, 1, 240, 3},
    {"Upsample3_2", true, 0, rsmpl::kFirUp2To3, 6, 2, 960, 12},
};

struct ContextDeleter {
  void operator()(RSMPL_Context *c) const { ::operator delete(c); }
};
using ContextPtr = std::unique_ptr<RSMPL_Context, ContextDeleter>;

ContextPtr fresh_context() {
  ContextPtr ctx(static_cast<RSMPL_Context *>(::operator new(RSMPL_GetContextSize())));
  RSMPL_InitContext(ctx.get());
  return ctx;
}

size_t outputs_of(const Stage &s, int n) {
  const auto &k = kernel_specs()[s.kernel];
  return static_cast<size_t>(n / k.M) * k.L;
}

// One block through the public call, out of place or in place.
std::vector<int16_t> convert(const Stage &s, RSMPL_Context *ctx, const int16_t *block, int n,
                             bool in_place) {
  const size_t outputs = outputs_of(s, n);
  std::vector<int16_t> buffer(std::max<size_t>(outputs, n));
  std::vector<int16_t> in(block, block + n);
  int16_t *src = in_place ? buffer.data() : in.data();
  if (in_place) std::copy(in.begin(), in.end(), buffer.begin());
  const uint32_t status = s.up ? RSMPL_Up(ctx, src, buffer.data(), n, s.code)
                               : RSMPL_Down(ctx, src, buffer.data(), n, s.code);
  EXPECT_EQ(status, RSMPL_OK) << s.name << " n=" << n;
  buffer.resize(outputs);
  return buffer;
}

std::vector<int16_t> one_pass(const Stage &s, const std::vector<int16_t> &stream) {
  const auto &k = kernel_specs()[s.kernel];
  std::vector<int16_t> buffer(k.history, 0);
  buffer.insert(buffer.end(), stream.begin(), stream.end());
  return general_form(k, buffer.data(), static_cast<int>(stream.size()));
}

// Block lengths around the driver's boundary, the limits of its rule and a
// few random ones, all allowed by the rule.
std::vector<int> block_lengths(const Stage &s, std::mt19937 &rng) {
  auto allowed = [&](int n) {
    n = std::max(n, s.min_length);
    n = (n + s.multiple - 1) / s.multiple * s.multiple;
    return std::min(n, s.max_length / s.multiple * s.multiple);
  };
  std::vector<int> lengths = {allowed(s.boundary), allowed(s.boundary + 1), s.min_length,
                              allowed(s.boundary - 1), allowed(s.max_length),
                              allowed(3 * s.boundary + 5)};
  std::uniform_int_distribution<int> any(s.min_length, s.max_length);
  for (int i = workload(0, 7); i < 10; ++i) lengths.push_back(allowed(any(rng)));
  return lengths;
}

TEST(StageDrivers, AnySplitOfAStreamEqualsOnePassOverSilenceAndTheStream) {
  std::mt19937 rng(77);
  for (const auto &s : kStages) {
    for (bool in_place : {false, true}) {
      const auto lengths = block_lengths(s, rng);
      std::vector<int16_t> stream;
      for (int n : lengths) {
        const auto block = make_signal(n, fir_test::Fill::kRandom, rng);
        stream.insert(stream.end(), block.begin(), block.end());
      }
      auto ctx = fresh_context();
      std::vector<int16_t> got;
      size_t at = 0;
      for (int n : lengths) {
        const auto out = convert(s, ctx.get(), stream.data() + at, n, in_place);
        got.insert(got.end(), out.begin(), out.end());
        at += n;
      }
      ASSERT_EQ(got, one_pass(s, stream)) << s.name << (in_place ? " in place" : "");
    }
  }
}

TEST(StageDrivers, FullScaleStreamsSplitAtTheBoundaryStayExact) {
  std::mt19937 rng(8);
  for (const auto &s : kStages) {
    const int a = s.boundary < s.min_length ? s.min_length : s.boundary / s.multiple * s.multiple;
    const int b = a + s.multiple;
    const auto stream = make_signal(a + b, fir_test::Fill::kExtremes, rng);
    auto ctx = fresh_context();
    auto got = convert(s, ctx.get(), stream.data(), a, true);
    const auto rest = convert(s, ctx.get(), stream.data() + a, b, true);
    got.insert(got.end(), rest.begin(), rest.end());
    EXPECT_EQ(got, one_pass(s, stream)) << s.name;
  }
}

TEST(StageDrivers, HistoryHoldsTheNewestInputAfterEachCall) {
  std::mt19937 rng(11);
  for (const auto &s : kStages) {
    const int history = kernel_specs()[s.kernel].history;
    auto ctx = fresh_context();
    const int first = s.up ? s.min_length : (history + s.multiple) / s.multiple * s.multiple;
    const auto a = make_signal(first, fir_test::Fill::kRandom, rng);
    convert(s, ctx.get(), a.data(), first, false);
    std::vector<int16_t> joined(history, 0);
    joined.insert(joined.end(), a.begin(), a.end());
    const std::vector<int16_t> want(joined.end() - history, joined.end());
    EXPECT_EQ(std::vector<int16_t>(ctx->samples, ctx->samples + history), want) << s.name;
  }
  // A block shorter than the history keeps the older part of it.
  auto ctx = fresh_context();
  const auto a = make_signal(108, fir_test::Fill::kRandom, rng);
  const auto b = make_signal(36, fir_test::Fill::kRandom, rng);
  std::vector<int16_t> out(18);
  ASSERT_EQ(RSMPL_Down(ctx.get(), a.data(), out.data(), 108, 4), RSMPL_OK);
  ASSERT_EQ(RSMPL_Down(ctx.get(), b.data(), out.data(), 36, 4), RSMPL_OK);
  std::vector<int16_t> want(a.end() - 54, a.end());
  want.insert(want.end(), b.begin(), b.end());
  EXPECT_EQ(std::vector<int16_t>(ctx->samples, ctx->samples + 90), want);
}

TEST(StageDrivers, ResetReturnsTheStreamToSilence) {
  std::mt19937 rng(12);
  for (const auto &s : kStages) {
    const auto block = make_signal(s.max_length / s.multiple * s.multiple / 2 / s.multiple * s.multiple + s.min_length,
                                   fir_test::Fill::kRandom, rng);
    const int n = static_cast<int>(block.size());
    auto used = fresh_context();
    convert(s, used.get(), block.data(), n, false);
    ASSERT_EQ(RSMPL_Reset(used.get()), RSMPL_OK);
    auto fresh = fresh_context();
    EXPECT_EQ(convert(s, used.get(), block.data(), n, false),
              convert(s, fresh.get(), block.data(), n, false))
        << s.name;
  }
}

// Checks come in order (context, buffers, code, length) and a refused call
// changes neither the context nor the output.
TEST(BlockCalls, StatusCodesAndTheirOrder) {
  struct Case {
    bool up;
    bool null_ctx, null_in, null_out;
    uint32_t code;
    int32_t n;
    uint32_t status;
    size_t written;
  };
  const Case cases[] = {
      {false, true, true, true, 9, -1, 1, 0},  {true, true, true, true, 9, -1, 1, 0},
      {false, false, true, false, 9, -1, 2, 0}, {true, false, false, true, 9, -1, 2, 0},
      {false, false, false, false, 5, 36, 3, 0}, {false, false, false, false, 0xFFFFFFFFu, 36, 3, 0},
      {true, false, false, false, 5, 36, 3, 0},
      {false, false, false, false, 4, 36, 0, 6}, {false, false, false, false, 4, 30, 4, 0},
      {false, false, false, false, 4, 40, 4, 0}, {false, false, false, false, 1, 10000, 0, 5000},
      {false, false, false, false, 1, 6, 4, 0},  {false, false, false, false, 1, 10, 4, 0},
      {false, false, false, false, 0, 18, 0, 12}, {false, false, false, false, 0, 12, 4, 0},
      {false, false, false, false, 2, 20, 4, 0}, {false, false, false, false, 2, 24, 0, 8},  {false, false, false, false, 3, 16, 0, 4},
      {false, false, false, false, 3, -4, 4, 0},
      {true, false, false, false, 1, 720, 0, 1440}, {true, false, false, false, 1, 721, 4, 0},
      {true, false, false, false, 1, 3, 4, 0},      {true, false, false, false, 0, 960, 0, 1440},
      {true, false, false, false, 0, 962, 4, 0},    {true, false, false, false, 0, 7, 4, 0},
      {true, false, false, false, 0, 6, 0, 9},      {true, false, false, false, 4, 240, 0, 1440},
      {true, false, false, false, 4, 241, 4, 0},    {true, false, false, false, 2, 480, 0, 1440},
      {true, false, false, false, 3, 361, 4, 0},    {true, false, false, false, 1, 0x7FFFFFFF, 4, 0},
      {true, false, false, false, 4, 0x40000000, 4, 0}, {true, false, false, false, 2, -6, 4, 0},
  };
  std::mt19937 rng(4);
  for (const auto &c : cases) {
    auto ctx = fresh_context();
    const auto warm = make_signal(720, fir_test::Fill::kRandom, rng);
    std::vector<int16_t> scratch(1440);
    ASSERT_EQ(RSMPL_Up(ctx.get(), warm.data(), scratch.data(), 240, 4), RSMPL_OK);
    std::vector<uint8_t> before(reinterpret_cast<uint8_t *>(ctx.get()),
                                reinterpret_cast<uint8_t *>(ctx.get()) + RSMPL_GetContextSize());
    const auto in = make_signal(10000, fir_test::Fill::kRandom, rng);
    std::vector<int16_t> out(10000, 0x1234);
    RSMPL_Context *c_ctx = c.null_ctx ? nullptr : ctx.get();
    const int16_t *c_in = c.null_in ? nullptr : in.data();
    int16_t *c_out = c.null_out ? nullptr : out.data();
    const uint32_t status = c.up ? RSMPL_Up(c_ctx, c_in, c_out, c.n, c.code)
                                 : RSMPL_Down(c_ctx, c_in, c_out, c.n, c.code);
    ASSERT_EQ(status, c.status) << (c.up ? "up" : "down") << " code " << c.code << " n " << c.n;
    size_t written = 0;
    for (size_t i = 0; i < out.size(); ++i)
      if (out[i] != 0x1234) written = i + 1;
    EXPECT_LE(written, c.written) << "code " << c.code << " n " << c.n;
    if (status != RSMPL_OK) {
      EXPECT_EQ(written, 0u);
      EXPECT_EQ(std::memcmp(before.data(), ctx.get(), before.size()), 0) << "context changed";
    }
  }
}

// Called directly, the 2-to-3 driver converts the even part of an odd block.
TEST(StageDrivers, OddBlockGivenDirectlyToTheTwoToThreeDriverDropsItsLastSample) {
  std::mt19937 rng(21);
  for (int n : {7, 13, 25, 101}) {
    const auto block = make_signal(n, fir_test::Fill::kRandom, rng);
    auto odd = fresh_context();
    auto even = fresh_context();
    std::vector<int16_t> a(3 * n / 2 + 8, 0x1234), b(3 * n / 2 + 8, 0x1234);
    Upsample3_2(block.data(), a.data(), odd.get(), n);
    Upsample3_2(block.data(), b.data(), even.get(), n - 1);
    EXPECT_EQ(a, b) << n;
    EXPECT_EQ(std::memcmp(odd.get(), even.get(), RSMPL_GetContextSize()), 0);
  }
}

}  // namespace

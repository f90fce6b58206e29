// The stage drivers and the block calls over them against the stage
// reference (one kernel pass over silence and the whole stream): any split,
// in place or not, the kept history, and every length rule of RSMPL_Up and
// RSMPL_Down at its boundary, with nothing touched by a refused call.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <memory>

#include "rsmpl/context.h"
#include "rsmpl/fir_reference.h"
#include "support/workload.h"

namespace {

using fir_test::Fill;
using fir_test::kernel_specs;
using fir_test::KernelSpec;
using fir_test::make_signal;

constexpr int16_t kCanary = 0x5a5a;

std::unique_ptr<RSMPL_Context> fresh_context() {
  auto ctx = std::make_unique<RSMPL_Context>();
  EXPECT_EQ(RSMPL_InitContext(ctx.get()), RSMPL_OK);
  return ctx;
}

int64_t outputs_of(const KernelSpec &k, int64_t n) { return n < k.M ? 0 : n / k.M * k.L; }

// What RSMPL_Up / RSMPL_Down accept for this stage.
bool allowed(const KernelSpec &k, int64_t n) {
  return n >= k.min_length && n % k.multiple == 0 && (!k.up || outputs_of(k, n) <= 1440);
}

uint32_t block_call(const KernelSpec &k, RSMPL_Context *ctx, const int16_t *in, int16_t *out,
                    int32_t n, uint32_t code) {
  return k.up ? RSMPL_Up(ctx, in, out, n, code) : RSMPL_Down(ctx, in, out, n, code);
}

// Block lengths around the driver's split point or tail, the shortest and
// longest the block call takes, one group (given to the driver directly)
// and random ones, shuffled so that each meets a different history. The
// 2-to-3 driver also gets an odd block: it converts the even part and keeps
// the last sample out of output and history alike.
std::vector<int> block_lengths(const KernelSpec &k, std::mt19937 &rng) {
  const int longest = k.up ? 1440 / k.L * k.M : 2000 / k.multiple * k.multiple;
  auto round = [&](int n) { return (n + k.multiple - 1) / k.multiple * k.multiple; };
  std::vector<int> lengths = {k.M,     k.min_length, k.boundary - k.multiple, k.boundary,
                              round(k.boundary + 1), longest, k.id == rsmpl::kFirUp2To3 ? 27 : k.M};
  std::uniform_int_distribution<int> any(k.min_length, longest);
  for (int i = workload(0, 8); i < 12; ++i) lengths.push_back(round(any(rng)));
  std::shuffle(lengths.begin(), lengths.end(), rng);
  return lengths;
}

TEST(StageDrivers, AnySplitInPlaceOrNotEqualsTheReferenceAndKeepsTheNewestInput) {
  std::mt19937 rng(77);
  for (const auto &k : kernel_specs()) {
    for (Fill fill : {Fill::kRandom, Fill::kExtremes}) {
      for (bool in_place : {false, true}) {
        auto ctx = fresh_context();
        std::vector<int16_t> stream(k.history, 0), got;  // what the stage has been given
        for (int n : block_lengths(k, rng)) {
          const auto block = make_signal(n, fill, rng);
          stream.insert(stream.end(), block.begin(), block.end() - n % k.M);
          const size_t outputs = outputs_of(k, n);
          std::vector<int16_t> buffer(std::max<size_t>(outputs, n) + 8, kCanary);
          if (in_place) std::copy(block.begin(), block.end(), buffer.begin());
          const int16_t *in = in_place ? buffer.data() : block.data();
          if (allowed(k, n))
            ASSERT_EQ(block_call(k, ctx.get(), in, buffer.data(), n, k.code), RSMPL_OK);
          else
            k.driver(in, buffer.data(), ctx.get(), n);
          const size_t end = in_place ? std::max<size_t>(outputs, n) : outputs;
          ASSERT_EQ(std::count(buffer.begin() + end, buffer.end(), kCanary), long(buffer.size() - end))
              << k.name << " wrote past its outputs, n=" << n;
          got.insert(got.end(), buffer.begin(), buffer.begin() + outputs);
          ASSERT_TRUE(std::equal(stream.end() - k.history, stream.end(), ctx->samples))
              << k.name << " history after n=" << n;
        }
        stream.erase(stream.begin(), stream.begin() + k.history);
        ASSERT_EQ(got, fir_test::stage_reference(k, stream))
            << k.name << (in_place ? " in place" : "") << " fill " << int(fill);
      }
    }
  }
}

// Each length rule at its boundary and one past it (shortest block,
// multiple, at most 1440 outputs up, none down), lengths whose output count
// wraps 32 bits, and the order of the checks: context, buffers, code,
// length. An accepted call writes exactly the reference's outputs from the
// kept history; a refused one touches neither the context nor the output.
TEST(BlockCalls, EveryRuleAtItsBoundaryAndTheOrderOfTheChecks) {
  struct Case {
    const KernelSpec *k;
    int null;  // 1: every pointer, 2: in, 3: out
    uint32_t code;
    int32_t n;
    uint32_t status;
  };
  std::vector<Case> cases;
  for (const auto &k : kernel_specs()) {
    // Every length within two multiples of the shortest and the longest
    // block; down has no upper limit, so only up meets lengths past any buffer.
    std::vector<int32_t> lengths = {0, -k.multiple, INT_MAX, k.up ? 1 << 30 : 0};
    for (int edge : {k.min_length, k.up ? 1440 / k.L * k.M : 96000})
      for (int n = edge - 2 * k.multiple - 1; n <= edge + 2 * k.multiple + 1; ++n) lengths.push_back(n);
    for (int32_t n : lengths) cases.push_back({&k, 0, k.code, n, allowed(k, n) ? 0u : 4u});
    for (Case c : {Case{&k, 1, 9, -1, 1}, {&k, 2, 9, -1, 2}, {&k, 3, 9, -1, 2}, {&k, 0, 5, -1, 3},
                   {&k, 0, 5, k.min_length, 3}, {&k, 0, 0xFFFFFFFF, k.min_length, 3}})
      cases.push_back(c);
  }
  std::mt19937 rng(4);
  const auto in = make_signal(96000 + 16, Fill::kRandom, rng);
  auto prepared = fresh_context();
  const auto history = make_signal(rsmpl::kSampleAreaSize, Fill::kRandom, rng);
  std::copy(history.begin(), history.end(), prepared->samples);
  for (const auto &c : cases) {
    const KernelSpec &k = *c.k;
    RSMPL_Context ctx = *prepared;
    std::vector<int16_t> out(96000, kCanary);
    const uint32_t status = block_call(k, c.null == 1 ? nullptr : &ctx,
                                       c.null == 1 || c.null == 2 ? nullptr : in.data(),
                                       c.null == 1 || c.null == 3 ? nullptr : out.data(), c.n, c.code);
    ASSERT_EQ(status, c.status) << k.name << " code " << c.code << " n " << c.n;
    std::vector<int16_t> want;
    if (status == RSMPL_OK) {
      std::vector<int16_t> buffer(history.begin(), history.begin() + k.history);
      buffer.insert(buffer.end(), in.begin(), in.begin() + c.n);
      want = fir_test::general_form(k, buffer.data(), c.n);
    } else {
      EXPECT_EQ(std::memcmp(&ctx, prepared.get(), sizeof ctx), 0) << "context changed";
    }
    ASSERT_TRUE(std::equal(want.begin(), want.end(), out.begin())) << k.name << " n " << c.n;
    ASSERT_EQ(std::count(out.begin() + want.size(), out.end(), kCanary),
              static_cast<long>(out.size() - want.size())) << k.name << " n " << c.n;
  }
}

}  // namespace

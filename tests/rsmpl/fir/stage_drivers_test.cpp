// SPDX-License-Identifier: MIT
// The stage drivers and the block calls over them against the stage
// reference (one kernel pass over silence and the whole stream): any split,
// in place or not, and the kept history. Each stage runs on its own thread:
// contexts share only constant tables and the kernel dispatch (ThreadSanitizer
// runs this in CI).
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <thread>

#include "rsmpl/context.h"
#include "tests/rsmpl/fir/reference.h"
#include "tests/support/workload.h"

namespace {

using namespace fir_test;

TEST(StageDrivers, AnySplitInPlaceOrNotEqualsTheReferenceAndKeepsTheNewestInput) {
  auto stage = [](const KernelSpec &k) {
    std::mt19937 rng(77 + k.id);
    const int longest = k.up ? 1440 / k.L * k.M : 2000 / k.multiple * k.multiple;
    auto round = [&](int n) { return (n + k.multiple - 1) / k.multiple * k.multiple; };
    std::uniform_int_distribution<int> any(k.min_length, longest);
    for (Fill fill : {Fill::kRandom, Fill::kExtremes}) {
      for (bool in_place : {false, true}) {
        // Block lengths around the driver's split point or tail, the shortest
        // and longest the block call takes, one group (given to the driver
        // directly) and random ones, shuffled so that each meets a different
        // history. The 2-to-3 driver also gets an odd block: it converts the
        // even part and keeps the last sample out of output and history alike.
        std::vector<int> lengths = {k.M, k.min_length, k.boundary - k.multiple, k.boundary,
                                    round(k.boundary + 1), longest, k.up && k.M == 2 ? 27 : k.M};
        for (int i = workload(0, 8); i < 12; ++i) lengths.push_back(round(any(rng)));
        std::shuffle(lengths.begin(), lengths.end(), rng);
        auto ctx = std::make_unique<RSMPL_Context>();
        ASSERT_EQ(RSMPL_InitContext(ctx.get()), RSMPL_OK);
        std::vector<int16_t> stream(k.history, 0), got;  // what the stage has been given
        for (int n : lengths) {
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
        ASSERT_EQ(got, stage_reference(k, stream))
            << k.name << (in_place ? " in place" : "") << " fill " << int(fill);
      }
    }
  };
  std::vector<std::thread> threads;
  for (const auto &k : kernel_specs()) threads.emplace_back(stage, std::cref(k));
  for (auto &t : threads) t.join();
}

}  // namespace

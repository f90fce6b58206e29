// Engine contexts on distinct threads at once: every FIR stage both ways and
// the sinc interpolator at several ratios give exactly what they give run
// one after another. The kernels share only constant tables and the
// dispatch choice made on first use. Run under ThreadSanitizer in CI.
#include <gtest/gtest.h>

#include <memory>
#include <thread>

#include "rsmpl/context.h"
#include "rsmpl/fir_reference.h"
#include "skelda/rsmpl_sinc.h"

namespace {

// Jobs 0..9: the stages of fir_test::kernel_specs(); 10..13: the sinc
// interpolator at ratios 1/8, 1/2, 3/2 and 8.
std::vector<int16_t> run(size_t job, unsigned seed) {
  auto ctx = std::make_unique<RSMPL_Context>();
  RSMPL_InitContext(ctx.get());
  const float ratios[] = {0.125f, 0.5f, 1.5f, 8.0f};
  if (job >= 10) RSMPL_SetResampleRatio(ctx.get(), nullptr, nullptr, nullptr, ratios[job - 10]);
  std::mt19937 rng(seed);
  std::vector<int16_t> out(1440 * 8 + 64), all;
  for (int block = 0; block < 200; ++block) {
    const auto in = fir_test::make_signal(960, fir_test::Fill::kRandom, rng);
    uint32_t produced = 0;
    if (job < 10) {
      const auto &k = fir_test::kernel_specs()[job];
      const int n = k.up ? 1440 / k.L * k.M : 960;
      EXPECT_EQ(k.up ? RSMPL_Up(ctx.get(), in.data(), out.data(), n, k.code)
                     : RSMPL_Down(ctx.get(), in.data(), out.data(), n, k.code), RSMPL_OK);
      produced = n / k.M * k.L;
    } else {
      EXPECT_EQ(RSMPL_Resample(ctx.get(), in.data(), out.data(), 960, &produced), RSMPL_OK);
    }
    all.insert(all.end(), out.begin(), out.begin() + produced);
  }
  return all;
}

TEST(EngineThreads, ConcurrentContextsMatchSerialRuns) {
  constexpr size_t kJobs = 14;
  std::vector<std::vector<int16_t>> serial, parallel(kJobs);
  for (size_t i = 0; i < kJobs; ++i) serial.push_back(run(i, unsigned(i)));
  std::vector<std::thread> threads;
  for (size_t i = 0; i < kJobs; ++i) threads.emplace_back([&, i] { parallel[i] = run(i, unsigned(i)); });
  for (auto &t : threads) t.join();
  for (size_t i = 0; i < kJobs; ++i) EXPECT_EQ(parallel[i], serial[i]) << "job " << i;
}

}  // namespace

// Engine contexts on distinct threads at once: every FIR stage both ways and
// the sinc interpolator at several ratios give exactly what they give run
// one after another. The kernels share only constant tables and the
// dispatch choice made on first use. Run under ThreadSanitizer in CI.
#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <thread>
#include <vector>

#include "rsmpl/context.h"
#include "skelda/rsmpl_fir.h"
#include "skelda/rsmpl_sinc.h"

namespace {

struct Job {
  int kind;  // 0: RSMPL_Down, 1: RSMPL_Up, 2: sinc
  uint32_t code;
  float ratio;
};

std::vector<int16_t> run(const Job &job, unsigned seed) {
  std::unique_ptr<RSMPL_Context> ctx(new RSMPL_Context);
  RSMPL_InitContext(ctx.get());
  std::mt19937 rng(seed);
  std::vector<int16_t> in(960), out(1440 * 8 + 64), all;
  uint32_t produced = 0;
  if (job.kind == 2) RSMPL_SetResampleRatio(ctx.get(), nullptr, nullptr, nullptr, job.ratio);
  // Per ratio code: input block and outputs, down then up.
  static const int32_t kDownOut[] = {640, 480, 320, 240, 160};
  static const int32_t kUpIn[] = {960, 720, 480, 360, 240};
  for (int block = 0; block < 200; ++block) {
    for (auto &s : in) s = static_cast<int16_t>(rng());
    uint32_t status;
    if (job.kind == 0) {
      status = RSMPL_Down(ctx.get(), in.data(), out.data(), 960, job.code);
      produced = kDownOut[job.code];
    } else if (job.kind == 1) {
      status = RSMPL_Up(ctx.get(), in.data(), out.data(), kUpIn[job.code], job.code);
      produced = 1440;
    } else {
      status = RSMPL_Resample(ctx.get(), in.data(), out.data(), 960, &produced);
    }
    EXPECT_EQ(status, RSMPL_OK);
    all.insert(all.end(), out.begin(), out.begin() + produced);
  }
  return all;
}

TEST(EngineThreads, ConcurrentContextsMatchSerialRuns) {
  std::vector<Job> jobs;
  for (uint32_t code = 0; code <= 4; ++code) {
    jobs.push_back({0, code, 0});
    jobs.push_back({1, code, 0});
  }
  for (float ratio : {0.125f, 0.5f, 1.5f, 8.0f}) jobs.push_back({2, 0, ratio});
  std::vector<std::vector<int16_t>> serial, parallel(jobs.size());
  for (size_t i = 0; i < jobs.size(); ++i) serial.push_back(run(jobs[i], unsigned(i)));
  std::vector<std::thread> threads;
  for (size_t i = 0; i < jobs.size(); ++i)
    threads.emplace_back([&, i] { parallel[i] = run(jobs[i], unsigned(i)); });
  for (auto &t : threads) t.join();
  for (size_t i = 0; i < jobs.size(); ++i) EXPECT_EQ(parallel[i], serial[i]) << "job " << i;
}

}  // namespace

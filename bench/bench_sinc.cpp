// SPDX-License-Identifier: MIT
// Throughput of the sinc interpolator per ratio, against two baselines
// measured in the same run: a plain copy of the block and a naive
// double-precision 27-tap dot product per output. Reported counters:
//   outputs/s  - output samples per second
//   ns/MAC     - time per multiply-accumulate (each output costs
//                2 * halfLength + 1 of them)
// Compare ratios within one run; absolute figures depend on the machine.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstring>
#include <memory>
#include <vector>

#include "rsmpl/context.h"
#include "skelda/rsmpl.h"

namespace {

constexpr int32_t kBlock = 1280;  // a multiple of 8, valid at every ratio

std::vector<int16_t> TestSignal() {
  std::vector<int16_t> x(kBlock);
  for (int i = 0; i < kBlock; ++i) {
    x[i] = static_cast<int16_t>(12000.0 * std::sin(0.05 * i) + 3000.0 * std::sin(0.71 * i));
  }
  return x;
}

void BM_SincResample(benchmark::State &state) {
  const float ratio = static_cast<float>(state.range(0)) / 8.0f;
  std::unique_ptr<unsigned char[]> storage(new unsigned char[RSMPL_GetContextSize()]);
  auto *ctx = reinterpret_cast<RSMPL_Context *>(storage.get());
  RSMPL_InitContext(ctx);
  RSMPL_SetResampleRatio(ctx, nullptr, nullptr, nullptr, ratio);
  const std::vector<int16_t> in = TestSignal();
  std::vector<int16_t> out(kBlock * 8 + 1024);
  uint32_t count = 0;
  RSMPL_Resample(ctx, in.data(), out.data(), kBlock, &count);  // commit the ratio
  const int64_t macsPerOutput = 2 * static_cast<int64_t>(ctx->sinc.historyHalfLength) + 1;
  int64_t outputs = 0;
  for (auto _ : state) {
    RSMPL_Resample(ctx, in.data(), out.data(), kBlock, &count);
    benchmark::DoNotOptimize(out.data());
    outputs += count;
  }
  state.counters["outputs/s"] = benchmark::Counter(static_cast<double>(outputs),
                                                   benchmark::Counter::kIsRate);
  state.counters["ns/MAC"] = benchmark::Counter(
      static_cast<double>(outputs * macsPerOutput) * 1e-9,
      benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
// Argument: ratio in eighths (1 = 1/8, 4 = 1/2, 8 = 1, 16 = 2, 64 = 8).
BENCHMARK(BM_SincResample)->Arg(1)->Arg(4)->Arg(8)->Arg(16)->Arg(64);

// Baseline 1: copying the block, the least any converter must do.
void BM_CopyBlock(benchmark::State &state) {
  const std::vector<int16_t> in = TestSignal();
  std::vector<int16_t> out(kBlock);
  int64_t samples = 0;
  for (auto _ : state) {
    std::memcpy(out.data(), in.data(), kBlock * sizeof(int16_t));
    benchmark::DoNotOptimize(out.data());
    samples += kBlock;
  }
  state.counters["outputs/s"] = benchmark::Counter(static_cast<double>(samples),
                                                   benchmark::Counter::kIsRate);
}
BENCHMARK(BM_CopyBlock);

// Baseline 2: a 27-tap double-precision dot product per output with
// precomputed coefficients, the cost of the arithmetic alone at ratio 1.
void BM_DoubleDotProduct27(benchmark::State &state) {
  const std::vector<int16_t> in = TestSignal();
  std::vector<double> taps(27);
  for (int j = 0; j < 27; ++j) taps[j] = 1.0 / (1.0 + std::abs(j - 13));
  std::vector<int16_t> out(kBlock);
  int64_t outputs = 0;
  for (auto _ : state) {
    for (int k = 0; k + 27 <= kBlock; ++k) {
      double sum = 0.0;
      for (int j = 0; j < 27; ++j) sum += taps[j] * in[k + j];
      out[k] = static_cast<int16_t>(sum * 0.1);
    }
    benchmark::DoNotOptimize(out.data());
    outputs += kBlock - 26;
  }
  state.counters["outputs/s"] = benchmark::Counter(static_cast<double>(outputs),
                                                   benchmark::Counter::kIsRate);
  state.counters["ns/MAC"] = benchmark::Counter(
      static_cast<double>(outputs * 27) * 1e-9,
      benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_DoubleDotProduct27);

}  // namespace

BENCHMARK_MAIN();

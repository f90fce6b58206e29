// SPDX-License-Identifier: MIT
// Throughput of the FIR path: every kernel in every build this CPU runs (the
// scalar general form is the baseline, measured in the same run), and the
// plugin's convert_s16 at factors 2, 3 and 6 both ways, mono and stereo, on
// each build too.
// After the run a summary prints each build's speed as a ratio to scalar and
// the multiply-accumulates per nanosecond it reaches.
#include <benchmark/benchmark.h>
#if defined(__x86_64__)
#include <immintrin.h>
#endif

#include <cstdio>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "rsmpl/cpu.h"
#include "rsmpl/fir/kernels.h"
#include "src/rate_rsmpl.h"

namespace {

struct KernelInfo {
  const char *name;
  int L, M, history, taps_per_output;
};
const KernelInfo kKernels[rsmpl::kFirKernelCount] = {
    {"Up2", 2, 1, 35, 36},   {"Down2", 1, 2, 70, 72},    {"Up3", 3, 1, 15, 16},
    {"Down3", 1, 3, 45, 48}, {"Up2To3", 3, 2, 15, 15},   {"Down3To2", 2, 3, 14, 15},
    {"Up4", 4, 1, 15, 16},   {"Down4", 1, 4, 60, 64},    {"Up6", 6, 1, 15, 16},
    {"Down6", 1, 6, 90, 96}};

// Every build this CPU runs, scalar first.
std::vector<const rsmpl::KernelSet *> Sets() {
  std::vector<const rsmpl::KernelSet *> sets;
  for (int isa = 0; isa < rsmpl::kIsaCount; ++isa)
    if (const auto *set = rsmpl::kernel_set(static_cast<rsmpl::Isa>(isa))) sets.push_back(set);
  return sets;
}

std::vector<int16_t> Noise(size_t n) {
  std::mt19937 rng(1);
  std::uniform_int_distribution<int> d(-20000, 20000);
  std::vector<int16_t> x(n);
  for (auto &s : x) s = static_cast<int16_t>(d(rng));
  return x;
}

// One kernel call per iteration over 1440 new input samples (the engine's
// largest down block), or 240 for the interpolators (1440 outputs at most).
void BM_Kernel(benchmark::State &state, const rsmpl::KernelSet *set, int id) {
  const KernelInfo &k = kKernels[id];
  const int n = k.M == 1 ? 240 : 1440;
  const auto in = Noise(n + k.history);
  std::vector<int16_t> out(size_t(n / k.M) * k.L);
  int64_t outputs = 0;
  for (auto _ : state) {
    set->fir->kernel[id](in.data(), out.data(), n);
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
    outputs += static_cast<int64_t>(out.size());
  }
  state.counters["outputs/s"] = benchmark::Counter(double(outputs), benchmark::Counter::kIsRate);
  state.counters["MAC/ns"] = benchmark::Counter(double(outputs) * k.taps_per_output * 1e-9,
                                                benchmark::Counter::kIsRate);
}

// The plugin's convert_s16 on one period of 1920 input frames (down) or
// 1920 / factor (up), as alsa-lib calls it, with the kernels of `set`.
void BM_Plugin(benchmark::State &state, unsigned factor, bool up, unsigned channels,
               const rsmpl::KernelSet *set) {
  rsmpl::use_kernels(set);
  void *obj = nullptr;
  snd_pcm_rate_ops_t ops{};
  _snd_pcm_rate_skelda_open(SND_PCM_RATE_PLUGIN_VERSION, &obj, &ops);
  snd_pcm_rate_info_t info{};
  const unsigned low = 8000;
  info.in.rate = up ? low : low * factor;
  info.out.rate = up ? low * factor : low;
  info.channels = channels;
  const unsigned in_frames = up ? 1920 / factor : 1920;
  const unsigned out_frames = up ? in_frames * factor : in_frames / factor;
  info.in.period_size = in_frames;
  info.out.period_size = out_frames;
  if (ops.init(obj, &info) != 0) state.SkipWithError("init failed");
  const auto in = Noise(size_t(in_frames) * channels);
  std::vector<int16_t> out(size_t(out_frames) * channels);
  int64_t outputs = 0;
  for (auto _ : state) {
    ops.convert_s16(obj, out.data(), out_frames, in.data(), in_frames);
    benchmark::DoNotOptimize(out.data());
    outputs += static_cast<int64_t>(out.size());
  }
  state.counters["outputs/s"] = benchmark::Counter(double(outputs), benchmark::Counter::kIsRate);
  ops.free(obj);
  ops.close(obj);
  rsmpl::use_kernels(nullptr);
}

// The ceiling: independent multiply-accumulate instructions on registers,
// no loads, no reduction. vpmaddwd on AVX2 (16 products each), pmaddwd
// otherwise; eight chains so latency does not limit.
#if defined(__x86_64__)
__attribute__((target("avx2"))) int64_t MaddPeakLoop(int64_t rounds, int wide) {
  __m256i a[8], b = _mm256_set1_epi16(3);
  __m128i c[8], d = _mm_set1_epi16(3);
  for (int i = 0; i < 8; ++i) {
    a[i] = _mm256_set1_epi16(short(i));
    c[i] = _mm_set1_epi16(short(i));
  }
  for (int64_t r = 0; r < rounds; ++r)
    for (int i = 0; i < 8; ++i) {
      if (wide) {
        a[i] = _mm256_madd_epi16(a[i], b);
        asm volatile("" : "+x"(a[i]));
      } else {
        c[i] = _mm_madd_epi16(c[i], d);
        asm volatile("" : "+x"(c[i]));
      }
    }
  for (int i = 0; i < 8; ++i) {
    benchmark::DoNotOptimize(a[i]);
    benchmark::DoNotOptimize(c[i]);
  }
  return rounds * 8 * (wide ? 16 : 8);
}

void BM_MaddPeak(benchmark::State &state, int wide) {
  if (wide && !__builtin_cpu_supports("avx2")) {
    state.SkipWithError("no AVX2");
    return;
  }
  int64_t macs = 0;
  for (auto _ : state) macs += MaddPeakLoop(4096, wide);
  state.counters["MAC/ns"] = benchmark::Counter(double(macs) * 1e-9, benchmark::Counter::kIsRate);
}
#endif

// Keeps each run's counters so the summary can relate builds to scalar.
class SummaryReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run> &runs) override {
    for (const Run &r : runs) {
      auto it = r.counters.find("outputs/s");
      if (it != r.counters.end()) rate_[r.benchmark_name()] = it->second.value;
      auto mac = r.counters.find("MAC/ns");
      if (mac != r.counters.end()) macs_[r.benchmark_name()] = mac->second.value;
    }
    ConsoleReporter::ReportRuns(runs);
  }
  void PrintSummary() const {
    for (const char *peak : {"MaddPeak/sse2", "MaddPeak/avx2"})
      if (macs_.count(peak)) std::printf("\n%s: %.1f MAC/ns", peak, macs_.at(peak));
    std::printf("\nkernel     build   outputs/s   vs scalar   MAC/ns\n");
    for (int id = 0; id < rsmpl::kFirKernelCount; ++id) {
      const std::string base = std::string("Kernel/") + kKernels[id].name + "/scalar";
      for (auto *set : Sets()) {
        const std::string name = std::string("Kernel/") + kKernels[id].name + "/" + set->name;
        if (!rate_.count(name) || !rate_.count(base)) continue;
        std::printf("%-10s %-6s %10.3gM %10.2fx %8.2f\n", kKernels[id].name, set->name,
                    rate_.at(name) / 1e6, rate_.at(name) / rate_.at(base), macs_.at(name));
      }
    }
    std::printf("\nconvert_s16         build   outputs/s   vs scalar\n");
    for (unsigned factor : {2u, 3u, 6u})
      for (bool up : {true, false})
        for (unsigned ch : {1u, 2u}) {
          const std::string stem = std::string("Plugin/") + (up ? "up" : "down") +
                                   std::to_string(factor) + "/" + std::to_string(ch) + "ch/";
          for (auto *set : Sets()) {
            const std::string name = stem + set->name;
            if (!rate_.count(name) || !rate_.count(stem + "scalar")) continue;
            std::printf("%-19s %-6s %10.3gM %10.2fx\n", stem.substr(7, stem.size() - 8).c_str(),
                        set->name, rate_.at(name) / 1e6, rate_.at(name) / rate_.at(stem + "scalar"));
          }
        }
  }

 private:
  std::map<std::string, double> rate_, macs_;
};

}  // namespace

int main(int argc, char **argv) {
  for (auto *set : Sets())
    for (int id = 0; id < rsmpl::kFirKernelCount; ++id)
      benchmark::RegisterBenchmark(
          (std::string("Kernel/") + kKernels[id].name + "/" + set->name).c_str(), BM_Kernel, set, id);
  for (unsigned factor : {2u, 3u, 6u})
    for (bool up : {true, false})
      for (unsigned ch : {1u, 2u})
        for (auto *set : Sets())
          benchmark::RegisterBenchmark((std::string("Plugin/") + (up ? "up" : "down") +
                                        std::to_string(factor) + "/" + std::to_string(ch) + "ch/" +
                                        set->name)
                                           .c_str(),
                                       BM_Plugin, factor, up, ch, set);
#if defined(__x86_64__)
  benchmark::RegisterBenchmark("MaddPeak/sse2", BM_MaddPeak, 0);
  benchmark::RegisterBenchmark("MaddPeak/avx2", BM_MaddPeak, 1);
#endif
  benchmark::Initialize(&argc, argv);
  SummaryReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  reporter.PrintSummary();
  benchmark::Shutdown();
  return 0;
}

// SPDX-License-Identifier: MIT
// What a ratio change costs the high-quality resampler, on either grade:
// RSMPL_HqSetRatio / RSMPL_Hq32SetRatio with terms of every kind, and
// RSMPL_HqSetRatioScale / RSMPL_Hq32SetRatioScale and RSMPL_HqGlideScale /
// RSMPL_Hq32GlideScale with ppm-sized steps, on a stereo state at
// 44100 -> 48000 and one at 48000 -> 44100. These calls are meant to be
// real-time safe, so each must stay within a few microseconds whatever the
// old and new terms: each row cycles through a list of terms, one call per
// iteration.
//
// Each call is timed on its own (the steady clock read around it; the Clock
// row is an empty pair of reads, what every figure carries besides the
// call). Between calls, untimed, the state converts 64 input frames, so
// every change meets a stream in motion (and a glide under way). The Time
// column is the mean per call; the counters give the slowest of the cycle's
// changes by its median (the change itself, free of what preempted this
// shared machine now and then), the 99th percentile and the maximum of all
// calls (both with whatever preempted them). After the run a Markdown table
// holds every row against the bound, 5 us per call.
//
//   build-bench/bench/bench_ratio [--benchmark_filter=Hq32/44100-48000]
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "skelda/rsmpl_hq.h"

namespace {

constexpr unsigned kChannels = 2;
constexpr unsigned kBlock = 64;          // input frames converted between calls
constexpr int64_t kCalls = 24000;        // per row
constexpr double kBoundNs = 5000;        // per call
constexpr uint64_t kUnity = 1ull << 32;  // the rates' ratio, as a scale
constexpr uint64_t kPpm = 4295;          // about 1 ppm of it

struct Pair {
  unsigned in, out;
  std::string Name() const { return std::to_string(in) + "-" + std::to_string(out); }
};
const Pair kPairs[] = {{44100, 48000}, {48000, 44100}};

// out / in: one ratio's terms.
struct Terms {
  uint32_t out, in;
};

// Terms whose larger one is `big`, nearest the ratio num / den.
Terms Large(uint32_t big, uint64_t num, uint64_t den) {
  if (num >= den) return {big, uint32_t((uint64_t{big} * den + num / 2) / num)};
  return {uint32_t((uint64_t{big} * num + den / 2) / den), big};
}

// One row's cycle of calls.
struct Case {
  std::string name;
  std::vector<Terms> terms;      // SetRatio, or
  std::vector<uint64_t> scales;  // SetRatioScale or GlideScale
  uint32_t glide_frames = 0;     // nonzero: GlideScale over that many output frames
};

std::vector<Case> Cases(Pair p) {
  const bool up = p.out > p.in;
  // The ratio in lowest terms: 160/147 up, 147/160 down.
  const Terms base = up ? Terms{160, 147} : Terms{147, 160};
  // Period sizes alsa-lib picks (1024 <-> 941, 1024 -> 1115 and back) and
  // a neighbour with a prime denominator: each a denominator of its own.
  const std::vector<Terms> periods =
      up ? std::vector<Terms>{{1024, 941}, {160, 147}, {1115, 1024}, {48000, 44101}}
         : std::vector<Terms>{{941, 1024}, {147, 160}, {1024, 1115}, {44101, 48000}};
  const uint32_t top = UINT32_MAX, prime = 4294967291u;  // the largest prime below 2^32
  // Near 2^32: at the rates' ratio, and 1 ppm and 1% off it.
  const std::vector<Terms> large{Large(top, base.out, base.in),
                                 Large(prime, uint64_t{base.out} * 1000001, uint64_t{base.in} * 1000000),
                                 Large(top - 1, uint64_t{base.out} * 101, uint64_t{base.in} * 100)};
  // Near the ends of the window a ratio may move in (1/8 either way of the
  // rates'), in small terms and in large ones.
  const std::vector<Terms> edges{{base.out * 112 / 100, base.in},
                                 {(base.out * 88 + 99) / 100, base.in},
                                 Large(top, uint64_t{base.out} * 112, uint64_t{base.in} * 100),
                                 Large(prime, uint64_t{base.out} * 88, uint64_t{base.in} * 100)};
  std::vector<Case> cases;
  cases.push_back({"SetRatio/small", {base, {1, 1}}, {}, 0});
  cases.push_back({"SetRatio/large", large, {}, 0});
  cases.push_back({"SetRatio/denominators", periods, {}, 0});
  cases.push_back({"SetRatio/edges", edges, {}, 0});
  // Every kind after every other: small to large, large to period terms,
  // one end of the window to the other...
  std::vector<Terms> mixed{base,       large[0], {1, 1},     periods[0], large[1], edges[0],  periods[3],
                           edges[3], base,     large[2], edges[1],   periods[2], edges[2]};
  cases.push_back({"SetRatio/mixed", mixed, {}, 0});
  cases.push_back({"SetRatioScale/1ppm", {}, {kUnity + kPpm, kUnity - kPpm}, 0});
  cases.push_back({"SetRatioScale/100ppm", {}, {kUnity + 100 * kPpm, kUnity - 100 * kPpm, kUnity}, 0});
  cases.push_back({"GlideScale/1ppm", {}, {kUnity + kPpm, kUnity - kPpm}, 4800});
  cases.push_back({"GlideScale/100ppm", {}, {kUnity + 100 * kPpm, kUnity - 100 * kPpm, kUnity}, 48000});
  return cases;
}

// Either grade's calls, one shape.
struct Grade16 {
  using State = RSMPL_HqState;
  static constexpr const char *kName = "Hq";
  static RSMPL_Status Size(Pair p, uint32_t *bytes) { return RSMPL_HqGetStateSize(p.in, p.out, kChannels, bytes); }
  static RSMPL_Status Init(State *s, uint32_t bytes, Pair p) { return RSMPL_HqInit(s, bytes, p.in, p.out, kChannels); }
  static RSMPL_Status SetRatio(State *s, Terms t) { return RSMPL_HqSetRatio(s, t.out, t.in); }
  static RSMPL_Status SetRatioScale(State *s, uint64_t scale) { return RSMPL_HqSetRatioScale(s, scale); }
  static RSMPL_Status Glide(State *s, uint64_t scale, uint32_t frames) {
    return RSMPL_HqGlideScale(s, scale, frames);
  }
  static RSMPL_Status Process(State *s, const int32_t *in, uint32_t *in_frames, int32_t *out, uint32_t *out_frames) {
    return RSMPL_HqProcess(s, reinterpret_cast<const int16_t *>(in), in_frames, reinterpret_cast<int16_t *>(out),
                           out_frames);
  }
};

struct Grade32 {
  using State = RSMPL_Hq32State;
  static constexpr const char *kName = "Hq32";
  static RSMPL_Status Size(Pair p, uint32_t *bytes) { return RSMPL_Hq32GetStateSize(p.in, p.out, kChannels, bytes); }
  static RSMPL_Status Init(State *s, uint32_t bytes, Pair p) { return RSMPL_Hq32Init(s, bytes, p.in, p.out, kChannels); }
  static RSMPL_Status SetRatio(State *s, Terms t) { return RSMPL_Hq32SetRatio(s, t.out, t.in); }
  static RSMPL_Status SetRatioScale(State *s, uint64_t scale) { return RSMPL_Hq32SetRatioScale(s, scale); }
  static RSMPL_Status Glide(State *s, uint64_t scale, uint32_t frames) {
    return RSMPL_Hq32GlideScale(s, scale, frames);
  }
  static RSMPL_Status Process(State *s, const int32_t *in, uint32_t *in_frames, int32_t *out, uint32_t *out_frames) {
    return RSMPL_Hq32Process(s, in, RSMPL_HQ_S32, in_frames, out, RSMPL_HQ_S32, out_frames);
  }
};

struct Result {
  double mean = NAN, worst_change = NAN, p99 = NAN, max = NAN;
};
std::vector<std::pair<std::string, Result>> results;  // by row, in the order run

void Keep(const std::string &row, const Result &r) {
  for (auto &[name, kept] : results)
    if (name == row) {
      kept = r;
      return;
    }
  results.push_back({row, r});
}

// Mean, 99th percentile and maximum of `all` (sorted here).
Result Stats(std::vector<double> all) {
  Result r;
  double sum = 0;
  for (double v : all) sum += v;
  r.mean = sum / double(all.size());
  std::sort(all.begin(), all.end());
  r.p99 = all[all.size() * 99 / 100];
  r.max = all.back();
  return r;
}

double Median(std::vector<double> v) {
  if (v.empty()) return NAN;
  std::nth_element(v.begin(), v.begin() + v.size() / 2, v.end());
  return v[v.size() / 2];
}

template <class Grade>
void BM_Change(benchmark::State &state, Pair pair, Case c, std::string row) {
  uint32_t bytes = 0;
  if (Grade::Size(pair, &bytes) != RSMPL_OK) return state.SkipWithError("no state size for the pair");
  void *block = std::aligned_alloc(64, (bytes + 63) / 64 * 64);
  auto *s = static_cast<typename Grade::State *>(block);
  if (s == nullptr || Grade::Init(s, bytes, pair) != RSMPL_OK) {
    std::free(block);
    return state.SkipWithError("Init failed");
  }
  // Low noise, enough to keep every stage busy.
  std::vector<int32_t> in(size_t{kBlock} * kChannels), out(size_t{kBlock} * 2 * kChannels);
  uint32_t lcg = 1;
  for (int32_t &v : in) v = static_cast<int32_t>(lcg = lcg * 1664525u + 1013904223u) >> 8;
  const size_t n = c.terms.empty() ? c.scales.size() : c.terms.size();
  std::vector<std::vector<double>> per_change(n);  // ns of each change of the cycle
  std::vector<double> all;
  all.reserve(size_t(state.max_iterations));
  size_t k = 0;
  for (auto _ : state) {
    uint32_t in_frames = kBlock, out_frames = uint32_t(out.size() / kChannels);
    Grade::Process(s, in.data(), &in_frames, out.data(), &out_frames);
    benchmark::DoNotOptimize(out.data());
    RSMPL_Status status;
    const auto t0 = std::chrono::steady_clock::now();
    if (!c.terms.empty())
      status = Grade::SetRatio(s, c.terms[k]);
    else if (c.glide_frames == 0)
      status = Grade::SetRatioScale(s, c.scales[k]);
    else
      status = Grade::Glide(s, c.scales[k], c.glide_frames);
    const auto t1 = std::chrono::steady_clock::now();
    const double ns = std::chrono::duration<double, std::nano>(t1 - t0).count();
    state.SetIterationTime(ns * 1e-9);
    if (status != RSMPL_OK) {
      const std::string what = c.terms.empty() ? "scale " + std::to_string(c.scales[k])
                                               : "terms " + std::to_string(c.terms[k].out) + "/" +
                                                     std::to_string(c.terms[k].in);
      state.SkipWithError(("refused " + what + ": status " + std::to_string(status)).c_str());
      break;
    }
    per_change[k].push_back(ns);
    all.push_back(ns);
    k = k + 1 == n ? 0 : k + 1;
  }
  std::free(block);
  if (all.empty()) return;
  Result r = Stats(all);
  r.worst_change = 0;
  for (const auto &v : per_change) r.worst_change = std::max(r.worst_change, Median(v));
  state.counters["worst_change_ns"] = r.worst_change;
  state.counters["p99_ns"] = r.p99;
  state.counters["max_ns"] = r.max;
  Keep(row, r);
}

// Two clock reads around nothing: what every call's figure includes.
void BM_Clock(benchmark::State &state) {
  std::vector<double> all;
  all.reserve(size_t(state.max_iterations));
  for (auto _ : state) {
    const auto t0 = std::chrono::steady_clock::now();
    benchmark::ClobberMemory();
    const auto t1 = std::chrono::steady_clock::now();
    const double ns = std::chrono::duration<double, std::nano>(t1 - t0).count();
    state.SetIterationTime(ns * 1e-9);
    all.push_back(ns);
  }
  Result r = Stats(all);
  r.worst_change = Median(all);
  Keep("Clock (two reads, nothing between)", r);
}

template <class Grade>
void Register() {
  for (const Pair &p : kPairs)
    for (const Case &c : Cases(p)) {
      const std::string row = std::string(Grade::kName) + "/" + p.Name() + "/" + c.name;
      benchmark::RegisterBenchmark(row.c_str(), BM_Change<Grade>, p, c, row)
          ->Iterations(kCalls)
          ->UseManualTime()
          ->Unit(benchmark::kNanosecond);
    }
}

void PrintTable() {
  std::printf("\n### Ratio changes: ns per call, stereo state, %u input frames converted (untimed) "
              "between calls\n\nBound: %.0f ns per call. \"slowest change\" is the median of the "
              "cycle's slowest change of terms; p99 and max are over all %lld calls and include "
              "preemption on this shared machine.\n\n"
              "| row | mean | slowest change | p99 | max | slowest change within bound |\n"
              "|---|---|---|---|---|---|\n",
              kBlock, kBoundNs, static_cast<long long>(kCalls));
  std::vector<std::string> misses;
  for (const auto &[row, r] : results) {
    const bool ok = r.worst_change <= kBoundNs;
    if (row.rfind("Clock", 0) == 0) {
      std::printf("| %s | %.0f | %.0f (median) | %.0f | %.0f | |\n", row.c_str(), r.mean, r.worst_change, r.p99,
                  r.max);
      continue;
    }
    if (!ok) misses.push_back(row);
    std::printf("| %s | %.0f | %.0f | %.0f | %.0f | %s |\n", row.c_str(), r.mean, r.worst_change, r.p99, r.max,
                ok ? "yes" : "**no**");
  }
  std::printf("\n%s\n", misses.empty() ? "Every row measured keeps its slowest change within the bound."
                                        : "Rows past the bound:");
  for (const std::string &m : misses) std::printf("- %s\n", m.c_str());
}

}  // namespace

int main(int argc, char **argv) {
  benchmark::RegisterBenchmark("Clock", BM_Clock)->Iterations(kCalls)->UseManualTime()->Unit(benchmark::kNanosecond);
  Register<Grade16>();
  Register<Grade32>();
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  PrintTable();
  benchmark::Shutdown();
  return 0;
}

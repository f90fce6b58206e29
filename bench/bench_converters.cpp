// SPDX-License-Identifier: MIT
// Time per 10 ms period of each rate converter module, called the way
// alsa-lib's rate plugin calls it: the module is dlopen'ed, its entry opened
// with the current protocol version, then init, adjust_pitch and reset, and
// one convert_s16 (or convert on channel areas, when that is what the module
// offers) per period of stereo S16 (only that call is timed). The 32-bit
// rows do the same with S32 on both sides, for the modules that announce it
// (get_supported_formats). libsoxr runs in-process as a second anchor: its
// HQ recipe on int16 beside the 16-bit rows, its VHQ recipe on int32 beside
// the 32-bit ones. After the run Markdown tables relate every converter to
// speexrate's S16 path and to libsoxr.
//
//   build-bench/bench/bench_converters [--benchmark_filter=44100-48000]
//
// Modules are looked for in $SKELDA_MODULE_DIR (colon-separated), then in
// the build tree, then in alsa-lib's plugin directory; a missing one is
// skipped, as is a pair outside the rates a module announces.
#include <alsa/asoundlib.h>
#include <alsa/pcm_rate.h>
#include <benchmark/benchmark.h>
#include <dlfcn.h>
#include <soxr.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace {

constexpr unsigned kChannels = 2;
constexpr unsigned kPeriods = 100;  // one second of input, cycled through

struct Pair {
  unsigned in, out;
  std::string Name() const { return std::to_string(in) + "-" + std::to_string(out); }
};
const Pair kPairs[] = {{44100, 48000}, {48000, 44100}, {32000, 48000}, {22050, 48000},
                       {96000, 44100}, {48000, 16000}, {16000, 48000}};
const char *const kModules[] = {"skelda",         "skelda_hq",         "speexrate", "samplerate",
                                "samplerate_medium", "samplerate_best", "lavrate"};
const char *const kSoxr = "soxr_hq", *const kSoxr32 = "soxr_vhq";
const char *const k32 = "/s32";  // the suffix of the 32-bit rows' names

struct Module {
  std::string name;
  void *handle = nullptr;
  snd_pcm_rate_open_func_t open = nullptr;
  std::string error;  // why the module cannot be measured
};

std::vector<std::string> ModuleDirs() {
  std::vector<std::string> dirs;
  if (const char *env = std::getenv("SKELDA_MODULE_DIR")) {
    std::stringstream list(env);
    for (std::string d; std::getline(list, d, ':');)
      if (!d.empty()) dirs.push_back(d);
  }
  dirs.push_back(SKELDA_BUILD_MODULE_DIR);
  dirs.push_back(ALSA_PLUGIN_DIR);
  return dirs;
}

Module LoadModule(const std::string &name) {
  Module m;
  m.name = name;
  const std::string file = "libasound_module_rate_" + name + ".so";
  m.error = file + " not found";
  for (const std::string &dir : ModuleDirs()) {
    const std::string path = dir + "/" + file;
    if (access(path.c_str(), F_OK) != 0) continue;
    void *h = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!h) {
      m.error = dlerror();  // present but unloadable (a library it needs is missing)
      continue;
    }
    const std::string entry = "_snd_pcm_rate_" + name + "_open";
    m.open = reinterpret_cast<snd_pcm_rate_open_func_t>(dlsym(h, entry.c_str()));
    if (!m.open) {
      m.error = path + " has no " + entry;
      dlclose(h);
      continue;
    }
    m.handle = h;
    m.error.clear();
    break;
  }
  return m;
}

// Pink-ish stereo noise: white noise through three one-pole low-passes of
// spread corners, summed, so energy falls with frequency as music's does.
// In S16, or in S32 with 24 bits (the top ones) of the same noise.
template <class Sample = int16_t>
std::vector<Sample> Noise(size_t frames) {
  std::mt19937 rng(7);
  std::normal_distribution<double> white(0.0, 1.0);
  std::vector<Sample> x(frames * kChannels);
  double lp[kChannels][3] = {};
  const double pole[3] = {0.997, 0.96, 0.6}, gain[3] = {0.05, 0.25, 0.9};
  const double full = sizeof(Sample) == 2 ? 32767 : 8388607, unit = sizeof(Sample) == 2 ? 1 : 256;
  for (size_t i = 0; i < x.size(); ++i) {
    double *s = lp[i % kChannels], w = white(rng), v = 0.2 * w;
    for (int k = 0; k < 3; ++k) v += s[k] = pole[k] * s[k] + gain[k] * w;
    const double scaled = std::round(v * 3000.0 * full / 32767);
    x[i] = static_cast<Sample>(unit * (scaled > full ? full : scaled < -full - 1 ? -full - 1 : scaled));
  }
  return x;
}

// S32 in and out, when the module announces both.
bool TakesS32(const snd_pcm_rate_ops_t &ops, void *obj) {
  uint64_t in = 0, out = 0;
  unsigned flags = 0;
  const uint64_t s32 = 1ull << SND_PCM_FORMAT_S32;
  return ops.version >= 0x010003 && ops.get_supported_formats && ops.convert &&
         ops.get_supported_formats(obj, &in, &out, &flags) == 0 && (in & s32) && (out & s32);
}

template <class Sample>
void BM_Module(benchmark::State &state, const Module *m, Pair pair) {
  constexpr bool wide = sizeof(Sample) == 4;
  constexpr unsigned bits = 8 * sizeof(Sample);
  if (!m->open) return state.SkipWithError(m->error.c_str());
  void *obj = nullptr;
  snd_pcm_rate_ops_t ops{};
  if (int err = m->open(SND_PCM_RATE_PLUGIN_VERSION, &obj, &ops); err < 0)
    return state.SkipWithError(("open failed: " + std::string(snd_strerror(err))).c_str());
  // As alsa-lib does, refuse rates outside those the module announces (the
  // peers announce 0-0: no limit).
  unsigned lo = 0, hi = 0;
  if (ops.version >= 0x010002 && ops.get_supported_rates && ops.get_supported_rates(obj, &lo, &hi) == 0 &&
      hi != 0 && (pair.in < lo || pair.in > hi || pair.out < lo || pair.out > hi)) {
    if (ops.close) ops.close(obj);
    return state.SkipWithError(("rates " + std::to_string(lo) + "-" + std::to_string(hi) + " only").c_str());
  }
  if (wide && !TakesS32(ops, obj)) {
    if (ops.close) ops.close(obj);
    return state.SkipWithError("no S32 on both sides");
  }
  const snd_pcm_format_t format = wide ? SND_PCM_FORMAT_S32 : SND_PCM_FORMAT_S16;
  const unsigned in_frames = pair.in / 100, out_frames = pair.out / 100;
  snd_pcm_rate_info_t info{};
  info.in = {format, pair.in, 4 * snd_pcm_uframes_t(in_frames), in_frames};
  info.out = {format, pair.out, 4 * snd_pcm_uframes_t(out_frames), out_frames};
  info.channels = kChannels;
  if (int err = ops.init(obj, &info); err < 0) {
    if (ops.close) ops.close(obj);
    return state.SkipWithError(("init failed: " + std::string(snd_strerror(err))).c_str());
  }
  if (int err = ops.adjust_pitch ? ops.adjust_pitch(obj, &info) : 0; err < 0) {
    if (ops.free) ops.free(obj);
    if (ops.close) ops.close(obj);
    return state.SkipWithError(("adjust_pitch failed: " + std::string(snd_strerror(err))).c_str());
  }
  if (ops.reset) ops.reset(obj);

  const std::vector<Sample> in = Noise<Sample>(size_t(in_frames) * kPeriods);
  std::vector<Sample> out(size_t(out_frames) * kChannels);
  // A module without convert_s16 gets the same buffers as channel areas
  // (offsets and steps in bits), which is what alsa-lib hands it then.
  snd_pcm_channel_area_t src[kChannels], dst[kChannels];
  for (unsigned c = 0; c < kChannels; ++c) {
    src[c] = {nullptr, bits * c, bits * kChannels};
    dst[c] = {out.data(), bits * c, bits * kChannels};
  }
  unsigned period = 0;
  for (auto _ : state) {
    const Sample *p = in.data() + size_t(period) * in_frames * kChannels;
    if (ops.convert_s16 && !wide) {
      ops.convert_s16(obj, reinterpret_cast<int16_t *>(out.data()), out_frames,
                      reinterpret_cast<const int16_t *>(p), in_frames);
    } else {
      for (auto &a : src) a.addr = const_cast<Sample *>(p);
      ops.convert(obj, dst, 0, out_frames, src, 0, in_frames);
    }
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
    period = period + 1 == kPeriods ? 0 : period + 1;
  }
  state.SetItemsProcessed(int64_t(state.iterations()) * out_frames);
  // A converter that writes only silence is not converting: keep it out of
  // the table.
  bool silent = true;
  for (Sample v : out) silent = silent && v == 0;
  if (silent) state.SkipWithError("the output was silence");
  if (ops.free) ops.free(obj);
  if (ops.close) ops.close(obj);
}

// libsoxr, one thread, one soxr_process per period, interleaved both ways:
// its HQ recipe on int16, or its VHQ recipe on int32. Its output per call
// varies around the period.
template <class Sample>
void BM_Soxr(benchmark::State &state, Pair pair) {
  constexpr bool wide = sizeof(Sample) == 4;
  soxr_error_t error = nullptr;
  const soxr_io_spec_t io = wide ? soxr_io_spec(SOXR_INT32_I, SOXR_INT32_I) : soxr_io_spec(SOXR_INT16_I, SOXR_INT16_I);
  const soxr_quality_spec_t quality = soxr_quality_spec(wide ? SOXR_VHQ : SOXR_HQ, 0);
  const soxr_runtime_spec_t runtime = soxr_runtime_spec(1);
  soxr_t soxr = soxr_create(pair.in, pair.out, kChannels, &error, &io, &quality, &runtime);
  if (error) return state.SkipWithError(error);
  const unsigned in_frames = pair.in / 100, out_room = 2 * (pair.out / 100) + 64;
  const std::vector<Sample> in = Noise<Sample>(size_t(in_frames) * kPeriods);
  std::vector<Sample> out(size_t(out_room) * kChannels);
  unsigned period = 0;
  int64_t outputs = 0, inputs = 0;
  for (auto _ : state) {
    size_t used = 0, made = 0;
    soxr_process(soxr, in.data() + size_t(period) * in_frames * kChannels, in_frames, &used,
                 out.data(), out_room, &made);
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
    inputs += int64_t(used);
    outputs += int64_t(made);
    period = period + 1 == kPeriods ? 0 : period + 1;
  }
  state.SetItemsProcessed(outputs);
  // Every period must have gone in whole, or the times would flatter it.
  if (inputs != int64_t(state.iterations()) * in_frames) state.SkipWithError("input left over");
  soxr_delete(soxr);
}

// Keeps CPU time per period of every run ("Convert/<pair>/<converter>");
// repetitions are pooled.
class TableReporter : public benchmark::ConsoleReporter {
 public:
  // Colour only on a terminal; not tabular, so skipped runs do not keep
  // reprinting the header.
  TableReporter() : ConsoleReporter(isatty(STDOUT_FILENO) ? OO_Color : OO_None) {}
  void ReportRuns(const std::vector<Run> &runs) override {
    for (const Run &r : runs) {
      if (r.error_occurred || r.run_type != Run::RT_Iteration || r.iterations == 0) continue;
      Total &t = totals_[r.benchmark_name()];
      t.seconds += r.cpu_accumulated_time;
      t.periods += double(r.iterations);
    }
    ConsoleReporter::ReportRuns(runs);
  }

  void PrintTables() const {
    std::printf("\nCPU time per 10 ms stereo period (ns), and as a multiple of speexrate's and "
                "soxr HQ's in this run; '-' = not measured.\n\n"
                "| pair | skelda_hq ns/period | speexrate | soxr HQ | skelda_hq/speexrate | "
                "skelda_hq/soxr |\n|---|---|---|---|---|---|\n");
    for (const Pair &p : kPairs) {
      const double hq = Ns(p, "skelda_hq"), sp = Ns(p, "speexrate"), sx = Ns(p, kSoxr);
      if (std::isnan(hq) && std::isnan(sp) && std::isnan(sx)) continue;  // filtered out
      std::printf("| %u -> %u | %s | %s | %s | %s | %s |\n", p.in, p.out, Num(hq, "%.0f").c_str(),
                  Num(sp, "%.0f").c_str(), Num(sx, "%.0f").c_str(), Num(hq / sp, "%.2f").c_str(),
                  Num(hq / sx, "%.2f").c_str());
    }
    std::printf("\nThe 32-bit paths, S32 in and out, CPU ns per output frame, and as a multiple of "
                "speexrate's S16 path and of soxr VHQ (int32) in this run.\n\n"
                "| pair | skelda_hq S32 | speexrate S16 | soxr VHQ | samplerate_medium S32 | "
                "samplerate_best S32 | skelda_hq/speexrate | skelda_hq/soxr VHQ |\n"
                "|---|---|---|---|---|---|---|---|\n");
    for (const Pair &p : kPairs) {
      const double f = p.out / 100.0;
      const double hq = Ns(p, std::string("skelda_hq") + k32) / f, sp = Ns(p, "speexrate") / f,
                   sx = Ns(p, kSoxr32) / f;
      if (std::isnan(hq) && std::isnan(sx)) continue;
      std::printf("| %u -> %u | %s | %s | %s | %s | %s | %s | %s |\n", p.in, p.out, Num(hq, "%.1f").c_str(),
                  Num(sp, "%.1f").c_str(), Num(sx, "%.1f").c_str(),
                  Num(Ns(p, std::string("samplerate_medium") + k32) / f, "%.1f").c_str(),
                  Num(Ns(p, std::string("samplerate_best") + k32) / f, "%.1f").c_str(), Num(hq / sp, "%.2f").c_str(),
                  Num(hq / sx, "%.2f").c_str());
    }
    std::printf("\n| pair | converter | ns/period | / speexrate | / soxr HQ |\n|---|---|---|---|---|\n");
    for (const Pair &p : kPairs) {
      std::vector<std::string> names(std::begin(kModules), std::end(kModules));
      names.push_back(kSoxr);
      for (const char *n : kModules) names.push_back(std::string(n) + k32);
      names.push_back(kSoxr32);
      for (const std::string &n : names) {
        const double t = Ns(p, n);
        if (std::isnan(t)) continue;
        std::printf("| %u -> %u | %s | %.0f | %s | %s |\n", p.in, p.out, n.c_str(), t,
                    Num(t / Ns(p, "speexrate"), "%.2f").c_str(), Num(t / Ns(p, kSoxr), "%.2f").c_str());
      }
    }
  }

 private:
  struct Total {
    double seconds = 0, periods = 0;
  };
  // NaN when the run is missing, so every ratio with it is NaN too.
  double Ns(const Pair &p, const std::string &converter) const {
    auto it = totals_.find("Convert/" + p.Name() + "/" + converter);
    return it == totals_.end() ? std::numeric_limits<double>::quiet_NaN()
                                : it->second.seconds / it->second.periods * 1e9;
  }
  static std::string Num(double v, const char *format) {
    if (std::isnan(v)) return "-";
    char text[32];
    std::snprintf(text, sizeof text, format, v);
    return text;
  }
  std::map<std::string, Total> totals_;
};

}  // namespace

int main(int argc, char **argv) {
  std::vector<Module> modules;
  for (const char *name : kModules) modules.push_back(LoadModule(name));
  // Per pair, every converter in turn, so a pair's figures come from
  // neighbouring moments of this shared machine.
  for (const Pair &p : kPairs) {
    for (const Module &m : modules) {
      benchmark::RegisterBenchmark(("Convert/" + p.Name() + "/" + m.name).c_str(), BM_Module<int16_t>, &m, p);
      benchmark::RegisterBenchmark(("Convert/" + p.Name() + "/" + m.name + k32).c_str(), BM_Module<int32_t>, &m, p);
    }
    benchmark::RegisterBenchmark(("Convert/" + p.Name() + "/" + kSoxr).c_str(), BM_Soxr<int16_t>, p);
    benchmark::RegisterBenchmark(("Convert/" + p.Name() + "/" + kSoxr32).c_str(), BM_Soxr<int32_t>, p);
  }
  benchmark::Initialize(&argc, argv);
  TableReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  reporter.PrintTables();
  benchmark::Shutdown();
  for (Module &m : modules)
    if (m.handle) dlclose(m.handle);
  return 0;
}

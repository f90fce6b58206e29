// SPDX-License-Identifier: MIT
// Each rate converter module as alsa-lib's rate plugin meets it: the module
// is dlopen'ed once, and each stream opens its entry with the current
// protocol version, then init, adjust_pitch and reset, and one convert_s16
// (or convert on channel areas, when that is what the module offers) per
// period of stereo S16. The 32-bit rows do the same with S32 on both sides,
// for the modules that announce it (get_supported_formats). libsoxr runs
// in-process as a second anchor: its HQ recipe on int16 beside the 16-bit
// rows, its VHQ recipe on int32 beside the 32-bit ones.
//
// Four kinds of rows, all named after the pair so that a filter on a pair
// selects all of them:
//
//   Convert/<in>-<out>/<converter>[/s32]      CPU time of the convert call
//                                             only, 10 ms periods
//   Convert/<in>-<out>@<p>-<q>/<converter>    the same at periods of p -> q
//                                             frames (skelda_hq only)
//   Setup/<in>-<out>[@<p>-<q>]/<converter>    CPU time of open + init +
//                                             adjust_pitch per stream, warm
//                                             (the module already loaded);
//                                             the 10 ms rows also sum the
//                                             heap those calls leave
//                                             allocated, at 2, 16 and 64
//                                             channels
//
// 10 ms periods are 10 ms of output (the hardware's side in playback) and
// the input period alsa-lib pairs with it, the nearest frame count at the
// rates' ratio; the 1024-frame rows take 1024 output frames the same way,
// and a few more sizes alsa-lib picks are listed in kExtraPeriods. After the
// run Markdown tables give, per pair, every figure as a ratio against the
// peers measured in the same run, with the bounds the converters are held
// to, and a list of the figures that miss them.
//
//   build-bench/bench/bench_converters [--benchmark_filter=/44100-48000]
//   [--benchmark_min_time=SECONDS]
//
// (a leading '/' keeps 8000-768000 from also selecting 48000-768000.) The
// minimum time (default 0.2 s) is that of the rows the bounds compare; the
// other peers and libsoxr run half of it, the set-up rows an eighth. Each
// row spends it in three runs back to back, and its fastest run counts
// (the "_min" lines), so that a moment of load from another process on a
// shared machine does not make a figure.
//
// Modules are looked for in $SKELDA_MODULE_DIR (colon-separated), then in
// the build tree, then in alsa-lib's plugin directory; a missing one is
// reported and left out, as is a pair outside the rates a module announces.
#include <alsa/asoundlib.h>
#include <alsa/pcm_rate.h>
#include <benchmark/benchmark.h>
#include <dlfcn.h>
#include <soxr.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <vector>

// ---------------------------------------------------------------------------
// The heap a stream holds: the process's malloc family, counted while a
// stream is being set up. Each call goes on to glibc's own; while counting,
// the blocks handed out are kept in a fixed table (no allocation here) with
// their requested sizes, and a block freed leaves it.

extern "C" {
void *__libc_malloc(size_t);
void *__libc_calloc(size_t, size_t);
void *__libc_realloc(void *, size_t);
void __libc_free(void *);
void *__libc_memalign(size_t, size_t);
void *__libc_valloc(size_t);
void *__libc_pvalloc(size_t);
}

namespace heap {

constexpr size_t kSlots = 1 << 14;  // open addressing, far more than any set-up allocates
struct Slot {
  void *p;
  size_t bytes;
};
Slot table[kSlots];
bool counting = false, overflow = false;
size_t live = 0, blocks = 0;

size_t Hash(void *p) { return (reinterpret_cast<uintptr_t>(p) >> 4) * 0x9E3779B97F4A7C15ull >> 50; }

void Add(void *p, size_t bytes) {
  if (!counting || p == nullptr) return;
  if (blocks + 1 >= kSlots / 2) {
    overflow = true;
    return;
  }
  size_t i = Hash(p);
  while (table[i].p != nullptr) i = (i + 1) & (kSlots - 1);
  table[i] = {p, bytes};
  live += bytes;
  ++blocks;
}

// Backward-shift deletion keeps every probe chain whole.
void Remove(void *p) {
  if (!counting || p == nullptr) return;
  size_t i = Hash(p);
  while (table[i].p != p) {
    if (table[i].p == nullptr) return;  // allocated before counting began
    i = (i + 1) & (kSlots - 1);
  }
  live -= table[i].bytes;
  --blocks;
  for (size_t j = (i + 1) & (kSlots - 1); table[j].p != nullptr; j = (j + 1) & (kSlots - 1)) {
    const size_t home = Hash(table[j].p);
    // Move j into the hole at i unless its home lies cyclically in (i, j].
    const bool stays = i <= j ? (i < home && home <= j) : (i < home || home <= j);
    if (stays) continue;
    table[i] = table[j];
    i = j;
  }
  table[i] = {nullptr, 0};
}

void Start() {
  std::memset(table, 0, sizeof table);
  live = blocks = 0;
  overflow = false;
  counting = true;
}

// Bytes still allocated since Start, or NaN if they could not all be kept.
double Stop() {
  counting = false;
  return overflow ? std::numeric_limits<double>::quiet_NaN() : double(live);
}

}  // namespace heap

extern "C" {

void *malloc(size_t n) noexcept {
  void *p = __libc_malloc(n);
  heap::Add(p, n);
  return p;
}

void *calloc(size_t n, size_t size) noexcept {
  void *p = __libc_calloc(n, size);
  heap::Add(p, n * size);
  return p;
}

void *realloc(void *old, size_t n) noexcept {
  void *p = __libc_realloc(old, n);
  if (p != nullptr || n == 0) heap::Remove(old);
  heap::Add(p, n);
  return p;
}

void free(void *p) noexcept {
  heap::Remove(p);
  __libc_free(p);
}

void *memalign(size_t alignment, size_t n) noexcept {
  void *p = __libc_memalign(alignment, n);
  heap::Add(p, n);
  return p;
}

void *aligned_alloc(size_t alignment, size_t n) noexcept { return memalign(alignment, n); }

int posix_memalign(void **out, size_t alignment, size_t n) noexcept {
  if (alignment < sizeof(void *) || (alignment & (alignment - 1)) != 0) return EINVAL;
  void *p = memalign(alignment, n);
  if (p == nullptr) return ENOMEM;
  *out = p;
  return 0;
}

void *valloc(size_t n) noexcept {
  void *p = __libc_valloc(n);
  heap::Add(p, n);
  return p;
}

void *pvalloc(size_t n) noexcept {
  void *p = __libc_pvalloc(n);
  heap::Add(p, n);
  return p;
}

}  // extern "C"

namespace {

constexpr unsigned kChannels = 2;
const unsigned kMemoryChannels[] = {2, 16, 64};

struct Pair {
  unsigned in, out;
  std::string Name() const { return std::to_string(in) + "-" + std::to_string(out); }
};

// Frames per period on each side.
struct Periods {
  unsigned in, out;
  std::string Name() const { return std::to_string(in) + "-" + std::to_string(out); }
  bool operator==(const Periods &o) const { return in == o.in && out == o.out; }
};

// `out` frames of output and the input alsa-lib pairs with them: the nearest
// frame count at the rates' ratio (ties down).
Periods ForOutput(Pair p, unsigned out) {
  const uint64_t twice = 2 * uint64_t{out} * p.in;
  return {unsigned((twice + p.out - 1) / (2 * uint64_t{p.out})), out};
}
Periods TenMs(Pair p) { return ForOutput(p, p.out / 100); }

const Pair kPairs[] = {
    {44100, 48000},  {48000, 44100},  {32000, 48000},  {22050, 48000},  {96000, 44100},
    {48000, 16000},  {16000, 48000},  {44100, 352800}, {352800, 44100}, {48000, 384000},
    {384000, 48000}, {44100, 705600}, {705600, 44100}, {48000, 768000}, {768000, 48000},
    {8000, 768000},  {768000, 8000},  {4000, 48000},   {48000, 4000},   {5512, 44100},
    {44100, 5512},   {192000, 768000}, {768000, 192000}, {44100, 192000}, {192000, 44100}};

// Period sizes alsa-lib picks besides 10 ms and 1024 output frames.
struct ExtraPeriods {
  Pair pair;
  Periods periods;
};
const ExtraPeriods kExtraPeriods[] = {{{48000, 44100}, {1024, 941}},
                                      {{44100, 192000}, {256, 1115}},
                                      {{192000, 44100}, {24000, 5513}}};

// The converters the bounds compare, the others measured beside them.
const char *const kHq = "skelda_hq";
const char *const kCheapPeers[] = {"speexrate", "speexrate_medium", "samplerate"};
const char *const kModules[] = {"skelda_hq",         "speexrate",       "speexrate_medium", "samplerate",
                                "samplerate_medium", "samplerate_best", "lavrate",          "skelda"};
const char *const kSoxr = "soxr_hq", *const kSoxr32 = "soxr_vhq";
const char *const k32 = "/s32";  // the suffix of the 32-bit rows' names

// The bounds.
constexpr double kHq16PerCheapest = 0.5, kHq32PerCheapest = 1.0, kHq32PerSamplerate32 = 0.25;
constexpr double kPeriodPer10ms = 1.15, kStateBytes = 256 * 1024, kSetupUs = 150;

bool IsKey(const std::string &module) {
  if (module == kHq) return true;
  for (const char *p : kCheapPeers)
    if (module == p) return true;
  return false;
}

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

// Whole periods in about one second of input, at least one.
unsigned PeriodsPerSecond(Pair p, Periods per) { return std::max(1u, p.in / per.in); }

// S32 in and out, when the module announces both.
bool TakesS32(const snd_pcm_rate_ops_t &ops, void *obj) {
  uint64_t in = 0, out = 0;
  unsigned flags = 0;
  const uint64_t s32 = 1ull << SND_PCM_FORMAT_S32;
  return ops.version >= 0x010003 && ops.get_supported_formats && ops.convert &&
         ops.get_supported_formats(obj, &in, &out, &flags) == 0 && (in & s32) && (out & s32);
}

// One stream of a module, set up as alsa-lib sets it up.
struct Stream {
  void *obj = nullptr;
  snd_pcm_rate_ops_t ops{};
  bool initialised = false;
};

void Close(Stream *s) {
  if (s->initialised && s->ops.free) s->ops.free(s->obj);
  if (s->obj && s->ops.close) s->ops.close(s->obj);
  *s = Stream{};
}

// Open, then (refusing, as alsa-lib does, rates outside those announced --
// the peers announce 0-0: no limit -- and S32 unless announced on both
// sides) init and adjust_pitch. "" when the stream is ready, else why not
// (the stream closed again).
std::string Open(const Module &m, Pair pair, Periods per, bool wide, unsigned channels, Stream *s) {
  *s = Stream{};
  if (!m.open) return m.error;
  if (int err = m.open(SND_PCM_RATE_PLUGIN_VERSION, &s->obj, &s->ops); err < 0)
    return "open failed: " + std::string(snd_strerror(err));
  const snd_pcm_rate_ops_t &ops = s->ops;
  unsigned lo = 0, hi = 0;
  if (ops.version >= 0x010002 && ops.get_supported_rates && ops.get_supported_rates(s->obj, &lo, &hi) == 0 &&
      hi != 0 && (pair.in < lo || pair.in > hi || pair.out < lo || pair.out > hi)) {
    Close(s);
    return "rates " + std::to_string(lo) + "-" + std::to_string(hi) + " only";
  }
  if (wide && !TakesS32(ops, s->obj)) {
    Close(s);
    return "no S32 on both sides";
  }
  const snd_pcm_format_t format = wide ? SND_PCM_FORMAT_S32 : SND_PCM_FORMAT_S16;
  snd_pcm_rate_info_t info{};
  info.in = {format, pair.in, 4 * snd_pcm_uframes_t{per.in}, per.in};
  info.out = {format, pair.out, 4 * snd_pcm_uframes_t{per.out}, per.out};
  info.channels = channels;
  if (int err = ops.init(s->obj, &info); err < 0) {
    Close(s);
    return "init failed: " + std::string(snd_strerror(err));
  }
  s->initialised = true;
  if (int err = ops.adjust_pitch ? ops.adjust_pitch(s->obj, &info) : 0; err < 0) {
    Close(s);
    return "adjust_pitch failed: " + std::string(snd_strerror(err));
  }
  return "";
}

// Whether the module can take the pair (and S32) at all, to leave out rows
// that could only be skipped.
bool Serves(const Module &m, Pair pair, bool wide) {
  Stream s;
  if (!Open(m, pair, TenMs(pair), wide, kChannels, &s).empty()) return false;
  Close(&s);
  return true;
}

// The rows' names.
std::string ConvertName(Pair p, const Periods *per, const std::string &converter) {
  return "Convert/" + p.Name() + (per ? "@" + per->Name() : "") + "/" + converter;
}
std::string SetupName(Pair p, const Periods *per, const std::string &converter) {
  return "Setup/" + p.Name() + (per ? "@" + per->Name() : "") + "/" + converter;
}

template <class Sample>
void BM_Convert(benchmark::State &state, const Module *m, Pair pair, Periods per) {
  constexpr bool wide = sizeof(Sample) == 4;
  constexpr unsigned bits = 8 * sizeof(Sample);
  Stream s;
  if (std::string why = Open(*m, pair, per, wide, kChannels, &s); !why.empty())
    return state.SkipWithError(why.c_str());
  const snd_pcm_rate_ops_t &ops = s.ops;
  if (ops.reset) ops.reset(s.obj);

  const unsigned periods = PeriodsPerSecond(pair, per);
  const std::vector<Sample> in = Noise<Sample>(size_t(per.in) * periods);
  std::vector<Sample> out(size_t(per.out) * kChannels);
  // A module without convert_s16 gets the same buffers as channel areas
  // (offsets and steps in bits), which is what alsa-lib hands it then.
  snd_pcm_channel_area_t src[kChannels], dst[kChannels];
  for (unsigned c = 0; c < kChannels; ++c) {
    src[c] = {nullptr, bits * c, bits * kChannels};
    dst[c] = {out.data(), bits * c, bits * kChannels};
  }
  unsigned period = 0;
  auto convert = [&] {
    const Sample *p = in.data() + size_t(period) * per.in * kChannels;
    if (ops.convert_s16 && !wide) {
      ops.convert_s16(s.obj, reinterpret_cast<int16_t *>(out.data()), per.out,
                      reinterpret_cast<const int16_t *>(p), per.in);
    } else {
      for (auto &a : src) a.addr = const_cast<Sample *>(p);
      ops.convert(s.obj, dst, 0, per.out, src, 0, per.in);
    }
    period = period + 1 == periods ? 0 : period + 1;
  };
  auto silent = [&] {
    for (Sample v : out)
      if (v != 0) return false;
    return true;
  };
  // Untimed, the periods until sound comes out (the converter's delay; a
  // second at most), so that even a run of one period is a period of sound.
  for (unsigned k = 0; k < 100 && (k == 0 || silent()); ++k) convert();
  for (auto _ : state) {
    convert();
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(int64_t(state.iterations()) * per.out);
  state.counters["frames"] = benchmark::Counter(double(state.iterations()) * per.out,
                                                benchmark::Counter::kAvgIterations);
  // A converter that writes only silence is not converting: keep it out of
  // the table.
  if (silent()) state.SkipWithError("the output was silence");
  Close(&s);
}

double ThreadCpuNs() {
  timespec t{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
  return double(t.tv_sec) * 1e9 + double(t.tv_nsec);
}

// Open + init + adjust_pitch per stream (free and close after each, not
// counted), in CPU time of this thread, page faults on the new state
// included. With `memory`, also the heap those calls leave allocated, at
// 2, 16 and 64 channels ("bytes_<channels>").
void BM_Setup(benchmark::State &state, const Module *m, Pair pair, Periods per, bool wide, bool memory) {
  Stream s;
  if (std::string why = Open(*m, pair, per, wide, kChannels, &s); !why.empty())
    return state.SkipWithError(why.c_str());
  Close(&s);  // warm: the module's first stream is not counted
  if (memory) {
    // Once per row: the library calls this function more than once.
    static std::map<std::string, std::map<std::string, double>> measured;
    const std::string row = SetupName(pair, nullptr, m->name + (wide ? k32 : ""));
    if (measured.count(row) == 0) {
      std::map<std::string, double> &bytes = measured[row];
      for (unsigned channels : kMemoryChannels) {
        heap::Start();
        const bool ready = Open(*m, pair, per, wide, channels, &s).empty();
        const double live = heap::Stop();
        Close(&s);
        if (ready && !std::isnan(live)) bytes["bytes_" + std::to_string(channels)] = live;
      }
    }
    for (const auto &[name, value] : measured[row]) state.counters[name] = value;
  }
  double ns = 0;
  for (auto _ : state) {
    const double t0 = ThreadCpuNs();
    const std::string why = Open(*m, pair, per, wide, kChannels, &s);
    ns += ThreadCpuNs() - t0;
    if (!why.empty()) {
      state.SkipWithError(why.c_str());
      break;
    }
    Close(&s);
  }
  state.counters["setup_ns"] = benchmark::Counter(ns, benchmark::Counter::kAvgIterations);
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
  const Periods per = TenMs(pair);
  const unsigned periods = PeriodsPerSecond(pair, per), out_room = 2 * per.out + 64;
  const std::vector<Sample> in = Noise<Sample>(size_t(per.in) * periods);
  std::vector<Sample> out(size_t(out_room) * kChannels);
  unsigned period = 0;
  int64_t outputs = 0, inputs = 0;
  // Untimed, 100 ms to fill its pipeline.
  for (int k = 0; k < 10; ++k) {
    size_t used = 0, made = 0;
    soxr_process(soxr, in.data() + size_t(period) * per.in * kChannels, per.in, &used, out.data(), out_room,
                 &made);
    period = period + 1 == periods ? 0 : period + 1;
  }
  for (auto _ : state) {
    size_t used = 0, made = 0;
    soxr_process(soxr, in.data() + size_t(period) * per.in * kChannels, per.in, &used, out.data(), out_room,
                 &made);
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
    inputs += int64_t(used);
    outputs += int64_t(made);
    period = period + 1 == periods ? 0 : period + 1;
  }
  state.SetItemsProcessed(outputs);
  state.counters["frames"] = benchmark::Counter(double(outputs), benchmark::Counter::kAvgIterations);
  // Every period must have gone in whole, or the times would flatter it.
  if (inputs != int64_t(state.iterations()) * per.in) state.SkipWithError("input left over");
  soxr_delete(soxr);
}

// The period sizes other than 10 ms measured at a pair.
std::vector<Periods> OtherPeriods(Pair p) {
  std::vector<Periods> list{ForOutput(p, 1024)};
  for (const ExtraPeriods &e : kExtraPeriods)
    if (e.pair.in == p.in && e.pair.out == p.out &&
        std::find(list.begin(), list.end(), e.periods) == list.end())
      list.push_back(e.periods);
  return list;
}

const double kNaN = std::numeric_limits<double>::quiet_NaN();

std::string Num(double v, const char *format) {
  if (std::isnan(v)) return "-";
  char text[48];
  std::snprintf(text, sizeof text, format, v);
  return text;
}

// Keeps the CPU time and counters of every run; repetitions are pooled.
// After the run, the tables.
class TableReporter : public benchmark::ConsoleReporter {
 public:
  // Colour only on a terminal; not tabular, so skipped runs do not keep
  // reprinting the header.
  TableReporter() : ConsoleReporter(isatty(STDOUT_FILENO) ? OO_Color : OO_None) {}
  // Of a row run more than once, its fastest run counts (and is shown);
  // of one run once, that run.
  void ReportRuns(const std::vector<Run> &runs) override {
    std::vector<Run> shown;
    for (const Run &r : runs) {
      const bool counts = !r.error_occurred && r.iterations != 0 &&
                          (r.run_type == Run::RT_Aggregate ? r.aggregate_name == "min" : r.repetitions <= 1);
      const bool first_error = r.error_occurred && (shown.empty() || !shown.back().error_occurred);
      if (!counts && !first_error) continue;
      shown.push_back(r);
      shown.back().run_name.min_time.clear();  // every row has its own: not news
      shown.back().run_name.repetitions.clear();
    }
    for (const Run &r : shown) {
      if (r.error_occurred) continue;
      Total &t = totals_[r.run_name.str()];  // without the aggregate's suffix
      t.seconds += r.cpu_accumulated_time;
      t.iterations += double(r.iterations);
      for (const auto &[name, counter] : r.counters) {
        // Per-iteration counters pooled by iterations, plain ones kept.
        if (counter.flags & benchmark::Counter::kAvgIterations)
          t.sums[name] += counter.value * double(r.iterations);
        else
          t.values[name] = counter.value;
      }
    }
    ConsoleReporter::ReportRuns(shown);
  }

  void PrintTables() {
    PrintCost16();
    PrintCost32();
    PrintPeriods();
    PrintState();
    PrintSetup();
    PrintAll();
    std::printf("\n### Misses\n\n");
    if (misses_.empty()) std::printf("None of the figures measured in this run misses its bound.\n");
    for (const std::string &m : misses_) std::printf("- %s\n", m.c_str());
  }

 private:
  struct Total {
    double seconds = 0, iterations = 0;
    std::map<std::string, double> sums, values;
  };

  const Total *Find(const std::string &name) const {
    auto it = totals_.find(name);
    return it == totals_.end() ? nullptr : &it->second;
  }
  // CPU ns per output frame of a Convert row; NaN when it did not run, so
  // every ratio with it is NaN too.
  double PerFrame(Pair p, const std::string &converter, const Periods *per = nullptr) const {
    const Total *t = Find(ConvertName(p, per, converter));
    if (!t) return kNaN;
    auto f = t->sums.find("frames");
    if (f == t->sums.end() || f->second <= 0) return kNaN;
    return t->seconds * 1e9 / f->second;
  }
  double SetupUs(Pair p, const std::string &converter, const Periods *per = nullptr) const {
    const Total *t = Find(SetupName(p, per, converter));
    if (!t) return kNaN;
    auto f = t->sums.find("setup_ns");
    return f == t->sums.end() ? kNaN : f->second / t->iterations * 1e-3;
  }
  double Bytes(Pair p, const std::string &converter, unsigned channels) const {
    const Total *t = Find(SetupName(p, nullptr, converter));
    if (!t) return kNaN;
    auto f = t->values.find("bytes_" + std::to_string(channels));
    return f == t->values.end() ? kNaN : f->second;
  }
  bool Ran(Pair p) const {
    const std::string prefix = "/" + p.Name();
    for (const auto &[name, t] : totals_) {
      const size_t at = name.find(prefix);
      if (at != std::string::npos && at + prefix.size() < name.size() &&
          (name[at + prefix.size()] == '/' || name[at + prefix.size()] == '@'))
        return true;
    }
    return false;
  }
  static std::string PairText(Pair p) { return std::to_string(p.in) + " -> " + std::to_string(p.out); }

  // "0.42", or "**0.61**" past the bound (and the miss noted).
  std::string Check(double ratio, double bound, const std::string &what, const char *format = "%.3f") {
    if (std::isnan(ratio)) return "-";
    const std::string text = Num(ratio, format);
    if (ratio <= bound) return text;
    misses_.push_back(what + ": " + text + " (bound " + Num(bound, format) + ")");
    return "**" + text + "**";
  }

  // The cheapest of speexrate, speexrate_medium and samplerate (S16) at p.
  std::pair<double, std::string> Cheapest(Pair p) const {
    double best = kNaN;
    std::string name = "-";
    for (const char *peer : kCheapPeers) {
      const double t = PerFrame(p, peer);
      if (!std::isnan(t) && (std::isnan(best) || t < best)) best = t, name = peer;
    }
    return {best, name};
  }

  void PrintCost16() {
    std::printf("\n### The 16-bit path: skelda_hq S16 -> S16 against the cheapest of speexrate, "
                "speexrate_medium and samplerate (S16)\n\nCPU ns per output frame, stereo, 10 ms "
                "periods, one run; bound: skelda_hq at most %.2f of the cheapest.\n\n"
                "| pair | skelda_hq | speexrate | speexrate_medium | samplerate | cheapest | "
                "skelda_hq / cheapest | soxr HQ | skelda_hq / soxr HQ |\n"
                "|---|---|---|---|---|---|---|---|---|\n",
                kHq16PerCheapest);
    for (const Pair &p : kPairs) {
      const double hq = PerFrame(p, kHq), sx = PerFrame(p, kSoxr);
      const auto [cheap, cheap_name] = Cheapest(p);
      if (std::isnan(hq) && std::isnan(cheap) && std::isnan(sx)) continue;  // filtered out
      std::printf("| %s | %s | %s | %s | %s | %s | %s | %s | %s |\n", PairText(p).c_str(), Num(hq, "%.1f").c_str(),
                  Num(PerFrame(p, "speexrate"), "%.1f").c_str(),
                  Num(PerFrame(p, "speexrate_medium"), "%.1f").c_str(),
                  Num(PerFrame(p, "samplerate"), "%.1f").c_str(), cheap_name.c_str(),
                  Check(hq / cheap, kHq16PerCheapest, "16-bit cost " + PairText(p) + ", skelda_hq / " + cheap_name)
                      .c_str(),
                  Num(sx, "%.1f").c_str(), Num(hq / sx, "%.2f").c_str());
    }
  }

  void PrintCost32() {
    std::printf("\n### The 32-bit path: skelda_hq S32 -> S32 against the same cheapest S16 peer and "
                "samplerate's S32\n\nCPU ns per output frame, stereo, 10 ms periods, one run; bounds: "
                "skelda_hq S32 at most %.2f of the cheapest S16 peer and at most %.2f of samplerate "
                "S32.\n\n"
                "| pair | skelda_hq S32 | cheapest S16 | of | samplerate S32 | skelda_hq S32 / cheapest S16 | "
                "skelda_hq S32 / samplerate S32 | soxr VHQ | skelda_hq S32 / soxr VHQ |\n"
                "|---|---|---|---|---|---|---|---|---|\n",
                kHq32PerCheapest, kHq32PerSamplerate32);
    const std::string hq32 = std::string(kHq) + k32;
    for (const Pair &p : kPairs) {
      const double hq = PerFrame(p, hq32), sr = PerFrame(p, std::string("samplerate") + k32),
                   sx = PerFrame(p, kSoxr32);
      const auto [cheap, cheap_name] = Cheapest(p);
      if (std::isnan(hq) && std::isnan(cheap) && std::isnan(sr) && std::isnan(sx)) continue;
      // In the order of the columns, so the misses are listed that way too.
      const std::string per_cheap = Check(hq / cheap, kHq32PerCheapest,
                                          "32-bit cost " + PairText(p) + ", skelda_hq S32 / " + cheap_name + " S16");
      const std::string per_sr =
          Check(hq / sr, kHq32PerSamplerate32, "32-bit cost " + PairText(p) + ", skelda_hq S32 / samplerate S32");
      std::printf("| %s | %s | %s | %s | %s | %s | %s | %s | %s |\n", PairText(p).c_str(), Num(hq, "%.1f").c_str(),
                  Num(cheap, "%.1f").c_str(), cheap_name.c_str(), Num(sr, "%.1f").c_str(), per_cheap.c_str(),
                  per_sr.c_str(), Num(sx, "%.1f").c_str(), Num(hq / sx, "%.2f").c_str());
    }
  }

  void PrintPeriods() {
    std::printf("\n### Period sizes: skelda_hq's cost per output frame at the periods alsa-lib picks, "
                "against its 10 ms figure\n\nCPU ns per output frame, stereo; bound: at most %.2f "
                "times the 10 ms figure.\n\n"
                "| pair | periods | 10 ms periods | skelda_hq | at 10 ms | ratio | skelda_hq S32 | at 10 ms | "
                "ratio |\n|---|---|---|---|---|---|---|---|---|\n",
                kPeriodPer10ms);
    const std::string hq32 = std::string(kHq) + k32;
    for (const Pair &p : kPairs) {
      for (const Periods &per : OtherPeriods(p)) {
        const double a = PerFrame(p, kHq, &per), a10 = PerFrame(p, kHq);
        const double b = PerFrame(p, hq32, &per), b10 = PerFrame(p, hq32);
        if (std::isnan(a) && std::isnan(b)) continue;
        const std::string where = PairText(p) + " at " + std::to_string(per.in) + " -> " + std::to_string(per.out);
        const std::string ratio16 = Check(a / a10, kPeriodPer10ms, "period cost " + where + ", skelda_hq / its 10 ms");
        const std::string ratio32 =
            Check(b / b10, kPeriodPer10ms, "period cost " + where + ", skelda_hq S32 / its 10 ms");
        std::printf("| %s | %u -> %u | %u -> %u | %s | %s | %s | %s | %s | %s |\n", PairText(p).c_str(), per.in,
                    per.out, TenMs(p).in, TenMs(p).out, Num(a, "%.1f").c_str(), Num(a10, "%.1f").c_str(),
                    ratio16.c_str(), Num(b, "%.1f").c_str(), Num(b10, "%.1f").c_str(), ratio32.c_str());
      }
    }
  }

  std::vector<std::string> Converters() const {
    std::vector<std::string> names{kHq, std::string(kHq) + k32};
    for (const char *m : kModules)
      if (m != std::string(kHq)) names.push_back(m);
    return names;
  }

  void PrintState() {
    std::printf("\n### State per stream: the heap open + init + adjust_pitch leave allocated\n\n"
                "KB (1024 bytes) at 2 / 16 / 64 channels, 10 ms periods; bounds: skelda_hq at most "
                "%.0f KB in stereo on either path, and at 64 channels at most 32 times its stereo "
                "figure (no more than linear growth).\n\n",
                kStateBytes / 1024);
    const std::vector<std::string> names = Converters();
    std::printf("| pair |");
    for (const std::string &n : names) std::printf(" %s |", n == std::string(kHq) + k32 ? "skelda_hq S32" : n.c_str());
    std::printf(" skelda_hq 64 ch / 2 ch | skelda_hq S32 64 ch / 2 ch |\n|---|");
    for (size_t i = 0; i < names.size() + 2; ++i) std::printf("---|");
    std::printf("\n");
    for (const Pair &p : kPairs) {
      bool any = false;
      for (const std::string &n : names) any = any || !std::isnan(Bytes(p, n, 2));
      if (!any) continue;
      std::printf("| %s |", PairText(p).c_str());
      for (const std::string &n : names) {
        std::string cell;
        for (unsigned c : kMemoryChannels) {
          const double b = Bytes(p, n, c);
          std::string text = Num(b / 1024, "%.1f");
          if (c == 2 && (n == kHq || n == std::string(kHq) + k32))
            text = Check(b / 1024, kStateBytes / 1024,
                         "state " + PairText(p) + ", " + (n == kHq ? "skelda_hq" : "skelda_hq S32") + " stereo (KB)",
                         "%.1f");
          cell += (cell.empty() ? "" : " / ") + text;
        }
        std::printf(" %s |", cell.c_str());
      }
      for (const std::string &n : {std::string(kHq), std::string(kHq) + k32})
        std::printf(" %s |", Check(Bytes(p, n, 64) / Bytes(p, n, 2), 32,
                                   "state " + PairText(p) + ", " + (n == kHq ? "skelda_hq" : "skelda_hq S32") +
                                       " 64 ch / 2 ch")
                                 .c_str());
      std::printf("\n");
    }
  }

  void PrintSetup() {
    std::printf("\n### Set-up per stream: open + init + adjust_pitch, warm\n\nCPU us per stream, "
                "stereo, at 10 ms periods and at the periods alsa-lib picks for 1024 output frames "
                "(and a few more); bound: skelda_hq at most %.0f us on either path.\n\n",
                kSetupUs);
    const std::vector<std::string> names = Converters();
    std::printf("| pair | periods |");
    for (const std::string &n : names) std::printf(" %s |", n == std::string(kHq) + k32 ? "skelda_hq S32" : n.c_str());
    std::printf("\n|---|---|");
    for (size_t i = 0; i < names.size(); ++i) std::printf("---|");
    std::printf("\n");
    for (const Pair &p : kPairs) {
      std::vector<Periods> all{TenMs(p)};
      for (const Periods &per : OtherPeriods(p)) all.push_back(per);
      for (size_t k = 0; k < all.size(); ++k) {
        const Periods *per = k == 0 ? nullptr : &all[k];
        bool any = false;
        for (const std::string &n : names) any = any || !std::isnan(SetupUs(p, n, per));
        if (!any) continue;
        const std::string where =
            PairText(p) + " at " + std::to_string(all[k].in) + " -> " + std::to_string(all[k].out);
        std::printf("| %s | %u -> %u%s |", PairText(p).c_str(), all[k].in, all[k].out, k == 0 ? " (10 ms)" : "");
        for (const std::string &n : names) {
          const double us = SetupUs(p, n, per);
          const bool ours = n == kHq || n == std::string(kHq) + k32;
          std::printf(" %s |", ours ? Check(us, kSetupUs, "set-up " + where + ", " +
                                                              (n == kHq ? "skelda_hq" : "skelda_hq S32") + " (us)",
                                            "%.1f")
                                          .c_str()
                                    : Num(us, "%.1f").c_str());
        }
        std::printf("\n");
      }
    }
  }

  void PrintAll() {
    std::printf("\n### Every converter, 10 ms periods\n\nCPU ns per output frame, and as a multiple "
                "of speexrate's S16 and of soxr HQ's in this run.\n\n"
                "| pair | converter | ns/frame | / speexrate | / soxr HQ |\n|---|---|---|---|---|\n");
    for (const Pair &p : kPairs) {
      if (!Ran(p)) continue;
      std::vector<std::string> names;
      for (const char *n : kModules) names.push_back(n);
      names.push_back(kSoxr);
      for (const char *n : kModules) names.push_back(std::string(n) + k32);
      names.push_back(kSoxr32);
      for (const std::string &n : names) {
        const double t = PerFrame(p, n);
        if (std::isnan(t)) continue;
        std::printf("| %s | %s | %.1f | %s | %s |\n", PairText(p).c_str(), n.c_str(), t,
                    Num(t / PerFrame(p, "speexrate"), "%.2f").c_str(), Num(t / PerFrame(p, kSoxr), "%.2f").c_str());
      }
    }
  }

  std::map<std::string, Total> totals_;
  std::vector<std::string> misses_;
};

double Fastest(const std::vector<double> &v) { return *std::min_element(v.begin(), v.end()); }

// Each row runs kRepetitions times for `seconds` in all, back to back; the
// fastest counts.
constexpr int kRepetitions = 3;
void Share(benchmark::internal::Benchmark *b, double seconds) {
  b->MinTime(seconds / kRepetitions)->Repetitions(kRepetitions)->ComputeStatistics("min", Fastest);
}

// --benchmark_min_time as given, else the default; the library is left to
// read it too, but every row is given its own share of it.
double MinTime(int argc, char **argv) {
  const char flag[] = "--benchmark_min_time=";
  double seconds = 0.2;
  for (int i = 1; i < argc; ++i)
    if (std::strncmp(argv[i], flag, sizeof flag - 1) == 0) {
      char *end = nullptr;
      const double v = std::strtod(argv[i] + sizeof flag - 1, &end);
      if (end != argv[i] + sizeof flag - 1 && v > 0 && (*end == '\0' || std::strcmp(end, "s") == 0)) seconds = v;
    }
  return seconds;
}

}  // namespace

int main(int argc, char **argv) {
  const double min_time = MinTime(argc, argv);
  std::vector<Module> modules;
  modules.reserve(std::size(kModules));
  for (const char *name : kModules) {
    modules.push_back(LoadModule(name));
    if (!modules.back().open) std::fprintf(stderr, "%s left out: %s\n", name, modules.back().error.c_str());
  }
  auto module = [&](const std::string &name) -> const Module & {
    for (const Module &m : modules)
      if (m.name == name) return m;
    return modules.front();
  };
  // Per pair, every converter in turn, the rows the bounds compare first and
  // side by side, so a pair's figures come from neighbouring moments of this
  // shared machine.
  for (const Pair &p : kPairs) {
    std::vector<std::pair<const Module *, bool>> key, other;  // (module, S32)
    for (const Module &m : modules)
      for (bool wide : {false, true})
        if (m.open && Serves(m, p, wide)) (IsKey(m.name) ? key : other).push_back({&m, wide});
    for (const auto &[m, wide] : key) {
      const std::string name = ConvertName(p, nullptr, m->name + (wide ? k32 : ""));
      auto *b = wide ? benchmark::RegisterBenchmark(name.c_str(), BM_Convert<int32_t>, m, p, TenMs(p))
                     : benchmark::RegisterBenchmark(name.c_str(), BM_Convert<int16_t>, m, p, TenMs(p));
      Share(b, min_time);
    }
    const Module &hq = module(kHq);
    for (const Periods &per : OtherPeriods(p)) {
      if (!hq.open || !Serves(hq, p, false)) break;
      Share(benchmark::RegisterBenchmark(ConvertName(p, &per, kHq).c_str(), BM_Convert<int16_t>, &hq, p, per),
            min_time);
      Share(benchmark::RegisterBenchmark(ConvertName(p, &per, std::string(kHq) + k32).c_str(), BM_Convert<int32_t>,
                                         &hq, p, per),
            min_time);
    }
    for (const auto &[m, wide] : other) {
      const std::string name = ConvertName(p, nullptr, m->name + (wide ? k32 : ""));
      auto *b = wide ? benchmark::RegisterBenchmark(name.c_str(), BM_Convert<int32_t>, m, p, TenMs(p))
                     : benchmark::RegisterBenchmark(name.c_str(), BM_Convert<int16_t>, m, p, TenMs(p));
      Share(b, min_time / 2);
    }
    Share(benchmark::RegisterBenchmark(ConvertName(p, nullptr, kSoxr).c_str(), BM_Soxr<int16_t>, p), min_time / 2);
    Share(benchmark::RegisterBenchmark(ConvertName(p, nullptr, kSoxr32).c_str(), BM_Soxr<int32_t>, p), min_time / 2);
    // Set-up: skelda_hq on both paths at every period size, the peers on
    // their S16 path (samplerate's S32 sets up the same).
    std::vector<const Periods *> sizes{nullptr};
    const std::vector<Periods> others = OtherPeriods(p);
    for (const Periods &per : others) sizes.push_back(&per);
    for (const Periods *per : sizes) {
      for (const Module &m : modules) {
        for (bool wide : {false, true}) {
          if (wide && m.name != kHq) continue;
          if (!m.open || !Serves(m, p, wide)) continue;
          const std::string name = SetupName(p, per, m.name + (wide ? k32 : ""));
          Share(benchmark::RegisterBenchmark(name.c_str(), BM_Setup, &m, p, per ? *per : TenMs(p), wide,
                                             per == nullptr),
                min_time / 8);
        }
      }
    }
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

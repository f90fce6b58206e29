// The high-quality resampler's status rules, one table per call: each rule
// at its boundary and one past it, the documented order when several
// arguments are wrong, and no change at all from a call that fails.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <random>
#include <vector>

#include "support/hq_reference.h"

namespace {

constexpr uint32_t k24 = 1u << 24;

// What a row starts from: an initialised state of these rates and channels
// (ratio set after, if given), or a block Init never saw.
struct Start {
  uint32_t in, out, channels, ratio_out = 0, ratio_in = 0;
  enum { kReady, kZeroed, kGarbage } kind = kReady;
};
const Start kUp{44100, 48000, 2};
const Start kDown{48000, 44100, 2};
const Start kUnit{44100, 44100, 2};
const Start kZeroed{44100, 48000, 2, 0, 0, Start::kZeroed};
const Start kGarbage{44100, 48000, 2, 0, 0, Start::kGarbage};

// One block holding 64 KB of buffer, the state's area, then the input, the
// output and the result words, so that a snapshot of the block catches any
// write a failing call makes.
class Arena {
 public:
  static constexpr size_t kBefore = 65536, kArea = 1 << 20, kAfter = 65536;
  Arena() : mem_(static_cast<uint8_t *>(std::aligned_alloc(65536, kBefore + kArea + kAfter))) {
    std::mt19937 rng(77);
    for (auto &b : pattern_) b = static_cast<uint8_t>(rng());
  }
  ~Arena() { std::free(mem_); }

  // Fresh contents for a row (random bytes around the state); false when
  // the start cannot be made.
  bool prepare(const Start &s, uint32_t in_n, uint32_t out_n) {
    std::memcpy(mem_, pattern_.data(), pattern_.size());
    if (s.kind == Start::kZeroed) std::memset(state_bytes(), 0, kArea);
    size = 0;
    if (RSMPL_HqGetStateSize(s.in, s.out, s.channels, &size) != RSMPL_OK) return false;
    *in_count() = in_n;
    *out_count() = out_n;
    return s.kind != Start::kReady ||
           (RSMPL_HqInit(st(), size, s.in, s.out, s.channels) == RSMPL_OK &&
            (s.ratio_out == 0 || RSMPL_HqSetRatio(st(), s.ratio_out, s.ratio_in) == RSMPL_OK));
  }
  std::vector<uint8_t> snapshot() const { return {mem_, mem_ + kBefore + kArea + kAfter}; }

  uint8_t *state_bytes() { return mem_ + kBefore; }
  RSMPL_HqState *st() { return reinterpret_cast<RSMPL_HqState *>(state_bytes()); }
  RSMPL_HqState *at(size_t offset) { return reinterpret_cast<RSMPL_HqState *>(state_bytes() + offset); }
  int16_t *before() { return reinterpret_cast<int16_t *>(mem_); }
  int16_t *in() { return reinterpret_cast<int16_t *>(mem_ + kBefore + kArea); }
  int16_t *out() { return in() + 4096; }
  uint32_t *in_count() { return reinterpret_cast<uint32_t *>(out() + 4096); }
  uint32_t *out_count() { return in_count() + 1; }
  uint32_t *result() { return in_count() + 2; }
  RSMPL_HqInfo *info() { return reinterpret_cast<RSMPL_HqInfo *>(in_count() + 4); }
  uint32_t size = 0;

 private:
  uint8_t *mem_;
  std::vector<uint8_t> pattern_ = std::vector<uint8_t>(kBefore + kArea + kAfter);
};

struct Row {
  const char *what;
  Start start;
  RSMPL_Status want;
  std::function<RSMPL_Status(Arena &)> call;
  uint32_t in_n = 16, out_n = 16;  // the counts Process is given
};

void run(const std::vector<Row> &rows) {
  Arena a;
  for (const Row &row : rows) {
    ASSERT_TRUE(a.prepare(row.start, row.in_n, row.out_n)) << row.what;
    const auto before = a.snapshot();
    EXPECT_EQ(row.call(a), row.want) << row.what;
    if (row.want != RSMPL_OK) EXPECT_TRUE(a.snapshot() == before) << row.what << " changed memory";
  }
}

TEST(HqStatus, GetStateSize) {
  auto size = [](uint32_t in, uint32_t out, uint32_t ch) {
    return [=](Arena &a) { return RSMPL_HqGetStateSize(in, out, ch, a.result()); };
  };
  run({
      {"in 7999", kUp, 3, size(7999, 48000, 2)},
      {"in 8000", kUp, 0, size(8000, 48000, 2)},
      {"in 192000", kUp, 0, size(192000, 48000, 2)},
      {"in 192001", kUp, 3, size(192001, 48000, 2)},
      {"in 0", kUp, 3, size(0, 48000, 2)},
      {"out 7999", kUp, 3, size(48000, 7999, 2)},
      {"out 8000", kUp, 0, size(48000, 8000, 2)},
      {"out 192000", kUp, 0, size(48000, 192000, 2)},
      {"out 192001", kUp, 3, size(48000, 192001, 2)},
      {"out 0", kUp, 3, size(48000, 0, 2)},
      {"0 channels", kUp, 4, size(48000, 44100, 0)},
      {"1 channel", kUp, 0, size(48000, 44100, 1)},
      {"8 channels", kUp, 0, size(48000, 44100, 8)},
      {"9 channels", kUp, 4, size(48000, 44100, 9)},
      {"null size", kUp, 2, [](Arena &) { return RSMPL_HqGetStateSize(48000, 44100, 2, nullptr); }},
      {"rate before channels and null", kUp, 3,
       [](Arena &) { return RSMPL_HqGetStateSize(7999, 44100, 9, nullptr); }},
      {"channels before null", kUp, 4,
       [](Arena &) { return RSMPL_HqGetStateSize(48000, 44100, 9, nullptr); }},
  });
}

TEST(HqStatus, Init) {
  auto init = [](size_t offset, int64_t size_delta, uint32_t in, uint32_t out, uint32_t ch) {
    return [=](Arena &a) {
      uint32_t size = 0;
      RSMPL_HqGetStateSize(in < 8000 || in > 192000 ? 48000 : in,
                           out < 8000 || out > 192000 ? 48000 : out, ch == 0 || ch > 8 ? 2 : ch,
                           &size);
      return RSMPL_HqInit(a.at(offset), static_cast<uint32_t>(size + size_delta), in, out, ch);
    };
  };
  run({
      {"null state", kUp, 1, [](Arena &a) { return RSMPL_HqInit(nullptr, a.size, 0, 0, 0); }},
      {"in 7999", kUp, 3, init(0, 0, 7999, 48000, 2)},
      {"in 192001", kUp, 3, init(0, 0, 192001, 48000, 2)},
      {"out 0", kUp, 3, init(0, 0, 44100, 0, 2)},
      {"out 192000", kUp, 0, init(0, 0, 44100, 192000, 2)},
      {"0 channels", kUp, 4, init(0, 0, 44100, 48000, 0)},
      {"9 channels", kUp, 4, init(0, 0, 44100, 48000, 9)},
      {"8 channels", kUp, 0, init(0, 0, 44100, 48000, 8)},
      {"rate before channels", kUp, 3, init(0, 0, 8000, 7999, 9)},
      {"size one byte short", kUp, 4, init(0, -1, 96000, 44100, 3)},
      {"size exact", kUp, 0, init(0, 0, 96000, 44100, 3)},
      {"size larger", kUp, 0, init(0, 1000, 96000, 44100, 3)},
      {"size of fewer channels", kUp, 4,
       [](Arena &a) {
         uint32_t size = 0;
         RSMPL_HqGetStateSize(44100, 48000, 7, &size);
         return RSMPL_HqInit(a.st(), size, 44100, 48000, 8);
       }},
      {"block at 4 bytes past 8", kUp, 4, init(4, 0, 44100, 48000, 2)},
      {"block at 2 bytes", kUp, 4, init(2, 0, 44100, 48000, 2)},
      {"block at an odd multiple of 8", kUp, 0, init(8, 0, 44100, 48000, 2)},
  });
}

// Within 1/16 of 160/147 either way: 170/147 and 50/49 exactly.
TEST(HqStatus, SetRatio) {
  auto set = [](uint32_t out, uint32_t in) {
    return [=](Arena &a) { return RSMPL_HqSetRatio(a.st(), out, in); };
  };
  run({
      {"null state", kUp, 1, [](Arena &) { return RSMPL_HqSetRatio(nullptr, 0, 0); }},
      {"zeroed block", kZeroed, 7, set(1115, 1024)},
      {"garbage block", kGarbage, 7, set(1115, 1024)},
      {"not initialised before zero count", kZeroed, 7, set(0, 0)},
      {"zero out", kUp, 3, set(0, 1024)},
      {"zero in", kUp, 3, set(1115, 0)},
      {"1/16 above", kUp, 0, set(170, 147)},
      {"past 1/16 above", kUp, 3, set(1701, 1470)},
      {"1/16 below", kUp, 0, set(50, 49)},
      {"past 1/16 below", kUp, 3, set(1499, 1470)},
      {"terms below 2^24", kUnit, 0, set(k24 - 1, k24 - 2)},
      {"term of 2^24", kUnit, 3, set(k24, k24 - 1)},
      {"in term of 2^24", kUnit, 3, set(k24 - 1, k24)},
      {"large terms in lowest form small", kUnit, 0, set(4000000000u, 4000000000u)},
      {"largest terms", kUnit, 3, set(0xffffffffu, 0xfffffffeu)},
  });
}

TEST(HqStatus, ResetAndQueries) {
  auto reset = [](Arena &a) { return RSMPL_HqReset(a.st()); };
  auto outputs = [](Arena &a) { return RSMPL_HqOutputFrames(a.st(), 100, a.result()); };
  auto inputs = [](Arena &a) { return RSMPL_HqInputFrames(a.st(), 100, a.result()); };
  auto info = [](Arena &a) { return RSMPL_HqGetInfo(a.st(), a.info()); };
  run({
      {"Reset null", kUp, 1, [](Arena &) { return RSMPL_HqReset(nullptr); }},
      {"Reset zeroed", kZeroed, 7, reset},
      {"Reset garbage", kGarbage, 7, reset},
      {"Reset", kUp, 0, reset},
      {"OutputFrames null", kUp, 1, [](Arena &) { return RSMPL_HqOutputFrames(nullptr, 1, nullptr); }},
      {"OutputFrames zeroed, null result", kZeroed, 7,
       [](Arena &a) { return RSMPL_HqOutputFrames(a.st(), 1, nullptr); }},
      {"OutputFrames garbage", kGarbage, 7, outputs},
      {"OutputFrames null result", kUp, 2,
       [](Arena &a) { return RSMPL_HqOutputFrames(a.st(), 1, nullptr); }},
      {"OutputFrames", kUp, 0, outputs},
      {"InputFrames null", kUp, 1, [](Arena &) { return RSMPL_HqInputFrames(nullptr, 1, nullptr); }},
      {"InputFrames zeroed, null result", kZeroed, 7,
       [](Arena &a) { return RSMPL_HqInputFrames(a.st(), 1, nullptr); }},
      {"InputFrames garbage", kGarbage, 7, inputs},
      {"InputFrames null result", kUp, 2,
       [](Arena &a) { return RSMPL_HqInputFrames(a.st(), 1, nullptr); }},
      {"InputFrames", kUp, 0, inputs},
      {"GetInfo null", kUp, 1, [](Arena &) { return RSMPL_HqGetInfo(nullptr, nullptr); }},
      {"GetInfo zeroed, null info", kZeroed, 7,
       [](Arena &a) { return RSMPL_HqGetInfo(a.st(), nullptr); }},
      {"GetInfo garbage", kGarbage, 7, info},
      {"GetInfo null info", kUp, 2, [](Arena &a) { return RSMPL_HqGetInfo(a.st(), nullptr); }},
      {"GetInfo", kUp, 0, info},
  });
}

// Buffers given by their offsets in samples from the arena's input buffer
// (2 channels: 2 samples a frame), with 16 frames each unless a row says.
TEST(HqStatus, Process) {
  auto process = [](ptrdiff_t in_at, ptrdiff_t out_at) {
    return [=](Arena &a) {
      return RSMPL_HqProcess(a.st(), a.in() + in_at, a.in_count(), a.in() + out_at, a.out_count());
    };
  };
  // Input or output against the state's block of a.size bytes.
  auto near_state = [](bool input, ptrdiff_t byte_offset) {
    return [=](Arena &a) {
      int16_t *p = reinterpret_cast<int16_t *>(a.state_bytes() + byte_offset);
      return input ? RSMPL_HqProcess(a.st(), p, a.in_count(), a.out(), a.out_count())
                   : RSMPL_HqProcess(a.st(), a.in(), a.in_count(), p, a.out_count());
    };
  };
  auto null_in = [](Arena &a) {
    return RSMPL_HqProcess(a.st(), nullptr, a.in_count(), a.out(), a.out_count());
  };
  auto null_out = [](Arena &a) {
    return RSMPL_HqProcess(a.st(), a.in(), a.in_count(), nullptr, a.out_count());
  };
  const ptrdiff_t frames32 = 32;  // 16 frames of 2 channels
  const Start rising_set_to_one{47000, 48000, 2, 1, 1};
  const Start falling_set_above_one{46000, 45000, 2, 103, 100};
  run({
      {"null state", kUp, 1,
       [](Arena &a) { return RSMPL_HqProcess(nullptr, a.in(), nullptr, a.out(), nullptr); }},
      {"zeroed block, null counts", kZeroed, 7,
       [](Arena &a) { return RSMPL_HqProcess(a.st(), a.in(), nullptr, a.out(), nullptr); }},
      {"garbage block", kGarbage, 7, process(0, 4096)},
      {"null in count", kUp, 2,
       [](Arena &a) { return RSMPL_HqProcess(a.st(), a.in(), nullptr, a.out(), a.out_count()); }},
      {"null out count", kUp, 2,
       [](Arena &a) { return RSMPL_HqProcess(a.st(), a.in(), a.in_count(), a.out(), nullptr); }},
      {"null in, no frames", kUp, 0, null_in, 0},
      {"null in, one frame", kUp, 2, null_in, 1},
      {"null out, no room", kUp, 0, null_out, 16, 0},
      {"null out, room of one", kUp, 2, null_out, 16, 1},
      {"null counts before overlap", kUp, 2,
       [](Arena &a) { return RSMPL_HqProcess(a.st(), a.in(), nullptr, a.in() + 2, a.out_count()); }},
      {"no frames, no room", kUp, 0, process(0, 4096), 0, 0},
      {"out one frame into in", kUp, 8, process(0, 2)},
      {"out right after in", kUp, 0, process(0, frames32)},
      {"out ending one frame into in", kUp, 8, process(frames32, 2)},
      {"out ending where in starts", kUp, 0, process(frames32, 0)},
      {"same buffer, rising", kUp, 8, process(0, 0)},
      {"same buffer, falling", kDown, 0, process(0, 0)},
      {"same buffer, one to one", kUnit, 0, process(0, 0)},
      {"same buffer, rising rates at ratio 1", rising_set_to_one, 0, process(0, 0)},
      {"same buffer, falling rates at ratio above 1", falling_set_above_one, 8, process(0, 0)},
      {"out one frame into in, falling", kDown, 8, process(0, 2)},
      {"out one frame before in, falling", kDown, 8, process(2, 0)},
      {"same start, no room", kUp, 0, process(0, 0), 16, 0},
      {"in inside the state", kUp, 8, near_state(true, 64)},
      {"in on the state's last bytes", kUp, 8, [&](Arena &a) { return near_state(true, a.size - 2)(a); }},
      {"in right after the state", kUp, 0, [&](Arena &a) { return near_state(true, a.size)(a); }},
      {"out ending inside the state", kUp, 8, near_state(false, -62)},
      {"out ending where the state starts", kUp, 0, near_state(false, -64)},
      {"no frames inside the state", kUp, 0, near_state(true, 64), 0},
  });
}

// A block that Init refused, because it is misaligned, is not a state.
TEST(HqStatus, MisalignedBlockIsNotAState) {
  run({
      {"Reset at 4 bytes past 8", kZeroed, 7, [](Arena &a) { return RSMPL_HqReset(a.at(4)); }},
      {"GetInfo at 2 bytes", kZeroed, 7, [](Arena &a) { return RSMPL_HqGetInfo(a.at(2), a.info()); }},
  });
}

// Blocks aligned to 8 but not 16, and to 65536, run as a 64-byte aligned one.
TEST(HqStatus, EveryAlignmentFrom8To65536RunsTheSame) {
  Arena a;
  std::mt19937 rng(5);
  std::vector<int16_t> x(8 * 3000);
  for (auto &v : x) v = static_cast<int16_t>(rng());
  std::vector<int16_t> want;
  for (size_t offset : {64, 8, 24, 0}) {  // 0: the arena's start, 65536-aligned
    RSMPL_HqState *st = offset == 0 ? reinterpret_cast<RSMPL_HqState *>(a.before()) : a.at(offset);
    uint32_t size = 0;
    ASSERT_EQ(RSMPL_HqGetStateSize(44100, 48000, 8, &size), RSMPL_OK);
    ASSERT_EQ(RSMPL_HqInit(st, size, 44100, 48000, 8), RSMPL_OK) << offset;
    std::vector<int16_t> y(8 * 4000);
    uint32_t in_n = 3000, out_n = 4000;
    ASSERT_EQ(RSMPL_HqProcess(st, x.data(), &in_n, y.data(), &out_n), RSMPL_OK);
    y.resize(8 * out_n);
    if (want.empty()) want = y;
    EXPECT_TRUE(y == want) << "offset " << offset;
  }
}

}  // namespace

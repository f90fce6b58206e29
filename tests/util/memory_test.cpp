// SPDX-License-Identifier: MIT
// Memory utilities against the C library: the moves for every overlap,
// direction, length and alignment, the copies and the fill with guard bytes
// around them, and every rule of the aligned allocation at its boundary.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <random>

#include "skelda/util_memory.h"

namespace {

TEST(UtilMemory, MovesCopiesAndFillsEqualTheCLibrary) {
  std::mt19937 rng(1);
  alignas(16) uint8_t pattern[512], ours[512], theirs[512];
  for (auto &b : pattern) b = static_cast<uint8_t>(rng());
  // The two moves take any overlap, the three copies disjoint regions only.
  void *(*const moves[])(void *, const void *, uint32_t) = {UTIL_Memmove, UTIL_MemmoveExternal,
                                                            UTIL_Memcpy, UTIL_MemcpyIntFromExt,
                                                            UTIL_MemcpyExtFromInt};
  for (int src = 100; src < 104; ++src)
    for (int dst = src - 19; dst <= src + 19; ++dst)
      for (uint32_t n = 0; n <= 200; n += n < 48 ? 1 : 13)
        for (int call = 0; call < 6; ++call) {  // call 5 is the fill
          if (call >= 2 && call < 5 && static_cast<uint32_t>(std::abs(dst - src)) < n) continue;
          const int value = static_cast<int>(rng());  // the fill takes its low 8 bits
          std::memcpy(ours, pattern, 512), std::memcpy(theirs, pattern, 512);
          void *got =
              call < 5 ? moves[call](ours + dst, ours + src, n) : UTIL_Memset(ours + dst, value, n);
          call < 5 ? std::memmove(theirs + dst, theirs + src, n)
                   : std::memset(theirs + dst, value & 0xFF, n);
          ASSERT_EQ(got, ours + dst);
          ASSERT_EQ(std::memcmp(ours, theirs, 512), 0)
              << call << ": " << src << " -> " << dst << " " << n;
        }
}

// Refused: size 0, alignment not a power of two of at least 2, a null raw,
// size + alignment past 2^32 - 1; accepted ones lie in the first alignment
// bytes of the block and hold size bytes.
TEST(UtilMemAlloc, EveryRuleAtItsBoundary) {
  const uint32_t kTop = 0xFFFFFFFFu;
  const struct {
    uint32_t size, alignment;
    bool accepted;
  } rules[] = {
      // clang-format off
      {0, 16, false}, {1, 16, true}, {100, 0, false}, {100, 1, false}, {100, 2, true},
      {100, 3, false}, {100, 6, false}, {100, 12, false}, {100, 8, true}, {100, 4096, true},
      {100, 0x80000001u, false}, {kTop - 4096, 4096, true}, {kTop - 4095, 4096, false},
      {kTop, 2, false},
      // clang-format on
  };
  for (const auto &r : rules) {
    int marker = 0;
    void *raw = &marker;
    void *p = UTIL_MemAllocNByteAligned(r.size, r.alignment, &raw);
    if (!r.accepted) {
      EXPECT_TRUE(p == nullptr && raw == &marker) << r.size << " / " << r.alignment;
      continue;
    }
    if (p == nullptr) {  // the heap is exhausted: reported with a null block
      EXPECT_EQ(raw, nullptr);
      continue;
    }
    const auto at = reinterpret_cast<uintptr_t>(p), block = reinterpret_cast<uintptr_t>(raw);
    EXPECT_EQ(at % r.alignment, 0u) << r.alignment;
    EXPECT_LT(at - block, r.alignment);                // unsigned: at >= block too
    if (r.size < 65536) std::memset(p, 0xAB, r.size);  // the sanitizer checks they fit
    std::free(raw);
  }
  EXPECT_EQ(UTIL_MemAllocNByteAligned(100, 16, nullptr), nullptr);
}

}  // namespace

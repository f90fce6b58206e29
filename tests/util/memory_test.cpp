// Memory utilities: the move against the C library's memmove for every
// overlap, direction, length and alignment; fills; aligned allocation and
// the requests it refuses without touching *raw.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <random>
#include <vector>

#include "skelda/util_memory.h"

namespace {

using Move = void *(*)(void *, const void *, uint32_t);

TEST(UtilMemmove, EqualsMemmoveForEveryOverlapLengthAndAlignment) {
  std::mt19937 rng(1);
  std::vector<uint8_t> pattern(512);
  for (auto &b : pattern) b = static_cast<uint8_t>(rng());
  for (Move move : {UTIL_Memmove, UTIL_MemmoveExternal}) {
    for (int base = 0; base < 4; ++base) {
      for (int offset = -19; offset <= 19; ++offset) {
        for (uint32_t n = 0; n <= 200; n += (n < 48 ? 1 : 13)) {
          alignas(16) uint8_t ours[512], theirs[512];
          std::memcpy(ours, pattern.data(), sizeof ours);
          std::memcpy(theirs, pattern.data(), sizeof theirs);
          const int src = 100 + base, dst = src + offset;
          ASSERT_EQ(move(ours + dst, ours + src, n), ours + dst);
          std::memmove(theirs + dst, theirs + src, n);
          ASSERT_EQ(std::memcmp(ours, theirs, sizeof ours), 0)
              << "src " << src << " dst " << dst << " n " << n;
        }
      }
    }
  }
}

TEST(UtilMemmove, DistantRegionsAndZeroLength) {
  std::vector<uint8_t> a(1000), b(1000, 7);
  for (size_t i = 0; i < a.size(); ++i) a[i] = static_cast<uint8_t>(i * 31);
  for (int shift : {0, 1, 2, 3}) {
    std::fill(b.begin(), b.end(), 7);
    UTIL_Memmove(b.data() + shift, a.data() + 3, 900);
    EXPECT_EQ(std::memcmp(b.data() + shift, a.data() + 3, 900), 0);
    EXPECT_EQ(b[shift + 900], 7);
  }
  uint8_t one = 42, other = 9;
  EXPECT_EQ(UTIL_Memmove(&one, &other, 0), &one);
  EXPECT_EQ(one, 42);
}

TEST(UtilMemory, CopiesAndFill) {
  uint8_t src[37], dst[40];
  for (int i = 0; i < 37; ++i) src[i] = static_cast<uint8_t>(i + 1);
  for (Move copy : {UTIL_Memcpy, UTIL_MemcpyIntFromExt, UTIL_MemcpyExtFromInt}) {
    std::memset(dst, 0xEE, sizeof dst);
    EXPECT_EQ(copy(dst + 1, src, 37), dst + 1);
    EXPECT_EQ(std::memcmp(dst + 1, src, 37), 0);
    EXPECT_EQ(dst[0], 0xEE);
    EXPECT_EQ(dst[38], 0xEE);
  }
  std::memset(dst, 0, sizeof dst);
  EXPECT_EQ(UTIL_Memset(dst + 2, 0x1234, 3), dst + 2);
  EXPECT_EQ((std::vector<uint8_t>(dst, dst + 6)), (std::vector<uint8_t>{0, 0, 0x34, 0x34, 0x34, 0}));
  EXPECT_EQ(UTIL_Memset(dst, 0x55, 0), dst);
  EXPECT_EQ(dst[0], 0);
}

TEST(UtilMemAlloc, AlignsInsideTheBlock) {
  for (uint32_t alignment : {2u, 4u, 16u, 64u, 4096u}) {
    for (uint32_t size : {1u, 100u, 4097u}) {
      void *raw = nullptr;
      void *p = UTIL_MemAllocNByteAligned(size, alignment, &raw);
      ASSERT_NE(p, nullptr);
      ASSERT_NE(raw, nullptr);
      const auto at = reinterpret_cast<uintptr_t>(p), block = reinterpret_cast<uintptr_t>(raw);
      EXPECT_EQ(at % alignment, 0u);
      EXPECT_GE(at, block);
      EXPECT_LT(at - block, alignment);
      std::memset(p, 0xAB, size);  // the whole size fits: ASan would object otherwise
      std::free(raw);
    }
  }
}

TEST(UtilMemAlloc, RefusedRequestsLeaveRawUntouched) {
  struct Case {
    uint32_t size, alignment;
  };
  const Case cases[] = {{100, 1},  {0, 16},          {100, 0},          {100, 3},
                        {100, 12}, {0xFFFFFFF0u, 32}, {0xFFFFFFFFu, 2}, {100, 0x80000001u}};
  int marker = 0;
  for (const auto &c : cases) {
    void *raw = &marker;
    EXPECT_EQ(UTIL_MemAllocNByteAligned(c.size, c.alignment, &raw), nullptr)
        << c.size << " / " << c.alignment;
    EXPECT_EQ(raw, &marker);
  }
  EXPECT_EQ(UTIL_MemAllocNByteAligned(100, 16, nullptr), nullptr);
}

}  // namespace

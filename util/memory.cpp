// SPDX-License-Identifier: MIT
// Memory utilities. The move is the library's own: it picks its direction
// from the addresses, aligns the destination, then copies in the widest
// units both cursors allow, so it never issues an unaligned access and is
// correct for any overlap.
#include <cstdlib>
#include <cstring>

#include "skelda/util_memory.h"

namespace {

// Aligned word and half-word accesses through memcpy, so any object type
// may be copied without breaking aliasing rules; each compiles to one load
// or store.
template <typename T>
inline T load(const uint8_t *p) {
  T v;
  std::memcpy(&v, __builtin_assume_aligned(p, sizeof(T)), sizeof(T));
  return v;
}
template <typename T>
inline void store(uint8_t *p, T v) {
  std::memcpy(__builtin_assume_aligned(p, sizeof(T)), &v, sizeof(T));
}

// Forward copy: bytes until dst is word aligned, then 16-byte groups of
// words (source aligned too), 8-byte groups of half-words (source even),
// then 4-byte groups of bytes and the last 0..3 bytes.
void move_forward(uint8_t *d, const uint8_t *s, size_t n) {
  size_t head = (0u - reinterpret_cast<uintptr_t>(d)) & 3u;
  if (head > n) head = n;
  for (; head > 0; --head, --n) *d++ = *s++;
  if ((reinterpret_cast<uintptr_t>(s) & 3u) == 0) {
    for (; n >= 16; n -= 16, d += 16, s += 16) {
      const uint32_t a = load<uint32_t>(s), b = load<uint32_t>(s + 4), c = load<uint32_t>(s + 8),
                     e = load<uint32_t>(s + 12);
      store(d, a), store(d + 4, b), store(d + 8, c), store(d + 12, e);
    }
  }
  if ((reinterpret_cast<uintptr_t>(s) & 1u) == 0) {
    for (; n >= 8; n -= 8, d += 8, s += 8) {
      const uint16_t a = load<uint16_t>(s), b = load<uint16_t>(s + 2), c = load<uint16_t>(s + 4),
                     e = load<uint16_t>(s + 6);
      store(d, a), store(d + 2, b), store(d + 4, c), store(d + 6, e);
    }
  }
  for (; n >= 4; n -= 4, d += 4, s += 4) {
    const uint8_t a = s[0], b = s[1], c = s[2], e = s[3];
    d[0] = a, d[1] = b, d[2] = c, d[3] = e;
  }
  while (n-- > 0) *d++ = *s++;
}

// Backward copy from the ends, each group read from its high end down
// before it is written.
void move_backward(uint8_t *d_end, const uint8_t *s_end, size_t n) {
  uint8_t *d = d_end;
  const uint8_t *s = s_end;
  size_t head = reinterpret_cast<uintptr_t>(d) & 3u;
  if (head > n) head = n;
  for (; head > 0; --head, --n) *--d = *--s;
  if ((reinterpret_cast<uintptr_t>(s) & 3u) == 0) {
    for (; n >= 16; n -= 16) {
      d -= 16, s -= 16;
      const uint32_t e = load<uint32_t>(s + 12), c = load<uint32_t>(s + 8), b = load<uint32_t>(s + 4),
                     a = load<uint32_t>(s);
      store(d + 12, e), store(d + 8, c), store(d + 4, b), store(d, a);
    }
  }
  if ((reinterpret_cast<uintptr_t>(s) & 1u) == 0) {
    for (; n >= 8; n -= 8) {
      d -= 8, s -= 8;
      const uint16_t e = load<uint16_t>(s + 6), c = load<uint16_t>(s + 4), b = load<uint16_t>(s + 2),
                     a = load<uint16_t>(s);
      store(d + 6, e), store(d + 4, c), store(d + 2, b), store(d, a);
    }
  }
  for (; n >= 4; n -= 4) {
    d -= 4, s -= 4;
    const uint8_t e = s[3], c = s[2], b = s[1], a = s[0];
    d[3] = e, d[2] = c, d[1] = b, d[0] = a;
  }
  while (n-- > 0) *--d = *--s;
}

}  // namespace

extern "C" {

SKELDA_API void *UTILMemcpy(void *dst, const void *src, uint32_t n) {
  if (n != 0) std::memcpy(dst, src, n);
  return dst;
}
SKELDA_API void *UTIL_Memcpy(void *dst, const void *src, uint32_t n) {
  return UTILMemcpy(dst, src, n);
}
SKELDA_API void *UTILMemcpyIntFromExt(void *dst, const void *src, uint32_t n) {
  return UTILMemcpy(dst, src, n);
}
SKELDA_API void *UTIL_MemcpyIntFromExt(void *dst, const void *src, uint32_t n) {
  return UTILMemcpyIntFromExt(dst, src, n);
}
SKELDA_API void *UTILMemcpyExtFromInt(void *dst, const void *src, uint32_t n) {
  return UTILMemcpy(dst, src, n);
}
SKELDA_API void *UTIL_MemcpyExtFromInt(void *dst, const void *src, uint32_t n) {
  return UTILMemcpyExtFromInt(dst, src, n);
}

// dst above src (unsigned comparison) copies backwards from the ends;
// otherwise, dst equal to src included, forwards.
SKELDA_API void *UTILMemmove(void *dst, const void *src, uint32_t n) {
  auto *d = static_cast<uint8_t *>(dst);
  const auto *s = static_cast<const uint8_t *>(src);
  if (n == 0) return dst;
  if (reinterpret_cast<uintptr_t>(d) > reinterpret_cast<uintptr_t>(s))
    move_backward(d + n, s + n, n);
  else
    move_forward(d, s, n);
  return dst;
}
SKELDA_API void *UTIL_Memmove(void *dst, const void *src, uint32_t n) {
  return UTILMemmove(dst, src, n);
}
SKELDA_API void *UTILMemmoveExternal(void *dst, const void *src, uint32_t n) {
  return UTILMemmove(dst, src, n);
}
SKELDA_API void *UTIL_MemmoveExternal(void *dst, const void *src, uint32_t n) {
  return UTILMemmoveExternal(dst, src, n);
}

SKELDA_API void *UTILMemset(void *dst, int value, uint32_t n) {
  if (n != 0) std::memset(dst, value & 0xFF, n);
  return dst;
}
SKELDA_API void *UTIL_Memset(void *dst, int value, uint32_t n) { return UTILMemset(dst, value, n); }

// The body rounds the block's address up with the mask -alignment at pointer
// width; for the powers of two the entry point lets through that is the
// first multiple of alignment in the block, and size bytes from it fit.
SKELDA_API void *UTILMemAllocNByteAligned(uint32_t size, uint32_t alignment, void **raw) {
  void *block = std::malloc(static_cast<uint32_t>(size + alignment));
  *raw = block;
  if (block == nullptr) return nullptr;
  const uintptr_t mask = ~static_cast<uintptr_t>(alignment) + 1;
  return reinterpret_cast<void *>((reinterpret_cast<uintptr_t>(block) + alignment - 1) & mask);
}

// Refused (null, *raw untouched): size 0, alignment 0, odd or not a power of
// two (the mask would not align), a null raw, and a size + alignment that
// would wrap 32 bits into a block too small for size bytes.
SKELDA_API void *UTIL_MemAllocNByteAligned(uint32_t size, uint32_t alignment, void **raw) {
  if (size == 0 || alignment == 0 || raw == nullptr || (alignment & 1u) != 0) return nullptr;
  if ((alignment & (alignment - 1)) != 0) return nullptr;
  if (uint64_t{size} + alignment > 0xFFFFFFFFu) return nullptr;
  return UTILMemAllocNByteAligned(size, alignment, raw);
}

}  // extern "C"

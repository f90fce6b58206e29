// SPDX-License-Identifier: MIT
// Unsigned 128-bit integers for the resampler's exact frame counts: the
// compiler's where it has them (64-bit targets), else a pair of 64-bit
// halves with the same operations (32-bit ARM). Only the frame-count and
// set-ratio arithmetic uses them, never the per-sample path.
#ifndef SKELDA_RSMPL_HQ_WIDE_H
#define SKELDA_RSMPL_HQ_WIDE_H

#include <cstdint>

namespace rsmpl {

// The portable form, compiled everywhere so that the tests can hold it to
// the compiler's.
struct U128Soft {
  uint64_t hi = 0, lo = 0;
  U128Soft() = default;
  U128Soft(uint64_t v) : lo(v) {}  // NOLINT: converts like an integer
  static U128Soft make(uint64_t h, uint64_t l) {
    U128Soft r;
    r.hi = h;
    r.lo = l;
    return r;
  }
  friend U128Soft operator+(U128Soft a, U128Soft b) {
    const uint64_t lo = a.lo + b.lo;
    return make(a.hi + b.hi + (lo < a.lo), lo);
  }
  friend U128Soft operator-(U128Soft a, U128Soft b) {
    return make(a.hi - b.hi - (a.lo < b.lo), a.lo - b.lo);
  }
  friend U128Soft operator<<(U128Soft a, unsigned s) {
    if (s == 0) return a;
    if (s >= 64) return make(a.lo << (s - 64), 0);
    return make((a.hi << s) | (a.lo >> (64 - s)), a.lo << s);
  }
  friend U128Soft operator>>(U128Soft a, unsigned s) {
    if (s == 0) return a;
    if (s >= 64) return make(0, a.hi >> (s - 64));
    return make(a.hi >> s, (a.lo >> s) | (a.hi << (64 - s)));
  }
  friend bool operator<(U128Soft a, U128Soft b) { return a.hi != b.hi ? a.hi < b.hi : a.lo < b.lo; }
  friend bool operator==(U128Soft a, U128Soft b) { return a.hi == b.hi && a.lo == b.lo; }
  // The low 128 bits of a product.
  friend U128Soft operator*(U128Soft a, U128Soft b) {
    const uint64_t a0 = a.lo & 0xffffffffu, a1 = a.lo >> 32, b0 = b.lo & 0xffffffffu, b1 = b.lo >> 32;
    const uint64_t p00 = a0 * b0, p01 = a0 * b1, p10 = a1 * b0, p11 = a1 * b1;
    const uint64_t mid = (p00 >> 32) + (p01 & 0xffffffffu) + (p10 & 0xffffffffu);
    const uint64_t lo = (mid << 32) | (p00 & 0xffffffffu);
    const uint64_t hi = p11 + (p01 >> 32) + (p10 >> 32) + (mid >> 32) + a.hi * b.lo + a.lo * b.hi;
    return make(hi, lo);
  }
  // Significant bits.
  int bits() const {
    if (hi != 0) return 128 - __builtin_clzll(hi);
    return lo != 0 ? 64 - __builtin_clzll(lo) : 0;
  }
  // Quotient by shift and subtract; b is not zero.
  friend U128Soft operator/(U128Soft a, U128Soft b) {
    U128Soft q;
    if (a < b) return q;
    for (int shift = a.bits() - b.bits(); shift >= 0; --shift) {
      const U128Soft d = b << static_cast<unsigned>(shift);
      if (!(a < d)) {
        a = a - d;
        q = q + (U128Soft{1} << static_cast<unsigned>(shift));
      }
    }
    return q;
  }
  uint64_t low() const { return lo; }
  bool fits64() const { return hi == 0; }
};

#if defined(__SIZEOF_INT128__)
struct U128Native {
  unsigned __int128 v = 0;
  U128Native() = default;
  U128Native(uint64_t x) : v(x) {}  // NOLINT: converts like an integer
  static U128Native make(uint64_t h, uint64_t l) {
    U128Native r;
    r.v = (static_cast<unsigned __int128>(h) << 64) | l;
    return r;
  }
  friend U128Native operator+(U128Native a, U128Native b) { return from(a.v + b.v); }
  friend U128Native operator-(U128Native a, U128Native b) { return from(a.v - b.v); }
  friend U128Native operator<<(U128Native a, unsigned s) { return from(a.v << s); }
  friend U128Native operator>>(U128Native a, unsigned s) { return from(a.v >> s); }
  friend bool operator<(U128Native a, U128Native b) { return a.v < b.v; }
  friend bool operator==(U128Native a, U128Native b) { return a.v == b.v; }
  friend U128Native operator*(U128Native a, U128Native b) { return from(a.v * b.v); }
  friend U128Native operator/(U128Native a, U128Native b) { return from(a.v / b.v); }
  uint64_t low() const { return static_cast<uint64_t>(v); }
  bool fits64() const { return (v >> 64) == 0; }

 private:
  static U128Native from(unsigned __int128 x) {
    U128Native r;
    r.v = x;
    return r;
  }
};
using U128 = U128Native;
#else
using U128 = U128Soft;
#endif

// ceil(a / b) for b not zero.
template <class W>
W ceil_div(W a, W b) {
  const W q = a / b;
  return q * b == a ? q : q + W{1};
}

}  // namespace rsmpl

#endif

// SPDX-License-Identifier: MIT
// Every UTIL_ entry point (and the fixed-point helpers) on arbitrary
// arguments. Buffers are heap blocks of exactly the size a call may touch,
// so AddressSanitizer sees any access beyond them; refused calls must leave
// their buffers as they were.
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "skelda/fixed_point.h"
#include "skelda/util.h"
#include "tests/fuzz/fuzz_input.h"

namespace {

template <typename T>
std::unique_ptr<T[]> block(FuzzInput &in, size_t n) {
  std::unique_ptr<T[]> p(new T[n ? n : 1]);
  for (size_t i = 0; i < n; ++i) p[i] = in.take<T>();
  return p;
}

void fuzz_memory(FuzzInput &in) {
  const uint32_t size = in.below(300) + 1;
  auto buffer = block<uint8_t>(in, size);
  const uint32_t a = in.below(size), b = in.below(size);
  const uint32_t n = in.below(size - (a > b ? a : b) + 1);
  std::vector<uint8_t> expect(buffer.get(), buffer.get() + size);
  std::memmove(expect.data() + a, expect.data() + b, n);
  UTIL_Memmove(buffer.get() + a, buffer.get() + b, n);
  if (std::memcmp(expect.data(), buffer.get(), size) != 0) __builtin_trap();
  UTIL_Memset(buffer.get() + a, in.take<int>(), n);
  void *raw = &raw;
  // Below 2^20: larger alignments only make the allocation huge.
  const uint32_t want = in.below(1 << 16), alignment = in.take<uint32_t>() & 0xFFFFF;
  void *p = UTIL_MemAllocNByteAligned(want, alignment, &raw);
  if (p != nullptr) {
    std::memset(p, 0, want);
    std::free(raw);
  } else if (raw != &raw && raw != nullptr) {
    __builtin_trap();
  }
}

void fuzz_fir3(FuzzInput &in) {
  const int16_t n = static_cast<int16_t>(in.below(300)) - 20;
  const int16_t taps = static_cast<int16_t>(in.below(80)) - 8;
  const int16_t shift = static_cast<int16_t>(in.below(100)) - 10;
  const size_t ns = n > 0 ? n : 0, nt = taps > 0 ? taps : 0;
  auto samples = block<int16_t>(in, ns), history = block<int16_t>(in, nt);
  auto coefs = block<int16_t>(in, nt);
  std::unique_ptr<int16_t[]> scratch(new int16_t[ns + nt + 1]);
  std::vector<int16_t> before(samples.get(), samples.get() + ns);
  const int32_t status =
      UTIL_Fir3(samples.get(), n, history.get(), coefs.get(), taps, shift, scratch.get());
  if (status != 0 && ns > 0 && std::memcmp(before.data(), samples.get(), ns * 2) != 0)
    __builtin_trap();
}

void fuzz_spline(FuzzInput &in) {
  const int32_t n = static_cast<int32_t>(in.below(40)) - 2, ne = static_cast<int32_t>(in.below(60)) - 2;
  const size_t nn = n > 0 ? n : 0, nne = ne > 0 ? ne : 0;
  auto x = block<float>(in, nn), f = block<float>(in, nn), xe = block<float>(in, nne);
  if (in.take<uint8_t>() & 1)  // mostly well-formed nodes
    for (size_t i = 0; i < nn; ++i) x[i] = float(i) + float(in.below(100)) / 128.0f;
  auto fe = block<float>(in, nne);
  UTIL_SplineFit(n, x.get(), f.get(), ne, xe.get(), fe.get());
}

void fuzz_scalars(FuzzInput &in) {
  UTIL_Smooth(in.take<uint16_t>(), in.take<int16_t>(), in.take<uint16_t>());
  UTIL_SmoothAsym(in.take<uint16_t>(), in.take<uint16_t>(), in.take<uint16_t>(), in.take<uint16_t>());
  UTIL_Smooth32(in.take<int32_t>(), in.take<uint16_t>(), in.take<int32_t>());
  UTIL_SmoothAsym32(in.take<int32_t>(), in.take<uint16_t>(), in.take<uint16_t>(), in.take<int32_t>());
  UTIL_dBToScale(in.take<int32_t>());
  UTIL_dBToScaleExp32(in.take<int32_t>());
  const int32_t v = in.take<int32_t>();
  _EXPONENT32(&v);
  EXP32 e;
  e.exponent = in.take<int16_t>();
  e.mantissa = in.take<int32_t>();
  _EXP32TOINT32(e);
  _EXP32TOEXP16(e);
  int64_t m = 0;
  int16_t x = 0;
  _MANTNEXP(in.take<int64_t>() >> 24, &m, &x);
  _MANTEXPO32(in.take<int64_t>());
  _LOG10(in.take<int16_t>());
}

void fuzz_reorder(FuzzInput &in) {
  const int16_t len = static_cast<int16_t>(in.below(80)) - 8;
  const size_t n = len > 0 ? len : 0;
  auto src = block<uint8_t>(in, n);
  const int16_t mode = in.take<int16_t>();
  if (in.take<uint8_t>() & 1) {
    UTIL_ReorderBitstream(src.get(), len, mode, src.get());
  } else {
    auto dst = block<uint8_t>(in, n);
    UTIL_ReorderBitstream(src.get(), len, mode, dst.get());
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  FuzzInput in(data, size);
  while (!in.empty()) {
    switch (in.below(5)) {
      case 0: fuzz_memory(in); break;
      case 1: fuzz_fir3(in); break;
      case 2: fuzz_spline(in); break;
      case 3: fuzz_scalars(in); break;
      default: fuzz_reorder(in); break;
    }
  }
  return 0;
}

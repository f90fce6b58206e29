// SPDX-License-Identifier: MIT
// Reads typed values off a fuzzer's byte string; past the end it yields 0.
#ifndef SKELDA_TESTS_FUZZ_INPUT_H
#define SKELDA_TESTS_FUZZ_INPUT_H

#include <cstddef>
#include <cstdint>
#include <cstring>

class FuzzInput {
 public:
  FuzzInput(const uint8_t *data, size_t size) : data_(data), size_(size) {}
  template <typename T>
  T take() {
    T value{};
    const size_t n = size_ - at_ < sizeof(T) ? size_ - at_ : sizeof(T);
    std::memcpy(&value, data_ + at_, n);
    at_ += n;
    return value;
  }
  // A value in [0, bound), bound > 0.
  uint32_t below(uint32_t bound) { return take<uint32_t>() % bound; }
  // Mostly one of `table`'s values: a pick from 0 to odds - 1 takes the
  // entry it names, a pick past the table any 32-bit value.
  template <size_t N>
  uint32_t one_of(const unsigned (&table)[N], uint32_t odds) {
    const uint32_t pick = below(odds);
    return pick < N ? table[pick] : take<uint32_t>();
  }
  bool empty() const { return at_ >= size_; }

 private:
  const uint8_t *data_;
  size_t size_;
  size_t at_ = 0;
};

#endif

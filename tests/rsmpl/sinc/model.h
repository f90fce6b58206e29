// SPDX-License-Identifier: MIT
// The sinc interpolator as documented, written plainly: the state fields
// with their reset values, the ratio and delay formulas, the input
// accounting, and one block's interpolation over the kept history and the
// block held in an ordinary vector (a tap outside them, or past the tables,
// reads zero). The tests hold the library to it bit for bit.
#ifndef SKELDA_TESTS_SINC_MODEL_H
#define SKELDA_TESTS_SINC_MODEL_H

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

#include "rsmpl/context.h"
#include "skelda/fixed_point.h"
#include "skelda/rsmpl_sinc.h"

namespace sinc_test {

struct Model {
  uint32_t halfLength = 13, historyHalfLength = 13;
  uint32_t nextGain = 1u << 24, gain = 1u << 24, nextStep = 1u << 24, step = 1u << 24;
  uint32_t nextPhaseStep = 128u << 16, phaseStep = 128u << 16;
  int32_t position = 0;
  float ratio = 1.0f;
  std::vector<int16_t> history = std::vector<int16_t>(27, 0);  // oldest first

  int32_t growth() const { return static_cast<int32_t>(halfLength - historyHalfLength); }

  // Returns minInSamples, maxInSamples, extraOutSamples.
  std::array<uint32_t, 3> set_ratio(float r) {
    ratio = r;
    nextStep = ToUFix(24, 1.0f / r);
    nextPhaseStep = ToUFix(16, std::min(r * 128.0f, 128.0f));
    nextGain = ToUFix(24, std::min(r, 1.0f));
    halfLength = r < 1.0f ? static_cast<uint32_t>(1.0f / r * 13.0f) : 13;
    return {static_cast<uint32_t>(std::max(growth(), 0)) + 1, 1440, extra()};
  }

  // The room past ceil(n * ratio) a call needs: more while the filter shrinks.
  uint32_t extra() const {
    return growth() >= 0 ? 1 : static_cast<uint32_t>(std::fma(float(-growth()), ratio, 0.5f)) + 1;
  }

  void set_delay(float d) {
    *this = Model();
    position = static_cast<int32_t>(ToUFix(16, d));
  }

  // Output k of a call sits k * step / 256 (rounded half up) past its start.
  int32_t pos(uint32_t k) const {
    const uint64_t advance = (uint64_t{k & 0xFFFFu} * step + 128) >> 8;
    return static_cast<int32_t>(static_cast<uint32_t>(position) + static_cast<uint32_t>(advance));
  }

  uint32_t inputs_for(uint16_t m) const { return static_cast<uint32_t>(growth() + (pos(m) >> 16)); }

  std::vector<int16_t> run(const int16_t *in, int n) {
    const int N = static_cast<int>(historyHalfLength), M = static_cast<int>(halfLength);
    std::vector<int16_t> area = history;
    area.insert(area.end(), in, in + n);
    const int shift = RsmplSincShift[step >> 24];
    auto x = [&](int64_t i) { return i < 0 || i >= int64_t(area.size()) ? 0 : area[i] >> shift; };
    auto h = [](uint32_t q) -> int64_t {
      const uint32_t i = q >> 16, u = q & 0xFFFFu;
      if (i >= 1792) return 0;
      return RsmplSincCoeff[i] + ((int64_t{RsmplSincSlope[i]} * (u + (u >> 15))) >> 16);
    };
    std::vector<int16_t> out;
    const int32_t limit = n - (M - N);
    int32_t p = position;
    for (uint32_t k = 0; static_cast<uint32_t>(p >> 16) < static_cast<uint32_t>(limit); p = pos(++k)) {
      const int64_t c = (p >> 16) + N;
      const uint32_t f = p & 0xFFFFu;
      const uint32_t phase = static_cast<uint32_t>((uint64_t{f + (f >> 15)} * phaseStep) >> 16);
      int64_t acc = 0;
      for (int j = 0; j <= N; ++j) acc += (h(phase + j * phaseStep) * x(c - j)) >> 16;
      for (int j = 1; j <= N; ++j) acc += (h(phaseStep - phase + (j - 1) * phaseStep) * x(c + j)) >> 16;
      const int64_t y = (((int64_t{gain} * (acc >> 16)) >> 15) + 128) >> 8;
      out.push_back(static_cast<int16_t>(std::clamp<int64_t>(y * (1 << shift), -32768, 32767)));
    }
    position = p - limit * 65536;
    // The newest 2M + 1 samples stay, silence in front when there are fewer.
    history.assign(2 * M + 1, 0);
    for (int i = 0; i < 2 * M + 1 && i < int(area.size()); ++i)
      history[2 * M - i] = area[area.size() - 1 - i];
    historyHalfLength = halfLength;
    gain = nextGain;
    phaseStep = nextPhaseStep;
    step = nextStep;
    return out;
  }
};

// The state fields (the ratio by its bits) followed by the kept history.
template <class State>
std::vector<int64_t> snapshot(const State &s, const int16_t *history) {
  uint32_t ratio;
  std::memcpy(&ratio, &s.ratio, sizeof ratio);
  std::vector<int64_t> v = {s.halfLength, s.historyHalfLength, s.nextGain,      s.gain,     s.nextStep,
                            s.step,       s.nextPhaseStep,     s.phaseStep,     s.position, ratio};
  v.insert(v.end(), history, history + std::min<uint32_t>(2 * s.historyHalfLength + 1, 1648));
  return v;
}
inline std::vector<int64_t> snapshot(const Model &m) { return snapshot(m, m.history.data()); }
inline std::vector<int64_t> snapshot(const RSMPL_Context &c) { return snapshot(c.sinc, c.samples); }

}  // namespace sinc_test

#endif

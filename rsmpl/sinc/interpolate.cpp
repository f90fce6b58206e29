// SPDX-License-Identifier: MIT
// The sinc interpolation kernel: one block of one channel at the ratio in
// force, with the kept history in front of it in the context's sample area.
#include <cstdint>
#include <cstring>

#include "rsmpl/context.h"
#include "rsmpl/sinc/position.h"

namespace {

constexpr uint32_t kTableEntries = 1792;
// First Q16 table position past the tables; a tap there contributes zero.
constexpr uint32_t kTableEnd = kTableEntries << 16;
constexpr int32_t kLastAreaIndex = rsmpl::kSampleAreaSize - 1;

// Prototype value at Q16 table position q (q < kTableEnd), interpolated
// between two stored entries. The fraction is widened so that 0xFFFF
// counts as a whole step. Q31.
inline int64_t CoefficientAt(uint32_t q) {
  const uint32_t index = q >> 16;
  const uint32_t fraction = q & 0xFFFFu;
  const int64_t widened = fraction + (fraction >> 15);
  return RsmplSincCoeff[index] + ((int64_t{RsmplSincSlope[index]} * widened) >> 16);
}

// Sample i of history plus block: when they overflow the area by one
// sample, that sample (the block's newest) is held aside.
inline int16_t SampleAt(const int16_t *area, int32_t i, int16_t newest) {
  return i < rsmpl::kSampleAreaSize ? area[i] : newest;
}

// One output at Q16 position p. History and block occupy indices
// 0..lastReadable; a tap outside that range, or past the tables, counts as
// zero. In steady operation every tap is inside and no tap is dropped: the
// bounds only bite in the call that commits a shrinking filter (whose last
// outputs lie past the block) and guard against misuse.
//
// The sum is kept in 64 bits: an adversarial full-scale input can push it
// past the Q30 range that 32 bits would hold (the absolute coefficient sum
// reaches about 3.4 just above ratio 1/2), and the result must then
// saturate rather than wrap.
inline int16_t OutputAt(const int16_t *area, int32_t lastReadable, int16_t newest,
                        int32_t halfLength, int32_t p, uint32_t phaseStep, int shift,
                        int64_t gain) {
  const int32_t centre = (p >> 16) + halfLength;
  const uint32_t fraction = static_cast<uint32_t>(p) & 0xFFFFu;
  const uint32_t widened = fraction + (fraction >> 15);
  const uint32_t firstPhase = static_cast<uint32_t>((uint64_t{widened} * phaseStep) >> 16);

  int64_t acc = 0;

  // Left taps: area[centre - j] at table position firstPhase + j * phaseStep.
  int32_t leftFirst = centre > lastReadable ? centre - lastReadable : 0;
  int32_t leftLast = centre < halfLength ? centre : halfLength;
  while (leftLast >= leftFirst &&
         firstPhase + static_cast<uint32_t>(leftLast) * phaseStep >= kTableEnd) {
    --leftLast;
  }
  for (int32_t j = leftFirst; j <= leftLast; ++j) {
    const int64_t h = CoefficientAt(firstPhase + static_cast<uint32_t>(j) * phaseStep);
    acc += (h * (SampleAt(area, centre - j, newest) >> shift)) >> 16;
  }

  // Right taps: area[centre + j] at (phaseStep - firstPhase) + (j - 1) * phaseStep.
  const uint32_t rightPhase = phaseStep - firstPhase;
  int32_t rightFirst = centre < 0 ? 1 - centre : 1;
  int32_t rightLast = lastReadable - centre < halfLength ? lastReadable - centre : halfLength;
  while (rightLast >= rightFirst &&
         rightPhase + static_cast<uint32_t>(rightLast - 1) * phaseStep >= kTableEnd) {
    --rightLast;
  }
  for (int32_t j = rightFirst; j <= rightLast; ++j) {
    const int64_t h = CoefficientAt(rightPhase + static_cast<uint32_t>(j - 1) * phaseStep);
    acc += (h * (SampleAt(area, centre + j, newest) >> shift)) >> 16;
  }

  const int64_t q14 = acc >> 16;
  const int64_t q15 = (((gain * q14) >> 15) + 128) >> 8;
  const int64_t z = q15 * (int64_t{1} << shift);  // undo the pre-shift
  if (z > 32767) return 32767;
  if (z < -32768) return -32768;
  return static_cast<int16_t>(z);
}

// Keep the last 2 * halfLength + 1 samples of history plus block at the
// start of the area. When the filter grows by more than half the block,
// fewer samples than that exist; the missing oldest ones become silence.
// `newest` is the block's last sample, which is not in the area when
// history plus block overflow it by one.
void KeepHistory(int16_t *area, int32_t blockEnd, int32_t lastStored, int16_t newest,
                 int32_t halfLength) {
  int32_t first = blockEnd - 2 * halfLength;
  int32_t silent = 0;
  if (first < 0) {
    silent = -first;
    first = 0;
  }
  const int32_t fromArea = lastStored - first + 1;
  std::memmove(area + silent, area + first, static_cast<size_t>(fromArea) * sizeof *area);
  std::memset(area, 0, static_cast<size_t>(silent) * sizeof *area);
  if (lastStored < blockEnd) area[silent + fromArea] = newest;
}

}  // namespace

extern "C" {

// Converts one block at the ratio in force, then commits any pending ratio.
// Preconditions (checked by RSMPL_Resample): 1 <= n <= 1440 and n greater
// than the pending growth of the filter.
//
// Decisions on the edge cases:
// - Every output is tested against the block before it is produced, the
//   first one too. A block too short for its first output yields nothing
//   and carries the position, rebased, to the next block; the position so
//   never runs ahead of the input and no tap reads past the block.
// - History (2 * historyHalfLength + 1) plus a 1440-sample block at the
//   longest half-length (104) is one sample more than the area holds. The
//   newest sample is then kept aside, read from there by the taps that
//   reach it (in steady operation none do: only the last outputs of a call
//   that commits a shrinking filter), and put back as the last history
//   sample.
// - When a pending ratio grows the filter by more than half the block, the
//   kept history is padded with silence at its oldest end.
// - When a pending ratio shrinks the filter, the call's last outputs lie
//   beyond the block (it yields outputs for n - growth input samples); their
//   taps past the newest sample count as zero.
// - In and out may be the same buffer: the whole block is read before the
//   first output is written.
// Outputs: every output whose position lies before n - growth, at most
// ceil((n - growth) * r) + 1 at the ratio r in force. A block sized by
// RSMPLGetNumInSamples(m) yields at most m.
SKELDA_API uint32_t RSMPLSincInterpolate(RSMPL_Context *ctx, const int16_t *in, int16_t *out,
                                         int32_t n) {
  rsmpl::SincState &s = ctx->sinc;
  int16_t *area = ctx->samples;
  const int32_t halfLength = static_cast<int32_t>(s.historyHalfLength);
  const int32_t nextHalfLength = static_cast<int32_t>(s.halfLength);
  const uint32_t step = s.step;
  const uint32_t phaseStep = s.phaseStep;
  const int64_t gain = s.gain;
  const int32_t start = s.position;
  // Fewer input bits when many inputs fall on one output keeps the sum of
  // ordinary signals in range.
  const int shift = RsmplSincShift[(step >> 24) & 0xFFu];

  const int32_t blockEnd = 2 * halfLength + n;
  const int32_t lastStored = blockEnd < kLastAreaIndex ? blockEnd : kLastAreaIndex;
  const int16_t newest = in[n - 1];
  std::memcpy(area + 2 * halfLength + 1, in,
              static_cast<size_t>(lastStored - 2 * halfLength) * sizeof *area);

  const int32_t limit = n - (nextHalfLength - halfLength);
  uint32_t k = 0;
  int32_t p = start;
  if (limit > 0) {
    while (static_cast<uint32_t>(p >> 16) < static_cast<uint32_t>(limit)) {
      out[k] = OutputAt(area, blockEnd, newest, halfLength, p, phaseStep, shift, gain);
      ++k;
      p = rsmpl::SincOutputPosition(start, step, k);
    }
  }
  s.position = p - limit * 65536;

  KeepHistory(area, blockEnd, lastStored, newest, nextHalfLength);
  s.historyHalfLength = s.halfLength;
  s.gain = s.nextGain;
  s.phaseStep = s.nextPhaseStep;
  s.step = s.nextStep;
  return k;
}

SKELDA_API uint32_t RSMPL_Resample(RSMPL_Context *ctx, const int16_t *in, int16_t *out,
                                   int32_t n, uint32_t *numOutSamples) {
  if (ctx == nullptr) return RSMPL_ERR_NULL_CONTEXT;
  if (out == nullptr || numOutSamples == nullptr || in == nullptr) return RSMPL_ERR_NULL_POINTER;
  if (n < 1 || n > rsmpl::kMaxBlock) return RSMPL_ERR_BAD_LENGTH;
  const int32_t growth = static_cast<int32_t>(ctx->sinc.halfLength - ctx->sinc.historyHalfLength);
  if (growth >= n) return RSMPL_ERR_BAD_LENGTH;
  *numOutSamples = RSMPLSincInterpolate(ctx, in, out, n);
  return RSMPL_OK;
}

}  // extern "C"

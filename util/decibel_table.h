// SPDX-License-Identifier: MIT
// The decibel table: factors for whole decibels from +90 (entry 0) down to
// -90 (entry 180), mantissas in Q30.
#ifndef SKELDA_UTIL_DECIBEL_TABLE_H
#define SKELDA_UTIL_DECIBEL_TABLE_H

#include "skelda/fixed_point.h"

namespace util {

constexpr int kDecibelEntries = 181;
extern const EXP32 kDecibelTable[kDecibelEntries];

}  // namespace util

#endif

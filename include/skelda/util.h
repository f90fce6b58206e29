/* SPDX-License-Identifier: MIT */
/* DSP utility library. Every utility is a UTIL_ entry point over a UTIL body
 * of the same name; both are exported. */
#ifndef SKELDA_UTIL_H
#define SKELDA_UTIL_H

/* Copy, overlap-safe move, fill and aligned allocation. */
#include "skelda/util_memory.h"
/* Smoothing, block FIR, decibel conversion, bit reordering, splines. */
#include "skelda/util_dsp.h"

#endif

/* SPDX-License-Identifier: MIT */
/* Copy, overlap-safe move, fill and aligned allocation. Each utility is an
 * entry point (UTIL_X) over a body (UTILX); both are exported. Byte counts
 * are unsigned 32-bit; pointers are not checked. */
#ifndef SKELDA_UTIL_MEMORY_H
#define SKELDA_UTIL_MEMORY_H

#include <stdint.h>

#include "skelda/export.h"

SKELDA_EXTERN_C_BEGIN

/* memcpy: the regions must not overlap. Return dst. */
SKELDA_API void *UTIL_Memcpy(void *dst, const void *src, uint32_t n);
SKELDA_API void *UTILMemcpy(void *dst, const void *src, uint32_t n);
/* The same copy, named for the side of an internal/external memory split;
 * memory is flat here. */
SKELDA_API void *UTIL_MemcpyIntFromExt(void *dst, const void *src, uint32_t n);
SKELDA_API void *UTILMemcpyIntFromExt(void *dst, const void *src, uint32_t n);
SKELDA_API void *UTIL_MemcpyExtFromInt(void *dst, const void *src, uint32_t n);
SKELDA_API void *UTILMemcpyExtFromInt(void *dst, const void *src, uint32_t n);
/* Copies n bytes as if through a temporary buffer, whatever the overlap,
 * with aligned word accesses where both cursors allow. Returns dst. */
SKELDA_API void *UTIL_Memmove(void *dst, const void *src, uint32_t n);
SKELDA_API void *UTILMemmove(void *dst, const void *src, uint32_t n);
SKELDA_API void *UTIL_MemmoveExternal(void *dst, const void *src, uint32_t n);
SKELDA_API void *UTILMemmoveExternal(void *dst, const void *src, uint32_t n);
/* Fills n bytes with the low 8 bits of value. Returns dst. */
SKELDA_API void *UTIL_Memset(void *dst, int value, uint32_t n);
SKELDA_API void *UTILMemset(void *dst, int value, uint32_t n);
/* Allocates size + alignment bytes, stores the block in *raw (release it
 * with free) and returns the first address in it that is a multiple of
 * alignment. Returns null, *raw untouched, for size 0, a null raw, an
 * alignment that is not a power of two of at least 2, or a size + alignment
 * beyond 4294967295; null with *raw null when the heap is exhausted. */
SKELDA_API void *UTIL_MemAllocNByteAligned(uint32_t size, uint32_t alignment, void **raw);
SKELDA_API void *UTILMemAllocNByteAligned(uint32_t size, uint32_t alignment, void **raw);

SKELDA_EXTERN_C_END

#endif

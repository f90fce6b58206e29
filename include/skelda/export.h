/* SPDX-License-Identifier: MIT */
/* Symbol visibility for the skelda library.
 *
 * The library is compiled with -fvisibility=hidden; only names marked
 * SKELDA_API are exported. Every exported name has C linkage. */
#ifndef SKELDA_EXPORT_H
#define SKELDA_EXPORT_H

#if defined(__GNUC__)
#define SKELDA_API __attribute__((visibility("default")))
#else
#define SKELDA_API
#endif

#ifdef __cplusplus
#define SKELDA_EXTERN_C_BEGIN extern "C" {
#define SKELDA_EXTERN_C_END }
#else
#define SKELDA_EXTERN_C_BEGIN
#define SKELDA_EXTERN_C_END
#endif

#endif

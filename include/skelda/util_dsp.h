#ifndef SKELDA_UTIL_DSP_H
#define SKELDA_UTIL_DSP_H

#include <stdint.h>

#include "skelda/export.h"

SKELDA_EXTERN_C_BEGIN

SKELDA_EXTERN_C_END

#endif

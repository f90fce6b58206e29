#ifndef SKELDA_RSMPL_SINC_H
#define SKELDA_RSMPL_SINC_H

#include <stdint.h>

#include "skelda/export.h"

SKELDA_EXTERN_C_BEGIN

SKELDA_EXTERN_C_END

#endif

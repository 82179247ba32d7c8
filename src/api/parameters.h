#pragma once

#include "zpr_framehold.h"

namespace qlx::zpr_framehold {

bool isKnownFormat(uint32_t format);

/// True if every field that an instance depends on is in its range. Sizes of input and output are
/// not compared; pitches and planes are tested with each frame.
bool isValid(const ZPR_Param& param);

/// Bytes of memory for an instance with valid parameters; UINT32_MAX if they are more than that.
uint32_t memorySize(const ZPR_Param& param);

}  // namespace qlx::zpr_framehold

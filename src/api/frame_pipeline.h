#pragma once

#include "api/instance.h"

namespace qlx::zpr_framehold {

/// ZPR_Stabilize on an instance. May throw std::bad_alloc, with nothing changed.
int stabilize(ZPR_Instance& instance, double timestamp, const ZPR_Image* input, ZPR_Image& output,
              const ZPR_Param* update);

}  // namespace qlx::zpr_framehold

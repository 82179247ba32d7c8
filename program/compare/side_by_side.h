#pragma once

#include "media/libav.h"

namespace framehold {

/// Columns between the two pictures.
constexpr int kDivider = 4;

/// Both frames beside each other, a white line between them; the right one's rows are cut or left
/// black to the height of the left one. It has the right one's pts and duration.
AvPtr<AVFrame> sideBySide(const AVFrame& left, const AVFrame& right);

}  // namespace framehold

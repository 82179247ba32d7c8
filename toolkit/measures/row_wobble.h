#pragma once

#include "tracking/global_motion.h"

#include <vector>

namespace framehold {

/// Motion of rows against the picture as a whole, as a rolling shutter causes it, in pixels. The
/// picture is divided into twelve bands of rows. The median motion of a band's features beyond the
/// motion of the whole picture is added up over time and filtered with `highPass`, so that depth,
/// which moves near rows steadily against far ones, does not count. The result is the median over
/// the bands of the root mean square over time: what moves by itself in a few bands, such as the
/// dashboard of a car, does not count either. Of a shear that moves the first and the last row of a
/// 16:9 picture apart by 1 pixel, 0.19 to 0.25 pixels count: half of the bands move by less than a
/// quarter, and a part is taken for rotation of the whole picture.
/// motions[i] belongs to tracks.motions[i]; times: one for each frame, seconds; cutoff: Hz.
double rowWobble(const FeatureTracks& tracks, const std::vector<GlobalMotion>& motions,
                 const std::vector<double>& times, double cutoff);

}  // namespace framehold

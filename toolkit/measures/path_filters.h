#pragma once

#include <vector>

namespace framehold {

/// High-pass filter: a signal less its slow part. The slow part at a time t0 is the value there of
/// the parabola that fits the signal around it best (local quadratic regression), samples weighted
/// by exp(-(t - t0)^2 / (2 s^2)) with s = 0.354 / cutoff. Away from the ends a sine of frequency f
/// keeps the share 1 - exp(-u) (1 + u), u = 2 (pi s f)^2, of its amplitude: 71 % at the cut-off,
/// 99 % at 1.6 times that, 6 % at 0.4 times. Signals of constant slope or curvature give 0, at
/// the ends, too. Times need not be evenly spaced.
/// times: seconds, increasing; values: one for each; cutoff: Hz. Returns one value for each time.
std::vector<double> highPass(const std::vector<double>& times, const std::vector<double>& values,
                             double cutoff);

/// Root mean square; 0 if there are no values.
double rootMeanSquare(const std::vector<double>& values);

/// Stability score of Liu, Yuan, Tan and Sun, "Bundled Camera Paths for Video Stabilization" (2013):
/// the energy in the five lowest frequencies above 0 (one to five periods in the whole clip),
/// divided by that in all frequencies above 0 up to half the frame rate. From 0 to 1; the higher,
/// the steadier; 1 for constant signals. The energies of several signals (the two directions of a
/// path) are added up. Signals have one value for each frame.
double stabilityScore(const std::vector<std::vector<double>>& signals);

}  // namespace framehold

#include "measures/row_wobble.h"

#include "common/median.h"
#include "measures/path_filters.h"

#include <algorithm>
#include <cmath>

namespace framehold {

namespace {

constexpr size_t kBands = 12;
constexpr size_t kFewestFeatures = 5;

/// Residuals of the features in one band between two frames.
struct Band {
    std::vector<double> x;
    std::vector<double> y;
};

std::vector<Band> bandsOf(const std::vector<FeatureMotion>& features, const GlobalMotion& motion,
                          int height) {
    std::vector<Band> bands(kBands);
    for (const FeatureMotion& feature : features) {
        const double row = std::clamp(feature.fromY / static_cast<float>(height), 0.0F, 0.999F);
        const auto [x, y] = motion.residual(feature);
        Band& band = bands[static_cast<size_t>(row * kBands)];
        band.x.push_back(x);
        band.y.push_back(y);
    }
    return bands;
}

/// Path of one band against the picture as a whole, in pixels.
struct BandPath {
    std::vector<double> x{0.0};
    std::vector<double> y{0.0};
    size_t known = 0;  // frames in which it has enough features

    void advance(Band& band) {
        const bool isKnown = band.x.size() >= kFewestFeatures;
        known += isKnown ? 1 : 0;
        x.push_back(x.back() + (isKnown ? median(band.x) : 0.0));
        y.push_back(y.back() + (isKnown ? median(band.y) : 0.0));
    }
};

}  // namespace

double rowWobble(const FeatureTracks& tracks, const std::vector<GlobalMotion>& motions,
                 const std::vector<double>& times, double cutoff) {
    std::vector<BandPath> paths(kBands);
    for (size_t i = 0; i < motions.size(); ++i) {
        std::vector<Band> bands = bandsOf(tracks.motions[i], motions[i], tracks.height);
        for (size_t b = 0; b < kBands; ++b) paths[b].advance(bands[b]);
    }
    std::vector<double> squares;
    for (const BandPath& path : paths) {
        if (path.known <= motions.size() / 2) continue;  // sky or black: nothing is known of it
        const double x = rootMeanSquare(highPass(times, path.x, cutoff));
        const double y = rootMeanSquare(highPass(times, path.y, cutoff));
        squares.push_back(x * x + y * y);
    }
    return squares.empty() ? 0.0 : std::sqrt(median(squares));
}

}  // namespace framehold

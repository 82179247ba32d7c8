#include "measures/path_filters.h"

#include <algorithm>
#include <cmath>
#include <complex>

#include <opencv2/core.hpp>

namespace framehold {

namespace {

/// The value at `centre` of the parabola through what lies around it.
double slowPart(const std::vector<double>& times, const std::vector<double>& values, size_t centre,
                double sigma) {
    constexpr double kReach = 4.0;  // further away nothing counts
    const auto at = [&](double t) {
        return static_cast<size_t>(std::lower_bound(times.begin(), times.end(), t) - times.begin());
    };
    const size_t begin = at(times[centre] - kReach * sigma);
    const size_t end = at(times[centre] + kReach * sigma);
    if (end - begin < 3) return values[centre];
    cv::Matx33d normal = cv::Matx33d::zeros();
    cv::Vec3d right(0.0, 0.0, 0.0);
    for (size_t i = begin; i < end; ++i) {
        const double t = (times[i] - times[centre]) / sigma;
        const double weight = std::exp(-t * t / 2.0);
        const cv::Vec3d row(1.0, t, t * t);
        normal += weight * row * row.t();
        // From the value at the centre, so that large values lose no digits.
        right += weight * (values[i] - values[centre]) * row;
    }
    return values[centre] + normal.solve(right, cv::DECOMP_SVD)[0];
}

}  // namespace

std::vector<double> highPass(const std::vector<double>& times, const std::vector<double>& values,
                             double cutoff) {
    const double sigma = 0.354 / cutoff;
    std::vector<double> result(values.size());
    for (size_t i = 0; i < values.size(); ++i) {
        result[i] = values[i] - slowPart(times, values, i, sigma);
    }
    return result;
}

double rootMeanSquare(const std::vector<double>& values) {
    if (values.empty()) return 0.0;
    double sum = 0.0;
    for (const double v : values) sum += v * v;
    return std::sqrt(sum / static_cast<double>(values.size()));
}

double stabilityScore(const std::vector<std::vector<double>>& signals) {
    constexpr int kLowest = 5;
    double low = 0.0;
    double all = 0.0;
    for (const std::vector<double>& signal : signals) {
        cv::Mat spectrum;
        cv::dft(signal, spectrum, cv::DFT_ROWS | cv::DFT_COMPLEX_OUTPUT);
        const auto* bins = spectrum.ptr<std::complex<double>>();
        for (int k = 1; k <= static_cast<int>(signal.size()) / 2; ++k) {
            const double energy = std::norm(bins[k]);
            all += energy;
            if (k <= kLowest) low += energy;
        }
    }
    return all > 0.0 ? low / all : 1.0;
}

}  // namespace framehold

#pragma once

#include "rendering/source_mesh.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace framehold {

/// Samples of a plane in a frame's buffer.
struct PlaneView {
    uint8_t* data;
    ptrdiff_t pitch;  // bytes
    int width;        // samples
    int height;
    int depth;  // bits; above 8, two bytes a sample
};

/// Resamples one plane with a cubic kernel. Where the result has fewer samples than the source, the
/// kernel is as much wider, so that nothing finer than the result can hold comes in.
class PlaneResampler {
public:
    /// shrinking: source samples per sample of the result.
    PlaneResampler(double shrinking, int width, int height);

    // Steps of a frame: rows of the source, all before the first of the second step; then rows of
    // cells of the result. Different rows may be on different threads.

    /// Takes rows of the source. from, to: first and behind the last.
    void load(const PlaneView& source, int from, int to);

    /// Repeats the outer rows of what was loaded.
    void finishLoading();

    /// Fills a row of the mesh's cells. outside: value of samples whose position is not in the
    /// source.
    void fill(const SourceMesh& mesh, int cellRow, const PlaneView& result, int outside) const;

private:
    template <int kGroups, class Sample>
    void fillCells(const SourceMesh& mesh, int cellRow, const PlaneView& result, int outside) const;

    const float* row(int y) const {
        return padded_.data() + static_cast<size_t>(y + margin_) * pitch_;
    }
    float* row(int y) { return padded_.data() + static_cast<size_t>(y + margin_) * pitch_; }

    int width_;
    int height_;
    int groups_;                  // of four taps
    int margin_;                  // samples around the source that repeat its outer ones
    size_t pitch_;                // of padded_, in samples
    std::vector<float> weights_;  // of all taps for each phase
    std::vector<float> padded_;
};

}  // namespace framehold

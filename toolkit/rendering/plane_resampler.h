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
    PlaneResampler(int width, int height) : width_(width), height_(height) {}

    /// Sets the source samples per sample of the result, before a frame's steps.
    void setShrinking(double shrinking);

    // Steps of a frame: all padded rows; then rows of cells of the result. Different rows may be on
    // different threads.

    /// Number of the source's rows with those around it that repeat the outer ones.
    int paddedRows() const { return height_ + 2 * margin_; }

    /// Takes padded rows from a frame. from, to: first and behind the last.
    void load(const PlaneView& source, int from, int to);

    /// Fills a row of the mesh's cells. outside: value of samples whose position is not in the
    /// source.
    void fill(const SourceMesh& mesh, int cellRow, const PlaneView& result, int outside) const;

private:
    template <int kSpacing>
    void fillSpaced(const SourceMesh& mesh, int cellRow, const PlaneView& result,
                    int outside) const;
    template <int kSpacing, int kGroups, class Sample>
    void fillCells(const SourceMesh& mesh, int cellRow, const PlaneView& result, int outside) const;

    // A row, at its first sample.
    const int16_t* row(int y) const { return pairs_.data() + offsetOf(y); }
    int16_t* row(int y) { return pairs_.data() + offsetOf(y); }
    size_t offsetOf(int y) const {
        return static_cast<size_t>(y + margin_) * pitch_ + static_cast<size_t>(2 * margin_);
    }

    int width_;
    int height_;
    double shrinking_ = 0.0;
    int groups_ = 0;    // of four taps
    int margin_ = 0;    // samples around the source that repeat its outer ones
    size_t pitch_ = 0;  // of pairs_, in numbers
    // Weights of all taps for each phase; those down are in pairs, four times each, as one
    // instruction takes them with the pairs of four columns.
    std::vector<float> acrossWeights_;
    std::vector<int16_t> downWeights_;
    std::vector<int16_t> pairs_;  // each sample with the one below it
};

}  // namespace framehold

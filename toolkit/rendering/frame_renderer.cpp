#include "rendering/frame_renderer.h"

#include "media/planar_frame.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <stdexcept>
#include <system_error>
#include <thread>

extern "C" {
#include <libavutil/pixdesc.h>
}

namespace framehold {

namespace {

/// Grid of a plane's samples in pixels of a camera. Chroma that says nothing else sits on the left
/// column of its pair and between the two rows.
SampleGrid gridOf(const AVFrame& frame, int plane, const PinholeCamera& camera,
                  AVChromaLocation location) {
    const AVPixFmtDescriptor& d = *av_pix_fmt_desc_get(static_cast<AVPixelFormat>(frame.format));
    const int log2Width = plane > 0 ? d.log2_chroma_w : 0;
    const int log2Height = plane > 0 ? d.log2_chroma_h : 0;
    const bool isCentred = location == AVCHROMA_LOC_CENTER || location == AVCHROMA_LOC_TOP ||
                           location == AVCHROMA_LOC_BOTTOM;
    const bool isTop = location == AVCHROMA_LOC_TOPLEFT || location == AVCHROMA_LOC_TOP;
    const bool isBottom = location == AVCHROMA_LOC_BOTTOMLEFT || location == AVCHROMA_LOC_BOTTOM;
    const Eigen::Array2d step(1 << log2Width, 1 << log2Height);
    const Eigen::Array2d offset(isCentred ? step.x() / 2 : 0.5, isTop      ? 0.5
                                                                : isBottom ? step.y() - 0.5
                                                                           : step.y() / 2);
    const Eigen::Array2d scale =
        Eigen::Array2d(camera.width, camera.height) / Eigen::Array2d(frame.width, frame.height);
    return {AV_CEIL_RSHIFT(frame.width, log2Width), AV_CEIL_RSHIFT(frame.height, log2Height),
            step * scale, offset * scale};
}

PlaneView planeOf(const AVFrame& frame, int plane, const SampleGrid& grid) {
    const AVPixFmtDescriptor& d = *av_pix_fmt_desc_get(static_cast<AVPixelFormat>(frame.format));
    return {frame.data[plane], frame.linesize[plane], grid.width, grid.height, d.comp[0].depth};
}

/// Value of a plane's samples where the picture is black.
int blackOf(const AVFrame& frame, int plane, int depth) {
    if (plane > 0) return 1 << (depth - 1);
    return isFullRange(frame) ? 0 : 16 << (depth - 8);
}

}  // namespace

struct FrameRenderer::Plane {
    SampleGrid from;
    SampleGrid to;
    size_t mesh;  // index in meshes_
    PlaneResampler resampler;
};

FrameRenderer::FrameRenderer(const PinholeCamera& source, const PinholeCamera& output,
                             RenderSettings settings)
    : source_(source), output_(output), shifts_(std::move(settings.shifts)) {
    int threads = settings.threads;
    if (threads <= 0) threads = static_cast<int>(std::thread::hardware_concurrency());
    try {
        for (int i = 1; i < threads; ++i) helpers_.push_back(std::make_unique<TaskThread>(1));
    } catch (const std::system_error&) {
        // Deliberate: where no more threads are to be had, those that there are do the work.
    }
}

FrameRenderer::~FrameRenderer() = default;

void FrameRenderer::doAll(const std::vector<std::function<void()>>& work) {
    std::atomic<size_t> next{0};
    const auto run = [&] {
        for (size_t i = next++; i < work.size(); i = next++) work[i]();
    };
    for (const auto& helper : helpers_) helper->add(run);
    run();
    for (const auto& helper : helpers_) helper->finish();
}

double FrameRenderer::shrinkingOf(double zoom) const {
    // In steps of 3 %, which nobody sees: the kernel rarely changes.
    constexpr double kSteps = 32.0;
    const double stepped = std::max(1.0, std::round(kSteps * zoom)) / kSteps;
    // Pixels of the source camera are samples of its luma times this.
    const double scale = width_ / double(source_.width);
    return source_.focal * scale / (output_.focal * stepped);
}

void FrameRenderer::prepare(const AVFrame& frame) {
    if (frame.format == format_ && frame.width == width_ && frame.height == height_ &&
        frame.chroma_location == chromaLocation_) {
        return;
    }
    constexpr int kMaxSide = 30000;  // positions have 16 bits and a sign for whole samples
    if (std::max(frame.width, frame.height) > kMaxSide) {
        throw std::runtime_error("frames of more than 30000 pixels a side cannot be rendered");
    }
    format_ = frame.format;
    width_ = frame.width;
    height_ = frame.height;
    chromaLocation_ = frame.chroma_location;
    meshes_.clear();
    planes_.clear();
    AVFrame result{};
    result.format = format_;
    result.width = output_.width;
    result.height = output_.height;
    const int count = av_pix_fmt_count_planes(static_cast<AVPixelFormat>(format_));
    for (int i = 0; i < count; ++i) {
        const SampleGrid from = gridOf(frame, i, source_, chromaLocation_);
        const SampleGrid to = gridOf(result, i, output_, chromaLocation_);
        // Planes of chroma have the same grids.
        if (i < 2 || !(planes_.back()->from == from)) {
            meshes_.emplace_back(to, from, SourceMesh::spacingFor(to, output_, source_));
        }
        planes_.push_back(std::make_unique<Plane>(
            Plane{from, to, meshes_.size() - 1, PlaneResampler(from.width, from.height)}));
    }
}

AvPtr<AVFrame> FrameRenderer::render(const AVFrame& frame, double firstRowTime,
                                     const OrientationTrack& track, const View& view) {
    const AvPtr<AVFrame> planar = toPlanar(frame, converter_);
    prepare(*planar);
    AvPtr<AVFrame> result =
        makeFrame(static_cast<AVPixelFormat>(planar->format), output_.width, output_.height);
    if (av_frame_copy_props(result.get(), planar.get()) < 0) throw std::bad_alloc();
    // What the source's encoder chose is nothing for the next one.
    result->pict_type = AV_PICTURE_TYPE_NONE;
    result->key_frame = 0;
    result->crop_left = result->crop_right = result->crop_top = result->crop_bottom = 0;

    const RowRotations rotations(source_, firstRowTime, track, view.orientation, shifts_);
    const PinholeCamera output = view.zoomed(output_);
    const double shrinking = shrinkingOf(view.zoom);
    // One item of work for a row of nodes, a band of source rows, or a row of cells of any plane.
    constexpr int kBand = 64;
    std::vector<std::function<void()>> sources;
    std::vector<std::function<void()>> results;
    for (SourceMesh& mesh : meshes_) {
        for (int row = 0; row < mesh.nodeRows(); ++row) {
            sources.push_back([&, row] { mesh.setRow(row, rotations, output); });
        }
    }
    for (size_t i = 0; i < planes_.size(); ++i) {
        Plane& plane = *planes_[i];
        const int index = static_cast<int>(i);
        plane.resampler.setShrinking(shrinking);
        const PlaneView from = planeOf(*planar, index, plane.from);
        const PlaneView to = planeOf(*result, index, plane.to);
        const int outside = blackOf(*planar, index, to.depth);
        const int rows = plane.resampler.paddedRows();
        for (int y = 0; y < rows; y += kBand) {
            sources.push_back([&plane, from, rows, y] {
                plane.resampler.load(from, y, std::min(y + kBand, rows));
            });
        }
        const SourceMesh& mesh = meshes_[plane.mesh];
        for (int row = 0; row < mesh.cellRows(); ++row) {
            results.push_back([&plane, &mesh, row, to, outside] {
                plane.resampler.fill(mesh, row, to, outside);
            });
        }
    }
    doAll(sources);
    doAll(results);
    return result;
}

}  // namespace framehold

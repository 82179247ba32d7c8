// Frames as a virtual camera without a rolling shutter sees them.
#include "media/planar_frame.h"
#include "rendering/frame_renderer.h"
#include "support/random.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <functional>
#include <vector>

#include <gtest/gtest.h>

#include <Eigen/Dense>

extern "C" {
#include <libavutil/pixdesc.h>
}

using namespace framehold;

namespace {

/// Track of a second, each axis of which swings about `radians` at 9 Hz, and a little at 31 Hz.
OrientationTrack shake(double radians) {
    std::vector<MotionSample> rates;
    for (int i = 0; i <= 400; ++i) {
        const double t = -0.5 + i / 400.0;
        MotionSample sample{};
        sample.time = t;
        for (int axis = 0; axis < 3; ++axis) {
            const auto rate = [&](double hertz, double amplitude) {
                const double w = 2.0 * M_PI * hertz;
                return amplitude * w * std::cos(w * t + 2.0 * axis);
            };
            sample.value[static_cast<size_t>(axis)] =
                rate(9.0, radians) + rate(31.0, radians / 20.0);
        }
        rates.push_back(sample);
    }
    return OrientationTrack(GyroPath(rates));
}

/// Camera of the same field of view at another size, if crop is 1.
PinholeCamera outputOf(const PinholeCamera& source, int width, int height, double crop) {
    const double scale = std::min(source.width * crop / width, source.height * crop / height);
    return {width, height, source.focal / scale, 0.0, source.lens};
}

/// Source pixel by the definition, each step with the track's own orientation.
Eigen::Vector2d exactPixel(const PinholeCamera& source, const OrientationTrack& track,
                           const Eigen::Vector3d& world, const LensShiftTrack& shifts = {}) {
    Eigen::Vector2d pixel(0.0, source.height / 2.0);
    for (int i = 0; i < 60; ++i) {
        const double row = pixel.y();
        const double time = source.rowTime(0.0, row);
        pixel = source.project(track.at(time).conjugate() * world) + shifts.at(time);
        if (std::fabs(pixel.y() - row) < 1e-6) return pixel;
    }
    ADD_FAILURE() << "no row sees it";
    return pixel;
}

TEST(SourceMesh, IsWithinATwentiethOfAPixelOfTheExactMapping) {
    const PinholeCamera plain{1920, 1080, 1500.0, 0.033};
    const PinholeCamera fisheye{
        1920, 1080, 700.0, 0.033, {LensModel::kFisheye, {-0.03, 0.004, 0.0, 0.0}}};
    const PinholeCamera barrel{
        1920, 1080, 1100.0, 0.033, {LensModel::kPolynomial, {-0.2, 0.04, 0.0, 0.0}}};
    // Every 4 ms, of a picture of 3840 pixels.
    std::vector<LensShift> shifts;
    for (double t = -0.1; t < 0.2; t += 0.004) {
        shifts.push_back({t, 30.0 * std::sin(40.0 * t), 20.0 * std::cos(50.0 * t)});
    }
    const LensShiftTrack swinging(shifts, 0.5);
    EXPECT_NEAR(swinging.at(0.0).y(), 10.0, 0.01);
    EXPECT_NEAR(swinging.at(-1.0).x(), 15.0 * std::sin(-4.0), 1e-9);
    EXPECT_NEAR(swinging.largest(), 15.0, 0.1);
    const struct {
        const char* name;
        PinholeCamera source;
        PinholeCamera output;
        double step;   // luma pixels between samples
        double shift;  // by which the shake moves things at least, in pixels
        LensShiftTrack lens{};
    } kCases[] = {
        {"luma", plain, outputOf(plain, 1920, 1080, 0.8), 1.0, 30.0},
        {"chroma", plain, outputOf(plain, 1920, 1080, 0.8), 2.0, 30.0},
        {"half size", plain, outputOf(plain, 960, 540, 0.8), 1.0, 30.0},
        {"portrait", plain, outputOf(plain, 608, 1080, 0.8), 1.0, 30.0},
        {"fisheye", fisheye, outputOf(fisheye, 1920, 1080, 0.8), 1.0, 10.0},
        {"fisheye chroma", fisheye, outputOf(fisheye, 1920, 1080, 0.8), 2.0, 10.0},
        {"straightened fisheye", fisheye, {1920, 1080, 650.0, 0.0}, 1.0, 10.0},
        {"straightened fisheye chroma", fisheye, {1920, 1080, 650.0, 0.0}, 2.0, 10.0},
        {"straightened barrel", barrel, {1920, 1080, 1300.0, 0.0}, 2.0, 20.0},
        {"lens shifts", plain, outputOf(plain, 1920, 1080, 0.8), 1.0, 30.0, swinging},
        {"lens shifts, chroma", plain, outputOf(plain, 1920, 1080, 0.8), 2.0, 30.0, swinging}};
    const OrientationTrack track = shake(0.02);
    const Eigen::Quaterniond view = track.at(0.0165);
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.name);
        const PinholeCamera& source = c.source;
        const auto samples = [&](int size) { return static_cast<int>(size / c.step); };
        const Eigen::Array2d step(c.step, c.step);
        const SampleGrid to{samples(c.output.width), samples(c.output.height), step, step / 2};
        const SampleGrid from{samples(source.width), samples(source.height), step, step / 2};
        const RowRotations rotations(source, 0.0, track, view, c.lens);
        const int s = SourceMesh::spacingFor(to, c.output, source);
        SourceMesh mesh(to, from, s);
        for (int row = 0; row < mesh.nodeRows(); ++row) mesh.setRow(row, rotations, c.output);
        double largest = 0.0;
        double largestShift = 0.0;
        for (int y = 0; y < to.height; y += 7) {
            for (int x = 0; x < to.width; x += 7) {
                const Eigen::Vector2d pixel = Eigen::Array2d(x, y) * to.step + to.offset;
                const Eigen::Vector2d exact =
                    exactPixel(source, track, view * c.output.ray(pixel), c.lens);
                const double u = x % s / double(s);
                const double v = y % s / double(s);
                const auto edge = [&](int row) -> Eigen::Vector2d {
                    return (1.0 - u) * mesh.node(x / s, row) + u * mesh.node(x / s + 1, row);
                };
                const Eigen::Vector2d sample = (1.0 - v) * edge(y / s) + v * edge(y / s + 1);
                const Eigen::Vector2d meshed = sample.array() * from.step + from.offset;
                largest = std::max(largest, (meshed - exact).norm());
                const Eigen::Vector2d unturned = source.project(c.output.ray(pixel));
                largestShift = std::max(largestShift, (unturned - exact).norm());
            }
        }
        EXPECT_LT(largest, 0.05);
        EXPECT_GT(largestShift, c.shift);
    }
}

/// Value of a sample in a frame of planar format.
int sampleAt(const AVFrame& frame, int plane, int x, int y) {
    const uint8_t* row = frame.data[plane] + ptrdiff_t{y} * frame.linesize[plane];
    const bool isWide = depthOf(static_cast<AVPixelFormat>(frame.format)) > 8;
    return isWide ? reinterpret_cast<const uint16_t*>(row)[x] : row[x];
}

/// Calls `visit` with the value of each sample in a frame of planar format.
template <class Visit>
void forSamples(AVFrame& frame, Visit visit) {
    const auto format = static_cast<AVPixelFormat>(frame.format);
    const AVPixFmtDescriptor& d = *av_pix_fmt_desc_get(format);
    for (int plane = 0; plane < d.nb_components; ++plane) {
        const int width = AV_CEIL_RSHIFT(frame.width, plane > 0 ? d.log2_chroma_w : 0);
        const int height = AV_CEIL_RSHIFT(frame.height, plane > 0 ? d.log2_chroma_h : 0);
        for (int y = 0; y < height; ++y) {
            uint8_t* row = frame.data[plane] + ptrdiff_t{y} * frame.linesize[plane];
            for (int x = 0; x < width; ++x) {
                int value = sampleAt(frame, plane, x, y);
                visit(plane, x, y, value);
                if (d.comp[0].depth > 8) {
                    reinterpret_cast<uint16_t*>(row)[x] = static_cast<uint16_t>(value);
                } else {
                    row[x] = static_cast<uint8_t>(value);
                }
            }
        }
    }
}

TEST(FrameRenderer, GivesTheSourcesSamplesWhereNothingMoves) {
    const struct {
        AVPixelFormat source;
        AVPixelFormat result;
        int width;
        int height;
    } kCases[] = {{AV_PIX_FMT_YUV420P, AV_PIX_FMT_YUV420P, 64, 48},
                  {AV_PIX_FMT_YUVJ420P, AV_PIX_FMT_YUV420P, 67, 33},
                  {AV_PIX_FMT_NV12, AV_PIX_FMT_YUV420P, 64, 48},
                  {AV_PIX_FMT_P010, AV_PIX_FMT_YUV420P10, 65, 49},
                  {AV_PIX_FMT_YUV420P10BE, AV_PIX_FMT_YUV420P10, 64, 48},
                  {AV_PIX_FMT_UYVY422, AV_PIX_FMT_YUV422P, 64, 48},
                  {AV_PIX_FMT_YUV422P12, AV_PIX_FMT_YUV422P12, 64, 48},
                  {AV_PIX_FMT_YUVA444P16, AV_PIX_FMT_YUV444P16, 64, 48},
                  {AV_PIX_FMT_GRAY8, AV_PIX_FMT_GRAY8, 64, 48}};
    for (const auto& c : kCases) {
        SCOPED_TRACE(av_get_pix_fmt_name(c.source));
        // Made as the result's format, and brought into the source's with FFmpeg's own accessors.
        const AvPtr<AVFrame> expected = makeFrame(c.result, c.width, c.height);
        const AvPtr<AVFrame> frame = makeFrame(c.source, c.width, c.height);
        // They set bits, but clear none.
        for (int i = 0; i < 4 && frame->buf[i] != nullptr; ++i) {
            std::fill_n(frame->buf[i]->data, frame->buf[i]->size, uint8_t{0});
        }
        const AVPixFmtDescriptor* source = av_pix_fmt_desc_get(c.source);
        zpr_test::Random random(7);
        const int mask = (1 << depthOf(c.result)) - 1;
        forSamples(*expected, [&](int plane, int x, int y, int& value) {
            value = (random.byte() << 8 | random.byte()) & mask;
            const auto word = static_cast<uint16_t>(value);
            av_write_image_line(&word, frame->data, frame->linesize, source, x, y, plane, 1);
        });
        const PinholeCamera camera{c.width, c.height, 60.0, 0.01};
        FrameRenderer renderer(camera, outputOf(camera, c.width, c.height, 1.0));
        frame->pts = 17;
        frame->color_trc = AVCOL_TRC_ARIB_STD_B67;
        frame->pict_type = AV_PICTURE_TYPE_I;
        const AvPtr<AVFrame> result = renderer.render(*frame, 0.0, OrientationTrack(), View());
        ASSERT_EQ(result->format, c.result);
        EXPECT_EQ(result->pts, 17);
        EXPECT_EQ(result->color_trc, AVCOL_TRC_ARIB_STD_B67);
        EXPECT_EQ(result->pict_type, AV_PICTURE_TYPE_NONE);
        EXPECT_EQ(isFullRange(*result), c.source == AV_PIX_FMT_YUVJ420P);
        int wrong = 0;
        forSamples(*expected, [&](int plane, int x, int y, int& value) {
            wrong += value != sampleAt(*result, plane, x, y) ? 1 : 0;
        });
        EXPECT_EQ(wrong, 0);
    }
}

/// Picture of waves, from -1 to 1 on each plane, at a luma pixel.
double waves(int plane, const Eigen::Array2d& pixel) {
    const double phase = plane * 1.3;
    return 0.5 * std::sin(pixel.x() * 0.26 + phase) + 0.5 * std::cos(pixel.y() * 0.24 + phase);
}

TEST(FrameRenderer, TakesEachSampleFromWhereItIsSeen) {
    const struct {
        AVPixelFormat format;
        AVChromaLocation location;
        Eigen::Array2d chroma;  // place of the first chroma sample, in luma pixels
        double crop;
        double zoom = 1.0;
    } kCases[] = {{AV_PIX_FMT_YUV420P, AVCHROMA_LOC_UNSPECIFIED, {0.5, 1.0}, 0.5},
                  {AV_PIX_FMT_YUV420P, AVCHROMA_LOC_LEFT, {0.5, 1.0}, 0.8},
                  {AV_PIX_FMT_YUV420P10, AVCHROMA_LOC_CENTER, {1.0, 1.0}, 0.5},
                  {AV_PIX_FMT_YUV420P10, AVCHROMA_LOC_TOPLEFT, {0.5, 0.5}, 0.5},
                  {AV_PIX_FMT_YUV422P10, AVCHROMA_LOC_UNSPECIFIED, {0.5, 0.5}, 0.5},
                  {AV_PIX_FMT_YUV444P, AVCHROMA_LOC_UNSPECIFIED, {0.5, 0.5}, 0.5, 1.25}};
    const PinholeCamera source{320, 240, 300.0, 0.03};
    const OrientationTrack track = shake(0.01);
    for (const auto& c : kCases) {
        const View view{track.at(0.015), c.zoom};
        SCOPED_TRACE(std::string(av_get_pix_fmt_name(c.format)) + ", " +
                     av_chroma_location_name(c.location));
        const AVPixFmtDescriptor& d = *av_pix_fmt_desc_get(c.format);
        const int bits = d.comp[0].depth;
        const auto pixelOf = [&](int plane, int x, int y) -> Eigen::Array2d {
            if (plane == 0) return {x + 0.5, y + 0.5};
            return Eigen::Array2d(x << d.log2_chroma_w, y << d.log2_chroma_h) + c.chroma;
        };
        const double middle = 1 << (bits - 1);
        const double amplitude = 0.4 * (1 << bits);
        const AvPtr<AVFrame> frame = makeFrame(c.format, source.width, source.height);
        frame->chroma_location = c.location;
        forSamples(*frame, [&](int plane, int x, int y, int& value) {
            value = static_cast<int>(
                std::lround(middle + amplitude * waves(plane, pixelOf(plane, x, y))));
        });
        const PinholeCamera output = outputOf(source, 200, 240, c.crop);
        FrameRenderer renderer(source, output);
        const AvPtr<AVFrame> result = renderer.render(*frame, 0.0, track, view);
        double largest = 0.0;
        forSamples(*result, [&](int plane, int x, int y, int& value) {
            const Eigen::Vector2d pixel = pixelOf(plane, x, y);
            const Eigen::Vector2d seen =
                exactPixel(source, track, view.orientation * view.zoomed(output).ray(pixel));
            const double expected = middle + amplitude * waves(plane, seen);
            largest = std::max(largest, std::fabs(value - expected) / amplitude);
        });
        EXPECT_LT(largest, 0.02);  // a quarter of a pixel is 0.03
    }
}

/// The middle row of a picture that is the same in all rows, enlarged by a crop.
std::vector<int> enlargedRow(const std::function<int(int)>& value) {
    const PinholeCamera source{320, 64, 300.0, 0.0};
    const AvPtr<AVFrame> frame = makeFrame(AV_PIX_FMT_GRAY8, source.width, source.height);
    forSamples(*frame, [&](int, int x, int, int& sample) { sample = value(x); });
    FrameRenderer renderer(source, outputOf(source, source.width, source.height, 0.77));
    const AvPtr<AVFrame> result = renderer.render(*frame, 0.0, OrientationTrack(), View());
    std::vector<int> row;
    for (int x = 0; x < source.width; ++x) row.push_back(sampleAt(*result, 0, x, 32));
    return row;
}

TEST(FrameRenderer, KeepsFineDetailsWithLittleRinging) {
    double power = 0.0;
    for (const int value : enlargedRow([](int x) { return 128 + (x % 4 < 2 ? 71 : -71); })) {
        power += (value - 128) * (value - 128) / 320.0;
    }
    EXPECT_GT(std::sqrt(power), 0.98 * 71.0);  // waves of four samples; 1 without blur
    EXPECT_LT(std::sqrt(power), 1.02 * 71.0);
    const std::vector<int> edge = enlargedRow([](int x) { return x < 160 ? 28 : 228; });
    EXPECT_LE(*std::max_element(edge.begin(), edge.end()), 228 + 20);
    EXPECT_GE(*std::min_element(edge.begin(), edge.end()), 28 - 20);
}

/// Largest distance of points from the straight line that fits them best; y over x.
double bendOf(const std::vector<Eigen::Vector2d>& points) {
    Eigen::MatrixX2d left(points.size(), 2);
    Eigen::VectorXd right(points.size());
    for (size_t i = 0; i < points.size(); ++i) {
        left.row(static_cast<Eigen::Index>(i)) << 1.0, points[i].x();
        right[static_cast<Eigen::Index>(i)] = points[i].y();
    }
    const Eigen::Vector2d line = left.colPivHouseholderQr().solve(right);
    return (right - left * line).cwiseAbs().maxCoeff();
}

TEST(FrameRenderer, StraightensLines) {
    const struct {
        const char* name;
        double focal;
        LensDistortion lens;
    } kCases[] = {{"barrel", 500.0, {LensModel::kPolynomial, {-0.25, 0.06, 0.0, 0.0}}},
                  {"pincushion", 500.0, {LensModel::kPolynomial, {0.15, 0.02, 0.0, 0.0}}},
                  {"fisheye", 260.0, {LensModel::kFisheye, {-0.03, 0.004, 0.0, 0.0}}}};
    const OrientationTrack track = shake(0.01);
    const View view{track.at(0.015)};
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.name);
        const PinholeCamera source{640, 360, c.focal, 0.03, c.lens};
        const PinholeCamera output = straightened(source, 640, 360, 0.8);
        // Lines in the result, close to its top and bottom.
        const double heights[] = {20.0, 340.0};
        const auto rayOf = [&](double x, double y) -> Eigen::Vector3d {
            return view.orientation * output.ray({x, y});
        };
        const AvPtr<AVFrame> frame = makeFrame(AV_PIX_FMT_GRAY8, source.width, source.height);
        for (int y = 0; y < source.height; ++y) {
            const Eigen::Quaterniond device = track.at(source.rowTime(0.0, y + 0.5));
            for (int x = 0; x < source.width; ++x) {
                const Eigen::Vector3d seen = (device * source.ray({x + 0.5, y + 0.5})).normalized();
                double light = 0.0;
                for (const double height : heights) {
                    const Eigen::Vector3d plane =
                        rayOf(0.0, height).cross(rayOf(640.0, height + 10.0)).normalized();
                    light += std::exp(-std::pow(plane.dot(seen) * c.focal / 1.5, 2));
                }
                frame->data[0][y * frame->linesize[0] + x] =
                    static_cast<uint8_t>(std::lround(16.0 + 230.0 * std::min(light, 1.0)));
            }
        }
        const AvPtr<AVFrame> result =
            FrameRenderer(source, output).render(*frame, 0.0, track, view);
        for (const double height : heights) {
            std::vector<Eigen::Vector2d> drawn, found;
            for (int x = 0; x < 640; ++x) {
                const int row = static_cast<int>(height + 10.0 * x / 640.0);
                double light = 0.0, moment = 0.0;
                for (int y = row - 8; y <= row + 8; ++y) {
                    const double over = sampleAt(*result, 0, x, y) - 16.0;
                    light += over;
                    moment += over * (y + 0.5);
                }
                ASSERT_GT(light, 100.0) << x;
                found.emplace_back(x, moment / light);
                drawn.push_back(source.project(output.ray({x + 0.5, height + 10.0 * x / 640.0})));
            }
            std::printf("%s: %.1f pixels bent, %.3f when straightened\n", c.name, bendOf(drawn),
                        bendOf(found));
            EXPECT_LT(bendOf(found), 0.2);
            EXPECT_GT(bendOf(drawn), 2.0);  // or the case is too easy
        }
    }
}

}  // namespace

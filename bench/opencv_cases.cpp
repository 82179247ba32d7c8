#include "bench/cases.h"

#include <algorithm>
#include <array>
#include <memory>

#include <opencv2/core.hpp>
#include <opencv2/core/utility.hpp>
#include <opencv2/imgproc.hpp>

namespace framehold::bench {

namespace {

/// Maps of one frame; each of the two planes has a map of its own.
struct Maps {
    cv::Mat first[2];
    cv::Mat second[2];
};

enum class MapKind { kFixed, kFixedNearestChroma, kFloat };

cv::Mat planeOf(const zpr_test::Frame& frame, int plane) {
    const ZPR_Image& image = frame.image;
    return plane == 0 ? cv::Mat(image.height, image.width, CV_8UC1, image.plane[0])
                      : cv::Mat(image.height / 2, image.width / 2, CV_8UC2, image.plane[1]);
}

Maps makeMaps(Size size, const AffineTransform& transform, MapKind kind) {
    Maps maps;
    for (int plane = 0; plane < 2; ++plane) {
        const int scale = plane + 1;
        cv::Mat x(size.height / scale, size.width / scale, CV_32FC1);
        cv::Mat y(x.size(), CV_32FC1);
        for (int row = 0; row < x.rows; ++row) {
            for (int col = 0; col < x.cols; ++col) {
                const Point p = transform.sourceOf(col * scale, row * scale);
                x.at<float>(row, col) = static_cast<float>(p.x / scale);
                y.at<float>(row, col) = static_cast<float>(p.y / scale);
            }
        }
        if (kind == MapKind::kFloat) {
            maps.first[plane] = x;
            maps.second[plane] = y;
        } else {
            const bool nearest = plane == 1 && kind == MapKind::kFixedNearestChroma;
            cv::convertMaps(x, y, maps.first[plane], maps.second[plane], CV_16SC2, nearest);
        }
    }
    return maps;
}

Case makeRemap(Fixture& fixture, const char* name, MapKind kind) {
    // Maps are large: as many as frames in the ring, so that those of a hot ring stay hot as well.
    const int count = std::min(fixture.ring(), 4);
    const auto maps = std::make_shared<std::vector<Maps>>();
    for (int i = 0; i < count; ++i) {
        maps->push_back(
            makeMaps(fixture.size(), fixture.shaken().at(static_cast<size_t>(i)), kind));
    }
    return {name,
            [&fixture, maps, kind](int frame) {
                const Maps& used = (*maps)[static_cast<size_t>(frame) % maps->size()];
                for (int plane = 0; plane < 2; ++plane) {
                    const cv::Mat source = planeOf(fixture.sources().at(frame), plane);
                    cv::Mat target = planeOf(fixture.targets().at(frame), plane);
                    const bool nearest = plane == 1 && kind == MapKind::kFixedNearestChroma;
                    cv::remap(source, target, used.first[plane], used.second[plane],
                              nearest ? cv::INTER_NEAREST : cv::INTER_LINEAR);
                }
            },
            [&fixture](int frame) { return fixture.targets().at(frame).image.plane[0]; }};
}

/// The transform as a matrix for one plane, from target to source.
cv::Matx33d matrixFor(const AffineTransform& transform, int scale) {
    const Point origin = transform.sourceOf(0, 0);
    const Point right = transform.sourceOf(1, 0);
    const Point below = transform.sourceOf(0, 1);
    return {right.x - origin.x,
            below.x - origin.x,
            origin.x / scale,
            right.y - origin.y,
            below.y - origin.y,
            origin.y / scale,
            0.0,
            0.0,
            1.0};
}

Case makePerspective(Fixture& fixture) {
    return {"OpenCV warpPerspective",
            [&fixture](int frame) {
                const auto& transforms = fixture.shaken();
                const AffineTransform& transform =
                    transforms[static_cast<size_t>(frame) % transforms.size()];
                for (int plane = 0; plane < 2; ++plane) {
                    const cv::Mat source = planeOf(fixture.sources().at(frame), plane);
                    cv::Mat target = planeOf(fixture.targets().at(frame), plane);
                    cv::warpPerspective(source, target, matrixFor(transform, plane + 1),
                                        target.size(), cv::INTER_LINEAR | cv::WARP_INVERSE_MAP);
                }
            },
            [&fixture](int frame) { return fixture.targets().at(frame).image.plane[0]; }};
}

}  // namespace

Case makeFixedRemap(Fixture& fixture) { return makeRemap(fixture, kRemapName, MapKind::kFixed); }

void addOpencvCases(Fixture& fixture, std::vector<Case>& out) {
    cv::setNumThreads(fixture.threads());
    out.push_back(makeFixedRemap(fixture));
    out.push_back(
        makeRemap(fixture, "OpenCV remap (nearest chroma)", MapKind::kFixedNearestChroma));
    out.push_back(makeRemap(fixture, "OpenCV remap (float maps)", MapKind::kFloat));
    out.push_back(makePerspective(fixture));
}

}  // namespace framehold::bench

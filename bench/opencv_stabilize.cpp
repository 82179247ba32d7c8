// OpenCV's two-pass stabilizer as it comes, for comparison: its own motion estimation, Gaussian
// filter and rendering. Reads a video, writes raw frames of 80 % of its size to standard output as
// bgr24.
// Usage: opencv_stabilize VIDEO
#include <cstdio>
#include <exception>
#include <stdexcept>

#include <opencv2/core.hpp>
#include <opencv2/videostab.hpp>

namespace {

void stabilize(const char* video) {
    cv::videostab::TwoPassStabilizer stabilizer;
    stabilizer.setLog(cv::makePtr<cv::videostab::NullLog>());
    stabilizer.setFrameSource(cv::makePtr<cv::videostab::VideoFileSource>(video));
    stabilizer.setTrimRatio(0.1F);  // of each side
    stabilizer.setCorrectionForInclusion(true);
    for (;;) {
        const cv::Mat frame = stabilizer.nextFrame().clone();
        if (frame.empty()) return;
        const size_t size = frame.total() * frame.elemSize();
        if (std::fwrite(frame.data, 1, size, stdout) != size) throw std::runtime_error("no output");
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: opencv_stabilize VIDEO\n");
        return 2;
    }
    try {
        cv::setNumThreads(1);
        stabilize(argv[1]);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "opencv_stabilize: %s\n", error.what());
        return 1;
    }
    return 0;
}

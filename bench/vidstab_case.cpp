#include "bench/cases.h"

#include <algorithm>
#include <memory>
#include <stdexcept>
#include <vector>

extern "C" {
#include <vid.stab/libvidstab.h>
}

namespace framehold::bench {

namespace {

/// vid.stab's state and its three-plane frames.
class VidstabSetup {
public:
    VidstabSetup(Fixture& fixture, int ring) {
        const Size size = fixture.size();
        VSFrameInfo info;
        VSTransformConfig config = vsTransformGetDefaultConfig("bench");
        config.interpolType = VS_BiLinear;
        config.crop = VSCropBorder;  // renders into the target itself
        if (!vsFrameInfoInit(&info, size.width, size.height, PF_YUV420P) ||
            vsTransformDataInit(&data_, &config, &info, &info) != VS_OK) {
            throw std::runtime_error("vid.stab does not start");
        }
        for (int i = 0; i < ring; ++i) {
            sources_.push_back(makeFrame(info));
            targets_.push_back(makeFrame(info));
            const ZPR_Image& picture = fixture.sources().at(i).image;
            uint8_t* bytes = sources_.back().data[0];
            bytes = std::copy_n(picture.plane[0], size.pixels(), bytes);
            std::copy_n(picture.plane[1], size.pixels() / 2, bytes);
        }
    }
    VidstabSetup(const VidstabSetup&) = delete;
    VidstabSetup& operator=(const VidstabSetup&) = delete;
    ~VidstabSetup() { vsTransformDataCleanup(&data_); }

    void render(int frame, const AffineTransform& transform) {
        vsTransformPrepare(&data_, &sources_[index(frame)], &targets_[index(frame)]);
        VSTransform frameTransform{};
        frameTransform.x = -transform.shift.x;
        frameTransform.y = -transform.shift.y;
        frameTransform.alpha = transform.angle;
        frameTransform.zoom = (1.0 - transform.zoom) * 100.0;
        vsDoTransform(&data_, frameTransform);
        vsTransformFinish(&data_);
    }

    const uint8_t* luma(int frame) const { return targets_[index(frame)].data[0]; }

private:
    size_t index(int frame) const { return static_cast<size_t>(frame) % sources_.size(); }

    VSFrame makeFrame(const VSFrameInfo& info) {
        const size_t pixels = static_cast<size_t>(info.width) * static_cast<size_t>(info.height);
        memory_.push_back(std::make_unique<std::vector<uint8_t>>(pixels * 3 / 2));
        VSFrame frame;
        vsFrameFillFromBuffer(&frame, memory_.back()->data(), &info);
        return frame;
    }

    VSTransformData data_{};
    std::vector<std::unique_ptr<std::vector<uint8_t>>> memory_;
    std::vector<VSFrame> sources_;
    std::vector<VSFrame> targets_;
};

}  // namespace

Case makeVidstab(Fixture& fixture) {
    const auto setup = std::make_shared<VidstabSetup>(fixture, fixture.ring());
    return {"vid.stab (without shear)",
            [&fixture, setup](int frame) {
                const auto& transforms = fixture.shaken();
                setup->render(frame, transforms[static_cast<size_t>(frame) % transforms.size()]);
            },
            [setup](int frame) { return setup->luma(frame); }};
}

}  // namespace framehold::bench

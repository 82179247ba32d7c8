// A program in C++ that uses the installed library: stabilizes a few frames of a turning camera and
// prints the library's version and a checksum of the pixels.
#include <cstdint>
#include <cstdio>
#include <stdexcept>
#include <vector>

#include <zpr_framehold.h>

namespace {

constexpr int kWidth = 256, kHeight = 192;

class Stabilizer {
public:
    explicit Stabilizer(const ZPR_Image& image) {
        ZPR_Param param{};
        ZPR_GetDefaultParam(&param);
        param.inputImage = param.outputImage = image;
        param.sensorMask = ZPR_SENSOR_BIT(ZPR_SENSOR_GRAVITY_1) | ZPR_SENSOR_BIT(ZPR_SENSOR_RATE_1);
        param.delayFrames = 3;
        if (ZPR_Init(nullptr, &param, &handle_) != ZPR_OK) throw std::runtime_error("ZPR_Init");
    }
    Stabilizer(const Stabilizer&) = delete;
    Stabilizer& operator=(const Stabilizer&) = delete;
    ~Stabilizer() { ZPR_Deinit(&handle_); }

    void addSample(int type, double time, double x, double y, double z) {
        const ZPR_SensorData sample{type, time, {x, y, z, 0.0}};
        if (ZPR_SetSensorData(handle_, &sample) != ZPR_OK) {
            throw std::runtime_error("ZPR_SetSensorData");
        }
    }
    int stabilize(double time, const ZPR_Image& in, ZPR_Image& out) {
        return ZPR_Stabilize(handle_, time, &in, &out, nullptr);
    }

private:
    ZPR_Handle handle_ = nullptr;
};

ZPR_Image imageIn(std::vector<uint8_t>& pixels) {
    ZPR_Image image{};
    image.format = ZPR_FORMAT_SEMIPLANAR_1;
    image.width = image.pitch[0] = image.pitch[1] = kWidth;
    image.height = kHeight;
    image.plane[0] = pixels.data();
    image.plane[1] = pixels.data() + kWidth * kHeight;
    return image;
}

}  // namespace

int main() {
    ZPR_Version version;
    ZPR_GetVersion(&version);
    std::vector<uint8_t> pixels(kWidth * kHeight * 3 / 2), steady(pixels.size());
    for (size_t i = 0; i < pixels.size(); ++i)
        pixels[i] = static_cast<uint8_t>(i * 7 + i / 64 * 13);
    const ZPR_Image in = imageIn(pixels);
    ZPR_Image out = imageIn(steady);
    Stabilizer stabilizer(in);
    unsigned checksum = 1;
    int written = 0;
    for (int i = 0; i < 60; ++i) {
        const double time = 1.0 + i / 200.0;
        stabilizer.addSample(ZPR_SENSOR_GRAVITY_1, time, 0.0, 9.81, 0.0);
        stabilizer.addSample(ZPR_SENSOR_RATE_1, time, 0.2, i % 7 * 0.125 - 0.375, 0.1);
        if (i % 6 != 5) continue;
        if (stabilizer.stabilize(time, in, out) != ZPR_OK) continue;
        ++written;
        for (const uint8_t pixel : steady) checksum = checksum * 31u + pixel;
    }
    std::printf("%d.%d.%d %d frames %08x\n", version.major, version.minor, version.build, written,
                checksum);
    return version.major == ZPR_VERSION_MAJOR && version.build == ZPR_VERSION_BUILD ? 0 : 1;
}

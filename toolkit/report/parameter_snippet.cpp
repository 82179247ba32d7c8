#include "report/parameter_snippet.h"

#include <fmt/format.h>

namespace framehold {

namespace {

std::string modeName(int mode) {
    switch (mode) {
        case ZPR_FOV_WIDTH:
            return "ZPR_FOV_WIDTH";
        case ZPR_FOV_HEIGHT:
            return "ZPR_FOV_HEIGHT";
        case ZPR_FOV_DIAGONAL:
            return "ZPR_FOV_DIAGONAL";
        default:
            return "ZPR_FOV_FOCAL_LENGTH";
    }
}

std::string maskOf(int mask) {
    static constexpr const char* kNames[] = {"GRAVITY_1", "GRAVITY_2",  "RATE_1",
                                             "RATE_2",    "ROTATION_1", "ROTATION_2"};
    std::string terms;
    for (int type = ZPR_SENSOR_GRAVITY_1; type <= ZPR_SENSOR_ROTATION_2; ++type) {
        if ((mask & ZPR_SENSOR_BIT(type)) == 0) continue;
        if (!terms.empty()) terms += " |\n                   ";
        terms += fmt::format("ZPR_SENSOR_BIT(ZPR_SENSOR_{})", kNames[type - 1]);
    }
    return terms;
}

std::string imageLines(const char* name, const ZPR_Image& image) {
    return fmt::format(
        "param.{0}.format = ZPR_FORMAT_SEMIPLANAR_1;\n"
        "param.{0}.width = {1};\n"
        "param.{0}.height = {2};\n"
        "param.{0}.pitch[0] = param.{0}.pitch[1] = {1};\n",
        name, image.width, image.height);
}

}  // namespace

std::string parameterSnippet(const ZPR_Param& param) {
    return "ZPR_Param param = {0};\nZPR_GetDefaultParam(&param);\n" +
           imageLines("inputImage", param.inputImage) +
           imageLines("outputImage", param.outputImage) +
           fmt::format(
               "param.fieldOfView = {:.10g};\n"
               "param.fieldOfViewMode = {};\n"
               "param.readoutTime = {:.10g}; /* s */\n"
               "param.timeOffset = {:.10g}; /* s */\n"
               "param.sensorMask = {};\n"
               "param.cropPercent = {};\n"
               "param.smoothingLevel = {};\n"
               "param.delayFrames = {};\n",
               param.fieldOfView, modeName(param.fieldOfViewMode), param.readoutTime,
               param.timeOffset, maskOf(param.sensorMask), param.cropPercent, param.smoothingLevel,
               param.delayFrames);
}

}  // namespace framehold

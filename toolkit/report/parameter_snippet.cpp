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

/// The value of a device axis in C.
std::string termOf(const AxisMapping& axes, size_t device) {
    const std::string term = axes.term(device);
    return fmt::format("{}logged[{}]", term[0] == '-' ? "-" : "", term[1] - 'x');
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

std::string cameraSnippet(const ClipMetadata& camera, int height) {
    std::string text = fmt::format(
        "#include <zpr_framehold.h>\n\n"
        "/* The camera, for pictures of {}x{}. */\n"
        "static void fillInCamera(ZPR_Param* param) {{\n",
        *camera.width, height);
    const auto set = [&](const std::optional<double>& value, const char* name) {
        text += value ? fmt::format("    param->{} = {:.6f};\n", name, *value)
                      : fmt::format("    /* {} could not be determined. */\n", name);
    };
    if (camera.focalLength) text += "    param->fieldOfViewMode = ZPR_FOV_FOCAL_LENGTH;\n";
    set(camera.focalLength, "fieldOfView");
    set(camera.readoutTime, "readoutTime");
    set(camera.timeOffset, "timeOffset");
    text += "}\n";
    if (!camera.axes) return text + "\n/* The sensor's axes could not be determined. */\n";
    return text + fmt::format(
                      "\n/* Brings a reading of the sensor to the axes of ZPR_SensorData. */\n"
                      "static void toDeviceAxes(const double logged[3], double device[3]) {{\n"
                      "    device[0] = {};\n    device[1] = {};\n    device[2] = {};\n}}\n",
                      termOf(*camera.axes, 0), termOf(*camera.axes, 1), termOf(*camera.axes, 2));
}

}  // namespace framehold

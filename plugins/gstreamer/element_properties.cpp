#include "gstreamer/element_properties.h"

#include "zpr_framehold.h"

#include <string>

namespace framehold {

namespace {

enum Property : guint {
    kFieldOfView = 1,
    kFieldOfViewMode,
    kFocalLength,
    kReadoutTime,
    kTimeOffset,
    kAxes,
    kMotionFile,
    kClipFile,
    kMotionFromVideo,
    kSensorMask,
    kCrop,
    kSmoothing,
    kDelay,
    kFrameClock,
    kMaxWait,
    kSensorDelay,
    kQos,
    kStats,
};

GType fieldOfViewModeType() {
    static const GEnumValue values[] = {{ZPR_FOV_WIDTH, "Across the width", "width"},
                                        {ZPR_FOV_HEIGHT, "Across the height", "height"},
                                        {ZPR_FOV_DIAGONAL, "Across the diagonal", "diagonal"},
                                        {0, nullptr, nullptr}};
    static const GType type = g_enum_register_static("FrameholdFieldOfViewMode", values);
    return type;
}

GType frameClockType() {
    static const GEnumValue values[] = {
        {static_cast<int>(FrameClock::kAuto), "Stream time with a motion log, else running time",
         "auto"},
        {static_cast<int>(FrameClock::kRunningTime), "Running time", "running-time"},
        {static_cast<int>(FrameClock::kStreamTime), "Stream time", "stream-time"},
        {static_cast<int>(FrameClock::kPipelineClock), "Time of the pipeline's clock",
         "pipeline-clock"},
        {0, nullptr, nullptr}};
    static const GType type = g_enum_register_static("FrameholdFrameClock", values);
    return type;
}

constexpr auto kAnyState = static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS |
                                                    GST_PARAM_MUTABLE_PLAYING);
// From the next start of the stabilization on: with new caps, after a seek or a gap.
constexpr auto kNextStart =
    static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS | GST_PARAM_MUTABLE_READY);

std::string textOf(const GValue& value) {
    const gchar* text = g_value_get_string(&value);
    return text == nullptr ? "" : text;
}

GstStructure* statisticsOf(FrameFilter& filter) {
    const FilterStatistics& s = filter.statistics();
    const auto perFrame = [](uint64_t sum, uint64_t count) {
        return count == 0 ? guint64{0} : static_cast<guint64>(sum / count);
    };
    const auto number = [](const std::atomic<uint64_t>& n) { return static_cast<guint64>(n); };
    return gst_structure_new(
        "framehold-stats", "frames-in", G_TYPE_UINT64, number(s.framesIn), "frames-out",
        G_TYPE_UINT64, number(s.framesOut), "frames-dropped", G_TYPE_UINT64,
        number(s.framesDropped), "frames-without-motion", G_TYPE_UINT64,
        number(s.framesWithoutMotion), "samples-taken", G_TYPE_UINT64, number(s.samplesTaken),
        "samples-dropped", G_TYPE_UINT64, number(s.samplesDropped), "sample-rate", G_TYPE_DOUBLE,
        filter.motion().samplesPerSecond(), "restarts", G_TYPE_UINT64, number(s.restarts),
        "input-copies", G_TYPE_UINT64, number(s.inputCopies), "output-copies", G_TYPE_UINT64,
        number(s.outputCopies), "average-render-time", G_TYPE_UINT64,
        perFrame(s.renderNanoseconds, s.framesOut), "average-wait-time", G_TYPE_UINT64,
        perFrame(s.waitNanoseconds, s.framesIn), "smoothing", G_TYPE_INT, s.smoothingLevel.load(),
        "latency", G_TYPE_UINT64, static_cast<guint64>(filter.latency()), nullptr);
}

void installCamera(GObjectClass* type) {
    g_object_class_install_property(
        type, kFieldOfView,
        g_param_spec_double("field-of-view", "Field of view",
                            "Angle of view in degrees across the side that field-of-view-mode "
                            "names; used where focal-length is not set",
                            0.1, 179.9, 65.4002, kNextStart));
    g_object_class_install_property(
        type, kFieldOfViewMode,
        g_param_spec_enum("field-of-view-mode", "Field of view mode",
                          "Side of the picture that field-of-view is across", fieldOfViewModeType(),
                          ZPR_FOV_WIDTH, kNextStart));
    g_object_class_install_property(
        type, kFocalLength,
        g_param_spec_double("focal-length", "Focal length",
                            "Focal length in pixels; 0: that of clip-file, else by field-of-view",
                            0.0, 1e6, 0.0, kNextStart));
    g_object_class_install_property(
        type, kReadoutTime,
        g_param_spec_double("readout-time", "Readout time",
                            "Seconds from the exposure of a frame's first row to that of its last "
                            "(rolling shutter); default: that of clip-file, a table of frames or "
                            "the motion log",
                            0.0, 1.0, 0.0299, kNextStart));
    g_object_class_install_property(
        type, kTimeOffset,
        g_param_spec_double("time-offset", "Time offset",
                            "Seconds to add to a frame's time to get the sensors' time at which "
                            "its first row was exposed; default: that of clip-file",
                            -1e9, 1e9, 0.0, kNextStart));
    g_object_class_install_property(
        type, kAxes,
        g_param_spec_string("axes", "Axes",
                            "Logged axes as device x, y, z, lower case: negated, such as YxZ; "
                            "default: those of clip-file or the motion log, else XYZ",
                            nullptr, kNextStart));
}

void installMotion(GObjectClass* type) {
    g_object_class_install_property(
        type, kMotionFile,
        g_param_spec_string("motion-file", "Motion file",
                            "Motion log of any known format, or a video with telemetry; default: "
                            "that of clip-file, else samples come live",
                            nullptr, kNextStart));
    g_object_class_install_property(
        type, kClipFile,
        g_param_spec_string("clip-file", "Clip file",
                            "clip.json with the recording's metadata, for all that is not set",
                            nullptr, kNextStart));
    g_object_class_install_property(
        type, kMotionFromVideo,
        g_param_spec_boolean("motion-from-video", "Motion from video",
                             "Without motion-file: find the metadata and the motion log beside "
                             "the local file that is played, or the telemetry in it",
                             FALSE, kNextStart));
    g_object_class_install_property(
        type, kSensorMask,
        g_param_spec_uint("sensor-mask", "Sensor mask",
                          "Types of samples that are used, bit 0 for type 1; 0: those that there "
                          "are, orientations first if samples come live",
                          0, 63, kAutoMask, kNextStart));
    g_object_class_install_property(
        type, kFrameClock,
        g_param_spec_enum("frame-clock", "Frame clock",
                          "Time of frames that the times of samples are compared with",
                          frameClockType(), static_cast<int>(FrameClock::kAuto), kNextStart));
    g_object_class_install_property(
        type, kMaxWait,
        g_param_spec_uint64("max-wait", "Longest wait",
                            "Nanoseconds that a frame waits at most for its samples", 0,
                            G_MAXUINT64, ElementSettings().maxWait, kAnyState));
    g_object_class_install_property(
        type, kSensorDelay,
        g_param_spec_uint64("sensor-delay", "Sensor delay",
                            "Nanoseconds that samples come later than frames of the same time; "
                            "added to the latency",
                            0, 60 * GST_SECOND, 0, kNextStart));
}

void installResult(GObjectClass* type) {
    g_object_class_install_property(
        type, kCrop,
        g_param_spec_int("crop", "Crop", "Percent of the width and height that is shown", 1, 100,
                         ElementSettings().crop, kNextStart));
    g_object_class_install_property(
        type, kSmoothing,
        g_param_spec_int("smoothing", "Smoothing",
                         "Strength of the smoothing; 0: chosen for every frame, up to 9", 0, 10,
                         kAutoSmoothing, kAnyState));
    g_object_class_install_property(
        type, kDelay,
        g_param_spec_int("delay", "Delay",
                         "Frames that are held back so that the smoothing sees what comes", 0,
                         kLargestDelay, ElementSettings().delay, kNextStart));
    g_object_class_install_property(
        type, kQos,
        g_param_spec_boolean("qos", "Quality of service",
                             "Leave out frames that are too late to be shown", TRUE, kAnyState));
    g_object_class_install_property(
        type, kStats,
        g_param_spec_boxed("stats", "Statistics", "Counts since the element was started",
                           GST_TYPE_STRUCTURE,
                           static_cast<GParamFlags>(G_PARAM_READABLE | G_PARAM_STATIC_STRINGS)));
}

}  // namespace

void installProperties(GObjectClass* type) {
    installCamera(type);
    installMotion(type);
    installResult(type);
    gst_type_mark_as_plugin_api(fieldOfViewModeType(), static_cast<GstPluginAPIFlags>(0));
    gst_type_mark_as_plugin_api(frameClockType(), static_cast<GstPluginAPIFlags>(0));
}

bool setProperty(guint number, const GValue& value, ElementSettings& settings) {
    switch (number) {
        case kFieldOfView:
            settings.fieldOfView = g_value_get_double(&value);
            return true;
        case kFieldOfViewMode:
            settings.fieldOfViewMode = g_value_get_enum(&value);
            return true;
        case kFocalLength: {
            const double pixels = g_value_get_double(&value);
            settings.focalLength.reset();
            if (pixels > 0.0) settings.focalLength = pixels;
            return true;
        }
        case kReadoutTime:
            settings.readoutTime = g_value_get_double(&value);
            return true;
        case kTimeOffset:
            settings.timeOffset = g_value_get_double(&value);
            return true;
        case kAxes:
            settings.axes = textOf(value);
            return true;
        case kMotionFile:
            settings.motionFile = textOf(value);
            return true;
        case kClipFile:
            settings.clipFile = textOf(value);
            return true;
        case kMotionFromVideo:
            settings.motionFromVideo = g_value_get_boolean(&value);
            return true;
        case kSensorMask:
            settings.sensorMask = g_value_get_uint(&value);
            return true;
        case kCrop:
            settings.crop = g_value_get_int(&value);
            return true;
        case kSmoothing:
            settings.smoothing = g_value_get_int(&value);
            return true;
        case kDelay:
            settings.delay = g_value_get_int(&value);
            return true;
        case kFrameClock:
            settings.frameClock = static_cast<FrameClock>(g_value_get_enum(&value));
            return true;
        case kMaxWait:
            settings.maxWait = g_value_get_uint64(&value);
            return true;
        case kSensorDelay:
            settings.sensorDelay = g_value_get_uint64(&value);
            return true;
        case kQos:
            settings.qos = g_value_get_boolean(&value);
            return true;
        default:
            return false;
    }
}

bool getProperty(guint number, FrameFilter& filter, GValue& value) {
    const ElementSettings s = filter.settings();
    const auto setText = [&](const std::string& text) {
        g_value_set_string(&value, text.empty() ? nullptr : text.c_str());
    };
    switch (number) {
        case kFieldOfView:
            g_value_set_double(&value, s.fieldOfView.value_or(65.4002));
            break;
        case kFieldOfViewMode:
            g_value_set_enum(&value, s.fieldOfViewMode);
            break;
        case kFocalLength:
            g_value_set_double(&value, s.focalLength.value_or(0.0));
            break;
        case kReadoutTime:
            g_value_set_double(&value, s.readoutTime.value_or(0.0299));
            break;
        case kTimeOffset:
            g_value_set_double(&value, s.timeOffset.value_or(0.0));
            break;
        case kAxes:
            setText(s.axes);
            break;
        case kMotionFile:
            setText(s.motionFile);
            break;
        case kClipFile:
            setText(s.clipFile);
            break;
        case kMotionFromVideo:
            g_value_set_boolean(&value, s.motionFromVideo);
            break;
        case kSensorMask:
            g_value_set_uint(&value, s.sensorMask);
            break;
        case kCrop:
            g_value_set_int(&value, s.crop);
            break;
        case kSmoothing:
            g_value_set_int(&value, s.smoothing);
            break;
        case kDelay:
            g_value_set_int(&value, s.delay);
            break;
        case kFrameClock:
            g_value_set_enum(&value, static_cast<int>(s.frameClock));
            break;
        case kMaxWait:
            g_value_set_uint64(&value, s.maxWait);
            break;
        case kSensorDelay:
            g_value_set_uint64(&value, s.sensorDelay);
            break;
        case kQos:
            g_value_set_boolean(&value, s.qos);
            break;
        case kStats:
            g_value_take_boxed(&value, statisticsOf(filter));
            break;
        default:
            return false;
    }
    return true;
}

}  // namespace framehold

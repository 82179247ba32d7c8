#include "gstreamer/iio_source.h"

#include "common/text_fields.h"
#include "gstreamer/iio_device.h"
#include "gstreamer/motion_record.h"

#include <algorithm>
#include <cerrno>
#include <exception>
#include <string>
#include <vector>

#include <gst/base/gstpushsrc.h>

using framehold::IioDevice;
using framehold::IioMode;

namespace {

constexpr double kPolledRate = 100.0;  // samples per second, where the device does not say

struct OpenDevice {
    explicit OpenDevice(IioDevice&& opened) : device(std::move(opened)) {}

    IioDevice device;
    GstPollFD pollFd = GST_POLL_FD_INIT;
    gint64 period = 0;  // microseconds, of polling
    gint64 due = 0;     // monotonic microseconds
    bool isAtEnd = false;
};

/// The C++ part of an element. Settings are guarded by the object's lock.
struct SourceParts {
    std::string sysfsRoot = "/sys/bus/iio/devices";
    std::string deviceFolder = "/dev";
    std::string devices;
    int mode = static_cast<int>(IioMode::kAuto);
    double rate = 0.0;
    int bufferLength = 128;

    GstPoll* poll = nullptr;
    std::vector<OpenDevice> open;
};

enum Property : guint { kSysfsRoot = 1, kDeviceFolder, kDevices, kMode, kRate, kBufferLength };

GType modeType() {
    static const GEnumValue values[] = {
        {static_cast<int>(IioMode::kAuto), "From the buffer, if the device has one that starts",
         "auto"},
        {static_cast<int>(IioMode::kBuffer), "From the buffer", "buffer"},
        {static_cast<int>(IioMode::kPoll), "By reading the files of the last values", "poll"},
        {0, nullptr, nullptr}};
    static const GType type = g_enum_register_static("FrameholdIioMode", values);
    return type;
}

GstStaticPadTemplate srcTemplate = GST_STATIC_PAD_TEMPLATE(
    "src", GST_PAD_SRC, GST_PAD_ALWAYS, GST_STATIC_CAPS("application/x-framehold-motion"));

}  // namespace

struct FrameholdIioSource {
    GstPushSrc base;
    SourceParts* parts;
};

struct FrameholdIioSourceClass {
    GstPushSrcClass base;
};

G_DEFINE_TYPE(FrameholdIioSource, framehold_iio_source, GST_TYPE_PUSH_SRC)

namespace {

FrameholdIioSource* sourceOf(gpointer object) {
    return reinterpret_cast<FrameholdIioSource*>(object);
}

void setProperty(GObject* object, guint id, const GValue* value, GParamSpec* spec) {
    SourceParts& parts = *sourceOf(object)->parts;
    const auto text = [value] {
        const gchar* given = g_value_get_string(value);
        return std::string(given == nullptr ? "" : given);
    };
    GST_OBJECT_LOCK(object);
    switch (id) {
        case kSysfsRoot:
            parts.sysfsRoot = text();
            break;
        case kDeviceFolder:
            parts.deviceFolder = text();
            break;
        case kDevices:
            parts.devices = text();
            break;
        case kMode:
            parts.mode = g_value_get_enum(value);
            break;
        case kRate:
            parts.rate = g_value_get_double(value);
            break;
        case kBufferLength:
            parts.bufferLength = g_value_get_int(value);
            break;
        default:
            G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, spec);
    }
    GST_OBJECT_UNLOCK(object);
}

void getProperty(GObject* object, guint id, GValue* value, GParamSpec* spec) {
    const SourceParts& parts = *sourceOf(object)->parts;
    GST_OBJECT_LOCK(object);
    switch (id) {
        case kSysfsRoot:
            g_value_set_string(value, parts.sysfsRoot.c_str());
            break;
        case kDeviceFolder:
            g_value_set_string(value, parts.deviceFolder.c_str());
            break;
        case kDevices:
            g_value_set_string(value, parts.devices.c_str());
            break;
        case kMode:
            g_value_set_enum(value, parts.mode);
            break;
        case kRate:
            g_value_set_double(value, parts.rate);
            break;
        case kBufferLength:
            g_value_set_int(value, parts.bufferLength);
            break;
        default:
            G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, spec);
    }
    GST_OBJECT_UNLOCK(object);
}

std::vector<std::string> namesIn(const std::string& list) {
    std::vector<std::string> names;
    if (list.empty()) return names;
    for (const auto field : framehold::splitFields(list, ',')) names.emplace_back(field);
    return names;
}

void closeDevices(SourceParts& parts) {
    parts.open.clear();
    if (parts.poll != nullptr) gst_poll_free(parts.poll);
    parts.poll = nullptr;
}

/// Throws FileError.
void openDevices(FrameholdIioSource* self) {
    SourceParts& parts = *self->parts;
    GST_OBJECT_LOCK(self);
    const std::string root = parts.sysfsRoot;
    const std::string folder = parts.deviceFolder;
    const std::string names = parts.devices;
    const auto mode = static_cast<IioMode>(parts.mode);
    const double rate = parts.rate;
    const int bufferLength = parts.bufferLength;
    GST_OBJECT_UNLOCK(self);
    parts.poll = gst_poll_new(TRUE);
    for (IioDevice& found : IioDevice::find(root, folder, namesIn(names))) {
        parts.open.emplace_back(std::move(found));
    }
    if (parts.open.empty()) {
        throw framehold::FileError(
            root, 0,
            "holds no gyroscope and no accelerometer" + (names.empty() ? "" : " called " + names));
    }
    for (OpenDevice& opened : parts.open) {
        IioDevice& device = opened.device;
        if (rate > 0.0) device.setRate(rate);
        device.start(mode, bufferLength);
        if (device.descriptor() >= 0) {
            opened.pollFd.fd = device.descriptor();
            gst_poll_add_fd(parts.poll, &opened.pollFd);
            gst_poll_fd_ctl_read(parts.poll, &opened.pollFd, TRUE);
            continue;
        }
        const double polled = rate > 0.0 ? rate : device.rate().value_or(kPolledRate);
        opened.period = std::max<gint64>(1, static_cast<gint64>(G_USEC_PER_SEC / polled));
        opened.due = g_get_monotonic_time();
        if (!device.reasonToPoll().empty()) {
            GST_ELEMENT_WARNING(
                self, RESOURCE, SETTINGS,
                ("%s is polled, %g times per second", device.name().c_str(), polled),
                ("%s", device.reasonToPoll().c_str()));
        }
    }
}

gboolean start(GstBaseSrc* base) {
    FrameholdIioSource* self = sourceOf(base);
    try {
        openDevices(self);
        return TRUE;
    } catch (const std::exception& error) {
        closeDevices(*self->parts);
        GST_ELEMENT_ERROR(self, RESOURCE, OPEN_READ, ("%s", error.what()), (nullptr));
        return FALSE;
    }
}

gboolean stop(GstBaseSrc* base) {
    closeDevices(*sourceOf(base)->parts);
    return TRUE;
}

gboolean setFlushing(GstBaseSrc* base, gboolean isFlushing) {
    GstPoll* poll = sourceOf(base)->parts->poll;
    if (poll != nullptr) gst_poll_set_flushing(poll, isFlushing);
    return TRUE;
}

gboolean unlock(GstBaseSrc* base) { return setFlushing(base, TRUE); }

gboolean unlockStop(GstBaseSrc* base) { return setFlushing(base, FALSE); }

/// Nanoseconds until a device has to be polled.
GstClockTime timeToWait(const SourceParts& parts) {
    gint64 due = G_MAXINT64;
    for (const OpenDevice& opened : parts.open) {
        if (opened.period > 0) due = std::min(due, opened.due);
    }
    if (due == G_MAXINT64) return GST_CLOCK_TIME_NONE;
    const gint64 wait = std::max<gint64>(0, due - g_get_monotonic_time());
    return static_cast<GstClockTime>(wait) * GST_USECOND;
}

/// Reads what is there. Throws FileError.
std::vector<ZPR_SensorData> readSamples(SourceParts& parts) {
    std::vector<ZPR_SensorData> samples;
    // The clock of the kernel's timestamps, unless somebody has chosen another one.
    const double now = static_cast<double>(g_get_real_time()) / G_USEC_PER_SEC;
    for (OpenDevice& opened : parts.open) {
        if (opened.period > 0) {
            const gint64 passed = g_get_monotonic_time() - opened.due;
            if (passed < 0) continue;
            opened.device.read(now, samples);
            // Readings that were missed are not made up for.
            opened.due += opened.period * (1 + passed / opened.period);
        } else if (!opened.isAtEnd && (gst_poll_fd_can_read(parts.poll, &opened.pollFd) ||
                                       gst_poll_fd_has_closed(parts.poll, &opened.pollFd) ||
                                       gst_poll_fd_has_error(parts.poll, &opened.pollFd))) {
            opened.isAtEnd = !opened.device.read(now, samples);
            if (opened.isAtEnd) gst_poll_remove_fd(parts.poll, &opened.pollFd);
        }
    }
    if (parts.open.size() > 1) {
        std::stable_sort(samples.begin(), samples.end(),
                         [](const ZPR_SensorData& a, const ZPR_SensorData& b) {
                             return a.timestamp < b.timestamp;
                         });
    }
    return samples;
}

/// Running time of the first sample; the last one has just come.
GstClockTime runningTimeOf(GstElement* self, const std::vector<ZPR_SensorData>& samples) {
    GstClock* clock = gst_element_get_clock(self);
    if (clock == nullptr) return GST_CLOCK_TIME_NONE;
    const GstClockTime now = gst_clock_get_time(clock);
    gst_object_unref(clock);
    const double length = samples.back().timestamp - samples.front().timestamp;
    const auto taken = static_cast<GstClockTime>(std::clamp(length, 0.0, 1.0) * GST_SECOND);
    const GstClockTime start = gst_element_get_base_time(self) + taken;
    return now > start ? now - start : 0;
}

GstFlowReturn create(GstPushSrc* base, GstBuffer** buffer) {
    FrameholdIioSource* self = sourceOf(base);
    SourceParts& parts = *self->parts;
    std::vector<ZPR_SensorData> samples;
    while (samples.empty()) {
        const bool isAtEnd = std::all_of(parts.open.begin(), parts.open.end(),
                                         [](const OpenDevice& o) { return o.isAtEnd; });
        if (isAtEnd) return GST_FLOW_EOS;
        if (gst_poll_wait(parts.poll, timeToWait(parts)) < 0) {
            if (errno == EBUSY) return GST_FLOW_FLUSHING;
            if (errno == EINTR || errno == EAGAIN) continue;
        }
        try {
            samples = readSamples(parts);
        } catch (const std::exception& error) {
            GST_ELEMENT_ERROR(self, RESOURCE, READ, ("%s", error.what()), (nullptr));
            return GST_FLOW_ERROR;
        }
    }
    std::vector<uint8_t> records(samples.size() * framehold::kMotionRecordSize);
    for (size_t i = 0; i < samples.size(); ++i) {
        framehold::writeMotionRecord(samples[i], records.data() + i * framehold::kMotionRecordSize);
    }
    *buffer = gst_buffer_new_memdup(records.data(), records.size());
    GST_BUFFER_PTS(*buffer) = runningTimeOf(GST_ELEMENT(self), samples);
    return GST_FLOW_OK;
}

void finalize(GObject* object) {
    closeDevices(*sourceOf(object)->parts);
    delete sourceOf(object)->parts;
    G_OBJECT_CLASS(framehold_iio_source_parent_class)->finalize(object);
}

}  // namespace

static void framehold_iio_source_init(FrameholdIioSource* self) {
    self->parts = new SourceParts;
    GstBaseSrc* base = GST_BASE_SRC(self);
    gst_base_src_set_live(base, TRUE);
    gst_base_src_set_format(base, GST_FORMAT_TIME);
}

static void framehold_iio_source_class_init(FrameholdIioSourceClass* klass) {
    GObjectClass* object = G_OBJECT_CLASS(klass);
    object->set_property = setProperty;
    object->get_property = getProperty;
    object->finalize = finalize;
    constexpr auto kFlags = static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS |
                                                     GST_PARAM_MUTABLE_READY);
    const SourceParts defaults;
    g_object_class_install_property(
        object, kSysfsRoot,
        g_param_spec_string("sysfs-root", "Root in sysfs", "Folder of the devices in sysfs",
                            defaults.sysfsRoot.c_str(), kFlags));
    g_object_class_install_property(
        object, kDeviceFolder,
        g_param_spec_string("device-folder", "Device folder", "Folder of the character devices",
                            defaults.deviceFolder.c_str(), kFlags));
    g_object_class_install_property(
        object, kDevices,
        g_param_spec_string("devices", "Devices",
                            "Names (of sensors, or iio:device0) to take, with commas between; "
                            "empty: all with a gyroscope or an accelerometer",
                            "", kFlags));
    g_object_class_install_property(object, kMode,
                                    g_param_spec_enum("mode", "Mode", "How samples are taken",
                                                      modeType(), defaults.mode, kFlags));
    g_object_class_install_property(
        object, kRate,
        g_param_spec_double("rate", "Rate", "Samples per second to set; 0: as the device is set",
                            0.0, 100000.0, defaults.rate, kFlags));
    g_object_class_install_property(
        object, kBufferLength,
        g_param_spec_int("buffer-length", "Buffer length", "Records that the kernel buffers", 2,
                         65536, defaults.bufferLength, kFlags));

    GstElementClass* element = GST_ELEMENT_CLASS(klass);
    gst_element_class_add_static_pad_template(element, &srcTemplate);
    gst_element_class_set_static_metadata(
        element, "Motion sensors", "Source/Sensor/Hardware",
        "Samples of a gyroscope and an accelerometer of Linux' industrial I/O",
        "The Framehold developers");
    gst_type_mark_as_plugin_api(modeType(), static_cast<GstPluginAPIFlags>(0));

    GstBaseSrcClass* source = GST_BASE_SRC_CLASS(klass);
    source->start = start;
    source->stop = stop;
    source->unlock = unlock;
    source->unlock_stop = unlockStop;
    GST_PUSH_SRC_CLASS(klass)->create = create;
}

GType framehold::iioSourceType() { return framehold_iio_source_get_type(); }

#include "core/stabilizer_class.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <new>
#include <stdexcept>
#include <string>

#include <pybind11/stl.h>
#include <unistd.h>

namespace framehold {

namespace py = pybind11;

namespace {

/// For codes that no argument of ours should bring.
void require(int code, const char* function) {
    if (code == ZPR_ERR_NO_MEMORY) throw std::bad_alloc();
    if (code != ZPR_OK) {
        throw std::runtime_error(std::string(function) + " returned " + std::to_string(code));
    }
}

ZPR_Param paramOf(const py::object& p) {
    ZPR_Param param{};
    require(ZPR_GetDefaultParam(&param), "ZPR_GetDefaultParam");
    const auto integer = [&p](const char* name) { return p.attr(name).cast<int32_t>(); };
    const auto imageOf = [&integer](const char* width, const char* height) {
        ZPR_Image image{};
        image.format = ZPR_FORMAT_SEMIPLANAR_1;
        image.width = integer(width);
        image.height = integer(height);
        image.pitch[0] = image.pitch[1] = image.width;
        return image;
    };
    param.inputImage = imageOf("width", "height");
    param.outputImage = imageOf("output_width", "output_height");
    param.fieldOfView = p.attr("field_of_view").cast<double>();
    param.fieldOfViewMode = integer("field_of_view_mode");
    param.readoutTime = p.attr("readout_time").cast<double>();
    param.timeOffset = p.attr("time_offset").cast<double>();
    param.sensorMask = integer("sensor_mask");
    param.cropPercent = integer("crop_percent");
    param.smoothingLevel = integer("smoothing_level");
    param.delayFrames = integer("delay_frames");
    return param;
}

/// The number that an object is. Throws ParameterError.
template <class Number>
Number numberOf(const char* field, const py::handle& object, const char* allowed) {
    try {
        return object.cast<Number>();
    } catch (const py::cast_error&) {
        throw parameterError(field, textOf(py::repr(object)), allowed);
    }
}

ZPR_SensorData sampleOf(const py::object& object) {
    if (!py::isinstance<py::tuple>(object) || py::len(object) != 6) {
        throw parameterError("sample", "a " + textOf(py::type::of(object).attr("__name__")),
                             "a Sample, or an array of SAMPLE_DTYPE");
    }
    const auto fields = py::reinterpret_borrow<py::tuple>(object);
    ZPR_SensorData sample{};
    sample.type = numberOf<int32_t>("type", fields[0], "an integer, 1 to 6");
    sample.timestamp = numberOf<double>("time", fields[1], "a number (seconds)");
    constexpr std::array kNames{"x", "y", "z", "w"};
    for (size_t i = 0; i < 4; ++i) {
        sample.value[i] = numberOf<double>(kNames[i], fields[2 + i], "a number");
    }
    return sample;
}

bool isEnabled(int32_t type, int32_t mask) {
    return type >= ZPR_SENSOR_GRAVITY_1 && type <= ZPR_SENSOR_ROTATION_2 &&
           (ZPR_SENSOR_BIT(type) & mask) != 0;
}

void requireEnabled(int32_t type, int32_t mask) {
    if (isEnabled(type, mask)) return;
    throw parameterError("type", std::to_string(type),
                         "1 to 6, of those that sensor_mask " + std::to_string(mask) + " enables");
}

using Samples = py::array_t<ZPR_SensorData, py::array::c_style>;

/// Samples of an array (N,) of SAMPLE_DTYPE, all enabled.
Samples samplesOf(const py::object& object, int32_t mask) {
    const auto given = py::reinterpret_borrow<py::array>(object);
    if (!given.dtype().is(py::dtype::of<ZPR_SensorData>()) &&
        !given.dtype().equal(py::dtype::of<ZPR_SensorData>())) {
        throw parameterError("sample", "an array of " + textOf(given.dtype()),
                             "a Sample, or an array of SAMPLE_DTYPE");
    }
    if (given.ndim() != 1) {
        throw parameterError("sample", "an array of shape " + textOf(given.attr("shape")),
                             "an array of shape (N,)");
    }
    auto samples = Samples::ensure(given);
    if (!samples) throw py::error_already_set();
    for (py::ssize_t i = 0; i < samples.size(); ++i) requireEnabled(samples.data()[i].type, mask);
    return samples;
}

/// Levels that a policy chooses for frames at `times`, before each of which so many samples have
/// been fed as `fed` says, which grows.
py::array_t<int32_t> smoothingLevels(const py::object& parameters, const py::array& samples,
                                     const py::array_t<double, py::array::c_style>& times,
                                     const py::array_t<int64_t, py::array::c_style>& fed) {
    const ZPR_Param param = paramOf(parameters);
    const Samples all = samplesOf(samples, param.sensorMask);
    ZPR_SmoothingPolicy policy;
    require(ZPR_StartSmoothingPolicy(&policy, &param), "ZPR_StartSmoothingPolicy");
    py::array_t<int32_t> levels(times.size());
    int64_t next = 0;
    for (py::ssize_t i = 0; i < times.size(); ++i) {
        for (; next < fed.data()[i]; ++next) {
            ZPR_FeedSmoothingPolicy(&policy, all.data() + next);
        }
        levels.mutable_data()[i] = ZPR_ChooseSmoothingLevel(&policy, times.data()[i]);
    }
    return levels;
}

}  // namespace

StabilizerClass::Use::Use(StabilizerClass& owner) : owner_(owner) {
    if (owner.isForeign()) {
        throw std::runtime_error("the stabilizer belongs to the process that forked this one");
    }
    int idle = kIdle;
    if (owner.state_.compare_exchange_strong(idle, kBusy)) return;
    throw std::runtime_error(idle >= kClosing ? "the stabilizer is closed"
                                              : "the stabilizer is used by two threads at once");
}

StabilizerClass::Use::~Use() {
    int busy = kBusy;
    if (!owner_.state_.compare_exchange_strong(busy, kIdle)) owner_.release();
}

StabilizerClass::StabilizerClass(const py::object& parameters, bool choosesLevel)
    : param_(paramOf(parameters)), strongest_(param_.smoothingLevel), process_(getpid()) {
    if (choosesLevel) startPolicy();
    const py::gil_scoped_release release;
    require(ZPR_Init(nullptr, &param_, &handle_), "ZPR_Init");
}

StabilizerClass::~StabilizerClass() { close(); }

void StabilizerClass::startPolicy() {
    param_.smoothingLevel = strongest_;
    require(ZPR_StartSmoothingPolicy(&policy_.emplace(), &param_), "ZPR_StartSmoothingPolicy");
}

/// A forked child has none of the instance's workers: the library must not be called for it there.
bool StabilizerClass::isForeign() const { return getpid() != process_; }

void StabilizerClass::release() {
    state_ = kClosed;
    if (isForeign()) return;
    const py::gil_scoped_release release;
    ZPR_Deinit(&handle_);
}

void StabilizerClass::close() {
    int idle = kIdle;
    int busy = kBusy;
    if (state_.compare_exchange_strong(idle, kClosed)) return release();
    // The call that is running releases the instance when it ends.
    state_.compare_exchange_strong(busy, kClosing);
}

void StabilizerClass::push(const py::object& object) {
    if (!py::isinstance<py::array>(object)) {
        const ZPR_SensorData sample = sampleOf(object);
        requireEnabled(sample.type, param_.sensorMask);
        const Use use(*this);
        require(feed(&sample, 1), "ZPR_SetSensorData");
        return;
    }
    const Samples samples = samplesOf(object, param_.sensorMask);
    const ZPR_SensorData* first = samples.data();
    const auto count = static_cast<size_t>(samples.size());
    const Use use(*this);
    int code;
    {
        const py::gil_scoped_release release;
        code = feed(first, count);
    }
    require(code, "ZPR_SetSensorData");
}

int StabilizerClass::feed(const ZPR_SensorData* samples, size_t count) {
    int code = ZPR_OK;
    for (size_t i = 0; i < count && code == ZPR_OK; ++i) {
        if (policy_) ZPR_FeedSmoothingPolicy(&*policy_, samples + i);
        code = ZPR_SetSensorData(handle_, samples + i);
    }
    return code;
}

ArrayPlanes StabilizerClass::outputFor(const py::object& out, bool isPair) const {
    const auto& [format, width, height, plane, pitch] = param_.outputImage;
    if (out.is_none()) return ArrayPlanes::makeBlack(width, height, isPair);
    return ArrayPlanes("out", out, width, height, ArrayPlanes::Use::kWrite);
}

/// The delay ring takes whole rows of the pitch that the instance was made with, here the width,
/// in the last row, too: frames with other rows are packed first.
const ZPR_Image& StabilizerClass::laidOutForDelay(const ZPR_Image& image) {
    const int32_t width = image.width;
    const bool isPacked = image.pitch[0] == width && image.pitch[1] == width;
    if (param_.delayFrames == 0 || isPacked) return image;
    const auto lumaBytes = static_cast<size_t>(width) * static_cast<size_t>(image.height);
    pixels_.resize(lumaBytes / 2 * 3);
    packed_ = image;
    packed_.plane[0] = pixels_.data();
    packed_.plane[1] = pixels_.data() + lumaBytes;
    for (int plane = 0; plane < 2; ++plane) {
        packed_.pitch[plane] = width;
        for (int32_t y = 0; y < image.height >> plane; ++y) {
            std::copy_n(image.plane[plane] + ptrdiff_t{y} * image.pitch[plane], width,
                        packed_.plane[plane] + ptrdiff_t{y} * width);
        }
    }
    return packed_;
}

py::object StabilizerClass::stabilize(const py::object& frame, double time, const py::object& out) {
    if (!std::isfinite(time)) {
        throw parameterError("time", std::to_string(time), "seconds, a finite number");
    }
    const Use use(*this);
    const ArrayPlanes input("frame", frame, param_.inputImage.width, param_.inputImage.height,
                            ArrayPlanes::Use::kRead);
    const ArrayPlanes output = outputFor(out, input.isPair());
    if (!out.is_none()) output.requireApart("out", input);
    isLastPair_ = input.isPair();
    if (policy_) param_.smoothingLevel = ZPR_ChooseSmoothingLevel(&*policy_, time);
    ZPR_Image image = output.image();
    const ZPR_Image* given;
    int code;
    {
        const py::gil_scoped_release release;
        given = &laidOutForDelay(input.image());
        code = ZPR_Stabilize(handle_, time, given, &image, &param_);
    }
    const uint8_t* const planes[] = {given->plane[0], given->plane[1], image.plane[0],
                                     image.plane[1]};
    std::transform(std::begin(planes), std::end(planes), lastAddresses_.begin(),
                   [](const uint8_t* plane) { return reinterpret_cast<uintptr_t>(plane); });
    if (code == ZPR_FRAME_BUFFERED) return py::none();
    require(code, "ZPR_Stabilize");
    return output.object();
}

py::object StabilizerClass::drain(const py::object& out) {
    const Use use(*this);
    const ArrayPlanes output = outputFor(out, isLastPair_);
    if (!out.is_none()) output.requireApart("out", output);
    ZPR_Image image = output.image();
    int code;
    {
        const py::gil_scoped_release release;
        code = ZPR_Stabilize(handle_, 0.0, nullptr, &image, &param_);
    }
    // The output has been checked: what is missing is a frame.
    if (code == ZPR_ERR_INVALID_PARAM) return py::none();
    require(code, "ZPR_Stabilize");
    return output.object();
}

void StabilizerClass::reset() {
    const Use use(*this);
    require(ZPR_Reset(handle_), "ZPR_Reset");
    if (policy_) startPolicy();
}

void StabilizerClass::setSmoothingLevel(const py::object& value) {
    constexpr int32_t kLargest = 10;
    const auto level = numberOf<int32_t>("smoothing_level", value, "an integer, 1 to 10");
    if (level < 1 || level > kLargest) {
        throw parameterError("smoothing_level", std::to_string(level), "1 to 10");
    }
    if (policy_) {
        throw parameterError("smoothing_level", std::to_string(level),
                             "none to be set, it is chosen for every frame");
    }
    const Use use(*this);
    param_.smoothingLevel = level;
}

void addStabilizer(py::module_& module) {
    PYBIND11_NUMPY_DTYPE_EX(ZPR_SensorData, type, "type", timestamp, "time", value, "value");
    module.attr("SAMPLE_DTYPE") = py::dtype::of<ZPR_SensorData>();
    py::class_<StabilizerClass>(module, "Stabilizer")
        .def(py::init<const py::object&, bool>(), py::arg("parameters"), py::arg("chooses_level"))
        .def("push", &StabilizerClass::push, py::arg("sample"))
        .def("stabilize", &StabilizerClass::stabilize, py::arg("frame"), py::arg("time"),
             py::arg("out") = py::none())
        .def("drain", &StabilizerClass::drain, py::arg("out") = py::none())
        .def("reset", &StabilizerClass::reset)
        .def("close", &StabilizerClass::close)
        .def_property_readonly("closed", &StabilizerClass::isClosed)
        .def_property_readonly("last_addresses",
                               [](const StabilizerClass& stabilizer) {
                                   return py::tuple(py::cast(stabilizer.lastAddresses()));
                               })
        .def_property("smoothing_level", &StabilizerClass::smoothingLevel,
                      &StabilizerClass::setSmoothingLevel);
    module.def("smoothing_levels", &smoothingLevels, py::arg("parameters"), py::arg("samples"),
               py::arg("times"), py::arg("fed"));
}

}  // namespace framehold

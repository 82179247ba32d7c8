#include "core/array_planes.h"
#include "core/research.h"
#include "motion/motion_log_reader.h"
#include "path/zoom_choice.h"

#include <algorithm>
#include <optional>
#include <string>
#include <utility>

#include <pybind11/stl.h>

namespace framehold {

namespace py = pybind11;

void throwIfSignalled() {
    const py::gil_scoped_acquire acquire;
    if (PyErr_CheckSignals() != 0) throw py::error_already_set();
}

py::str pathText(const std::string& text) {
    PyObject* decoded =
        PyUnicode_DecodeFSDefaultAndSize(text.data(), static_cast<Py_ssize_t>(text.size()));
    if (decoded == nullptr) throw py::error_already_set();
    return py::reinterpret_steal<py::str>(decoded);
}

namespace {

py::dict readLog(const std::string& path) {
    MotionLog log;
    {
        const py::gil_scoped_release release;
        log = readMotionLog(path);
    }
    const auto time = [](const auto& sample) { return sample.time; };
    const auto putVector = [](const MotionSample& s, double* to) {
        std::copy(s.value.begin(), s.value.end(), to);
    };
    const auto putOrientation = [](const OrientationSample& s, double* to) {
        for (const double v : {s.w, s.x, s.y, s.z}) *to++ = v;
    };
    const auto textsOf = [](const std::vector<std::string>& texts) {
        py::list list;
        for (const std::string& text : texts) list.append(pathText(text));
        return list;
    };
    py::dict headers;
    for (const auto& [key, value] : log.headers) headers[pathText(key)] = pathText(value);
    py::dict fields;
    fields["format"] = log.format;
    fields["files"] = textsOf(log.files);
    fields["notes"] = textsOf(log.notes);
    fields["headers"] = headers;
    fields["rate_times"] = columnOf(log.rates, time);
    fields["rates"] = rowsOf(log.rates, 3, putVector);
    fields["gravity_times"] = columnOf(log.gravity, time);
    fields["gravity"] = rowsOf(log.gravity, 3, putVector);
    fields["orientation_times"] = columnOf(log.orientations, time);
    fields["orientations"] = rowsOf(log.orientations, 4, putOrientation);
    fields["axes"] = log.orientation.letters();
    fields["readout_time"] = log.readoutTime;
    return fields;
}

/// Matrix by which the logged axes become those of the device.
py::array_t<double> axisMatrix(const std::string& letters) {
    const AxisMapping mapping = AxisMapping::fromLetters(letters);
    py::array_t<double> matrix({3, 3});
    for (size_t logged = 0; logged < 3; ++logged) {
        Vec3 unit{};
        unit[logged] = 1.0;
        const Vec3 device = mapping.toDevice(unit);
        for (size_t i = 0; i < 3; ++i) matrix.mutable_data()[3 * i + logged] = device[i];
    }
    return matrix;
}

/// times: (N,), values: (N, 3); checked by the caller.
std::vector<MotionSample> samplesOf(const Doubles& times, const Doubles& values) {
    std::vector<MotionSample> samples;
    for (py::ssize_t i = 0; i < times.size(); ++i) {
        const double* v = values.data() + 3 * i;
        samples.push_back({times.data()[i], {v[0], v[1], v[2]}});
    }
    return samples;
}

OrientationTrack trackOf(const Doubles& times, const Doubles& rates) {
    return OrientationTrack(GyroPath(samplesOf(times, rates)));
}

py::array_t<double> orientationRows(const std::vector<Eigen::Quaterniond>& orientations) {
    return rowsOf(orientations, 4, [](const Eigen::Quaterniond& q, double* to) {
        for (const double v : {q.w(), q.x(), q.y(), q.z()}) *to++ = v;
    });
}

py::array_t<double> orientationsAt(const Doubles& times, const Doubles& rateTimes,
                                   const Doubles& rates) {
    std::vector<Eigen::Quaterniond> orientations;
    {
        const OrientationTrack track = trackOf(rateTimes, rates);
        const py::gil_scoped_release release;
        for (py::ssize_t i = 0; i < times.size(); ++i) {
            orientations.push_back(track.at(times.data()[i]));
        }
    }
    return orientationRows(orientations);
}

/// Model and coefficients of a lens.
using Lens = std::pair<std::string, LensDistortion::Coefficients>;

/// Times and samples of gravity, (N,) and (N, 3).
using Gravity = std::pair<Doubles, Doubles>;

/// A camera whose lens covers the picture. Throws ParameterError.
PinholeCamera cameraOf(int width, int height, double focal, double readout,
                       const std::optional<Lens>& lens) {
    PinholeCamera camera{width, height, focal, readout};
    if (!lens) return camera;
    const std::optional<LensModel> model = lensModelOf(lens->first);
    if (!model) throw parameterError("lens.model", lens->first, "none, polynomial or fisheye");
    camera.lens = LensDistortion(*model, lens->second);
    if (camera.isCovered()) return camera;
    throw parameterError("lens",
                         "good for " + std::to_string(camera.lens.largestRadius()) +
                             " focal lengths off the picture's middle",
                         "one whose formula rises up to the picture's corners");
}

py::dict findPath(const Doubles& times, const Doubles& rateTimes, const Doubles& rates, int width,
                  int height, double focal, double readout, const std::optional<Lens>& lens,
                  bool straightens, int outputWidth, int outputHeight, std::optional<double> crop,
                  bool zooms, int smoothing, const std::optional<Gravity>& gravity,
                  double levelling) {
    const OrientationTrack track = trackOf(rateTimes, rates);
    const PinholeCamera source = cameraOf(width, height, focal, readout, lens);
    if (straightens && source.lens.isNone()) {
        throw parameterError("straightens", "True", "False without a lens");
    }
    const auto outputFor = [&](double percent) {
        const auto camera = straightens ? straightened : cropped;
        return camera(source, outputWidth, outputHeight, percent / 100.0);
    };
    const std::vector<double> frames = vectorOf(times);
    PathSettings settings;
    settings.smoothing = smoothingSeconds(smoothing);
    settings.levelling = levelling;
    std::optional<Horizon> horizon;
    if (gravity) {
        horizon.emplace(track, samplesOf(gravity->first, gravity->second), frames);
        if (!horizon->isKnown()) {
            throw parameterError("gravity", "without a direction that lasts",
                                 "what an accelerometer feels, with gravity");
        }
        settings.horizon = &*horizon;
    }
    ChosenCrop found;
    {
        const py::gil_scoped_release release;
        const PathTask task{track,    frames,    source,
                            settings, outputFor, [](double) { throwIfSignalled(); }};
        found = findCroppedPath(task, crop, zooms);
    }
    std::vector<Eigen::Quaterniond> views;
    for (const View& view : found.path.views) views.push_back(view.orientation);
    py::dict fields;
    fields["orientations"] = orientationRows(views);
    fields["share_used"] = columnOf(found.path.shareUsed, [](double share) { return share; });
    fields["zooms"] = columnOf(found.path.views, [](const View& view) { return view.zoom; });
    fields["crop_percent"] = found.crop;
    fields["focal_length"] = outputFor(found.crop).focal;
    return fields;
}

}  // namespace

void addMotion(py::module_& module) {
    module.def("read_motion_log", &readLog, py::arg("path"));
    module.def("axis_matrix", &axisMatrix, py::arg("letters"));
    module.def("orientations_at", &orientationsAt, py::arg("times"), py::arg("rate_times"),
               py::arg("rates"));
    module.def("optimal_path", &findPath, py::arg("times"), py::arg("rate_times"), py::arg("rates"),
               py::arg("width"), py::arg("height"), py::arg("focal_length"),
               py::arg("readout_time"), py::arg("lens"), py::arg("straightens"),
               py::arg("output_width"), py::arg("output_height"), py::arg("crop_percent"),
               py::arg("zooms"), py::arg("smoothing_level"), py::arg("gravity"),
               py::arg("levelling"));
}

}  // namespace framehold

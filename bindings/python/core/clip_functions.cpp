#include "calibration/calibration.h"
#include "core/research.h"
#include "measures/measure_rows.h"
#include "motion/motion_log_reader.h"

#include <algorithm>
#include <optional>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include <pybind11/stl.h>

namespace framehold {

namespace py = pybind11;

namespace {

/// Video, motion log and, unless it is empty, the frames' times.
using ClipFiles = std::tuple<std::string, std::string, std::vector<double>>;

CalibrationClip trackClip(const ClipFiles& files, int maxFrames) {
    const auto& [video, motion, times] = files;
    CalibrationClip clip;
    clip.name = video;
    clip.rates = readMotionLog(motion).angularRates();
    TrackSettings settings;
    settings.maxFrames = maxFrames;
    clip.tracks = trackFeatures(video, settings, throwIfSignalled);
    if (times.empty()) return clip;
    std::vector<double>& frameTimes = clip.tracks.frameTimes;
    if (times.size() < frameTimes.size()) {
        throw std::invalid_argument(video + ": there are fewer frame times than frames");
    }
    std::copy_n(times.begin(), frameTimes.size(), frameTimes.begin());
    return clip;
}

py::tuple tupleOf(const CalibratedValue& value) {
    return py::make_tuple(value.value, value.deviation, nameOf(value.confidence));
}

py::dict calibrateClips(const std::vector<ClipFiles>& files, std::optional<double> focal,
                        std::optional<double> readout, std::optional<double> timeOffset,
                        const std::optional<std::string>& axes, bool findsLens, double range,
                        int maxFrames) {
    CalibrationSettings known;
    known.focal = focal;
    known.readout = readout;
    known.timeOffset = timeOffset;
    if (axes) known.axes = AxisMapping::fromLetters(*axes);
    if (!findsLens) known.lens = LensDistortion();
    known.range = range;
    Calibration found;
    {
        const py::gil_scoped_release release;
        std::vector<CalibrationClip> clips;
        for (const ClipFiles& clip : files) clips.push_back(trackClip(clip, maxFrames));
        found = calibrate(clips, known, throwIfSignalled);
    }
    py::list offsets;
    py::list drifts;
    for (const ClockCalibration& clock : found.clocks) {
        offsets.append(tupleOf(clock.offset));
        drifts.append(tupleOf(clock.drift));
    }
    py::dict fields;
    fields["width"] = found.width;
    fields["height"] = found.height;
    fields["focal_length"] = tupleOf(found.focal);
    fields["readout_time"] = tupleOf(found.readout);
    fields["time_offsets"] = offsets;
    fields["clock_drifts"] = drifts;
    fields["axes"] = found.axes.letters();
    fields["axes_confidence"] = nameOf(found.axesConfidence);
    fields["lens"] = py::none();
    if (found.lens) {
        fields["lens"] = py::make_tuple(nameOf(found.lens->model), tupleOf(found.lens->k1),
                                        tupleOf(found.lens->k2));
    }
    fields["reprojection_error"] = found.reprojectionError;
    fields["reprojection_error_at_rest"] = found.reprojectionErrorAtRest;
    fields["explained_variance"] = found.explainedVariance;
    return fields;
}

py::array_t<double> pathRows(const PicturePath& path) {
    py::array_t<double> rows({static_cast<py::ssize_t>(path.x.size()), py::ssize_t{4}});
    auto to = rows.mutable_unchecked<2>();
    for (size_t i = 0; i < path.x.size(); ++i) {
        const auto row = static_cast<py::ssize_t>(i);
        to(row, 0) = path.x[i];
        to(row, 1) = path.y[i];
        to(row, 2) = path.rotation[i];
        to(row, 3) = path.logScale[i];
    }
    return rows;
}

py::dict measure(const std::string& video, double cutoff) {
    ClipMeasures measures;
    {
        const py::gil_scoped_release release;
        measures = measureClip(video, cutoff, throwIfSignalled);
    }
    py::dict figures;
    for (const MeasureRow& row : measureRows()) figures[row.key] = row.value(measures);
    py::list losses;
    for (const std::string& loss : measures.losses) losses.append(pathText(loss));
    py::dict fields;
    fields["width"] = measures.width;
    fields["height"] = measures.height;
    fields["times"] = columnOf(measures.times, [](double time) { return time; });
    fields["path"] = pathRows(measures.path);
    fields["shake"] = pathRows(measures.shake);
    fields["figures"] = figures;
    fields["lost_frames"] = measures.lostFrames;
    fields["losses"] = losses;
    return fields;
}

}  // namespace

void addClips(py::module_& module) {
    module.def("calibrate", &calibrateClips, py::arg("clips"), py::arg("focal_length"),
               py::arg("readout_time"), py::arg("time_offset"), py::arg("axes"),
               py::arg("finds_lens"), py::arg("range"), py::arg("max_frames"));
    module.def("measure", &measure, py::arg("video"), py::arg("cutoff"));
}

}  // namespace framehold

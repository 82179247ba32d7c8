#include "core/research.h"
#include "simulation/camera.h"
#include "simulation/street.h"

#include <algorithm>
#include <memory>

namespace framehold {

namespace py = pybind11;

namespace {

using namespace simulation;

/// Camera in a hand, before a far town or walked through a street.
class SimulatedCamera {
public:
    SimulatedCamera(int width, int height, double focal, double readout, double shake, double pan,
                    bool walks, uint32_t seed)
        : model_{width, height, focal, readout} {
        PathSettings path;
        path.shake = shake;
        path.pan = pan;
        path.seed = seed;
        motion_ = std::make_unique<CameraPath>(path);
        if (walks) {
            motion_ = std::make_unique<WalkingMotion>(std::move(motion_), WalkSettings());
            world_ = std::make_unique<Street>();
        } else {
            world_ = std::make_unique<Town>();
        }
    }

    py::array_t<uint8_t> frame(double time) const {
        py::array_t<uint8_t> frame(
            {static_cast<py::ssize_t>(model_.height) / 2 * 3, py::ssize_t{model_.width}});
        uint8_t* to = frame.mutable_data();
        const py::gil_scoped_release release;
        const Picture picture = renderFrame(*world_, model_, *motion_, time);
        std::copy(picture.chroma.begin(), picture.chroma.end(),
                  std::copy(picture.luma.begin(), picture.luma.end(), to));
        return frame;
    }

    py::array_t<double> orientations(const Doubles& times, bool steady) const {
        return rowsOf(vectorOf(times), 4, [&](double t, double* to) {
            const Eigen::Quaterniond q = steady ? motion_->steadyAt(t) : motion_->at(t);
            for (const double v : {q.w(), q.x(), q.y(), q.z()}) *to++ = v;
        });
    }

    py::tuple sensors(double from, double to, double rate, double rateNoise, double gravityNoise,
                      uint32_t seed) const {
        SensorSettings settings;
        settings.rate = rate;
        settings.rateNoise = rateNoise;
        settings.gravityNoise = gravityNoise;
        settings.seed = seed;
        const std::vector<SensorReading> readings = readSensors(*motion_, settings, from, to);
        const auto put = [](const Eigen::Vector3d& v, double* row) {
            std::copy(v.begin(), v.end(), row);
        };
        return py::make_tuple(
            columnOf(readings, [](const SensorReading& r) { return r.time; }),
            rowsOf(readings, 3, [&](const SensorReading& r, double* row) { put(r.rate, row); }),
            rowsOf(readings, 3, [&](const SensorReading& r, double* row) { put(r.gravity, row); }));
    }

private:
    CameraModel model_;
    std::unique_ptr<CameraMotion> motion_;
    std::unique_ptr<World> world_;
};

}  // namespace

void addSimulation(py::module_& module) {
    py::class_<SimulatedCamera>(module, "SimulatedCamera")
        .def(py::init<int, int, double, double, double, double, bool, uint32_t>(), py::arg("width"),
             py::arg("height"), py::arg("focal_length"), py::arg("readout_time"), py::arg("shake"),
             py::arg("pan"), py::arg("walks"), py::arg("seed"))
        .def("frame", &SimulatedCamera::frame, py::arg("time"))
        .def("orientations", &SimulatedCamera::orientations, py::arg("times"), py::arg("steady"))
        .def("sensors", &SimulatedCamera::sensors, py::arg("start"), py::arg("end"),
             py::arg("rate"), py::arg("rate_noise"), py::arg("gravity_noise"), py::arg("seed"));
}

}  // namespace framehold

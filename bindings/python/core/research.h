#pragma once

#include <functional>
#include <string>
#include <vector>

#include <pybind11/numpy.h>

namespace framehold {

using Doubles = pybind11::array_t<double, pybind11::array::c_style | pybind11::array::forcecast>;

/// Throws what Python's signal handlers raise, as for Ctrl-C: for work that has released the
/// interpreter's lock, to be called now and then.
void throwIfSignalled();

/// Text as Python has file names: bytes that are no text are kept.
pybind11::str pathText(const std::string& text);

/// Array of rows of `columns` numbers.
template <class Values, class Put>
pybind11::array_t<double> rowsOf(const Values& values, pybind11::ssize_t columns, Put put) {
    pybind11::array_t<double> rows({static_cast<pybind11::ssize_t>(values.size()), columns});
    double* to = rows.mutable_data();
    for (const auto& value : values) {
        put(value, to);
        to += columns;
    }
    return rows;
}

/// Array of one number of each value.
template <class Values, class Get>
pybind11::array_t<double> columnOf(const Values& values, Get get) {
    pybind11::array_t<double> column(static_cast<pybind11::ssize_t>(values.size()));
    double* to = column.mutable_data();
    for (const auto& value : values) *to++ = get(value);
    return column;
}

inline std::vector<double> vectorOf(const Doubles& array) {
    return {array.data(), array.data() + array.size()};
}

// What these add to the module is described in framehold/paths.py and research.py.

/// Adds read_motion_log, orientations_at and optimal_path.
void addMotion(pybind11::module_& module);

/// Adds calibrate and measure.
void addClips(pybind11::module_& module);

/// Adds SimulatedCamera.
void addSimulation(pybind11::module_& module);

}  // namespace framehold

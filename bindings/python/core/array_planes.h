#pragma once

#include "zpr_framehold.h"

#include <optional>
#include <string>
#include <vector>

#include <pybind11/numpy.h>

namespace framehold {

/// Makes the Python exception framehold.ParameterError, to be thrown.
pybind11::error_already_set parameterError(const std::string& field, const std::string& value,
                                           const std::string& allowed);

/// Python's text of an object.
std::string textOf(const pybind11::handle& object);

/// Two-plane 4:2:0 frame in one array (rows * 3 / 2, width), or in two: (rows, width) and
/// (rows / 2, width) or (rows / 2, width / 2, 2). Keeps the arrays alive.
class ArrayPlanes {
public:
    /// What is to be done with a frame.
    enum class Use { kRead, kWrite };

    /// Takes the arrays of `frame`, which has this size. name: for messages. Arrays to be read whose
    /// columns are not next to each other, or whose rows go backwards or overlap, are copied.
    /// Throws ParameterError.
    ArrayPlanes(const std::string& name, const pybind11::object& frame, int width, int height,
                Use use);

    /// A black frame in memory that no other array looks at: as one array or as two.
    static ArrayPlanes makeBlack(int width, int height, bool isPair);

    /// True for a frame in two arrays.
    bool isPair() const { return isPair_; }

    /// The arrays as Python gave them, or takes them.
    const pybind11::object& object() const { return object_; }

    /// The library's description, with the pitches of the arrays.
    const ZPR_Image& image() const { return image_; }

    /// Throws ParameterError with `name` if planes share memory with each other or with another
    /// frame's.
    void requireApart(const std::string& name, const ArrayPlanes& other) const;

private:
    ArrayPlanes() = default;

    void takePlane(const std::string& name, const pybind11::object& array, int plane, Use use);

    pybind11::object object_;
    std::vector<pybind11::array> arrays_;  // whose memory `image_` describes
    bool isPair_ = false;
    ZPR_Image image_{};
};

}  // namespace framehold

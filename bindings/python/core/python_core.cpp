// The extension framehold._core, which the package's Python files are made of.
#include "core/stabilizer_class.h"

#include <pybind11/pybind11.h>

PYBIND11_MODULE(_core, module) {
    ZPR_Version version{};
    ZPR_GetVersion(&version);
    module.attr("__version__") = std::to_string(version.major) + "." +
                                 std::to_string(version.minor) + "." +
                                 std::to_string(version.build);
    framehold::addStabilizer(module);
}

// The extension framehold._core, which the package's Python files are made of.
#include "common/text_fields.h"
#include "core/research.h"
#include "core/stabilizer_class.h"
#include "media/libav.h"

#include <pybind11/pybind11.h>

PYBIND11_MODULE(_core, module) {
    ZPR_Version version{};
    ZPR_GetVersion(&version);
    module.attr("__version__") = std::to_string(version.major) + "." +
                                 std::to_string(version.minor) + "." +
                                 std::to_string(version.build);
    pybind11::register_exception<framehold::FileError>(module, "FileError", PyExc_RuntimeError);
    pybind11::register_exception<framehold::MediaError>(module, "MediaError", PyExc_RuntimeError);
    framehold::keepLibavMessages();
    framehold::addStabilizer(module);
    framehold::addMotion(module);
    framehold::addClips(module);
    framehold::addSimulation(module);
}

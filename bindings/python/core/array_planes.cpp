#include "core/array_planes.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <limits>
#include <utility>
#include <vector>

namespace framehold {

namespace py = pybind11;

namespace {

constexpr uint8_t kBlack = 16;
constexpr uint8_t kNoChroma = 128;

std::string shapeText(const py::array& array) {
    return textOf(array.attr("dtype")) + " of shape " + textOf(array.attr("shape"));
}

std::string wantedText(int rows, int width, bool isChroma) {
    std::string text = "a numpy array, uint8 of shape (" + std::to_string(rows) + ", " +
                       std::to_string(width) + ")";
    if (isChroma) {
        text += " or (" + std::to_string(rows) + ", " + std::to_string(width / 2) + ", 2)";
    }
    return text;
}

bool hasShape(const py::array& array, int rows, int width, bool isChroma) {
    if (array.ndim() == 2) return array.shape(0) == rows && array.shape(1) == width;
    return isChroma && array.ndim() == 3 && array.shape(0) == rows && array.shape(1) == width / 2 &&
           array.shape(2) == 2;
}

/// Bytes from one row to the next if the library can use the array as it is. Strides of dimensions
/// of length 1 mean nothing.
std::optional<int32_t> pitchOf(const py::array& array, int width) {
    const bool areColumnsApart =
        array.ndim() == 2 ? array.strides(1) != 1
                          : array.strides(2) != 1 || (width > 2 && array.strides(1) != 2);
    if (areColumnsApart) return std::nullopt;
    const py::ssize_t pitch = array.shape(0) == 1 ? width : array.strides(0);
    if (pitch < width || pitch > std::numeric_limits<int32_t>::max()) return std::nullopt;
    return static_cast<int32_t>(pitch);
}

struct Bytes {
    uintptr_t begin;
    uintptr_t end;
};

Bytes bytesOf(const ZPR_Image& image, int plane) {
    const auto begin = reinterpret_cast<uintptr_t>(image.plane[plane]);
    const auto rows = static_cast<uintptr_t>(image.height >> plane);
    return {begin, begin + (rows - 1) * static_cast<uintptr_t>(image.pitch[plane]) +
                       static_cast<uintptr_t>(image.width)};
}

bool meet(const Bytes& a, const Bytes& b) { return a.begin < b.end && b.begin < a.end; }

/// Memory of outputs that no array looks at any more, for the next ones: that of a new array is
/// cleared by the kernel page by page. Used under the interpreter's lock.
class FreeMemory {
public:
    /// The only one. Deliberate: never destroyed, arrays may die later than static objects.
    static FreeMemory& instance() {
        static FreeMemory& memory = *new FreeMemory;
        return memory;
    }

    /// Takes memory of a size, with any content.
    py::array_t<uint8_t> take(py::ssize_t size) {
        ++taken_;
        const auto isOfSize = [size](const Entry& entry) { return entry.memory.size() == size; };
        const auto newest = std::find_if(entries_.rbegin(), entries_.rend(), isOfSize);
        if (newest == entries_.rend()) {
            dropIdle();
            return py::array_t<uint8_t>(size);
        }
        py::array_t<uint8_t> memory = std::move(newest->memory);
        entries_.erase(std::next(newest).base());
        dropIdle();
        return memory;
    }

    /// Keeps memory, of `kMost` outputs in all.
    void put(py::array_t<uint8_t> memory) {
        if (entries_.size() == kMost) entries_.erase(entries_.begin());
        entries_.push_back({std::move(memory), taken_});
    }

private:
    static constexpr size_t kMost = 4;
    static constexpr uint64_t kIdle = 64;  // outputs that may go by before memory is freed

    struct Entry {
        py::array_t<uint8_t> memory;
        uint64_t since;  // `taken_` when it was put here
    };

    FreeMemory() { entries_.reserve(kMost); }

    void dropIdle() {
        const auto isIdle = [this](const Entry& entry) { return taken_ - entry.since > kIdle; };
        entries_.erase(std::remove_if(entries_.begin(), entries_.end(), isIdle), entries_.end());
    }

    std::vector<Entry> entries_;  // oldest first
    uint64_t taken_ = 0;
};

/// Memory for an output, and what puts it back when the last array on it is gone.
struct OutputMemory {
    explicit OutputMemory(py::ssize_t size) {
        py::array_t<uint8_t> array = FreeMemory::instance().take(size);
        bytes = array.mutable_data();
        owner = py::capsule(static_cast<const void*>(array.ptr()), &putBack);
        array.release();
    }

    static void putBack(void* array) {
        const py::handle handle(static_cast<PyObject*>(array));
        FreeMemory::instance().put(py::reinterpret_steal<py::array_t<uint8_t>>(handle));
    }

    uint8_t* bytes;
    py::object owner;
};

}  // namespace

py::error_already_set parameterError(const std::string& field, const std::string& value,
                                     const std::string& allowed) {
    const py::object type = py::module_::import("framehold.errors").attr("ParameterError");
    const py::object error = type(field, value, allowed);
    PyErr_SetObject(type.ptr(), error.ptr());
    return py::error_already_set();
}

std::string textOf(const py::handle& object) { return py::str(object).cast<std::string>(); }

ArrayPlanes::ArrayPlanes(const std::string& name, const py::object& frame, int width, int height,
                         Use use)
    : object_(frame), isPair_(py::isinstance<py::tuple>(frame)) {
    image_.format = ZPR_FORMAT_SEMIPLANAR_1;
    image_.width = width;
    image_.height = height;
    if (isPair_) {
        const auto pair = py::reinterpret_borrow<py::tuple>(frame);
        if (pair.size() != 2) {
            throw parameterError(name, "a tuple of " + std::to_string(pair.size()),
                                 "an array, or a tuple of two: luma and chroma");
        }
        takePlane(name + "[0]", pair[0], 0, use);
        takePlane(name + "[1]", pair[1], 1, use);
        return;
    }
    takePlane(name, frame, -1, use);
}

/// plane: -1 for both in one array.
void ArrayPlanes::takePlane(const std::string& name, const py::object& object, int plane, Use use) {
    const bool isChroma = plane == 1;
    const int rows = plane == 0 ? image_.height
                     : isChroma ? image_.height / 2
                                : image_.height / 2 * 3;
    const std::string wanted = wantedText(rows, image_.width, isChroma);
    if (!py::isinstance<py::array>(object)) {
        throw parameterError(name, "a " + textOf(py::type::of(object).attr("__name__")), wanted);
    }
    auto array = py::reinterpret_borrow<py::array>(object);
    if (!py::isinstance<py::array_t<uint8_t>>(array) ||
        !hasShape(array, rows, image_.width, isChroma)) {
        throw parameterError(name, shapeText(array), wanted);
    }
    std::optional<int32_t> pitch = pitchOf(array, image_.width);
    if (use == Use::kWrite && !array.writeable()) {
        throw parameterError(name, "read-only", "an array that can be written");
    }
    if (!pitch && use == Use::kWrite) {
        throw parameterError(name, "laid out with strides " + textOf(array.attr("strides")),
                             "rows one after the other, their bytes next to each other");
    }
    if (!pitch) {
        array = py::array_t<uint8_t, py::array::c_style | py::array::forcecast>::ensure(array);
        if (!array) throw py::error_already_set();
        pitch = image_.width;
    }
    // The library reads input through the same type as it writes output.
    auto* bytes = static_cast<uint8_t*>(const_cast<void*>(array.data()));
    if (!isChroma) {
        image_.plane[0] = bytes;
        image_.pitch[0] = *pitch;
    }
    if (plane != 0) {
        image_.plane[1] = isChroma ? bytes : bytes + ptrdiff_t{*pitch} * image_.height;
        image_.pitch[1] = *pitch;
    }
    arrays_.push_back(std::move(array));
}

ArrayPlanes ArrayPlanes::makeBlack(int width, int height, bool isPair) {
    const ptrdiff_t lumaBytes = ptrdiff_t{width} * height;
    const OutputMemory memory(lumaBytes / 2 * 3);
    const auto arrayAt = [width, &memory](ptrdiff_t offset, int rows) {
        return py::array_t<uint8_t>({py::ssize_t{rows}, py::ssize_t{width}}, memory.bytes + offset,
                                    memory.owner);
    };
    py::object frame;
    if (isPair) {
        frame = py::make_tuple(arrayAt(0, height), arrayAt(lumaBytes, height / 2));
    } else {
        frame = arrayAt(0, height / 2 * 3);
    }
    ArrayPlanes planes("out", frame, width, height, Use::kWrite);
    {
        const py::gil_scoped_release release;
        std::fill_n(planes.image_.plane[0], lumaBytes, kBlack);
        std::fill_n(planes.image_.plane[1], lumaBytes / 2, kNoChroma);
    }
    return planes;
}

void ArrayPlanes::requireApart(const std::string& name, const ArrayPlanes& other) const {
    const auto check = [&name](const py::array& a, const py::array& b) {
        // The ranges meet; views of one array may still lie side by side in it.
        const py::object shares = py::module_::import("numpy").attr("shares_memory");
        if (!shares(a, b).cast<bool>()) return;
        throw parameterError(name, "sharing memory with the input or with itself",
                             "memory of its own");
    };
    if (isPair_ && meet(bytesOf(image_, 0), bytesOf(image_, 1))) check(arrays_[0], arrays_[1]);
    for (int plane = 0; plane < 2; ++plane) {
        for (int otherPlane = 0; otherPlane < 2; ++otherPlane) {
            if (!meet(bytesOf(image_, plane), bytesOf(other.image_, otherPlane))) continue;
            check(arrays_[isPair_ ? static_cast<size_t>(plane) : 0],
                  other.arrays_[other.isPair_ ? static_cast<size_t>(otherPlane) : 0]);
        }
    }
}

}  // namespace framehold

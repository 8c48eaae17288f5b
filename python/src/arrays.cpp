#include "arrays.h"

#include "arguments.h"

#include <bit>
#include <limits>
#include <string>

namespace kip_python {
namespace {

using py::detail::array_descriptor_proxy;
using py::detail::array_proxy;
using py::detail::npy_api;

constexpr Py_intptr_t kGreatest = std::numeric_limits<int32_t>::max();

const npy_api &numpy()
{
    static const npy_api &api = npy_api::get();
    return api;
}

Py_intptr_t bytesOf(Element element)
{
    return element == Element::u8 ? 1 : 2;
}

// An array under check, and what the messages call it.
struct Subject {
    PyObject *array;
    const char *name;
    bool isResult; // then a copy is of no use

    [[nodiscard]] std::string attribute(const char *of) const { return py::str(py::handle(array).attr(of)); }
    [[nodiscard]] std::string operator+(const std::string &text) const { return name + text; }

    // The way out for an array whose memory does not serve.
    [[nodiscard]] std::string instead(const char *function) const
    {
        return isResult ? "; numpy.empty(shape, dtype) makes an array that serves"
                        : std::string("; numpy.") + function + "(" + name + ") makes a copy that serves";
    }
};

void requireArray(const Subject &subject)
{
    if (Py_TYPE(subject.array) == numpy().PyArray_Type_)
        return;
    if (!numpy().PyArray_Check_(subject.array))
        throw py::type_error(subject + " is a numpy array of uint8 or uint16, not " + typeName(subject.array));
    if (py::hasattr(subject.array, "mask"))
        throw py::type_error(subject + " is a masked array, and kip takes no masks; " +
                             (subject + ".filled(0) is a plain array"));
}

bool isNative(const py::detail::PyArrayDescr_Proxy &type)
{
    return type.byteorder != (std::endian::native == std::endian::little ? '>' : '<');
}

Element requirePixels(const Subject &subject)
{
    const auto &type = *array_descriptor_proxy(array_proxy(subject.array)->descr);
    const auto element = static_cast<Element>(type.type_num);
    if (element != Element::u8 && element != Element::u16)
        throw py::type_error(subject + " has dtype " + subject.attribute("dtype") +
                             "; kip takes uint8 and uint16: scale the values to their range, then use " +
                             (subject + ".astype(numpy.uint8) or .astype(numpy.uint16)"));
    if (!isNative(type))
        throw py::type_error(subject + " has dtype " + subject.attribute("dtype") +
                             ", the other byte order than this machine's; use " + (subject + ".astype(numpy.uint16)"));
    return element;
}

void requirePlane(const Subject &subject)
{
    const auto *const proxy = array_proxy(subject.array);
    const auto refuse = [&subject](const std::string &why) {
        throw py::value_error(subject + " has shape " + subject.attribute("shape") + why);
    };
    if (proxy->nd == 3)
        refuse("; kip takes grey pictures, of shape (height, width): turn colours into grey, or take one channel, " +
               (subject + "[..., 0].copy()"));
    if (proxy->nd != 2)
        refuse("; kip takes pictures of shape (height, width)");
    const Py_intptr_t height = proxy->dimensions[0], width = proxy->dimensions[1];
    if (height < 1 || width < 1)
        refuse(", and so no pixel");
    if (height > kGreatest || width > kGreatest)
        refuse("; kip counts pixels up to 2147483647");
}

// Gives the row stride.
ptrdiff_t requireLayout(const Subject &subject, Py_intptr_t pixelBytes)
{
    const auto *const proxy = array_proxy(subject.array);
    const auto refuse = [&subject](const char *why, const char *function) {
        throw py::value_error(subject + " has strides " + subject.attribute("strides") + ": " + why +
                              subject.instead(function));
    };
    const Py_intptr_t height = proxy->dimensions[0], width = proxy->dimensions[1];
    if (width > 1 && proxy->strides[1] != pixelBytes)
        refuse("the pixels of a row are not adjacent", "ascontiguousarray");
    // numpy leaves any number as the stride of a single row.
    const Py_intptr_t stride = height > 1 ? proxy->strides[0] : width * pixelBytes;
    if (stride % pixelBytes != 0 || reinterpret_cast<uintptr_t>(proxy->data) % static_cast<uintptr_t>(pixelBytes) != 0)
        refuse("16-bit pixels stand at odd addresses", "array");
    const Py_intptr_t step = stride < 0 ? -stride : stride;
    if (step < width * pixelBytes)
        refuse("rows share memory", "array");
    if (step / pixelBytes > kGreatest)
        refuse("rows lie further apart than 2147483647 pixels", "array");
    return stride;
}

Picture pictureIn(const Subject &subject)
{
    requireArray(subject);
    const Element element = requirePixels(subject);
    requirePlane(subject);
    const ptrdiff_t stride = requireLayout(subject, bytesOf(element));
    const auto *const proxy = array_proxy(subject.array);
    return {proxy->data, static_cast<int32_t>(proxy->dimensions[1]), static_cast<int32_t>(proxy->dimensions[0]), stride,
            element};
}

} // namespace

Picture pictureFrom(PyObject *array, const char *parameter)
{
    return pictureIn({array, parameter, false});
}

Picture resultFrom(PyObject *array, Element element, kip::Size size)
{
    const Subject subject{array, "out", true};
    const Picture picture = pictureIn(subject);
    if (picture.element != element)
        throw py::type_error(subject + " has dtype " + subject.attribute("dtype") +
                             "; the result has that of the image");
    if (picture.width != size.width || picture.height != size.height)
        throw py::value_error(subject + " has shape " + subject.attribute("shape") + "; the result has (" +
                              std::to_string(size.height) + ", " + std::to_string(size.width) + ")");
    if (!py::detail::check_flags(array, npy_api::NPY_ARRAY_WRITEABLE_))
        throw py::value_error(subject + " is read-only");
    return picture;
}

py::object newArray(Element element, std::initializer_list<Py_intptr_t> shape)
{
    PyObject *const type = numpy().PyArray_DescrFromType_(static_cast<int>(element));
    // Takes the reference to the type with it.
    PyObject *const array = numpy().PyArray_NewFromDescr_(numpy().PyArray_Type_, type, static_cast<int>(shape.size()),
                                                          shape.begin(), nullptr, nullptr, 0, nullptr);
    if (!array)
        throw py::error_already_set();
    return py::reinterpret_steal<py::object>(array);
}

Picture newPicture(Element element, kip::Size size, py::object &array)
{
    array = newArray(element, {size.height, size.width});
    return {dataOf<void>(array), size.width, size.height, size.width * bytesOf(element), element};
}

} // namespace kip_python

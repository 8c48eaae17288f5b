#ifndef KIP_PYTHON_ARRAYS_H
#define KIP_PYTHON_ARRAYS_H

// Pictures and profiles in numpy's arrays.

#include <pybind11/numpy.h>

#include <cstddef>
#include <cstdint>
#include <initializer_list>

#include <kip/kip.hpp>

namespace kip_python {

namespace py = pybind11;

/** Elements that kip reads or makes, by numpy's numbers. */
enum class Element : int {
    u8 = py::detail::npy_api::NPY_UINT8_,
    u16 = py::detail::npy_api::NPY_UINT16_,
    u32 = py::detail::npy_api::NPY_UINT32_,
    f64 = py::detail::npy_api::NPY_DOUBLE_
};

/** The pixels of an array, which has to outlive it. */
struct Picture {
    void *pixels; /**< the first pixel of the first row */
    int32_t width, height;
    ptrdiff_t stride; /**< bytes from one row to the next */
    Element element;  /**< u8 or u16 */

    template <typename Pixel>
    [[nodiscard]] kip::ImageView<Pixel> view() const
    {
        return {static_cast<Pixel *>(pixels), width, height, stride};
    }
};

/**
 * The picture in an array that is only read: shape (height, width), uint8 or uint16, of any row stride.
 *
 * parameter  what the messages call it.
 * Throws py::type_error or py::value_error, saying what can be done about it.
 */
Picture pictureFrom(PyObject *array, const char *parameter);

/** The picture in a caller's array for a result of this kind. Throws as pictureFrom does. */
Picture resultFrom(PyObject *array, Element element, kip::Size size);

/** A new array, its elements undefined. Throws py::error_already_set. */
py::object newArray(Element element, std::initializer_list<Py_intptr_t> shape);

/** The picture in a new array for a result of this kind, which `array` receives. Throws py::error_already_set. */
Picture newPicture(Element element, kip::Size size, py::object &array);

template <typename T>
T *dataOf(const py::object &array)
{
    return reinterpret_cast<T *>(py::detail::array_proxy(array.ptr())->data);
}

/** Calls work(Pixel{}) with the pixel type of a picture. */
template <typename Work>
decltype(auto) withPixel(Element element, Work work)
{
    return element == Element::u8 ? work(uint8_t{}) : work(uint16_t{});
}

} // namespace kip_python

#endif

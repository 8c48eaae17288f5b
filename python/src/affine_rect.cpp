#include "arguments.h"
#include "python_types.h"

#include <array>
#include <cmath>
#include <memory>
#include <numbers>
#include <string>

namespace kip_python {
namespace {

constexpr double kDegree = std::numbers::pi / 180;

py::tuple pairOf(kip::Point point)
{
    return py::make_tuple(point.x, point.y);
}

PyObject *newRect(const kip::AffineRect &rect)
{
    return py::cast(rect).release().ptr();
}

PyObject *fromCenter(PyObject *, const Passed &passed)
{
    static const Signature kSignature("from_center", {"center", "size", "degrees"}, 3, 2);
    std::array<PyObject *, 3> given;
    kSignature.bind(passed, given);
    const kip::Point center = pointFrom(given[0], "center (x, y)"), size = pointFrom(given[1], "size (width, height)");
    const double degrees = given[2] ? numberFrom(given[2], "degrees") : 0;
    return newRect(kip::AffineRect::fromCenter(center, size.x, size.y, degrees * kDegree));
}

PyObject *fromCorners(PyObject *, const Passed &passed)
{
    static const Signature kSignature("from_corners", {"origin", "x_end", "y_end"}, 3, 3);
    std::array<PyObject *, 3> given;
    kSignature.bind(passed, given);
    return newRect(kip::AffineRect::fromCorners(pointFrom(given[0], "origin"), pointFrom(given[1], "x_end"),
                                                pointFrom(given[2], "y_end")));
}

PyObject *fromCv2(PyObject *, const Passed &passed)
{
    static const Signature kSignature("from_cv2", {"rotated_rect"}, 1, 1);
    std::array<PyObject *, 1> given;
    kSignature.bind(passed, given);
    if (!PySequence_Check(given[0]) || PyUnicode_Check(given[0]) || PySequence_Size(given[0]) != 3) {
        PyErr_Clear();
        throw py::type_error("rotated_rect is ((x, y), (width, height), degrees), as cv2.minAreaRect gives it, not " +
                             std::string(py::repr(given[0])));
    }
    const auto parts = py::reinterpret_borrow<py::sequence>(given[0]);
    const py::object first = parts[0], second = parts[1], third = parts[2];
    const kip::Point center = pointFrom(first.ptr(), "rotated_rect[0]"),
                     size = pointFrom(second.ptr(), "rotated_rect[1]");
    return newRect(kip::AffineRect::fromCenter({center.x + 0.5, center.y + 0.5}, size.x, size.y,
                                               numberFrom(third.ptr(), "rotated_rect[2]") * kDegree));
}

PyObject *standardSize(PyObject *self, const Passed &passed)
{
    static const Signature kSignature("standard_size", {}, 0, 0);
    kSignature.bind(passed, {});
    const kip::Size size = valueOf<kip::AffineRect>(self).standardSize();
    return py::make_tuple(size.width, size.height).release().ptr();
}

PyObject *at(PyObject *self, const Passed &passed)
{
    static const Signature kSignature("at", {"u", "v"}, 2, 2);
    std::array<PyObject *, 2> given;
    kSignature.bind(passed, given);
    return pairOf(valueOf<kip::AffineRect>(self).at(numberFrom(given[0], "u"), numberFrom(given[1], "v")))
        .release()
        .ptr();
}

double degreesOf(const kip::AffineRect &rect)
{
    return std::atan2(rect.record().e2, rect.record().e0) / kDegree;
}

py::tuple stateOf(const kip::AffineRect &rect)
{
    const kmath_shapeAffineRect &record = rect.record();
    return py::make_tuple(record.tx, record.ty, record.e0, record.e1, record.e2, record.e3);
}

// Carried by the identity, so that a state that is not finite is refused.
kip::AffineRect fromState(const py::tuple &state)
{
    if (state.size() != 6)
        throw py::value_error("the state of an AffineRect is six numbers");
    std::array<double, 6> n;
    for (size_t i = 0; i < n.size(); ++i)
        n[i] = state[i].cast<double>();
    return kip::AffineRect({n[0], n[1], n[2], n[3], n[4], n[5]}).mapped(kip::kIdentity);
}

std::string textOf(const kip::AffineRect &rect)
{
    return py::str("kip.AffineRect.from_corners(origin={}, x_end={}, y_end={})")
        .format(pairOf(rect.origin()), pairOf(rect.xEnd()), pairOf(rect.yEnd()));
}

constexpr const char *kClassText =
    R"(A rectangle, or parallelogram, anywhere in a picture. Made by from_center, from_corners or from_cv2; immutable.

The columns of a result lie along its x side, the rows along its y side. Coordinates are in pixels: image[q, p] covers
p to p + 1 and q to q + 1, so that its centre is (p + 0.5, q + 0.5).

Rectangles compare equal when all their numbers are, can be keys of a dict, and can be pickled.)";

PyMethodDef kFromCenter = method<fromCenter>("from_center", R"(from_center(center, size, degrees=0.0)
--

The rectangle round a centre.

Args:
    center: (x, y), two numbers.
    size: (width, height), the lengths of its x and its y side, two numbers.
    degrees: by how much it is turned about its centre, clockwise as seen on the screen: text that runs down to the
        right has a positive angle. Quarter turns are exact.

Returns:
    AffineRect.

Raises:
    kip.Error: a number is infinite or NaN.
    TypeError: an argument is not of this form.)");

PyMethodDef kFromCorners = method<fromCorners>("from_corners", R"(from_corners(origin, x_end, y_end)
--

The rectangle with three given corners. It may be sheared or mirrored.

Args:
    origin: (x, y) of the corner that becomes the top left one of a result.
    x_end: the end of the side that becomes the top one.
    y_end: the end of the side that becomes the left one.

Returns:
    AffineRect.

Raises:
    kip.Error: a number is infinite or NaN.
    TypeError: an argument is not a pair of numbers.)");

PyMethodDef kFromCv2 = method<fromCv2>("from_cv2", R"(from_cv2(rotated_rect)
--

The rectangle of OpenCV's RotatedRect, with the half pixel between both coordinates: OpenCV's pixels have their
centres at whole numbers.

Args:
    rotated_rect: ((x, y), (width, height), degrees), as cv2.minAreaRect and cv2.fitEllipse give it.

Returns:
    AffineRect, whose center is (x + 0.5, y + 0.5).

Raises:
    kip.Error: a number is infinite or NaN.
    TypeError: the argument is not of this form.)");

PyMethodDef kStandardSize = method<standardSize>("standard_size", R"(standard_size($self, /)
--

The size (width, height) of a result with one sample for each pixel along both sides, rounded to whole numbers: that
which the operations take where none is given.

Returns:
    A tuple of two ints; 0 for a side shorter than half a pixel, which the operations refuse.

Raises:
    kip.Error: a side is longer than a float can tell.)");

PyMethodDef kAt = method<at>("at", R"(at($self, /, u, v)
--

The point (x, y) at the fractions u of the x side and v of the y side: at(0, 0) is the origin, at(0.5, 0.5) the middle.

Raises:
    TypeError: u or v is no number.)");

} // namespace

const kip::AffineRect &rectFrom(PyObject *given)
{
    if (Py_TYPE(given) != reinterpret_cast<PyTypeObject *>(pythonTypes().affineRect.ptr()))
        throw py::type_error("rect is a kip.AffineRect, not " + typeName(given) +
                             "; kip.AffineRect.from_center, from_corners and from_cv2 make one");
    return valueOf<kip::AffineRect>(given);
}

void addAffineRect(py::module_ &module)
{
    using Rect = kip::AffineRect;
    py::class_<Rect> type(module, "AffineRect", py::is_final(), kClassText);
    pythonTypes().affineRect = type;
    type.attr("__module__") = "kip";
    for (PyMethodDef *definition : {&kFromCenter, &kFromCorners, &kFromCv2})
        addStaticMethod(type, *definition);
    for (PyMethodDef *definition : {&kStandardSize, &kAt})
        addMethod(type, *definition);

    type.def(py::init([](const py::args &, const py::kwargs &) -> std::unique_ptr<Rect> {
        throw py::type_error("kip.AffineRect.from_center, from_corners and from_cv2 make rectangles");
    }));

    const auto corner = [&type](const char *name, kip::Point (Rect::*get)() const noexcept, const char *text) {
        type.def_property_readonly(
            name, [get](const Rect &rect) { return pairOf((rect.*get)()); }, text);
    };
    corner("origin", &Rect::origin, "The corner (x, y) at which both sides begin, the top left one of a result.");
    corner("x_end", &Rect::xEnd, "The corner (x, y) at which the x side ends, the top right one of a result.");
    corner("y_end", &Rect::yEnd, "The corner (x, y) at which the y side ends, the bottom left one of a result.");
    corner("opposite", &Rect::opposite, "The corner (x, y) opposite the origin.");
    corner("center", &Rect::center, "The middle (x, y).");
    type.def_property_readonly("width", &Rect::width, "Length of the x side, a float.");
    type.def_property_readonly("height", &Rect::height, "Length of the y side, a float.");
    type.def_property_readonly("degrees", degreesOf,
                               "The direction of the x side, clockwise as seen on the screen, from -180 to 180.");
    type.def(
        "__eq__", [](const Rect &a, const Rect &b) { return a == b; }, py::is_operator());
    type.def("__hash__", [](const Rect &rect) { return py::hash(stateOf(rect)); });
    type.def("__repr__", textOf);
    type.def(py::pickle(&stateOf, &fromState));
}

} // namespace kip_python

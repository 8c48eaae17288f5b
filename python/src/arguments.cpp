#include "arguments.h"

#include <cstring>
#include <limits>
#include <new>
#include <stdexcept>

namespace kip_python {
namespace {

bool sameName(PyObject *given, PyObject *known)
{
    return given == known || (PyUnicode_Check(given) && PyUnicode_Compare(given, known) == 0);
}

std::vector<PyObject *> intern(std::initializer_list<const char *> names)
{
    std::vector<PyObject *> interned;
    for (const char *name : names) {
        interned.push_back(PyUnicode_InternFromString(name));
        if (!interned.back())
            throw py::error_already_set();
    }
    return interned;
}

std::string textOf(PyObject *string)
{
    return py::str(py::handle(string));
}

// The two elements of a sequence.
struct Pair {
    py::object first, second;
};

// A string is a sequence, too, but never meant as a pair.
Pair pairFrom(PyObject *given, const std::string &expected)
{
    if (PySequence_Check(given) && !PyUnicode_Check(given) && PySequence_Size(given) == 2)
        return {py::reinterpret_steal<py::object>(PySequence_GetItem(given, 0)),
                py::reinterpret_steal<py::object>(PySequence_GetItem(given, 1))};
    PyErr_Clear();
    throw py::type_error(expected + ", not " + std::string(py::repr(given)));
}

bool toDouble(const py::object &value, double &number)
{
    if (!value)
        return false;
    number = PyFloat_AsDouble(value.ptr());
    return number != -1.0 || !PyErr_Occurred();
}

// Whether a value is an integer; one beyond 64 bits becomes the nearest that is not.
bool toInteger(PyObject *value, int64_t &number)
{
    if (!value || !PyIndex_Check(value))
        return false;
    const auto index = py::reinterpret_steal<py::object>(PyNumber_Index(value));
    if (!index)
        return false;
    int overflow = 0;
    number = PyLong_AsLongLongAndOverflow(index.ptr(), &overflow);
    if (overflow != 0)
        number = overflow < 0 ? std::numeric_limits<int64_t>::min() : std::numeric_limits<int64_t>::max();
    return true;
}

int32_t to32Bits(int64_t number, const char *parameter, PyObject *given)
{
    if (number < std::numeric_limits<int32_t>::min() || number > std::numeric_limits<int32_t>::max())
        throw py::value_error(std::string(parameter) + ": " + std::string(py::repr(given)) + " is beyond 32 bits");
    return static_cast<int32_t>(number);
}

} // namespace

Signature::Signature(const char *function, std::initializer_list<const char *> names, size_t byPlace, size_t required)
    : function_(function), names_(intern(names)), byPlace_(byPlace), required_(required)
{}

void Signature::refuse(const std::string &why) const
{
    throw py::type_error(std::string(function_) + "() " + why);
}

size_t Signature::find(PyObject *keyword) const
{
    for (size_t i = 0; i < names_.size(); ++i)
        if (names_[i] == keyword)
            return i;
    for (size_t i = 0; i < names_.size(); ++i)
        if (sameName(keyword, names_[i]))
            return i;
    refuse("got an unexpected keyword argument '" + textOf(keyword) + "'");
}

void Signature::bind(const Passed &passed, std::span<PyObject *> values) const
{
    const auto positional = static_cast<size_t>(passed.positional);
    if (positional > byPlace_)
        refuse("takes " + std::to_string(byPlace_) + " positional arguments, got " + std::to_string(positional) +
               (byPlace_ < names_.size() ? "; '" + textOf(names_[byPlace_]) + "' is given by name" : ""));
    for (size_t i = 0; i < values.size(); ++i)
        values[i] = i < positional ? passed.values[i] : nullptr;
    const Py_ssize_t named = passed.keywords ? PyTuple_GET_SIZE(passed.keywords) : 0;
    for (Py_ssize_t i = 0; i < named; ++i) {
        const size_t at = find(PyTuple_GET_ITEM(passed.keywords, i));
        if (values[at])
            refuse("got multiple values for argument '" + textOf(names_[at]) + "'");
        values[at] = passed.values[passed.positional + i];
    }
    for (size_t i = 0; i < required_; ++i)
        if (!values[i])
            refuse("needs the argument '" + textOf(names_[i]) + "'");
}

Choice::Choice(const char *parameter, std::initializer_list<const char *> names)
    : parameter_(parameter), names_(intern(names))
{}

uint32_t Choice::numberOf(PyObject *given) const
{
    const auto count = static_cast<uint32_t>(names_.size());
    for (uint32_t i = 0; i < count; ++i)
        if (names_[i] == given)
            return i;
    std::string known;
    for (uint32_t i = 0; i < count; ++i) {
        if (sameName(given, names_[i]))
            return i;
        known += (i == 0 ? "'" : ", '") + textOf(names_[i]) + "'";
    }
    const std::string message =
        std::string(parameter_) + " is one of " + known + ", not " + std::string(py::repr(given));
    if (PyUnicode_Check(given))
        throw py::value_error(message);
    throw py::type_error(message);
}

const Choice &modes()
{
    static const Choice kModes("mode", {"nearest", "bilinear", "separable", "cubic"});
    return kModes;
}

kip::Point pointFrom(PyObject *given, const char *parameter)
{
    const std::string expected = std::string(parameter) + " is a pair of numbers";
    const Pair pair = pairFrom(given, expected);
    kip::Point point{};
    if (!toDouble(pair.first, point.x) || !toDouble(pair.second, point.y)) {
        PyErr_Clear();
        throw py::type_error(expected + ", not " + std::string(py::repr(given)));
    }
    return point;
}

kip::Size sizeFrom(PyObject *given, const char *parameter)
{
    const std::string expected = std::string(parameter) + " is a pair (width, height) of integers";
    const Pair pair = pairFrom(given, expected);
    int64_t width = 0, height = 0;
    if (!toInteger(pair.first.ptr(), width) || !toInteger(pair.second.ptr(), height)) {
        PyErr_Clear();
        throw py::type_error(expected + ", not " + std::string(py::repr(given)));
    }
    return {to32Bits(width, parameter, given), to32Bits(height, parameter, given)};
}

double numberFrom(PyObject *given, const char *parameter)
{
    double number = 0;
    if (!toDouble(py::reinterpret_borrow<py::object>(given), number)) {
        PyErr_Clear();
        throw py::type_error(std::string(parameter) + " is a number, not " + std::string(py::repr(given)));
    }
    return number;
}

int32_t integerFrom(PyObject *given, const char *parameter)
{
    int64_t number = 0;
    if (!toInteger(given, number)) {
        PyErr_Clear();
        throw py::type_error(std::string(parameter) + " is an integer, not " + std::string(py::repr(given)));
    }
    return to32Bits(number, parameter, given);
}

std::string typeName(PyObject *value)
{
    return Py_TYPE(value)->tp_name;
}

} // namespace kip_python

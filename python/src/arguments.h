#ifndef KIP_PYTHON_ARGUMENTS_H
#define KIP_PYTHON_ARGUMENTS_H

// How Python's arguments reach the functions here. pybind11's own conversion of keyword arguments takes longer than a
// small transform, and its messages list C++ types, so that functions take them as the interpreter passes them.

#include <pybind11/pybind11.h>

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <span>
#include <string>
#include <vector>

#include <kip/kip.hpp>

namespace kip_python {

namespace py = pybind11;

/** What the interpreter passes: positional values, then those of the names in `keywords`, a tuple or null. */
struct Passed {
    PyObject *const *values;
    Py_ssize_t positional;
    PyObject *keywords;
};

/** The parameters of a function: their order, how many may be given by place, how many must be given. */
class Signature {
public:
    Signature(const char *function, std::initializer_list<const char *> names, size_t byPlace, size_t required);

    /**
     * Sorts arguments into parameters.
     *
     * values  as many as there are names; receives borrowed references, null where nothing was given.
     * Throws py::type_error for an argument that is unknown, missing, or given twice.
     */
    void bind(const Passed &passed, std::span<PyObject *> values) const;

private:
    [[noreturn]] void refuse(const std::string &why) const;
    [[nodiscard]] size_t find(PyObject *keyword) const;

    const char *function_;
    std::vector<PyObject *> names_; // interned, never freed: functions live as long as the process
    size_t byPlace_, required_;
};

/** A name out of several, each with its number; null for the first one. */
class Choice {
public:
    Choice(const char *parameter, std::initializer_list<const char *> names);

    /** The number of a name. Throws py::type_error for what is no string, py::value_error for an unknown one. */
    [[nodiscard]] uint32_t numberOf(PyObject *given) const;
    /** The name of a number, a new reference. */
    [[nodiscard]] py::str nameOf(uint32_t number) const { return py::reinterpret_borrow<py::str>(names_.at(number)); }

private:
    const char *parameter_;
    std::vector<PyObject *> names_;
};

const Choice &modes();

/** None and null: not given. */
inline bool isGiven(const PyObject *value)
{
    return value && value != Py_None;
}

/** A pair of numbers, from any sequence of two. Throws py::type_error. */
kip::Point pointFrom(PyObject *given, const char *parameter);
/** A size (width, height) from any sequence of two integers. Throws py::type_error, py::value_error beyond 32 bits. */
kip::Size sizeFrom(PyObject *given, const char *parameter);
double numberFrom(PyObject *given, const char *parameter);
/** An integer. Throws py::type_error, py::value_error beyond 32 bits. */
int32_t integerFrom(PyObject *given, const char *parameter);

/** An AffineRect, which lives as long as the object. Throws py::type_error. */
const kip::AffineRect &rectFrom(PyObject *given);

/** The name of a value's type, for messages. */
std::string typeName(PyObject *value);

/** Sets Python's exception for the C++ exception that is being handled. */
void raiseCurrentException() noexcept;

/** A function or a method as the interpreter calls it; Body(self, Passed) returns a new reference or throws. */
template <auto Body>
PyObject *entry(PyObject *self, PyObject *const *values, Py_ssize_t count, PyObject *keywords) noexcept
try {
    return Body(self, Passed{values, count, keywords});
} catch (...) {
    raiseCurrentException();
    return nullptr;
}

template <auto Body>
PyMethodDef method(const char *name, const char *documentation) noexcept
{
    // The interpreter looks at the flags before it calls, as its own documentation asks.
    return {name, reinterpret_cast<PyCFunction>(reinterpret_cast<void (*)()>(&entry<Body>)),
            METH_FASTCALL | METH_KEYWORDS, documentation};
}

/** Lets other threads of Python run for as long as it lives. */
class WithoutInterpreter {
public:
    WithoutInterpreter() : state_(PyEval_SaveThread()) {}
    ~WithoutInterpreter() { PyEval_RestoreThread(state_); }
    WithoutInterpreter(const WithoutInterpreter &) = delete;
    WithoutInterpreter &operator=(const WithoutInterpreter &) = delete;

private:
    PyThreadState *state_;
};

} // namespace kip_python

#endif

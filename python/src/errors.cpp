#include "arguments.h"
#include "python_types.h"

#include <cstdio>
#include <exception>
#include <new>
#include <string>

namespace kip_python {
namespace {

// The C++ exception names the C++ functions; a rectangle that leaves its picture is told with those of Python.
std::string messageOf(const kip::Error &error)
{
    if (!error.overhang())
        return error.what();
    const bool transform = error.status() == kip_statusTransformWouldClip;
    const std::string over = kip::describe(*error.overhang());
    return "the rectangle" + (over.empty() ? " leaves the picture" : " reaches " + over + " of the picture") +
           ", counting the neighbours that its samples need; kip." +
           (transform ? "transform_clipped takes what lies outside as black"
                      : "project_mean averages what lies inside") +
           " (" + error.name() + ")";
}

void raise(const kip::Error &error)
{
    const py::handle type = pythonTypes().error;
    const py::object exception = type(messageOf(error), error.status(), error.name());
    PyErr_SetObject(type.ptr(), exception.ptr());
}

} // namespace

void raiseCurrentException() noexcept
try {
    try {
        throw;
    } catch (const kip::Error &error) {
        raise(error);
    }
} catch (py::error_already_set &error) {
    error.restore();
} catch (const py::builtin_exception &error) {
    error.set_error();
} catch (const std::bad_alloc &) {
    PyErr_NoMemory();
} catch (const std::exception &error) {
    PyErr_SetString(PyExc_RuntimeError, error.what());
} catch (...) {
    PyErr_SetString(PyExc_RuntimeError, "an exception of an unknown kind");
}

} // namespace kip_python

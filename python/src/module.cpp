#include "arguments.h"
#include "python_types.h"

#include <exception>
#include <utility>

#include <kip/kip.hpp>

namespace kip_python {

PythonTypes &pythonTypes()
{
    static PythonTypes types;
    return types;
}

namespace {

py::object function(PyMethodDef &definition)
{
    const py::str module("kip");
    return py::reinterpret_steal<py::object>(PyCFunction_NewEx(&definition, nullptr, module.ptr()));
}

} // namespace

void addFunction(py::module_ &module, PyMethodDef &definition)
{
    module.attr(definition.ml_name) = function(definition);
}

void addMethod(py::handle type, PyMethodDef &definition)
{
    auto *const owner = reinterpret_cast<PyTypeObject *>(type.ptr());
    const auto descriptor = py::reinterpret_steal<py::object>(PyDescr_NewMethod(owner, &definition));
    py::setattr(type, definition.ml_name, descriptor);
}

void addStaticMethod(py::handle type, PyMethodDef &definition)
{
    const auto wrapped = py::reinterpret_steal<py::object>(PyStaticMethod_New(function(definition).ptr()));
    py::setattr(type, definition.ml_name, wrapped);
}

} // namespace kip_python

PYBIND11_MODULE(_core, module)
{
    using namespace kip_python;
    py::options options;
    options.disable_function_signatures();

    const py::module_ types = py::module_::import("kip._types");
    pythonTypes().error = py::object(types.attr("Error")).release();
    pythonTypes().meanProfile = py::object(types.attr("MeanProfile")).release();
    pythonTypes().edge = py::object(types.attr("Edge")).release();
    // Constructors and properties are called by pybind11.
    py::register_exception_translator([](std::exception_ptr pending) {
        try {
            std::rethrow_exception(std::move(pending));
        } catch (const kip::Error &) {
            raiseCurrentException();
        }
    });
    module.attr("__version__") = KIP_PYTHON_VERSION;
    addAffineRect(module);
    addSampling(module);
    addProfiles(module);
}

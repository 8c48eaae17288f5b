#ifndef KIP_PYTHON_PYTHON_TYPES_H
#define KIP_PYTHON_PYTHON_TYPES_H

// The module's types, those made here and those that kip/_types.py makes.

#include <pybind11/pybind11.h>

namespace kip_python {

namespace py = pybind11;

/** Borrowed references to types that live as long as the process. */
struct PythonTypes {
    py::handle error, meanProfile, edge; // of kip/_types.py
    py::handle affineRect, sampler;
};

/** The types; filled while the module is made. */
PythonTypes &pythonTypes();

/** The C++ value in an object of a final class of this module. Throws py::type_error for one never initialised. */
template <typename Value>
Value &valueOf(PyObject *object)
{
    const auto *const instance = reinterpret_cast<py::detail::instance *>(object);
    void *const value = instance->simple_layout ? instance->simple_value_holder[0] : nullptr;
    if (!value)
        throw py::type_error(std::string(Py_TYPE(object)->tp_name) + " object that was never initialised");
    return *static_cast<Value *>(value);
}

void addAffineRect(py::module_ &module);
void addSampling(py::module_ &module);
void addProfiles(py::module_ &module);

/** Adds a function to a module, or a method to a class; definition lives as long as the process. */
void addFunction(py::module_ &module, PyMethodDef &definition);
void addMethod(py::handle type, PyMethodDef &definition);
void addStaticMethod(py::handle type, PyMethodDef &definition);

} // namespace kip_python

#endif

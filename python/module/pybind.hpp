#ifndef ZORVEL_PYTHON_PYBIND_HPP
#define ZORVEL_PYTHON_PYBIND_HPP

// All files must know the same conversions, so they include pybind11 here.
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

namespace zorvel::python {

namespace py = pybind11;

}  // namespace zorvel::python

#endif

#ifndef ZORVEL_PYTHON_PARTS_HPP
#define ZORVEL_PYTHON_PARTS_HPP

#include "pybind.hpp"

namespace zorvel::python {

// What the module consists of. A class comes before the functions that take or give it.

void addExceptions(py::module_& module);
void addObservation(py::module_& module);
void addStates(py::module_& module);
void addGraph(py::module_& module);
void addRecorder(py::module_& module);
void addAmbiance(py::module_& module);
void addClock(py::module_& module);
void addEvents(py::module_& module);
void addReader(py::module_& module);
void addWriter(py::module_& module);

// Wrapped in Python.

void addReplay(py::module_& module);
void addExplanations(py::module_& module);
void addReports(py::module_& module);
void addInfo(py::module_& module);
void addCut(py::module_& module);
void addAnnotation(py::module_& module);
void addExport(py::module_& module);
void addImport(py::module_& module);

}  // namespace zorvel::python

#endif

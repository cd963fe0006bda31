#include <zv/version.hpp>

#include "parts.hpp"

namespace zorvel::python {
namespace {

/// Refuses objects of the class that `__new__` alone has made. When such a one is first used,
/// memory for its value would be asked for, and nobody would write it.
void refuseWithoutValue(py::handle type) {
  auto* const bound =
      py::detail::get_type_info(reinterpret_cast<PyTypeObject*>(type.ptr()));  // NOLINT
  if (bound == nullptr) return;
  bound->operator_new = [](std::size_t) -> void* {
    throw py::type_error("the object has no value: __init__ was not called");
  };
}

}  // namespace

}  // namespace zorvel::python

PYBIND11_MODULE(_zorvel, module) {
  using namespace zorvel::python;
  module.doc() = "What the package zorvel is made of.";
  addExceptions(module);
  module.attr("__version__") = ZV_VERSION;
  for (const auto add : {addObservation, addStates, addGraph, addRecorder, addAmbiance, addClock,
                         addEvents, addReader, addWriter, addReplay, addExplanations, addReports,
                         addInfo, addCut, addAnnotation, addExport, addImport}) {
    add(module);
  }
  for (const auto& [name, member] : module.attr("__dict__").cast<py::dict>()) {
    if (!py::isinstance<py::type>(member)) continue;
    member.attr("__module__") = "zorvel";  // where it is to be imported from
    refuseWithoutValue(member);
  }
}

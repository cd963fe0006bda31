#include <zv/ambiance_state.hpp>

#include "conversions.hpp"
#include "parts.hpp"

namespace zorvel::python {

void addAmbiance(py::module_& module) {
  using ZV::AmbianceDescription;
  using ZV::AmbianceState;
  const auto level = [](AmbianceDescription description) {
    return
        [description](const AmbianceState& room) { return room.ambientActivityLevel(description); };
  };
  py::class_<AmbianceState>(module, "Ambiance",
                            "How agitated, and so how calm, the robot's surroundings are.")
      .def(py::init<>())
      .def(
          "update",
          [](AmbianceState& room, py::handle activity) {
            room.updateAmbiance(floatFrom(activity, "activity"));
          },
          py::arg("activity"),
          "Blends a measurement, usually in [0, 0.1], and the movements since the last call into "
          "the agitation.")
      .def("movement", &AmbianceState::incrementMovementDetected, "Counts one movement.")
      .def_property_readonly("agitation", level(AmbianceDescription::Agitation), "In [0, 1].")
      .def_property_readonly("calm", level(AmbianceDescription::Calm), "In [0, 1].");
}

}  // namespace zorvel::python

#include "replay_arrays.hpp"

#include <fmt/format.h>

#include <cstdlib>
#include <mutex>
#include <variant>

#include "interpreter.hpp"

namespace zorvel::python {
namespace {

/// Loads NumPy, which the first array would do otherwise: with the interpreter's lock, in the
/// initialization of a static variable. Two threads would wait for each other.
void loadNumpy() {
  static std::mutex mutex;
  withoutLock([] {
    const std::lock_guard lock(mutex);
    callPython([] { py::dtype::of<double>(); });
  });
}

}  // namespace

double secondsOf(Time::duration duration) {
  return std::strtod(fmt::format("{}e-9", duration.count()).c_str(), nullptr);
}

py::array asArray(TextColumn&& column) {
  const py::object numpy = py::module_::import("numpy");
  const py::object texts =
      numpy.attr("array")(column.texts(), py::arg("dtype") = numpy.attr("object_"));
  return texts.attr("take")(py::array_t<std::int64_t>(
      static_cast<py::ssize_t>(column.rows().size()), column.rows().data()));
}

Tables::Tables(Forces forces) : _forces(forces) { loadNumpy(); }

void Tables::add(Time time, const Row& row) {
  if (const auto* state = std::get_if<StateRow>(&row)) {
    _timeline.add(time, *state);
    _known.add(time, *state);
    for (const ZV::Force& force : state->forces) {
      _movements.add(time, ForceRow{state->person, force});
    }
  }
  if (const auto* scope = std::get_if<ScopeRow>(&row)) _scopes.add(time, *scope);
  if (const auto* ambiance = std::get_if<AmbianceRow>(&row)) _ambiance.add(time, *ambiance);
}

py::dict Tables::take(Time zero) {
  py::dict tables;
  tables["timeline"] = _timeline.take(zero);
  tables["known"] = _known.take(zero);
  tables["scopes"] = _scopes.take(zero);
  tables["ambiance"] = _ambiance.take(zero);
  if (_forces == Forces::Watched) tables["forces"] = _movements.take(zero);
  return tables;
}

}  // namespace zorvel::python

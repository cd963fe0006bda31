#include <optional>
#include <string>

#include "conversions.hpp"
#include "exceptions.hpp"
#include "inspection/info_report.hpp"
#include "inspection/recording_facts.hpp"
#include "interpreter.hpp"
#include "parts.hpp"
#include "recording/printable.hpp"
#include "recording/recording_reader.hpp"

namespace zorvel::python {
namespace {

/// The facts as JSON.
py::tuple infoOfFile(py::handle path) {
  const std::string name = pathFrom(path);
  std::optional<Failure> failure;
  const std::string facts = withoutLock([&] {
    RecordingReader recording(name, checkSignals);
    RecordingFacts found;
    try {
      while (const auto event = recording.next()) {
        found.add(*event, recording.lines().lineNumber());
      }
    } catch (const Failure& error) {
      failure = error;
    }
    return formatInfoJson(
        {printable(name), recording.source(), recording.origin(), recording.secondZero(),
         recording.lines().lineNumber(), failure ? failure->what() : ""},
        found);
  });
  return py::make_tuple(facts, asException(failure));
}

}  // namespace

void addInfo(py::module_& module) { module.def("info_of_file", &infoOfFile, py::arg("path")); }

}  // namespace zorvel::python

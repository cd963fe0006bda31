#include <string>
#include <vector>

#include "conversions.hpp"
#include "exceptions.hpp"
#include "export/elan.hpp"
#include "interpreter.hpp"
#include "parts.hpp"
#include "recording/distinct_files.hpp"
#include "recording/recording_reader.hpp"

namespace zorvel::python {
namespace {

/// Returns what is not in the files.
py::tuple exportToElanFiles(py::handle path, py::handle output, py::handle film, py::handle series,
                            py::handle person) {
  const std::string name = pathFrom(path);
  ElanFiles files{pathFrom(output), "", "", personFrom(person)};
  std::vector<std::string> outputs{files.document};
  if (!film.is_none()) files.film = pathFrom(film);
  if (!series.is_none()) outputs.push_back(files.series = pathFrom(series));
  const auto outcome = withoutLock([&] {
    requireDistinct({name}, outputs);
    RecordingReader recording(name, checkSignals);
    return exportToElan(
        recording, files, [] {}, throwIfInterrupted);
  });
  return py::make_tuple(outcome.leftOut, asException(outcome.failure));
}

}  // namespace

void addExport(py::module_& module) {
  module.def("export_elan_files", &exportToElanFiles, py::arg("path"), py::arg("output"),
             py::arg("film"), py::arg("series"), py::arg("person"));
}

}  // namespace zorvel::python

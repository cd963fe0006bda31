#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "conversions.hpp"
#include "import/scope_table.hpp"
#include "inspection/format.hpp"
#include "interpreter.hpp"
#include "parts.hpp"
#include "recording/distinct_files.hpp"
#include "recording/recording_annotation.hpp"
#include "recording/recording_reader.hpp"
#include "recording/text_output.hpp"

namespace zorvel::python {
namespace {

/// Returns what became of scopes that are not where their file says.
std::vector<std::string> annotateFile(
    py::handle path, py::handle scopes, py::handle output, py::handle offset,
    const std::vector<std::string>& tiers,
    const std::map<std::string, std::optional<std::int32_t>>& subjects, py::handle person) {
  const std::string name = pathFrom(path);
  const std::string table = pathFrom(scopes);
  const std::string outputName = pathFrom(output);
  const auto since = offset.is_none() ? Time::duration(0) : durationFrom(offset, "offset");
  const ChosenAnnotations chosen{tiers, subjects, personFrom(person)};
  return withoutLock([&] {
    requireDistinct({name, table}, {outputName});
    RecordingReader recording(name, checkSignals);
    TextOutput annotated(outputName, throwIfInterrupted);
    ScopesOfFile read = readScopes(table, since, chosen, checkSignals);
    RecordingAnnotation lines(recording, table, std::move(read.scopes), std::move(read.leftOut));
    while (lines.next(annotated.text())) {
      if (annotated.isFile()) annotated.flush();  // elsewhere an error could not take it back
    }
    annotated.commit();
    return formatWarnings(lines);
  });
}

}  // namespace

void addAnnotation(py::module_& module) {
  module.def("annotate_file", &annotateFile, py::arg("path"), py::arg("scopes"), py::arg("output"),
             py::arg("offset"), py::arg("tiers"), py::arg("subjects"), py::arg("person"));
}

}  // namespace zorvel::python

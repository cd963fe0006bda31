#include "report/report.hpp"

#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "conversions.hpp"
#include "exceptions.hpp"
#include "interpreter.hpp"
#include "parts.hpp"
#include "playback/what_mattered.hpp"
#include "recording/distinct_files.hpp"
#include "recording/recording_reader.hpp"
#include "recording/text_output.hpp"

namespace zorvel::python {
namespace {

py::tuple reportFile(py::handle path, py::handle output, bool showsWhatMattered) {
  const std::string name = pathFrom(path);
  const std::string outputName = pathFrom(output);
  const auto result = withoutLock([&] {
    requireDistinct({name}, {outputName});
    RecordingReader recording(name, checkSignals);
    TextOutput page(outputName, throwIfInterrupted);
    std::optional<WhatMattered> mattered;
    if (showsWhatMattered) {
      mattered.emplace(std::vector{std::string(everyField)}, std::thread::hardware_concurrency());
    }
    auto written =
        writeReport(recording, reportTitle(name), page, mattered ? &*mattered : nullptr, [] {});
    page.commit();
    return written;
  });
  return py::make_tuple(warningsOf(result.findings), asException(result.failure));
}

py::tuple reportFiles(const py::list& paths, py::handle output, py::handle scope) {
  const std::vector<std::string> names = pathsFrom(paths);
  const std::string outputName = pathFrom(output);
  std::optional<std::string> alignedBy;
  if (!scope.is_none()) alignedBy = textFrom(scope, "align");
  const auto results = withoutLock([&] {
    requireDistinct(names, {outputName});
    TextOutput page(outputName, throwIfInterrupted);
    auto written =
        writeReport(names, alignedBy, page, checkSignals, [](const LineReader& /*lines*/) {});
    page.commit();
    return written;
  });
  py::list warnings;
  for (const ReportResult& result : results) warnings.append(warningsOf(result.findings));
  std::optional<Failure> failure;
  if (const auto failures = failuresOf(results); !failures.empty()) failure.emplace(failures);
  return py::make_tuple(warnings, asException(failure));
}

}  // namespace

void addReports(py::module_& module) {
  module.def("report_file", &reportFile, py::arg("path"), py::arg("output"), py::arg("mattered"));
  module.def("report_files", &reportFiles, py::arg("paths"), py::arg("output"), py::arg("align"));
}

}  // namespace zorvel::python

#include <fmt/format.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "conversions.hpp"
#include "exceptions.hpp"
#include "interpreter.hpp"
#include "parts.hpp"
#include "playback/explained_changes.hpp"
#include "playback/explainer.hpp"
#include "playback/explanation_line.hpp"
#include "playback/what_mattered.hpp"
#include "recording/recording_reader.hpp"

namespace zorvel::python {
namespace {

py::tuple explainFile(py::handle path, py::handle person, py::handle at, py::handle from,
                      py::handle to) {
  const std::string name = pathFrom(path);
  ExplainedTime explained;
  explained.person = personFrom(person);
  if (!at.is_none()) explained.at = durationFrom(at, "at");
  if (!from.is_none()) explained.from = durationFrom(from, "begin");
  if (!to.is_none()) explained.to = durationFrom(to, "end");
  if (explained.at && (!from.is_none() || !to.is_none())) {
    throw py::value_error("at: excludes begin and end");
  }
  if (explained.from > explained.to) throw py::value_error("begin: is after end");
  fmt::memory_buffer lines;
  const auto failure = withoutLock([&] {
    RecordingReader recording(name, checkSignals);
    Explainer explainer(explained);
    auto ended = explain(recording, explainer, [] {});
    for (const auto& [id, why] : explainer.persons()) appendExplanationLine(lines, id, explainer);
    return ended;
  });
  return py::make_tuple(py::str(lines.data(), lines.size()), asException(failure));
}

py::tuple explainGreatestOf(py::handle path, py::handle person, py::handle number) {
  const std::string name = pathFrom(path);
  const std::optional<std::int32_t> of = personFrom(person);
  const std::int32_t most = integer32From(number, "most");
  if (most < 1) failValue("most", "must be at least 1");
  std::optional<RecordingReader> recording;
  const auto greatest = withoutLock([&] {
    return explainGreatest(
        [&]() -> RecordingReader& { return recording.emplace(name, checkSignals); }, of,
        static_cast<std::size_t>(most), [] {});
  });
  fmt::memory_buffer lines;
  for (const ExplainedChange& change : greatest.changes) {
    appendExplanationLine(lines, change, greatest.secondZero);
  }
  return py::make_tuple(py::str(lines.data(), lines.size()), asException(greatest.failure));
}

py::tuple whatMatteredInFile(py::handle path, const py::list& fields) {
  const std::string name = pathFrom(path);
  std::vector<std::string> names;
  for (const py::handle field : fields) names.push_back(textFrom(field, "fields"));
  fmt::memory_buffer lines;
  const auto failure = withoutLock([&] {
    RecordingReader recording(name, checkSignals);
    WhatMattered mattered(names, std::thread::hardware_concurrency());
    auto ended = playAll(
        recording, Forces::Unwatched,
        [&](Time /*time*/, const Event& event, const Row& row) { mattered.add(event, row); });
    for (const Mattered& row : mattered.rows()) appendExplanationLine(lines, row);
    return ended;
  });
  return py::make_tuple(py::str(lines.data(), lines.size()), asException(failure));
}

}  // namespace

void addExplanations(py::module_& module) {
  module.def("explain_file", &explainFile, py::arg("path"), py::arg("person"), py::arg("at"),
             py::arg("begin"), py::arg("end"));
  module.def("greatest_changes_of_file", &explainGreatestOf, py::arg("path"), py::arg("person"),
             py::arg("most"));
  module.def("what_mattered_in_file", &whatMatteredInFile, py::arg("path"), py::arg("fields"));
}

}  // namespace zorvel::python

#include <fmt/format.h>

#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <tuple>
#include <utility>
#include <variant>
#include <vector>

#include "conversions.hpp"
#include "exceptions.hpp"
#include "inspection/recording_facts.hpp"
#include "interpreter.hpp"
#include "parts.hpp"
#include "playback/csv.hpp"
#include "playback/playback.hpp"
#include "playback/summary_table.hpp"
#include "reader.hpp"
#include "recording/event_reader.hpp"
#include "recording/recording_reader.hpp"
#include "replay_arrays.hpp"

namespace zorvel::python {
namespace {

py::tuple replayFile(py::handle path, bool forces) {
  const std::string name = pathFrom(path);
  const Forces watched = forces ? Forces::Watched : Forces::Unwatched;
  Tables tables(watched);
  RecordingFacts facts;
  Time zero;
  const auto failure = withoutLock([&] {
    RecordingReader recording(name, checkSignals);
    auto ended = playAll(recording, watched, [&](Time time, const Event& event, const Row& row) {
      tables.add(time, row);
      facts.add(event, recording.lines().lineNumber());
    });
    zero = recording.secondZero();
    return ended;
  });
  return py::make_tuple(tables.take(zero), warningsOf(findingsOf(facts)), asException(failure));
}

/// Replays what Python gives one by one: an event, a line, or what `lineOf` makes a line of.
py::tuple replayEvents(const py::iterable& entries, py::handle lineOf, bool forces) {
  const Forces watched = forces ? Forces::Watched : Forces::Unwatched;
  Tables tables(watched);
  const py::iterator iterator = py::iter(entries);
  using Entry = std::variant<std::monostate, Event, std::string>;
  const auto nextEntry = [&]() -> Entry {
    auto entry = py::reinterpret_steal<py::object>(
        stayingAtTheEnd([&] { return PyIter_Next(iterator.ptr()); }));
    if (PyErr_Occurred() != nullptr) throw py::error_already_set();
    if (!entry) return {};
    if (py::isinstance<Event>(entry)) return entry.cast<const Event&>();
    if (!py::isinstance<py::str>(entry) && !py::isinstance<py::bytes>(entry)) {
      entry = callFunction(lineOf, entry);
    }
    auto line = entry.cast<std::string>();
    if (!line.empty() && line.back() == '\n') line.pop_back();
    return line;
  };
  const auto* const reader =
      py::isinstance<Reader>(entries) ? entries.cast<const Reader*>() : nullptr;
  EventReader lines(MissingTime::Error);
  std::uint64_t number = 0;
  const auto read = [&]() -> std::optional<Event> {
    while (true) {
      Entry entry = callPython(nextEntry);
      ++number;
      if (auto* const event = std::get_if<Event>(&entry)) return std::move(*event);
      auto* const line = std::get_if<std::string>(&entry);
      if (line == nullptr) return std::nullopt;
      try {
        if (auto event = lines.read(*line)) return event;
      } catch (const JsonError& error) {
        throw BadLine(fmt::format("line {}: {}", number, error.what()),
                      {"", number, error.key(), 0});
      }
    }
  };
  std::optional<Time> zero;
  const auto next = [&] {
    auto event = read();
    if (event && !zero) {
      const auto origin = reader != nullptr ? reader->origin() : lines.origin();
      zero = origin.value_or(event->time);
    }
    return event;
  };
  try {
    const auto failure = withoutLock([&] {
      return playAll(
          {next, [&] { return *zero; }}, watched,
          [&](Time time, const Event& /*event*/, const Row& row) { tables.add(time, row); });
    });
    return py::make_tuple(tables.take(zero.value_or(Time())), asException(failure));
  } catch (const py::error_already_set& error) {
    // The events may themselves be those of a recording with a bad line.
    if (!error.matches(py::module_::import("zorvel").attr("DataError"))) throw;
    return py::make_tuple(tables.take(zero.value_or(Time())), error.value());
  }
}

double numberOf(std::optional<double> cell) {
  return cell.value_or(std::numeric_limits<double>::quiet_NaN());
}

template <typename Number>
Number numberOf(Number cell) {
  return cell;
}

/// From the name of each column to the value.
py::list dictsOf(const std::vector<SummaryRow>& rows) {
  py::list dicts;
  for (const SummaryRow& row : rows) {
    py::dict cells;
    std::apply(
        [&](const auto&... column) {
          ((cells[py::str(column.name.data(), column.name.size())] = numberOf(column.value(row))),
           ...);
        },
        summaryColumns);
    dicts.append(cells);
  }
  return dicts;
}

/// The rows as dicts, and as lines of a table.
py::tuple summarizeFile(py::handle path, py::handle shown) {
  const std::string name = pathFrom(path);
  const auto shownName = py::module_::import("os").attr("fsencode")(shown).cast<std::string>();
  SummaryTable summary;
  RecordingFacts facts;
  const auto failure = withoutLock([&] {
    RecordingReader recording(name, checkSignals);
    return playAll(recording, Forces::Unwatched,
                   [&](Time time, const Event& event, const Row& row) {
                     summary.add(time, event, row);
                     facts.add(event, recording.lines().lineNumber());
                   });
  });
  const auto rows = summary.rows();
  fmt::memory_buffer lines;
  appendSummary(lines, shownName, rows);
  return py::make_tuple(dictsOf(rows), fileName(fmt::to_string(lines)),
                        warningsOf(findingsOf(facts)), asException(failure));
}

/// The tables and the summary of a recording, played once.
py::tuple replayForStudy(py::handle path) {
  const std::string name = pathFrom(path);
  Tables tables(Forces::Unwatched);
  SummaryTable summary;
  RecordingFacts facts;
  Time zero;
  const auto failure = withoutLock([&] {
    RecordingReader recording(name, checkSignals);
    auto ended =
        playAll(recording, Forces::Unwatched, [&](Time time, const Event& event, const Row& row) {
          tables.add(time, row);
          summary.add(time, event, row);
          facts.add(event, recording.lines().lineNumber());
        });
    zero = recording.secondZero();
    return ended;
  });
  return py::make_tuple(tables.take(zero), dictsOf(summary.rows()), warningsOf(findingsOf(facts)),
                        asException(failure));
}

}  // namespace

void addReplay(py::module_& module) {
  module.def("replay_file", &replayFile, py::arg("path"), py::arg("forces"));
  module.def("replay_for_study", &replayForStudy, py::arg("path"));
  module.def("replay_events", &replayEvents, py::arg("entries"), py::arg("line_of"),
             py::arg("forces"));
  module.def("summarize_file", &summarizeFile, py::arg("path"), py::arg("name"));
  module.attr("SUMMARY_HEADER") = summaryHeader;
}

}  // namespace zorvel::python

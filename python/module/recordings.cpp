#include <pybind11/numpy.h>

#include <limits>
#include <map>
#include <mutex>
#include <tuple>
#include <utility>
#include <vector>

#include "import/importer.hpp"
#include "inspection/findings.hpp"
#include "module.hpp"
#include "playback/columns.hpp"
#include "playback/csv.hpp"
#include "playback/explanation_line.hpp"
#include "playback/playback.hpp"
#include "playback/summary_table.hpp"
#include "recording/failure.hpp"
#include "recording/printable.hpp"
#include "recording/recording_reader.hpp"
#include "recording/recording_writer.hpp"
#include "recording/text_output.hpp"
#include "report/report.hpp"

namespace zorvel::python {
namespace {

/// Lets a signal, such as that of Ctrl-C, raise its exception.
void throwIfInterrupted() {
  callPython([] {
    if (PyErr_CheckSignals() != 0) throw py::error_already_set();
  });
}

void checkSignals(int /*descriptor*/) { throwIfInterrupted(); }

/// A recording while it is read.
class Reader {
 public:
  explicit Reader(const std::string& name) : _recording(name, checkSignals) {}

  Event next() {
    auto event = withoutLock([this] {
      const std::lock_guard lock(_mutex);
      return _recording.next();
    });
    if (!event) throw py::stop_iteration();
    return std::move(*event);
  }
  const std::string& source() const { return _recording.source(); }

 private:
  std::mutex _mutex;
  RecordingReader _recording;
};

/// A recording that is written; unless it is closed, it leaves no trace.
class Writer {
 public:
  Writer(const std::string& name, const std::string& source) {
    withoutLock([&] { _output.emplace(name, throwIfInterrupted); });
    appendHeader(_output->text(), source);
  }
  void write(const Event& event) {
    if (!_output) throw py::value_error("the recording is closed");
    appendEvent(_output->text(), event);
    withoutLock([this] { _output->flush(); });
  }
  void close() {
    if (!_output) return;
    withoutLock([this] { _output->commit(); });
    _output.reset();
  }
  void exit(const py::handle& error) {
    if (error.is_none()) close();
    _output.reset();
  }

 private:
  std::optional<TextOutput> _output;
};

// --- tables of results

/// Texts, of which a column has few different ones, many times.
class TextColumn {
 public:
  void push_back(std::string_view text) {
    auto found = _numbers.find(text);
    if (found == _numbers.end()) found = _numbers.emplace(text, _numbers.size()).first;
    _rows.push_back(static_cast<std::int64_t>(found->second));
  }
  const std::vector<std::int64_t>& rows() const { return _rows; }
  /// The texts, by number.
  py::list texts() const {
    py::list all(_numbers.size());
    for (const auto& [text, number] : _numbers) all[number] = py::str(text);
    return all;
  }

 private:
  std::map<std::string, std::size_t, std::less<>> _numbers;
  std::vector<std::int64_t> _rows;
};

/// What a column of the results is kept in.
template <typename Value>
struct KeptIn {
  using Type = std::vector<Value>;
};
template <>
struct KeptIn<bool> {
  using Type = std::vector<std::uint8_t>;
};
template <>
struct KeptIn<std::size_t> {
  using Type = std::vector<std::int64_t>;
};
template <>
struct KeptIn<Time::duration> {
  using Type = std::vector<double>;
};
template <>
struct KeptIn<std::optional<Time::duration>> {
  using Type = std::vector<double>;
};
template <>
struct KeptIn<std::string_view> {
  using Type = TextColumn;
};

/// An array that takes over the memory of a vector.
template <typename Number>
py::array asArray(std::vector<Number>&& numbers) {
  auto* const kept = new std::vector<Number>(std::move(numbers));
  const py::capsule owner(kept, [](void* memory) {
    delete static_cast<std::vector<Number>*>(memory);  // NOLINT(cppcoreguidelines-owning-memory)
  });
  return py::array_t<Number>(static_cast<py::ssize_t>(kept->size()), kept->data(), owner);
}

py::array asArray(TextColumn&& column) {
  const py::object numpy = py::module_::import("numpy");
  const py::object texts =
      numpy.attr("array")(column.texts(), py::arg("dtype") = numpy.attr("object_"));
  return texts.attr("take")(py::array_t<std::int64_t>(
      static_cast<py::ssize_t>(column.rows().size()), column.rows().data()));
}

/// The rows of one table of the results, by column.
template <typename Row, typename Columns>
class Table {
 public:
  explicit Table(const Columns& columns) : _columns(columns) {}

  void add(Time time, const Row& row) {
    _times.push_back(nanoseconds(time));
    std::apply(
        [&](const auto&... column) {
          std::apply([&](auto&... kept) { (kept.push_back(valueOf(column, row)), ...); }, _kept);
        },
        _columns);
  }

  /// A dict from the name of each column to its array; `start` is where the recording begins.
  py::dict take(Time start) {
    py::dict arrays;
    std::vector<double> since;
    for (const std::int64_t time : _times) {
      since.push_back(inSeconds(between(start, Time(Time::duration(time)))));
    }
    const py::array seconds = asArray(std::move(since));
    arrays["time"] = asArray(std::move(_times));
    std::apply(
        [&](const auto&... column) {
          std::apply(
              [&](auto&... kept) {
                ((arrays[py::str(column.name.data(), column.name.size())] =
                      asArray(std::move(kept))),
                 ...);
              },
              _kept);
        },
        _columns);
    if (!arrays.contains("seconds")) arrays["seconds"] = seconds;
    return arrays;
  }

 private:
  template <typename Column>
  static auto valueOf(const Column& column, const Row& row) {
    const auto value = column.value(row);
    using Value = std::decay_t<decltype(value)>;
    if constexpr (std::is_same_v<Value, std::size_t>) {
      return static_cast<std::int64_t>(value);
    } else if constexpr (std::is_same_v<Value, Time::duration>) {
      return inSeconds(value);
    } else if constexpr (std::is_same_v<Value, std::optional<Time::duration>>) {
      return value ? inSeconds(*value) : std::numeric_limits<double>::quiet_NaN();
    } else {
      return value;
    }
  }
  template <typename... Column>
  static auto keptFor(const std::tuple<Column...>& columns) -> std::tuple<
      typename KeptIn<decltype(std::declval<Column>().value(std::declval<const Row&>()))>::Type...>;

  const Columns& _columns;
  std::vector<std::int64_t> _times;
  decltype(keptFor(std::declval<Columns>())) _kept;
};

/// Everything that a replay gives.
class Tables {
 public:
  explicit Tables(Forces forces) : _forces(forces) {}

  void add(Time time, const Row& row) {
    if (!_start) _start = time;
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

  py::dict take() {
    const Time start = _start.value_or(Time());
    py::dict tables;
    tables["timeline"] = _timeline.take(start);
    tables["known"] = _known.take(start);
    tables["scopes"] = _scopes.take(start);
    tables["ambiance"] = _ambiance.take(start);
    if (_forces == Forces::Watched) tables["forces"] = _movements.take(start);
    return tables;
  }

 private:
  Forces _forces;
  std::optional<Time> _start;
  Table<StateRow, decltype(timelineColumns)> _timeline{timelineColumns};
  Table<StateRow, decltype(knownColumns)> _known{knownColumns};
  Table<ScopeRow, decltype(scopesColumns)> _scopes{scopesColumns};
  Table<AmbianceRow, decltype(ambianceColumns)> _ambiance{ambianceColumns};
  Table<ForceRow, decltype(forcesColumns)> _movements{forcesColumns};
};

// A failure that comes after a part of the work comes with what the part gave: each of the
// functions below returns the failure as an exception object, or None, for the caller to raise.

py::object asException(const std::optional<Failure>& failure) {
  return failure ? exceptionOf(*failure) : py::none();
}

py::list warningsOf(const std::vector<Finding>& findings) {
  py::list warnings;
  for (const Finding& finding : findings) {
    if (finding.isWarning) warnings.append(finding.text);
  }
  return warnings;
}

py::tuple replayFile(py::handle path, bool forces) {
  const std::string name = pathFrom(path);
  const Forces watched = forces ? Forces::Watched : Forces::Unwatched;
  Tables tables(watched);
  RecordingFacts facts;
  const auto failure = withoutLock([&] {
    RecordingReader recording(name, checkSignals);
    return playAll(recording, watched, [&](Time time, const Event& event, const Row& row) {
      tables.add(time, row);
      facts.add(event, recording.lines().lineNumber());
    });
  });
  return py::make_tuple(tables.take(), warningsOf(findingsOf(facts)), asException(failure));
}

py::tuple replayEvents(const py::iterable& events, bool forces) {
  const Forces watched = forces ? Forces::Watched : Forces::Unwatched;
  Tables tables(watched);
  const py::iterator iterator = py::iter(events);
  const auto next = [&]() -> std::optional<Event> {
    return callPython([&]() -> std::optional<Event> {
      const auto object = py::reinterpret_steal<py::object>(PyIter_Next(iterator.ptr()));
      if (object && !py::isinstance<Event>(object)) failType("recording", "must give events");
      if (object) return object.cast<const Event&>();
      if (PyErr_Occurred() != nullptr) throw py::error_already_set();
      return std::nullopt;
    });
  };
  try {
    const auto failure = withoutLock([&] {
      return playAll(next, watched, [&](Time time, const Event& /*event*/, const Row& row) {
        tables.add(time, row);
      });
    });
    return py::make_tuple(tables.take(), asException(failure));
  } catch (const py::error_already_set& error) {
    // The events may themselves be those of a recording with a bad line.
    if (!error.matches(py::module_::import("zorvel").attr("DataError"))) throw;
    return py::make_tuple(tables.take(), error.value());
  }
}

double numberOf(std::optional<double> cell) {
  return cell.value_or(std::numeric_limits<double>::quiet_NaN());
}

template <typename Number>
Number numberOf(Number cell) {
  return cell;
}

/// The rows as dicts, from the name of each column to the value, and as lines of a table.
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
  fmt::memory_buffer lines;
  appendSummary(lines, shownName, rows);
  return py::make_tuple(dicts, fileName(fmt::to_string(lines)), warningsOf(findingsOf(facts)),
                        asException(failure));
}

std::optional<std::int32_t> personFrom(py::handle person) {
  if (person.is_none()) return std::nullopt;
  return integer32From(person, "person");
}

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
    appendExplanationLine(lines, change, greatest.start);
  }
  return py::make_tuple(py::str(lines.data(), lines.size()), asException(greatest.failure));
}

py::tuple reportFile(py::handle path, py::handle output) {
  const std::string name = pathFrom(path);
  const std::string outputName = pathFrom(output);
  const auto result = withoutLock([&] {
    RecordingReader recording(name, checkSignals);
    TextOutput page(outputName, throwIfInterrupted);
    auto written = writeReport(
        recording, printable(std::filesystem::path(name).filename().string()), page, [] {});
    page.commit();
    return written;
  });
  return py::make_tuple(warningsOf(result.findings), asException(result.failure));
}

ImportFacts importFile(Importer& importRows, std::string_view source, py::handle path,
                       py::handle output, const ImportOptions& options) {
  const std::string name = pathFrom(path);
  const std::string outputName = pathFrom(output);
  return withoutLock([&] {
    CsvReader rows(name, checkSignals);
    TextOutput recording(outputName, throwIfInterrupted);
    auto facts = importInto(recording, source, importRows, rows, options, [] {});
    recording.commit();
    return facts;
  });
}

ImportOptions importOptions(py::handle start, double gap, std::optional<double> rate,
                            bool mirrored) {
  ImportOptions options;
  if (!start.is_none()) options.start = timeFrom(start, "start");
  if (!(gap >= 0.0)) failValue("gap", "must be 0 or more");
  if (rate && !(*rate > 0.0)) failValue("fps", "must be above 0");
  options.gapSeconds = gap;
  options.framesPerSecond = rate;
  options.mirrored = mirrored;
  return options;
}

void bindEvents(py::module_& module) {
  const auto eventAt = [](py::handle time, Event::What what) {
    return Event{timeFrom(time, "time"), std::move(what)};
  };
  const auto time = py::arg("time");
  const auto person = py::arg("person");
  const auto scope = py::arg("scope");
  py::class_<Event>(module, "Event",
                    "One line of a recording. `time` is what a Reading's may be; what an event has "
                    "of the members below depends on its kind, the rest is None.")
      .def_static(
          "observation",
          [eventAt](py::handle at, py::handle id, const TimedObservation& observation) {
            return eventAt(at, Observation{integer32From(id, "person"), observation.fields});
          },
          time, person, py::arg("observation"), "A cycle in which a person was perceived.")
      .def_static(
          "not_seen",
          [eventAt](py::handle at, py::handle id) {
            return eventAt(at, NotSeen{integer32From(id, "person")});
          },
          time, person, "A cycle in which a person was not perceived.")
      .def_static(
          "remove",
          [eventAt](py::handle at, py::handle id) {
            return eventAt(at, Remove{integer32From(id, "person")});
          },
          time, person, "The person is forgotten.")
      .def_static(
          "rename",
          [eventAt](py::handle at, py::handle id, py::handle other) {
            return eventAt(at, Rename{integer32From(id, "person"), integer32From(other, "to")});
          },
          time, person, py::arg("to"), "The person goes on as another number.")
      .def_static(
          "start_recording",
          [eventAt](py::handle at, py::handle id, py::handle name, py::handle samples) {
            return eventAt(at, StartRecording{integer32From(id, "person"), textFrom(name, "scope"),
                                              samplesFrom(samples)});
          },
          time, person, scope, py::arg("samples") = py::none(),
          "A scope opens, for so many cycles; None for no limit.")
      .def_static(
          "stop_recording",
          [eventAt](py::handle at, py::handle id, py::handle name) {
            return eventAt(at, StopRecording{integer32From(id, "person"), textFrom(name, "scope")});
          },
          time, person, scope, "A scope closes.")
      .def_static(
          "movement", [eventAt](py::handle at) { return eventAt(at, Movement{}); }, time,
          "Something moved in the room.")
      .def_static(
          "activity",
          [eventAt](py::handle at, py::handle value) {
            return eventAt(at, Activity{floatFrom(value, "value")});
          },
          time, py::arg("value"), "A measurement of the room's activity.")
      .def_property_readonly(
          "kind", [](const Event& event) { return eventNames.at(event.what.index()); },
          "The name of the event, as recordings have it.")
      .def_property_readonly(
          "time", [](const Event& event) { return nanoseconds(event.time); },
          "In nanoseconds since 1970.")
      .def_property_readonly("person", &personOf, "Whom it is about.")
      .def_property_readonly(
          "to",
          [](const Event& event) -> std::optional<std::int32_t> {
            const auto* rename = std::get_if<Rename>(&event.what);
            if (rename == nullptr) return std::nullopt;
            return rename->to;
          },
          "The number that a renamed person goes on as.")
      .def_property_readonly(
          "fields",
          [](const Event& event) -> std::optional<TimedObservation> {
            const auto* observation = std::get_if<Observation>(&event.what);
            if (observation == nullptr) return std::nullopt;
            return TimedObservation{observation->fields, event.time};
          },
          "A copy of what was observed.")
      .def_property_readonly(
          "scope",
          [](const Event& event) -> std::optional<std::string> {
            if (const auto* start = std::get_if<StartRecording>(&event.what)) return start->scope;
            if (const auto* stop = std::get_if<StopRecording>(&event.what)) return stop->scope;
            return std::nullopt;
          },
          "The scope that opens or closes.")
      .def_property_readonly(
          "samples",
          [](const Event& event) -> std::optional<std::int32_t> {
            const auto* start = std::get_if<StartRecording>(&event.what);
            if (start == nullptr || start->samples < 0) return std::nullopt;
            return start->samples;
          },
          "How many cycles the scope takes.")
      .def_property_readonly(
          "value",
          [](const Event& event) -> std::optional<float> {
            const auto* activity = std::get_if<Activity>(&event.what);
            if (activity == nullptr) return std::nullopt;
            return activity->value;
          },
          "The measurement of an activity.")
      .def("__repr__", [](const Event& event) {
        const auto id = personOf(event);
        return fmt::format("<Event {} at {}{}>", eventNames.at(event.what.index()),
                           nanoseconds(event.time), id ? fmt::format(" of person {}", *id) : "");
      });
}

void bindImports(py::module_& module) {
  py::class_<ImportedField>(module, "ImportedField",
                            "What became of one of the fields that a file can give.")
      .def_readonly("name", &ImportedField::name, "As a recording calls it.")
      .def_readonly("obstacle", &ImportedField::obstacle,
                    "Why it is not there, or not all of it; empty when nothing is in the way.")
      .def_readonly("observations", &ImportedField::observations, "How many observations have it.");
  py::class_<ImportFacts>(module, "ImportFacts", "What an import made.")
      .def_readonly("rows", &ImportFacts::rows, "Rows of the file.")
      .def_readonly("frames", &ImportFacts::frames, "Times in the file.")
      .def_readonly("people", &ImportFacts::people, "How many people there are.")
      .def_readonly("observations", &ImportFacts::observations, "Rows with a face.")
      .def_property_readonly(
          "seconds", [](const ImportFacts& facts) { return inSeconds(facts.length); },
          "From the first frame to the last.")
      .def_readonly("fields", &ImportFacts::fields, "What became of each field.")
      .def_readonly("cut_off_row", &ImportFacts::cutOffRow,
                    "Which last row was left out, and why; empty when none was.")
      .def_readonly("doubtful_times", &ImportFacts::doubtfulTimes,
                    "Which times look wrong, a sentence each.");

  const auto file = py::arg("file");
  const auto output = py::arg("output");
  const auto start = py::arg("start") = py::none();
  const auto gap = py::arg("gap") = ImportOptions().gapSeconds;
  const auto mirrored = py::arg("mirrored") = false;
  module.def(
      "import_openface",
      [](py::handle path, py::handle to, py::handle begin, double seconds,
         std::optional<double> rate, bool mirror, double full) {
        ImportOptions options = importOptions(begin, seconds, rate, mirror);
        if (!(full > 0.0)) failValue("full_intensity", "must be above 0");
        options.fullIntensity = full;
        return importFile(importOpenFace, "openface", path, to, options);
      },
      file, output, py::kw_only(), start, gap, py::arg("fps") = py::none(), mirrored,
      py::arg("full_intensity") = ImportOptions().fullIntensity,
      "Turns what OpenFace 2.x writes into a recording.\n\n"
      "`start` is when the file begins (2000-01-01 in UTC); a person unseen for longer than `gap` "
      "seconds is removed; `fps` is for image sequences, in which every timestamp is 0; "
      "`full_intensity` is the intensity of an action unit that counts as full.");
  module.def(
      "import_pyfeat",
      [](py::handle path, py::handle to, double rate, py::handle begin, double seconds,
         bool mirror) {
        return importFile(importPyFeat, "pyfeat", path, to,
                          importOptions(begin, seconds, rate, mirror));
      },
      file, output, py::kw_only(), py::arg("fps"), start, gap, mirrored,
      "Turns what py-feat writes into a recording; `fps` is the video's frames per second. The "
      "rest "
      "is as for import_openface.");
}

}  // namespace

void addRecordings(py::module_& module) {
  bindEvents(module);
  bindImports(module);

  py::class_<Reader>(module, "RecordingReader", "The events of a recording, one after the other.")
      .def("__iter__", [](py::object self) { return self; })
      .def("__next__", &Reader::next)
      .def_property_readonly(
          "source", &Reader::source,
          "What made the recording, by its header; known after the first event.");
  module.def(
      "read_recording",
      [](py::handle path) {
        const std::string name = pathFrom(path);
        return withoutLock([&] { return std::make_unique<Reader>(name); });
      },
      py::arg("path"), "Reads a recording, an Event at a time, in constant memory.");

  py::class_<Writer>(
      module, "Recording",
      "A recording to write. It takes its name when it is closed, as the end of a `with` block "
      "does; one that is not, or whose block ends by an exception, leaves no trace.")
      .def(py::init([](py::handle path, py::handle source) {
             return std::make_unique<Writer>(pathFrom(path), textFrom(source, "source"));
           }),
           py::arg("path"), py::arg("source") = "")
      .def("write", &Writer::write, py::arg("event"), "Appends an event.")
      .def("close", &Writer::close, "Writes everything out, down to the disk.")
      .def("__enter__", [](py::object self) { return self; })
      .def("__exit__", [](Writer& writer, py::handle error, py::handle /*value*/,
                          py::handle /*traceback*/) { writer.exit(error); });

  // Wrapped in Python.
  module.def("replay_file", &replayFile, py::arg("path"), py::arg("forces"));
  module.def("replay_events", &replayEvents, py::arg("events"), py::arg("forces"));
  module.def("summarize_file", &summarizeFile, py::arg("path"), py::arg("name"));
  module.attr("SUMMARY_HEADER") = summaryHeader;
  module.def("explain_file", &explainFile, py::arg("path"), py::arg("person"), py::arg("at"),
             py::arg("begin"), py::arg("end"));
  module.def("greatest_changes_of_file", &explainGreatestOf, py::arg("path"), py::arg("person"),
             py::arg("most"));
  module.def("report_file", &reportFile, py::arg("path"), py::arg("output"));
}

}  // namespace zorvel::python

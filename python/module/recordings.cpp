#include <pybind11/numpy.h>

#include <cmath>
#include <limits>
#include <map>
#include <mutex>
#include <thread>
#include <tuple>
#include <utility>
#include <variant>
#include <vector>

#include "export/elan.hpp"
#include "import/importer.hpp"
#include "import/scope_table.hpp"
#include "inspection/findings.hpp"
#include "inspection/format.hpp"
#include "inspection/info_report.hpp"
#include "inspection/recording_facts.hpp"
#include "module.hpp"
#include "playback/columns.hpp"
#include "playback/csv.hpp"
#include "playback/explanation_line.hpp"
#include "playback/playback.hpp"
#include "playback/summary_table.hpp"
#include "playback/what_mattered.hpp"
#include "recording/distinct_files.hpp"
#include "recording/failure.hpp"
#include "recording/json_line.hpp"
#include "recording/printable.hpp"
#include "recording/recording_annotation.hpp"
#include "recording/recording_cut.hpp"
#include "recording/recording_reader.hpp"
#include "recording/recording_writer.hpp"
#include "recording/saved_state.hpp"
#include "recording/text_output.hpp"
#include "report/report.hpp"

namespace zorvel::python {
namespace {

/// Lets a signal, such as that of Ctrl-C, raise its exception.
void throwIfInterrupted() {
  callPython([] {
    if (stayingAtTheEnd(PyErr_CheckSignals) != 0) throw py::error_already_set();
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
  std::optional<Time> origin() const { return _recording.origin(); }

 private:
  std::mutex _mutex;
  RecordingReader _recording;
};

/// A recording that is written; unless it is closed, it leaves no trace.
class Writer {
 public:
  Writer(const std::string& name, const std::string& source, std::optional<Time> origin) {
    withoutLock([&] { _output.emplace(name, throwIfInterrupted); });
    appendHeader(_output->text(), source, origin);
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

/// Loads NumPy, which the first array would do otherwise: with the interpreter's lock, in the
/// initialization of a static variable. Two threads would wait for each other.
void loadNumpy() {
  static std::mutex mutex;
  withoutLock([] {
    const std::lock_guard lock(mutex);
    callPython([] { py::dtype::of<double>(); });
  });
}

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

/// The number nearest to the seconds, as the files have them to the nanosecond.
double secondsOf(Time::duration duration) {
  return std::strtod(fmt::format("{}e-9", duration.count()).c_str(), nullptr);
}

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

  /// A dict from the name of each column to its array; seconds count from `zero`.
  py::dict take(Time zero) {
    py::dict arrays;
    std::vector<double> since;
    if constexpr (!std::is_same_v<Row, StateRow>) {  // of which the file has the seconds
      for (const std::int64_t time : _times) {
        since.push_back(secondsOf(between(zero, Time(Time::duration(time)))));
      }
    }
    arrays["time"] = asArray(std::move(_times));
    std::apply(
        [&](const auto&... column) {
          std::apply(
              [&](auto&... kept) {
                ((arrays[py::str(std::string(column.name))] = asArray(std::move(kept))), ...);
              },
              _kept);
        },
        _columns);
    if (!arrays.contains("seconds")) arrays["seconds"] = asArray(std::move(since));
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
      return secondsOf(value);
    } else if constexpr (std::is_same_v<Value, std::optional<Time::duration>>) {
      return value ? secondsOf(*value) : std::numeric_limits<double>::quiet_NaN();
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
  explicit Tables(Forces forces) : _forces(forces) { loadNumpy(); }

  void add(Time time, const Row& row) {
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

  /// Seconds count from `zero`.
  py::dict take(Time zero) {
    py::dict tables;
    tables["timeline"] = _timeline.take(zero);
    tables["known"] = _known.take(zero);
    tables["scopes"] = _scopes.take(zero);
    tables["ambiance"] = _ambiance.take(zero);
    if (_forces == Forces::Watched) tables["forces"] = _movements.take(zero);
    return tables;
  }

 private:
  Forces _forces;
  Table<StateRow, decltype(timelineColumns)> _timeline{timelineColumns};
  static constexpr auto _knownAndMeasured = std::tuple_cat(knownColumns, measuredColumns);
  Table<StateRow, decltype(_knownAndMeasured)> _known{_knownAndMeasured};
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

std::vector<std::string> pathsFrom(const py::list& paths) {
  std::vector<std::string> names;
  for (const py::handle path : paths) names.push_back(pathFrom(path));
  return names;
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

void cutFile(py::handle path, py::handle output, py::handle from, py::handle to, py::handle leadIn,
             py::handle person, py::handle every, const py::dict& rename, bool keepsState) {
  const std::string name = pathFrom(path);
  const std::string outputName = pathFrom(output);
  CutSpan span;
  if (!from.is_none()) span.from = durationFrom(from, "begin");
  if (!to.is_none()) span.to = durationFrom(to, "end");
  if (span.from && *span.from > span.to) throw py::value_error("begin: is after end");
  if (!leadIn.is_none()) span.leadIn = durationFrom(leadIn, "lead_in");
  if (span.leadIn < Time::duration(0)) failValue("lead_in", "must be 0 or more");
  span.person = personFrom(person);
  if (!every.is_none()) span.every = durationFrom(every, "every");
  if (span.every && *span.every <= Time::duration(0)) failValue("every", "must be above 0");
  JoinedPeople::Ids ids;
  for (const auto& [old, renamed] : rename) {
    ids[integer32From(old, "rename")] = integer32From(renamed, "rename");
  }
  try {
    span.people = JoinedPeople(ids);
  } catch (const std::invalid_argument& error) {
    failValue("rename", error.what());
  }
  withoutLock([&] {
    requireDistinct({name}, {outputName});
    RecordingReader recording(name, checkSignals);
    TextOutput cut(outputName, throwIfInterrupted);
    ClockedPlayback playback(Forces::Unwatched);
    RecordingCut lines(recording, span, keepsState ? keeperOf(playback) : StateKeeper());
    while (lines.next(cut.text())) cut.flush();
    cut.commit();
  });
}

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

py::dict importFile(Importer& importRows, std::string_view source, py::handle path,
                    py::handle output, const ImportOptions& options) {
  const std::string name = pathFrom(path);
  const std::string outputName = pathFrom(output);
  const ImportFacts facts = withoutLock([&] {
    requireDistinct({name}, {outputName});
    CsvReader rows(name, checkSignals);
    TextOutput recording(outputName, throwIfInterrupted);
    auto made = importInto(recording, source, importRows, rows, options, [] {});
    recording.commit();
    return made;
  });
  py::list fields;
  for (const ImportedField& field : facts.fields) {
    fields.append(py::make_tuple(field.name, field.obstacle, field.observations));
  }
  return py::dict(py::arg("rows") = facts.rows, py::arg("frames") = facts.frames,
                  py::arg("people") = facts.people, py::arg("observations") = facts.observations,
                  py::arg("seconds") = inSeconds(facts.length), py::arg("fields") = fields,
                  py::arg("cut_off_row") = facts.cutOffRow,
                  py::arg("doubtful_times") = facts.doubtfulTimes);
}

ImportOptions importOptions(py::handle start, double gap, std::optional<double> rate,
                            bool mirrored) {
  ImportOptions options;
  if (!start.is_none()) options.start = timeFrom(start, "start");
  if (!(gap >= 0.0 && gap <= 1e9)) failValue("gap", "must be from 0 to 1e9");
  if (rate && !(*rate > 0.0)) failValue("fps", "must be above 0");
  options.gap = Time::duration(std::llround(gap * 1e9));
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
  py::class_<Event> bound(
      module, "Event",
      "One line of a recording. `time` is what a Reading's may be; which of the members below an "
      "event has depends on its kind, the rest are None.");
  bound
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
          "restore",
          [eventAt](py::handle at, std::string state, py::handle id) {
            std::optional<std::int32_t> of;
            if (!id.is_none()) of = integer32From(id, "person");
            try {
              JsonLine json;
              return eventAt(at, readState(json.parse(state), of));
            } catch (const JsonError& error) {
              throw py::value_error(fmt::format("state: {}", error.what()));
            }
          },
          time, py::arg("state"), py::arg("person") = py::none(),
          "The person, or without one the room, goes on from a saved state.")
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
      .def_property_readonly("person", &personOf, "The person that it is about.")
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
          "state",
          [](const Event& event) -> std::optional<std::string> {
            const auto* restore = std::get_if<Restore>(&event.what);
            if (restore == nullptr) return std::nullopt;
            return stateText(*restore);
          },
          "The state that is restored, as JSON.")
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
      .def("__repr__",
           [](const Event& event) {
             const auto id = personOf(event);
             return fmt::format("<Event {} at {}{}>", eventNames.at(event.what.index()),
                                nanoseconds(event.time),
                                id ? fmt::format(" of person {}", *id) : "");
           })
      .def(py::pickle(
          [](const Event& event) {
            fmt::memory_buffer line;
            appendEvent(line, event);
            return fmt::to_string(line);
          },
          [](std::string line) { return *EventReader(MissingTime::Error).read(line); }));
  bindEquality(bound, [](const Event& of) {
    const py::object self = py::cast(&of, py::return_value_policy::reference);
    py::tuple members(8);
    std::size_t next = 0;
    for (const char* name :
         {"kind", "time", "person", "fields", "state", "scope", "samples", "value"}) {
      members[next++] = self.attr(name);
    }
    return members;
  });
}

void bindImports(py::module_& module) {
  const auto file = py::arg("file");
  const auto output = py::arg("output");
  const auto start = py::arg("start");
  const auto gap = py::arg("gap");
  const auto rate = py::arg("fps");
  const auto mirrored = py::arg("mirrored");
  module.def(
      "import_openface_file",
      [](py::handle path, py::handle to, py::handle begin, double seconds,
         std::optional<double> framesPerSecond, bool mirror, double full) {
        ImportOptions options = importOptions(begin, seconds, framesPerSecond, mirror);
        if (!(full > 0.0)) failValue("full_intensity", "must be above 0");
        options.fullIntensity = full;
        return importFile(importOpenFace, "openface", path, to, options);
      },
      file, output, start, gap, rate, mirrored, py::arg("full_intensity"));
  module.def(
      "import_pyfeat_file",
      [](py::handle path, py::handle to, double framesPerSecond, py::handle begin, double seconds,
         bool mirror) {
        return importFile(importPyFeat, "pyfeat", path, to,
                          importOptions(begin, seconds, framesPerSecond, mirror));
      },
      file, output, rate, start, gap, mirrored);
}

}  // namespace

void addRecordings(py::module_& module) {
  bindEvents(module);

  py::class_<Reader>(module, "RecordingReader", "The events of a recording, one after the other.")
      .def("__iter__", [](py::object self) { return self; })
      .def("__next__", &Reader::next)
      .def_property_readonly("source", &Reader::source,
                             "What made the recording, by its header; known after the first event.")
      .def_property_readonly(
          "origin",
          [](const Reader& reader) -> std::optional<std::int64_t> {
            const auto origin = reader.origin();
            if (!origin) return std::nullopt;
            return nanoseconds(*origin);
          },
          "The moment of second 0, by its header, in nanoseconds since 1970; None where that is "
          "the first event, and before that is read.");
  module.def(
      "read_recording",
      [](py::handle path) {
        const std::string name = pathFrom(path);
        return withoutLock([&] { return std::make_unique<Reader>(name); });
      },
      py::arg("path"), "Reads a recording, an Event at a time, in constant memory.");

  py::class_<Writer>(
      module, "Recording",
      "A recording to write. It gets its name when it is closed, as the end of a `with` block "
      "does; one that is not, or whose block ends by an exception, leaves no trace. `origin` is "
      "the moment of second 0, where that is not the first event.")
      .def(py::init([](py::handle path, py::handle source, py::handle origin) {
             std::optional<Time> zero;
             if (!origin.is_none()) zero = timeFrom(origin, "origin");
             return std::make_unique<Writer>(pathFrom(path), textFrom(source, "source"), zero);
           }),
           py::arg("path"), py::arg("source") = "", py::arg("origin") = py::none())
      .def("write", &Writer::write, py::arg("event"), "Appends an event.")
      .def("close", &Writer::close, "Writes everything out, down to the disk.")
      .def("__enter__", [](py::object self) { return self; })
      .def("__exit__", [](Writer& writer, py::handle error, py::handle /*value*/,
                          py::handle /*traceback*/) { writer.exit(error); });

  // Wrapped in Python.
  module.def("replay_file", &replayFile, py::arg("path"), py::arg("forces"));
  module.def("replay_for_study", &replayForStudy, py::arg("path"));
  module.def("replay_events", &replayEvents, py::arg("entries"), py::arg("line_of"),
             py::arg("forces"));
  module.def("summarize_file", &summarizeFile, py::arg("path"), py::arg("name"));
  module.attr("SUMMARY_HEADER") = summaryHeader;
  module.def("explain_file", &explainFile, py::arg("path"), py::arg("person"), py::arg("at"),
             py::arg("begin"), py::arg("end"));
  module.def("greatest_changes_of_file", &explainGreatestOf, py::arg("path"), py::arg("person"),
             py::arg("most"));
  module.def("what_mattered_in_file", &whatMatteredInFile, py::arg("path"), py::arg("fields"));
  module.def("report_file", &reportFile, py::arg("path"), py::arg("output"), py::arg("mattered"));
  module.def("report_files", &reportFiles, py::arg("paths"), py::arg("output"), py::arg("align"));
  module.def("info_of_file", &infoOfFile, py::arg("path"));
  module.def("cut_file", &cutFile, py::arg("path"), py::arg("output"), py::arg("begin"),
             py::arg("end"), py::arg("lead_in"), py::arg("person"), py::arg("every"),
             py::arg("rename"), py::arg("keep_state"));
  module.def("annotate_file", &annotateFile, py::arg("path"), py::arg("scopes"), py::arg("output"),
             py::arg("offset"), py::arg("tiers"), py::arg("subjects"), py::arg("person"));
  module.def("export_elan_files", &exportToElanFiles, py::arg("path"), py::arg("output"),
             py::arg("film"), py::arg("series"), py::arg("person"));
  module.def(
      "require_distinct",
      [](const py::list& inputs, py::handle output) {
        requireDistinct(pathsFrom(inputs), {pathFrom(output)});
      },
      py::arg("inputs"), py::arg("output"));
  bindImports(module);
}

}  // namespace zorvel::python

#include "export/elan.hpp"

#include <iterator>

#include "export/elan_tiers.hpp"
#include "playback/columns.hpp"
#include "recording/text_output.hpp"

namespace zorvel {
namespace {

/// A file for the viewer of time series: a line for each cycle of one person.
class Series {
 public:
  Series(const std::string& name, const std::function<void()>& throwIfInterrupted)
      : _name(name), _output(name, throwIfInterrupted) {
    _output.append("seconds");
    forEachColumn([this](const auto& column) {
      _output.append(",");
      _output.append(column.name);
    });
    _output.append("\n");
  }

  void add(const StateRow& row) {
    if (_person.value_or(row.person) != row.person) {
      throw Failure(printable(_name) + ": a time series is of one person, whom --person chooses");
    }
    _person = row.person;
    if (row.since < Time::duration(0)) return;  // ELAN's time begins at 0
    const auto cell = std::back_inserter(_output.text());
    fmt::format_to(cell, "{:.9f}", inSeconds(row.since));
    forEachColumn([&](const auto& column) { fmt::format_to(cell, ",{}", column.value(row)); });
    _output.append("\n");
    _output.flush();
  }

  void finish() { _output.finish(); }
  void commit() { _output.commit(); }

 private:
  template <typename Use>
  static void forEachColumn(Use use) {
    std::apply([&](const auto&... column) { (use(column), ...); }, quantityColumns);
  }

  std::string _name;
  TextOutput _output;
  std::optional<std::int32_t> _person;
};

}  // namespace

ElanOutcome exportToElan(RecordingReader& recording, const ElanFiles& files,
                         const std::function<void()>& showProgress,
                         const std::function<void()>& throwIfInterrupted) {
  TextOutput document(files.document, throwIfInterrupted);
  std::optional<Series> series;
  if (!files.series.empty()) series.emplace(files.series, throwIfInterrupted);
  ElanTiers tiers;
  ElanOutcome outcome;
  outcome.failure =
      playAll(recording, Forces::Unwatched, [&](Time, const Event& event, const Row& row) {
        showProgress();
        if (files.person && personOf(event) != files.person) return;
        tiers.add(row);
        const auto* state = std::get_if<StateRow>(&row);
        if (series && state != nullptr) series->add(*state);
      });
  if (files.person && tiers.isEmpty()) {
    throw Failure(fmt::format("{}: person {} is not in the recording",
                              printable(recording.lines().name()), *files.person));
  }
  const std::size_t leftOut =
      tiers.write(document.text(), recording.secondZero(), files.film, files.document);
  if (leftOut > 0) {
    outcome.leftOut = fmt::format("{} {} before second 0, where ELAN has no time", leftOut,
                                  leftOut == 1 ? "annotation ends" : "annotations end");
  }
  document.finish();
  if (series) {
    series->finish();
    series->commit();
  }
  document.commit();
  return outcome;
}

}  // namespace zorvel

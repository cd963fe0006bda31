#include "report/report.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <limits>
#include <string_view>

#include "playback/playback.hpp"
#include "playback/summary_table.hpp"
#include "recording/json_writer.hpp"
#include "recording/printable.hpp"
#include "report/report_data.hpp"
#include "report/report_page.hpp"

namespace zorvel {
namespace {

ReportResult play(RecordingReader& recording, ReportData& data, const UseOfRow& use) {
  RecordingFacts facts;
  ReportResult result;
  result.failure =
      playAll(recording, Forces::Watched, [&](Time time, const Event& event, const Row& row) {
        data.add(time, event, row);
        facts.add(event, recording.lines().lineNumber());
        use(time, event, row);
      });
  result.findings = findingsOf(facts);
  return result;
}

std::vector<std::string> warningsOf(const ReportResult& result) {
  std::vector<std::string> warnings;
  for (const Finding& finding : result.findings) {
    if (finding.isWarning) warnings.push_back(finding.text);
  }
  return warnings;
}

std::string textOf(const std::optional<Failure>& failure) { return failure ? failure->what() : ""; }

/// The page around its hole, which `write()` fills.
template <typename Write>
void writeAround(std::string_view frame, std::string_view hole, TextOutput& page, Write write) {
  const std::size_t place = frame.find(hole);
  page.append(frame.substr(0, place));
  write();
  page.append(frame.substr(place + hole.size()));
  page.flush();
}

void writeElement(TextOutput& page, std::string_view id, std::string_view json) {
  page.append(fmt::format(R"(<script type="application/json" id="{}">)", id));
  page.append(json);
  page.append("</script>\n");
  page.flush();
}

/// By their file names; by the whole paths where files have the same name.
std::vector<std::string> titlesOf(const std::vector<std::string>& recordings) {
  std::vector<std::string> titles(recordings.size());
  std::transform(recordings.begin(), recordings.end(), titles.begin(), reportTitle);
  const std::vector<std::string> names = titles;
  for (std::size_t index = 0; index < titles.size(); ++index) {
    const auto sameNames = std::count(names.begin(), names.end(), names[index]);
    if (sameNames > 1 && recordings[index] != "-") titles[index] = printable(recordings[index]);
  }
  return titles;
}

void writeCell(JsonLineWriter& json, std::string_view name, std::optional<double> number) {
  json.member(name, number.value_or(std::numeric_limits<double>::quiet_NaN()));
}

template <typename Number>
void writeCell(JsonLineWriter& json, std::string_view name, Number number) {
  json.member(name, number);
}

/// One of the recordings of a page, and what the page shows of it before its own page is opened.
struct Overview {
  ReportData data;
  std::string source;
  SummaryTable summary;
  ReportResult result;
  Time secondZero{};
  std::optional<Time> start;
  Time end{};
  /// Where the curves of all recordings meet.
  std::optional<Time> zero;

  void read(const std::string& recording, const std::optional<std::string>& alignedBy,
            const WaitForInput& waitForInput,
            const std::function<void(const LineReader&)>& onProgress);
  void write(JsonLineWriter& json, const std::string& title) const;
};

void Overview::read(const std::string& recording, const std::optional<std::string>& alignedBy,
                    const WaitForInput& waitForInput,
                    const std::function<void(const LineReader&)>& onProgress) {
  try {
    RecordingReader reader(recording, waitForInput);
    result = play(reader, data, [&](Time time, const Event& event, const Row& row) {
      summary.add(time, event, row);
      if (!start) start = time;
      end = time;
      const auto* const scope = std::get_if<StartRecording>(&event.what);
      if (!zero && alignedBy && scope != nullptr && scope->scope == *alignedBy) zero = time;
      onProgress(reader.lines());
    });
    source = reader.source();
    secondZero = reader.secondZero();
    if (!alignedBy && start) zero = secondZero;
  } catch (const Failure& failure) {
    result.failure = failure;
  }
  if (!alignedBy || zero) return;
  if (result.failure) throw Failure(*result.failure);
  throw Failure(printable(recording) + ": has no scope " + inQuotes(*alignedBy),
                {recording, 0, "", 0});
}

void Overview::write(JsonLineWriter& json, const std::string& title) const {
  json.member("title", title);
  json.member("failure", textOf(result.failure));
  json.member("warnings", warningsOf(result).size());
  const Time origin = zero.value_or(end);
  // As a text: a script's numbers hold 53 bits.
  json.member("zero", std::to_string(origin.time_since_epoch().count()));
  json.member("from", inSeconds(between(origin, start.value_or(end))));
  json.member("to", inSeconds(between(origin, end)));
  json.list("persons", summary.rows(), [&](const SummaryRow& row) {
    std::apply(
        [&](const auto&... column) { (writeCell(json, column.name, column.value(row)), ...); },
        summaryColumns);
    json.member("tooShort", row.isTooShort);
  });
}

}  // namespace

std::string reportTitle(const std::string& recording) {
  if (recording == "-") return "standard input";
  return printable(std::filesystem::path(recording).filename().string());
}

ReportResult writeReport(RecordingReader& recording, const std::string& title, TextOutput& page,
                         WhatMattered* mattered, const std::function<void()>& onProgress) {
  ReportData data;
  ReportResult result =
      play(recording, data, [&](Time /*time*/, const Event& event, const Row& row) {
        if (mattered != nullptr) mattered->add(event, row);
        onProgress();
      });
  if (result.failure && recording.lines().lineNumber() == 0) throw Failure(*result.failure);
  writeAround(reportPage(), reportPageHole, page, [&] {
    page.append(data.json(recording.secondZero(), title, recording.source(), textOf(result.failure),
                          warningsOf(result),
                          mattered == nullptr ? std::vector<Mattered>() : mattered->rows()));
  });
  return result;
}

std::vector<ReportResult> writeReport(const std::vector<std::string>& recordings,
                                      const std::optional<std::string>& alignedBy, TextOutput& page,
                                      const WaitForInput& waitForInput,
                                      const std::function<void(const LineReader&)>& onProgress) {
  const std::vector<std::string> titles = titlesOf(recordings);
  std::vector<ReportResult> results;
  bool hasEvents = false;
  fmt::memory_buffer text;
  JsonLineWriter json(text);
  json.member("page", reportPage());
  if (alignedBy) json.member("scope", *alignedBy);
  writeAround(overviewPage(), overviewPageHole, page, [&] {
    json.key("recordings");
    json.beginList();
    for (std::size_t index = 0; index < recordings.size(); ++index) {
      Overview overview;
      overview.read(recordings[index], alignedBy, waitForInput, onProgress);
      const ReportResult& result = overview.result;
      writeElement(page, fmt::format("data{}", index + 1),
                   overview.data.json(overview.secondZero, titles[index], overview.source,
                                      textOf(result.failure), warningsOf(result), {}));
      json.begin();
      overview.write(json, titles[index]);
      json.end();
      if (overview.start || !result.failure) hasEvents = true;
      results.push_back(result);
    }
    json.endList();
    json.finish();
    if (!hasEvents) throw Failure(failuresOf(results));
    writeElement(page, "overview", insideElement({text.data(), text.size()}));
  });
  return results;
}

std::string failuresOf(const std::vector<ReportResult>& results) {
  std::string failures;
  for (const auto& result : results) {
    if (result.failure) failures += (failures.empty() ? "" : "\n") + textOf(result.failure);
  }
  return failures;
}

}  // namespace zorvel

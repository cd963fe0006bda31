#include <cmath>
#include <map>
#include <utility>

#include "import/raters_file.hpp"
#include "recording/failure.hpp"

namespace zorvel {
namespace {

std::optional<Time::duration> timeIn(const CsvReader& rows, CsvReader::Column column) {
  if (rows.text(column) == "n/a") return std::nullopt;
  const auto seconds = rows.number(column);
  if (!seconds) return std::nullopt;
  if (std::abs(*seconds) > 4e9) rows.fail(column, "is out of a recording's range");
  return Time::duration(std::llround(*seconds * 1e9));
}

/// Rows that were read up to the end of the file.
RatersFile finished(const CsvReader& rows, RatersFile file) {
  if (!rows.cutOffRow().empty()) throw Failure(rows.cutOffRow());
  for (const Annotation& annotation : file.annotations) file.tiers.try_emplace(annotation.tier);
  return file;
}

}  // namespace

bool isBoris(const CsvReader& rows) { return rows.find("Behavior").has_value(); }

RatersFile readBoris(CsvReader& rows) {
  const auto subject = rows.get("Subject");
  const auto behavior = rows.get("Behavior");
  const auto begin = rows.find("Start (s)");
  const auto end = begin ? rows.get("Stop (s)") : CsvReader::Column();
  const auto time = begin ? CsvReader::Column() : rows.get("Time");
  const auto status = rows.find("Status");
  const auto type = status ? status : rows.get("Behavior type");
  RatersFile file;
  // Which of the annotations have begun and not ended, by subject and behaviour.
  std::map<std::pair<std::string, std::string>, std::size_t> open;
  while (rows.next()) {
    const std::string what(rows.text(behavior));
    const std::string who(rows.text(subject) == "No focal subject" ? "" : rows.text(subject));
    const std::string_view kind = rows.text(type);
    const auto from = timeIn(rows, begin ? begin : time);
    if (!begin && kind == "STOP") {
      const auto begun = open.find({who, what});
      if (begun == open.end()) rows.fail(type, inQuotes(what) + " stops without a start");
      file.annotations[begun->second].end = from;
      open.erase(begun);
      continue;
    }
    if (!begin && kind != "START" && kind != "POINT") {
      rows.fail(type, inQuotes(kind) + " is none of START, STOP and POINT");
    }
    if (begin && kind != "STATE" && kind != "POINT") {
      rows.fail(type, inQuotes(kind) + " is neither STATE nor POINT");
    }
    if (kind == "START" && !open.try_emplace({who, what}, file.annotations.size()).second) {
      rows.fail(type, inQuotes(what) + " starts again without a stop");
    }
    const auto to = kind == "POINT" ? from : kind == "STATE" ? timeIn(rows, end) : std::nullopt;
    file.annotations.push_back({rows.lines().lineNumber(), what, who, what, from, to});
  }
  return finished(rows, std::move(file));
}

bool isBids(const CsvReader& rows) {
  return rows.find("onset").has_value() && rows.find("duration").has_value();
}

RatersFile readBids(CsvReader& rows) {
  const auto onset = rows.get("onset");
  const auto duration = rows.get("duration");
  const auto trialType = rows.get("trial_type");
  RatersFile file;
  while (rows.next()) {
    const std::string what(rows.text(trialType) == "n/a" ? "" : rows.text(trialType));
    const auto begin = timeIn(rows, onset);
    const auto length = timeIn(rows, duration);
    if (length && *length < Time::duration(0)) rows.fail(duration, "is below 0");
    const auto end = begin && length ? std::optional(*begin + *length) : std::nullopt;
    file.annotations.push_back({rows.lines().lineNumber(), what, "", what, begin, end});
  }
  return finished(rows, std::move(file));
}

}  // namespace zorvel

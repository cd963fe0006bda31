#include "import/scope_table.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <string_view>
#include <utility>

#include "import/csv_reader.hpp"
#include "recording/event_reader.hpp"
#include "recording/failure.hpp"
#include "recording/recording_writer.hpp"
#include "recording/typed_time.hpp"

namespace zorvel {
namespace {

ScopeOfTable::Moment readMoment(const CsvReader& rows, CsvReader::Column column,
                                Time::duration offset) {
  std::string text(rows.text(column));
  std::replace(text.begin(), text.end(), ',', '.');
  if (const auto since = readSeconds(text)) return *since + offset;
  // A whole number would be a date, too, in nanoseconds.
  if (text.find('T') != text.npos) {
    if (const auto date = readDate(text)) return *date;
  }
  rows.fail(column, inQuotes(rows.text(column)) +
                        " is neither seconds, nor like 1:23.5, nor like 2024-05-17T09:30:00Z");
}

/// Whether a recording can hold the name.
bool isReadable(const ScopeOfTable& row) {
  fmt::memory_buffer line;
  appendEvent(line, {Time(), StopRecording{row.person, row.scope}});
  std::string text = fmt::to_string(line);
  try {
    EventReader(MissingTime::Error).read(text);
    return true;
  } catch (const JsonError&) {
    return false;
  }
}

}  // namespace

std::vector<ScopeOfTable> readScopes(const std::string& file, Time::duration offset,
                                     const WaitForInput& waitForInput) {
  CsvReader rows(file, waitForInput);
  const auto person = rows.get("person");
  const auto scope = rows.get("scope");
  const auto begin = rows.get("begin");
  const auto end = rows.get("end");
  std::vector<ScopeOfTable> scopes;
  while (rows.next()) {
    ScopeOfTable row{rows.lines().lineNumber(), rows.requiredInteger32(person),
                     std::string(rows.text(scope)), readMoment(rows, begin, offset),
                     readMoment(rows, end, offset)};
    if (row.scope.empty()) rows.fail(scope, "must have a name");
    if (!isReadable(row)) rows.fail(scope, inQuotes(row.scope) + " is not UTF-8");
    scopes.push_back(std::move(row));
  }
  if (!rows.cutOffRow().empty()) throw Failure(rows.cutOffRow());
  return scopes;
}

}  // namespace zorvel

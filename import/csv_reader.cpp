#include "import/csv_reader.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <boost/algorithm/string/predicate.hpp>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <limits>

#include "recording/failure.hpp"
#include "recording/printable.hpp"

namespace zorvel {
namespace {

// No measurement comes near, and what is computed from two such numbers fits into a 32-bit float.
constexpr double largestNumber = 1e30;

}  // namespace

CsvReader::CsvReader(const std::string& name, const WaitForInput& waitForInput)
    : _lines(name, waitForInput, LineEnds::Any) {
  if (!nextLine()) {
    throw Failure(printable(name) + ": has no line with the names of the columns",
                  {name, 0, "", 0});
  }
  recogniseSeparator();
  split();
  _names.assign(_cells.begin(), _cells.end());
}

/// Whichever of the three occurs most often in the line of names.
void CsvReader::recogniseSeparator() {
  auto most = std::count(_line.begin(), _line.end(), _separator);
  for (const char separator : {';', '\t'}) {
    const auto count = std::count(_line.begin(), _line.end(), separator);
    if (count <= most) continue;
    most = count;
    _separator = separator;
  }
}

/// The blanks that are ignored around a cell.
const char* CsvReader::blanks() const { return _separator == '\t' ? " " : " \t"; }

std::string_view CsvReader::trimmed(std::string_view text) const {
  const std::size_t begin = text.find_first_not_of(blanks());
  if (begin == text.npos) return {};
  return text.substr(begin, text.find_last_not_of(blanks()) - begin + 1);
}

/// Reads the next line that is not blank.
bool CsvReader::nextLine() {
  do {
    if (!_lines.next(_line)) return false;
  } while (trimmed(_line).empty());
  return true;
}

/// Splits the line into its cells. One whose quote is not closed is not among them.
void CsvReader::split() {
  _cells.clear();
  std::size_t end = 0;
  for (std::size_t begin = 0; begin <= _line.size(); begin = end + 1) {
    const std::size_t first = _line.find_first_not_of(blanks(), begin);
    if (first == _line.npos || _line[first] != '"') {
      end = std::min(_line.find(_separator, begin), _line.size());
      _cells.push_back(trimmed(std::string_view(_line).substr(begin, end - begin)));
      continue;
    }
    std::size_t quote = first;
    while ((quote = _line.find('"', quote + 1)) != _line.npos && _line[quote + 1] == '"') {
      _line.erase(quote, 1);
    }
    if (quote == _line.npos) return;
    _cells.push_back(std::string_view(_line).substr(first + 1, quote - first - 1));
    end = std::min(_line.find_first_not_of(blanks(), quote + 1), _line.size());
    if (end < _line.size() && _line[end] != _separator) {
      failAt("", fmt::format("text after the closing quote of cell {}", _cells.size()));
    }
  }
}

CsvReader::Column CsvReader::findExactly(std::string_view name) const {
  Column found;
  for (std::size_t column = 0; column < _names.size(); ++column) {
    if (_names[column] != name) continue;
    if (found) fail(found, "occurs twice");
    found = column;
  }
  return found;
}

CsvReader::Column CsvReader::find(std::string_view name) const {
  if (const Column exact = findExactly(name)) return exact;
  Column found;
  for (std::size_t column = 0; column < _names.size(); ++column) {
    if (!boost::algorithm::iequals(_names[column], name)) continue;
    if (found) return std::nullopt;
    found = column;
  }
  return found;
}

CsvReader::Column CsvReader::get(std::string_view name) const {
  const Column found = find(name);
  if (!found) failAt(name, fmt::format("lacks the column {}", inQuotes(name)));
  return found;
}

bool CsvReader::next() {
  if (!nextLine()) return false;
  split();
  if (_cells.size() == _names.size()) return true;
  const Place place{_lines.name(), _lines.lineNumber(), "", 0};
  const std::string wrong =
      fmt::format("{}has {} cells instead of {}", _lines.place(), _cells.size(), _names.size());
  if (_cells.size() > _names.size() || nextLine()) throw Failure(wrong, place);
  _cutOffRow = wrong;
  return false;
}

std::string_view CsvReader::text(Column column) const {
  return column ? _cells[*column] : std::string_view();
}

std::optional<double> CsvReader::number(Column column) const {
  std::string_view cell = text(column);
  if (cell.empty() || cell == "NA") return std::nullopt;
  std::string withPoint;
  if (const std::size_t comma = cell.find(','); comma != cell.npos && _separator != ',') {
    withPoint = cell;
    withPoint[comma] = '.';
    cell = withPoint;
  }
  double value = 0.0;
  const char* const end = cell.data() + cell.size();
  const auto result = std::from_chars(cell.data(), end, value);
  if (result.ptr != end) fail(column, fmt::format("{} is not a number", inQuotes(text(column))));
  if (result.ec == std::errc() && !std::isfinite(value)) return std::nullopt;
  // from_chars reports underflow, which should give 0, and overflow alike; strtod tells them apart.
  if (result.ec != std::errc()) value = std::strtod(std::string(cell).c_str(), nullptr);
  if (std::abs(value) > largestNumber) fail(column, fmt::format("{} is too large", text(column)));
  return value;
}

double CsvReader::requiredNumber(Column column) const {
  const auto value = number(column);
  if (!value) fail(column, "must have a number");
  return *value;
}

std::int32_t CsvReader::requiredInteger32(Column column) const {
  using Limits = std::numeric_limits<std::int32_t>;
  const double value = requiredNumber(column);
  if (value != std::trunc(value) || value < Limits::min() || value > Limits::max()) {
    fail(column, fmt::format("{} is not a 32-bit integer", text(column)));
  }
  return static_cast<std::int32_t>(value);
}

void CsvReader::fail(Column column, const std::string& message) const {
  if (!column) failAt("", message);
  failAt(_names[*column], fmt::format("column {}: {}", inQuotes(_names[*column]), message));
}

void CsvReader::failAt(std::string_view column, const std::string& message) const {
  throw Failure(_lines.place() + message,
                {_lines.name(), _lines.lineNumber(), std::string(column), 0});
}

}  // namespace zorvel

#include "import/csv_reader.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <limits>

#include "recording/failure.hpp"

namespace zorvel {
namespace {

constexpr const char* blanks = " \t\r";
constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";

// No measurement comes near, and nothing that is computed from two such leaves a 32-bit float.
constexpr double largestNumber = 1e30;

std::string_view trimmed(std::string_view text) {
  const std::size_t begin = text.find_first_not_of(blanks);
  if (begin == text.npos) return {};
  return text.substr(begin, text.find_last_not_of(blanks) - begin + 1);
}

}  // namespace

CsvReader::CsvReader(const std::string& name, const WaitForInput& waitForInput)
    : _lines(name, waitForInput) {
  if (!nextLine()) throw Failure(name + ": has no line with the names of the columns");
  _names.assign(_cells.begin(), _cells.end());
}

/// Reads the next line that is not blank and splits it into its cells. One whose quote is not
/// closed lacks that cell.
bool CsvReader::nextLine() {
  const bool isFirst = _lines.lineNumber() == 0;
  do {
    if (!_lines.next(_line)) return false;
    if (isFirst && _line.compare(0, byteOrderMark.size(), byteOrderMark) == 0) {
      _line.erase(0, byteOrderMark.size());
    }
  } while (trimmed(_line).empty());

  _cells.clear();
  std::size_t end = 0;
  for (std::size_t begin = 0; begin <= _line.size(); begin = end + 1) {
    const std::size_t first = _line.find_first_not_of(blanks, begin);
    if (first == _line.npos || _line[first] != '"') {
      end = std::min(_line.find(',', begin), _line.size());
      _cells.push_back(trimmed(std::string_view(_line).substr(begin, end - begin)));
      continue;
    }
    std::size_t quote = first;
    while ((quote = _line.find('"', quote + 1)) != _line.npos && _line[quote + 1] == '"') {
      _line.erase(quote, 1);
    }
    if (quote == _line.npos) return true;
    _cells.push_back(std::string_view(_line).substr(first + 1, quote - first - 1));
    end = std::min(_line.find_first_not_of(blanks, quote + 1), _line.size());
    if (end < _line.size() && _line[end] != ',') {
      throw Failure(
          fmt::format("{}text behind the closing quote of cell {}", _lines.place(), _cells.size()));
    }
  }
  return true;
}

CsvReader::Column CsvReader::find(std::string_view name) const {
  Column found;
  for (std::size_t column = 0; column < _names.size(); ++column) {
    if (_names[column] != name) continue;
    if (found) fail(found, "is there twice");
    found = column;
  }
  return found;
}

CsvReader::Column CsvReader::get(std::string_view name) const {
  const Column found = find(name);
  if (!found) throw Failure(fmt::format("{}lacks the column {:?}", _lines.place(), name));
  return found;
}

bool CsvReader::next() {
  if (!nextLine()) return false;
  if (_cells.size() == _names.size()) return true;
  const std::string wrong =
      fmt::format("{}has {} cells instead of {}", _lines.place(), _cells.size(), _names.size());
  if (_cells.size() > _names.size() || nextLine()) throw Failure(wrong);
  _leftOut = wrong + ": the last row is cut off and left out";
  return false;
}

std::string_view CsvReader::text(Column column) const {
  return column ? _cells[*column] : std::string_view();
}

std::optional<double> CsvReader::number(Column column) const {
  const std::string_view cell = text(column);
  if (cell.empty()) return std::nullopt;
  double value = 0.0;
  const char* const end = cell.data() + cell.size();
  const auto result = std::from_chars(cell.data(), end, value);
  if (result.ptr != end) fail(column, fmt::format("{:?} is not a number", cell));
  if (result.ec == std::errc() && !std::isfinite(value)) return std::nullopt;
  // It does not tell a number too small, which is 0, from one too large.
  if (result.ec != std::errc()) value = std::strtod(std::string(cell).c_str(), nullptr);
  if (std::abs(value) > largestNumber) fail(column, fmt::format("{} is too large", cell));
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
  if (!column) throw Failure(_lines.place() + message);
  throw Failure(fmt::format("{}column {:?}: {}", _lines.place(), _names[*column], message));
}

}  // namespace zorvel

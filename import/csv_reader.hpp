#ifndef ZORVEL_IMPORT_CSV_READER_HPP
#define ZORVEL_IMPORT_CSV_READER_HPP

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "recording/line_reader.hpp"

namespace zorvel {

/// Reads a CSV file whose first line names its columns, row by row in constant memory. Commas,
/// semicolons or tabs separate the cells; where commas do not, a number may have a decimal comma.
/// Blanks around a cell do not count, cells may be quoted as in RFC 4180 but not span lines, and
/// blank lines are skipped. Whatever is wrong is thrown as Failure with file, line and column.
class CsvReader {
 public:
  /// The place of a column; none when the file does not have it.
  using Column = std::optional<std::size_t>;

  /// Opens the file as a LineReader does, and reads the names.
  explicit CsvReader(const std::string& name, const WaitForInput& waitForInput = {});

  /// The column of that name or else, where just one fits, of that name in another case.
  Column find(std::string_view name) const;
  Column findExactly(std::string_view name) const;
  /// The same as `find` for a column that must be there.
  Column get(std::string_view name) const;
  template <std::size_t count>
  std::array<Column, count> findAll(const std::array<std::string_view, count>& names) const;

  /// Reads the next row; false at the end. A last row that lacks cells is left out.
  bool next();
  /// Says which last row was left out, and what it lacks; empty when none was.
  const std::string& cutOffRow() const { return _cutOffRow; }

  // Of the present row. A column that the file does not have is an empty cell.

  std::string_view text(Column column) const;
  /// The number in a cell; none when the cell is empty, NA, NaN or infinite.
  std::optional<double> number(Column column) const;
  /// The numbers in several cells; none unless each has one.
  template <std::size_t count>
  std::optional<std::array<double, count>> numbers(const std::array<Column, count>& columns) const;
  /// The number in a cell that must have one.
  double requiredNumber(Column column) const;
  std::int32_t requiredInteger32(Column column) const;

  [[noreturn]] void fail(Column column, const std::string& message) const;

  const LineReader& lines() const { return _lines; }

 private:
  [[noreturn]] void failAt(std::string_view column, const std::string& message) const;
  void recogniseSeparator();
  const char* blanks() const;
  std::string_view trimmed(std::string_view text) const;
  bool nextLine();
  void split();

  LineReader _lines;
  char _separator = ',';
  std::vector<std::string> _names;
  std::string _line;
  /// Each refers into the line.
  std::vector<std::string_view> _cells;
  std::string _cutOffRow;
};

template <std::size_t count>
std::array<CsvReader::Column, count> CsvReader::findAll(
    const std::array<std::string_view, count>& names) const {
  std::array<Column, count> columns;
  for (std::size_t index = 0; index < count; ++index) columns.at(index) = find(names.at(index));
  return columns;
}

template <std::size_t count>
std::optional<std::array<double, count>> CsvReader::numbers(
    const std::array<Column, count>& columns) const {
  std::array<double, count> all{};
  for (std::size_t index = 0; index < count; ++index) {
    const auto value = number(columns.at(index));
    if (!value) return std::nullopt;
    all.at(index) = *value;
  }
  return all;
}

}  // namespace zorvel

#endif

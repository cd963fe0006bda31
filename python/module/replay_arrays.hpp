#ifndef ZORVEL_PYTHON_REPLAY_ARRAYS_HPP
#define ZORVEL_PYTHON_REPLAY_ARRAYS_HPP

#include <pybind11/numpy.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "conversions.hpp"
#include "playback/columns.hpp"
#include "playback/playback.hpp"
#include "pybind.hpp"

namespace zorvel::python {

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
double secondsOf(Time::duration duration);

/// An array that takes over the memory of a vector.
template <typename Number>
py::array asArray(std::vector<Number>&& numbers) {
  auto* const kept = new std::vector<Number>(std::move(numbers));
  const py::capsule owner(kept, [](void* memory) {
    delete static_cast<std::vector<Number>*>(memory);  // NOLINT(cppcoreguidelines-owning-memory)
  });
  return py::array_t<Number>(static_cast<py::ssize_t>(kept->size()), kept->data(), owner);
}

py::array asArray(TextColumn&& column);

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
  explicit Tables(Forces forces);
  void add(Time time, const Row& row);
  /// Seconds count from `zero`.
  py::dict take(Time zero);

 private:
  Forces _forces;
  Table<StateRow, decltype(timelineColumns)> _timeline{timelineColumns};
  static constexpr auto _knownAndMeasured = std::tuple_cat(knownColumns, measuredColumns);
  Table<StateRow, decltype(_knownAndMeasured)> _known{_knownAndMeasured};
  Table<ScopeRow, decltype(scopesColumns)> _scopes{scopesColumns};
  Table<AmbianceRow, decltype(ambianceColumns)> _ambiance{ambianceColumns};
  Table<ForceRow, decltype(forcesColumns)> _movements{forcesColumns};
};

}  // namespace zorvel::python

#endif

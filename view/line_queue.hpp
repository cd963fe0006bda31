#ifndef ZORVEL_VIEW_LINE_QUEUE_HPP
#define ZORVEL_VIEW_LINE_QUEUE_HPP

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>

namespace zorvel {

/// Lines that wait for a reader, in bounded memory: when the reader does not keep up, the oldest
/// are dropped.
class LineQueue {
 public:
  /// At most this many bytes wait, unless a single line has more.
  explicit LineQueue(std::size_t mostBytes = std::size_t{128} << 10) : _mostBytes(mostBytes) {}

  void add(std::string_view line);
  /// Whether the line can be added without dropping others.
  bool fits(std::string_view line) const { return _bytes + line.size() <= _mostBytes; }
  /// Takes out the oldest lines, at most so many bytes but at least one line; "" when there is
  /// none.
  std::string take(std::size_t most);
  /// Drops all lines, and returns how many.
  std::size_t clear();
  /// How many lines were dropped to add others.
  std::uint64_t dropped() const { return _dropped; }

 private:
  std::size_t _mostBytes;
  std::deque<std::string> _lines;
  std::size_t _bytes = 0;
  std::uint64_t _dropped = 0;
};

}  // namespace zorvel

#endif

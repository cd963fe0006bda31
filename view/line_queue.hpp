#ifndef ZORVEL_VIEW_LINE_QUEUE_HPP
#define ZORVEL_VIEW_LINE_QUEUE_HPP

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <string_view>

namespace zorvel {

/// What a line is about: of two lines about the same, the later makes the earlier superfluous.
using Topic = std::optional<std::int64_t>;

/// Lines that wait for a reader, in bounded memory. When a reader does not keep up, superfluous
/// lines are dropped, and where that is not enough, the oldest.
class LineQueue {
 public:
  /// No more bytes than this ever wait, unless a single line has more.
  static constexpr std::size_t mostBytes = std::size_t{128} << 10;

  void add(Topic topic, std::string_view line);
  bool isEmpty() const { return _lines.empty(); }
  /// Takes out the first lines, of at most so many bytes together, but at least one; "" when there
  /// is none.
  std::string take(std::size_t most = mostBytes / 2);
  /// How many lines were dropped since the last call.
  std::uint64_t takeDropped();

 private:
  struct Line {
    Topic topic;
    std::string text;
  };

  void drop();

  std::deque<Line> _lines;
  std::size_t _bytes = 0;
  std::uint64_t _dropped = 0;
};

}  // namespace zorvel

#endif

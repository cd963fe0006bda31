#ifndef ZORVEL_VIEW_LAST_MINUTE_HPP
#define ZORVEL_VIEW_LAST_MINUTE_HPP

#include <cstddef>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "playback/playback.hpp"
#include "recording/standard_error.hpp"

namespace zorvel {

/// The last minute of what was played, for users who want to keep what they just saw.
class LastMinute {
 public:
  /// The line is the event's.
  void add(Time time, std::string line);
  void clear();
  /// As the lines of a recording with that header, which begins with the states of its first
  /// moment. They are shared, as sending them may take long.
  std::vector<std::shared_ptr<const std::string>> recording(std::string header,
                                                            StandardError& errors) const;

 private:
  void drop();

  std::deque<std::pair<Time, std::shared_ptr<const std::string>>> _lines;
  std::size_t _bytes = 0;
  /// What was before; none while nothing was.
  std::optional<ClockedPlayback> _before;
};

}  // namespace zorvel

#endif

#ifndef ZORVEL_PLAYBACK_GREATEST_CHANGES_HPP
#define ZORVEL_PLAYBACK_GREATEST_CHANGES_HPP

#include <cstddef>
#include <cstdint>
#include <vector>

namespace zorvel {

/// A rise or a fall within a second, as indices of rows.
struct Change {
  std::size_t first;
  std::size_t last;
  /// The row that moved the value farthest from the one before.
  std::size_t steepest;
};

/// The greatest rises and falls of a value, the greatest first. How far the value has risen within
/// the last second is itself a curve: each of its peaks of at least `least` is a rise. Two peaks
/// count as two when the curve drops to half of either between them. Falls are found likewise.
///
/// The times are in nanoseconds and do not descend. In the rows of `begins` a person comes; the
/// second after that is left out, because there the state only leaves 0. In the rows of `returns` a
/// person is seen again after not being seen; what moved farthest in one of these is left out, too.
std::vector<Change> greatestChanges(const std::vector<std::int64_t>& times,
                                    const std::vector<float>& values,
                                    const std::vector<bool>& begins,
                                    const std::vector<bool>& returns, float least,
                                    std::size_t most);

}  // namespace zorvel

#endif

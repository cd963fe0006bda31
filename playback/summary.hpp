#ifndef ZORVEL_PLAYBACK_SUMMARY_HPP
#define ZORVEL_PLAYBACK_SUMMARY_HPP

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "playback/playback.hpp"

namespace zorvel {

/// What a replay prints on the terminal: a line for each person, and the scopes that were closed.
class Summary {
 public:
  /// The whole recording in numbers.
  struct Total {
    std::uint64_t persons = 0;
    std::uint64_t cycles = 0;
    std::uint64_t scopes = 0;
    /// The time in which persons were perceived, added up over them.
    double seconds = 0.0;

    Total& operator+=(const Total& other);
  };

  void add(Time time, const Row& row);
  Total total() const;
  /// All of it, several lines.
  std::string text() const;

 private:
  struct Cycles {
    std::uint64_t count = 0;
    Time first;
    Time last;
    double valence = 0.0;
    double valenceConfidence = 0.0;
    double attention = 0.0;
    double attentionConfidence = 0.0;
    /// Cycles with the mood 1, 0 and -1.
    std::array<std::uint64_t, 3> moods{};
  };

  std::map<std::int32_t, Cycles> _persons;
  std::vector<ScopeRow> _scopes;
  std::uint64_t _scopeCount = 0;
};

}  // namespace zorvel

#endif

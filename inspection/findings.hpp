#ifndef ZORVEL_INSPECTION_FINDINGS_HPP
#define ZORVEL_INSPECTION_FINDINGS_HPP

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "inspection/recording_facts.hpp"

namespace zorvel {

/// Something in a recording that looks wrong.
struct Finding {
  /// A word for programs.
  std::string_view kind;
  /// The line where it shows first; 0 when it shows in no single line.
  std::uint64_t firstLine;
  /// What it is and what it does, in plain sentences.
  std::string text;
};

/// What looks wrong, the most fundamental first.
std::vector<Finding> findingsOf(const RecordingFacts& facts);

/// A length of time with a unit that suits it, such as "33.3 ms".
std::string formatDuration(std::int64_t nanoseconds);
/// A share such as "98.7 %".
std::string formatShare(std::uint64_t part, std::uint64_t whole);

}  // namespace zorvel

#endif

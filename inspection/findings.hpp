#ifndef ZORVEL_INSPECTION_FINDINGS_HPP
#define ZORVEL_INSPECTION_FINDINGS_HPP

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "inspection/recording_facts.hpp"

namespace zorvel {

/// Something in a recording that looks wrong, or unusual.
struct Finding {
  /// A word for programs.
  std::string_view kind;
  /// The line where it shows first; 0 when it shows in no single line.
  std::uint64_t firstLine;
  /// What it is and what it does, in plain sentences.
  std::string text;
  /// Whether it spoils what a replay makes of the recording. Other findings may also come from a
  /// good recording of an unusual scene.
  bool isWarning;
};

/// What looks wrong, the most fundamental first.
std::vector<Finding> findingsOf(const RecordingFacts& facts);

}  // namespace zorvel

#endif

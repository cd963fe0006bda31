#ifndef ZORVEL_INSPECTION_INFO_REPORT_HPP
#define ZORVEL_INSPECTION_INFO_REPORT_HPP

#include <cstdint>
#include <optional>
#include <string>

#include "inspection/recording_facts.hpp"

namespace zorvel {

/// Where the facts are from.
struct InfoSource {
  std::string recording;
  /// What its header says of where it comes from.
  std::string header;
  /// Its origin, and the moment from which seconds count, which without one is the first event.
  std::optional<Time> origin;
  Time secondZero;
  /// All lines read, blank ones and the header included.
  std::uint64_t lines = 0;
  /// Why reading ended before the end; empty when it did not.
  std::string error;
};

/// The facts and what looks wrong with them, for the terminal.
std::string formatInfo(const InfoSource& source, const RecordingFacts& facts);
/// The same as a JSON object, with all persons.
std::string formatInfoJson(const InfoSource& source, const RecordingFacts& facts);

}  // namespace zorvel

#endif

#ifndef ZORVEL_EXPORT_ELAN_HPP
#define ZORVEL_EXPORT_ELAN_HPP

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "recording/failure.hpp"
#include "recording/recording_reader.hpp"

namespace zorvel {

/// What ELAN gets from a recording.
struct ElanFiles {
  /// The document, which names the film if that is not empty.
  std::string document = "-";
  std::string film;
  /// For its viewer of time series, a CSV file with the cycles of one person; empty for none.
  std::string series;
  /// This person alone.
  std::optional<std::int32_t> person;
};

struct ElanOutcome {
  /// What is not in the files; empty if everything is.
  std::string leftOut;
  /// What ended the recording early; the files have everything before.
  std::optional<Failure> failure;
};

/// Plays a recording and writes the files. Throws Failure, and what the callbacks throw: the first
/// is called after each event, the second where a signal interrupts the writing.
ElanOutcome exportToElan(RecordingReader& recording, const ElanFiles& files,
                         const std::function<void()>& showProgress,
                         const std::function<void()>& throwIfInterrupted);

}  // namespace zorvel

#endif

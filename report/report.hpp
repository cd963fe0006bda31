#ifndef ZORVEL_REPORT_REPORT_HPP
#define ZORVEL_REPORT_REPORT_HPP

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "inspection/findings.hpp"
#include "recording/failure.hpp"
#include "recording/recording_reader.hpp"
#include "recording/text_output.hpp"

namespace zorvel {

/// What came of a report.
struct ReportResult {
  /// What ended the recording early; the page shows it, and everything up to it.
  std::optional<Failure> failure;
  /// What looks wrong in the recording.
  std::vector<Finding> findings;
};

/// Replays a recording and writes its page, without committing it. `onProgress` is called after
/// each event. Throws Failure when not even the first line can be read, before anything is written,
/// or when writing fails.
ReportResult writeReport(RecordingReader& recording, const std::string& title, TextOutput& page,
                         const std::function<void()>& onProgress);

}  // namespace zorvel

#endif

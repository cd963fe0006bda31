#ifndef ZORVEL_REPORT_REPORT_HPP
#define ZORVEL_REPORT_REPORT_HPP

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "inspection/findings.hpp"
#include "playback/what_mattered.hpp"
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

/// How a page calls the recording of that file name; "-" is standard input.
std::string reportTitle(const std::string& recording);

/// Replays a recording and writes its page, without committing it, with what `mattered` finds, if
/// there is one. `onProgress` is called after each event. Throws Failure when not even the first
/// line can be read, before anything is written, or when writing fails.
ReportResult writeReport(RecordingReader& recording, const std::string& title, TextOutput& page,
                         WhatMattered* mattered, const std::function<void()>& onProgress);

/// Replays recordings one after the other and writes one page of all, without committing it. Their
/// curves begin together, or meet where the first scope of the name `alignedBy` begins in each.
/// When a recording cannot be read, the others go on. Holds one recording at a time. Throws Failure
/// when a recording has no such scope, when none gives an event before it fails, or when writing
/// fails.
std::vector<ReportResult> writeReport(const std::vector<std::string>& recordings,
                                      const std::optional<std::string>& alignedBy, TextOutput& page,
                                      const WaitForInput& waitForInput,
                                      const std::function<void(const LineReader&)>& onProgress);

/// What ended recordings early, a line for each; empty if nothing did.
std::string failuresOf(const std::vector<ReportResult>& results);

}  // namespace zorvel

#endif

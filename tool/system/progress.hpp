#ifndef ZORVEL_TOOL_SYSTEM_PROGRESS_HPP
#define ZORVEL_TOOL_SYSTEM_PROGRESS_HPP

#include <chrono>

#include "recording/line_reader.hpp"

namespace zorvel {

/// A progress bar on standard error, when that is a terminal and the work takes longer than a
/// moment. It is wiped out in the end.
class Progress {
 public:
  explicit Progress(bool wanted);
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;
  ~Progress();

  /// To be called for each line.
  void update(const LineReader& lines);

 private:
  bool _wanted;
  bool _shown = false;
  std::chrono::steady_clock::time_point _next;
};

}  // namespace zorvel

#endif

#ifndef ZORVEL_TOOL_SYSTEM_PROGRESS_HPP
#define ZORVEL_TOOL_SYSTEM_PROGRESS_HPP

#include <chrono>
#include <cstdint>
#include <string_view>

#include "recording/line_reader.hpp"

namespace zorvel {

/// A progress bar on standard error, when that is a terminal and the work takes longer than a
/// moment. It is erased at the end.
class Progress {
 public:
  static constexpr std::chrono::milliseconds shownEvery{100};

  explicit Progress(bool wanted);
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;
  ~Progress();

  /// To be called for each line of a file.
  void update(const LineReader& lines);
  /// To be called often: how much of the whole is done, and the same in words. `whole` is 0 when it
  /// is not known.
  void update(std::uint64_t done, std::uint64_t whole, std::string_view words);

 private:
  bool _wanted;
  bool _shown = false;
  std::chrono::steady_clock::time_point _next;
};

}  // namespace zorvel

#endif

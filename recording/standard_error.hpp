#ifndef ZORVEL_RECORDING_STANDARD_ERROR_HPP
#define ZORVEL_RECORDING_STANDARD_ERROR_HPP

#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>

namespace zorvel {

/// What a service says on standard error, for as long as it runs: it never waits for a reader,
/// never fails, and lets nobody fill a disk. What cannot be written at once is lost and counted.
/// SIGPIPE has to be ignored.
class StandardError {
 public:
  explicit StandardError(int descriptor = STDERR_FILENO) : _descriptor(descriptor) {}

  /// Says a line, without its end, that no source causes.
  void say(std::string_view line);
  /// Says one that this source causes: at most ten per second, and a hundred of all sources.
  void say(const std::string& source, std::string_view line);
  /// Says how many lines of each source were held back. To be called about once a second, and at
  /// the end.
  void sayHeldBack();
  /// How many lines nobody took.
  std::uint64_t lost() const { return _lost; }

 private:
  struct Source {
    std::uint64_t said = 0;
    std::uint64_t heldBack = 0;
  };

  bool isReady() const;
  bool write();

  int _descriptor;  // -1 for nowhere
  /// The sources that have caused a line since `_begin`.
  std::map<std::string, Source> _sources;
  std::uint64_t _said = 0;
  std::chrono::steady_clock::time_point _begin = std::chrono::steady_clock::now();
  std::string _rest;  // of a line that was written in part
  std::uint64_t _lost = 0;
};

}  // namespace zorvel

#endif

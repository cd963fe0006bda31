#ifndef ZORVEL_RECORDING_TEXT_OUTPUT_HPP
#define ZORVEL_RECORDING_TEXT_OUTPUT_HPP

#include <fmt/format.h>

#include <filesystem>
#include <functional>
#include <string>
#include <string_view>

namespace zorvel {

/// Where text is written to. A file is written under another name and gets its own only when it is
/// whole, so that nobody sees half of it; one that is not committed leaves no trace, and one that
/// takes the place of another keeps its permissions. Anything but a plain file is written straight
/// away: a device, a pipe, standard output (by the name "-") or another open descriptor
/// (/dev/fd/N). A symbolic link stays, and what it points to is written.
class TextOutput {
 public:
  /// Throws Failure when nothing can be written there. `throwIfInterrupted`, if given, is called
  /// when a signal interrupts a wait for the reader of a pipe; it may throw to give up.
  explicit TextOutput(const std::string& name, std::function<void()> throwIfInterrupted = {});
  TextOutput(const TextOutput&) = delete;
  TextOutput& operator=(const TextOutput&) = delete;
  ~TextOutput();

  /// What is appended here gets written; call `flush` after each piece.
  fmt::memory_buffer& text() { return _text; }
  void append(std::string_view piece) { _text.append(piece.data(), piece.data() + piece.size()); }
  /// Passes on what was appended: to a file once it is much, to anything else at once, so that a
  /// reader can follow. Throws Failure, what `throwIfInterrupted` throws, and Interrupted, with
  /// SIGPIPE, when that reader has gone away.
  void flush();

  /// Whether it is a plain file, which nobody sees before `commit`.
  bool isFile() const { return !_temporaryPath.empty(); }

  /// Writes out everything, down to the disk. Throws as `flush` does.
  void finish();
  /// Gives the finished file its name. Throws Failure.
  void commit();

 private:
  int openStream() const;
  void onInterrupt() const;
  void write();

  std::string _name;  // for messages
  std::function<void()> _throwIfInterrupted;
  std::filesystem::path _path;  // behind all links
  std::string _temporaryPath;   // empty for anything but a plain file
  int _descriptor = -1;
  int _process = 0;  // whose file it is; a fork of it leaves the file alone
  fmt::memory_buffer _text;
};

}  // namespace zorvel

#endif

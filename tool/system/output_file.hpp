#ifndef ZORVEL_TOOL_SYSTEM_OUTPUT_FILE_HPP
#define ZORVEL_TOOL_SYSTEM_OUTPUT_FILE_HPP

#include <fmt/format.h>

#include <filesystem>
#include <string>
#include <string_view>

namespace zorvel {

/// A file that is written beside its name and takes it only when it is whole, so that nobody sees
/// half of it. One that is not committed leaves no trace.
class OutputFile {
 public:
  /// Throws Failure when no file can be made in the folder.
  explicit OutputFile(const std::filesystem::path& path);
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;
  ~OutputFile();

  /// What is appended here gets written; call `flushIfFull` after each piece.
  fmt::memory_buffer& text() { return _text; }
  void append(std::string_view piece) { _text.append(piece.data(), piece.data() + piece.size()); }
  /// Passes a full buffer on to the system. Throws Failure.
  void flushIfFull();

  /// Writes out everything, down to the disk. Throws Failure.
  void finish();
  /// Gives the finished file its name. Throws Failure.
  void commit();

 private:
  void flush();

  std::string _path;
  std::string _temporaryPath;
  int _descriptor = -1;
  fmt::memory_buffer _text;
};

}  // namespace zorvel

#endif

#ifndef ZORVEL_TOOL_SYSTEM_TEXT_OUTPUT_HPP
#define ZORVEL_TOOL_SYSTEM_TEXT_OUTPUT_HPP

#include <fmt/format.h>

#include <optional>
#include <string>

#include "system/output_file.hpp"

namespace zorvel {

/// Where text is written to: a file that appears when it is whole, or, for the name "-", standard
/// output.
class TextOutput {
 public:
  /// Throws Failure when no file can be made there.
  explicit TextOutput(const std::string& name);

  /// What is appended here gets written; call `flush` after each piece.
  fmt::memory_buffer& text() { return _file ? _file->text() : _text; }
  void append(std::string_view piece) { text().append(piece.data(), piece.data() + piece.size()); }
  /// Passes on what was appended: to a reader of standard output at once, so that it can follow; to
  /// a file when it is much. Throws Failure, or Interrupted when that reader has gone away.
  void flush();
  /// Gives a file its name. Throws Failure.
  void commit();

 private:
  std::optional<OutputFile> _file;
  fmt::memory_buffer _text;
};

}  // namespace zorvel

#endif

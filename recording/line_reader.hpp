#ifndef ZORVEL_RECORDING_LINE_READER_HPP
#define ZORVEL_RECORDING_LINE_READER_HPP

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace zorvel {

/// Waits until `descriptor` has something to read or is at its end, and may throw to break the
/// reading off; -1 is not waited for.
using WaitForInput = std::function<void(int descriptor)>;

/// Reads a file, or standard input for the name "-", line by line in constant memory.
class LineReader {
 public:
  /// A line longer than this is an error rather than memory without end.
  static constexpr std::size_t longestLine = std::size_t{16} << 20;

  /// Throws Failure when the file cannot be opened. `waitForInput`, if there is one, is called
  /// before each reading, and when a signal comes in while the file is opened.
  explicit LineReader(const std::string& name, const WaitForInput& waitForInput = {});
  LineReader(const LineReader&) = delete;
  LineReader& operator=(const LineReader&) = delete;
  ~LineReader();

  /// Puts the next line, without its line end, into `line`; false at the end of the file. The last
  /// line needs no line end. Throws Failure when reading fails, BadLine when the line is too long,
  /// and what waiting for input throws.
  bool next(std::string& line);

  /// "NAME:LINE: " of the line read last, counted from 1.
  std::string place() const;

  std::uint64_t lineNumber() const { return _lineNumber; }
  std::uint64_t bytesRead() const { return _bytesRead; }
  /// Size of a regular file in bytes; 0 for anything else.
  std::uint64_t fileSize() const { return _fileSize; }

 private:
  bool fill();

  std::string _name;
  WaitForInput _waitForInput;
  int _descriptor = 0;  // standard input
  std::vector<char> _buffer;
  std::size_t _begin = 0;
  std::size_t _end = 0;
  bool _skipping = false;  // the rest of a line that was too long
  std::uint64_t _lineNumber = 0;
  std::uint64_t _bytesRead = 0;
  std::uint64_t _fileSize = 0;
};

}  // namespace zorvel

#endif

#ifndef ZORVEL_RECORDING_LINE_READER_HPP
#define ZORVEL_RECORDING_LINE_READER_HPP

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace zorvel {

/// Waits until `descriptor` has something to read or is at its end; may throw to abort the reading.
/// Does not wait when it is -1.
using WaitForInput = std::function<void(int descriptor)>;

/// Where a line ends.
enum class LineEnds {
  LineFeed,
  Any,  ///< at CR, CRLF or LF
};

/// Reads a file, or standard input for the name "-", line by line in constant memory. A UTF-8 byte
/// order mark at its beginning is skipped.
class LineReader {
 public:
  /// A longer line is an error, so that memory stays bounded.
  static constexpr std::size_t longestLine = std::size_t{16} << 20;

  /// Throws Failure when the file cannot be opened. `waitForInput`, if given, is called before each
  /// read, and with -1 when a signal interrupts the opening.
  explicit LineReader(const std::string& name, const WaitForInput& waitForInput = {},
                      LineEnds lineEnds = LineEnds::LineFeed);
  LineReader(const LineReader&) = delete;
  LineReader& operator=(const LineReader&) = delete;
  ~LineReader();

  /// Puts the next line, without its line end, into `line`; false at the end of the file. The last
  /// line needs no line end. Throws Failure when reading fails or the text is UTF-16, BadLine when
  /// the line is too long, and what waiting for input throws.
  bool next(std::string& line);

  /// "NAME:LINE: " for the line read last; lines count from 1.
  std::string place() const;

  /// Whether the line read last had a line end.
  bool isWhole() const { return _isWhole; }
  /// The byte order mark that was skipped; empty if there was none.
  std::string_view byteOrderMark() const { return _byteOrderMark; }
  const std::string& name() const { return _name; }
  std::uint64_t lineNumber() const { return _lineNumber; }
  std::uint64_t bytesRead() const { return _bytesRead; }
  /// Size of a regular file in bytes; 0 for anything else.
  std::uint64_t fileSize() const { return _fileSize; }

 private:
  bool fill();
  std::size_t readMore();
  bool beginsUndecided() const;
  const char* findLineEnd(const char* begin, const char* end) const;
  void consume(std::size_t count);

  std::string _name;
  WaitForInput _waitForInput;
  LineEnds _lineEnds;
  int _descriptor = 0;  // standard input
  std::vector<char> _buffer;
  std::size_t _begin = 0;
  std::size_t _end = 0;
  bool _isWhole = false;
  std::string_view _byteOrderMark;
  bool _skipping = false;       // the rest of a line that was too long
  bool _skipsLineFeed = false;  // the rest of a CRLF
  std::uint64_t _lineNumber = 0;
  std::uint64_t _bytesRead = 0;
  std::uint64_t _fileSize = 0;
};

}  // namespace zorvel

#endif

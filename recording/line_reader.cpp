#include "recording/line_reader.hpp"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string_view>
#include <utility>

#include "recording/failure.hpp"

namespace zorvel {
namespace {

constexpr std::size_t pieceSize = std::size_t{64} << 10;
constexpr std::string_view utf8Mark = "\xEF\xBB\xBF";

/// By its byte order mark or, as what is read begins with an ASCII character, by a zero byte.
bool isUtf16(std::string_view text) {
  const std::string_view first = text.substr(0, 2);
  return first == "\xFF\xFE" || first == "\xFE\xFF" || first.find('\0') != first.npos;
}

}  // namespace

LineReader::LineReader(const std::string& name, const WaitForInput& waitForInput, LineEnds lineEnds)
    : _name(name), _waitForInput(waitForInput), _lineEnds(lineEnds), _buffer(pieceSize) {
  if (name == "-") return;
  while ((_descriptor = open(name.c_str(), O_RDONLY | O_CLOEXEC)) < 0) {
    if (errno != EINTR) throw systemFailure(name, errno);
    if (_waitForInput) _waitForInput(-1);
  }
  struct stat status {};
  if (fstat(_descriptor, &status) != 0) return;
  if (S_ISDIR(status.st_mode)) {
    close(_descriptor);
    throw systemFailure(name, EISDIR);
  }
  if (S_ISREG(status.st_mode)) {
    _fileSize = static_cast<std::uint64_t>(status.st_size);
  }
}

LineReader::~LineReader() {
  if (_descriptor != STDIN_FILENO) close(_descriptor);
}

/// Appends the next bytes to the buffer; returns how many, 0 at the end of the file.
std::size_t LineReader::readMore() {
  while (true) {
    if (_waitForInput) _waitForInput(_descriptor);
    const ssize_t count = ::read(_descriptor, _buffer.data() + _end, _buffer.size() - _end);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) throw systemFailure(_name, errno);
    _end += static_cast<std::size_t>(count);
    return static_cast<std::size_t>(count);
  }
}

/// Whether too few bytes are read to tell how the file is encoded.
bool LineReader::beginsUndecided() const {
  return _end < 2 || utf8Mark.substr(0, _end) == std::string_view(_buffer.data(), _end);
}

bool LineReader::fill() {
  _begin = 0;
  _end = 0;
  if (_bytesRead > 0) return readMore() > 0;
  while (beginsUndecided() && readMore() > 0) continue;
  const std::string_view text(_buffer.data(), _end);
  if (isUtf16(text)) throw Failure(_name + ": is UTF-16; it must be UTF-8");
  if (text.substr(0, utf8Mark.size()) == utf8Mark) _byteOrderMark = utf8Mark;
  consume(_byteOrderMark.size());
  return _begin < _end;
}

const char* LineReader::findLineEnd(const char* begin, const char* end) const {
  if (_lineEnds == LineEnds::Any) {
    return std::find_if(begin, end,
                        [](char character) { return character == '\n' || character == '\r'; });
  }
  const void* const found = std::memchr(begin, '\n', static_cast<std::size_t>(end - begin));
  return found == nullptr ? end : static_cast<const char*>(found);
}

void LineReader::consume(std::size_t count) {
  _begin += count;
  _bytesRead += count;
}

bool LineReader::next(std::string& line) {
  line.clear();
  bool started = false;
  while (_begin < _end || fill()) {
    const char* const begin = _buffer.data() + _begin;
    const char* const end = _buffer.data() + _end;
    if (std::exchange(_skipsLineFeed, false) && *begin == '\n') {
      consume(1);
      continue;
    }
    if (!started && !_skipping) ++_lineNumber;
    started = true;
    const char* const lineEnd = findLineEnd(begin, end);
    _isWhole = lineEnd != end;
    const auto length = static_cast<std::size_t>(lineEnd - begin);
    consume(length + (_isWhole ? 1 : 0));
    _skipsLineFeed = _isWhole && *lineEnd == '\r';
    if (_skipping) {
      _skipping = !_isWhole;
      started = false;
      continue;
    }
    if (line.size() + length > longestLine) {
      _skipping = !_isWhole;
      throw BadLine(fmt::format("{}longer than {} bytes", place(), longestLine),
                    {_name, _lineNumber, "", 0});
    }
    line.append(begin, length);
    if (_isWhole) return true;
  }
  return started;
}

std::string LineReader::place() const {
  return fmt::format("{}:{}: ", printable(_name), _lineNumber);
}

}  // namespace zorvel

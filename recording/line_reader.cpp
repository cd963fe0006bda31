#include "recording/line_reader.hpp"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "recording/failure.hpp"

namespace zorvel {
namespace {

constexpr std::size_t bufferSize = std::size_t{64} << 10;

}  // namespace

LineReader::LineReader(const std::string& name, const WaitForInput& waitForInput)
    : _name(name), _waitForInput(waitForInput), _buffer(bufferSize) {
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

bool LineReader::fill() {
  while (true) {
    if (_waitForInput) _waitForInput(_descriptor);
    const ssize_t count = read(_descriptor, _buffer.data(), _buffer.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) throw systemFailure(_name, errno);
    _begin = 0;
    _end = static_cast<std::size_t>(count);
    return count > 0;
  }
}

bool LineReader::next(std::string& line) {
  line.clear();
  bool started = false;
  while (_begin < _end || fill()) {
    if (!started && !_skipping) ++_lineNumber;
    started = true;
    const char* const begin = _buffer.data() + _begin;
    const auto* const lineEnd = static_cast<const char*>(std::memchr(begin, '\n', _end - _begin));
    const std::size_t length =
        lineEnd == nullptr ? _end - _begin : static_cast<std::size_t>(lineEnd - begin);
    const std::size_t consumed = length + (lineEnd == nullptr ? 0 : 1);
    _begin += consumed;
    _bytesRead += consumed;
    if (_skipping) {
      _skipping = lineEnd == nullptr;
      started = false;
      continue;
    }
    if (line.size() + length > longestLine) {
      _skipping = lineEnd == nullptr;
      throw BadLine(fmt::format("{}longer than {} bytes", place(), longestLine));
    }
    line.append(begin, length);
    if (lineEnd != nullptr) return true;
  }
  return started;
}

std::string LineReader::place() const { return fmt::format("{}:{}: ", _name, _lineNumber); }

}  // namespace zorvel

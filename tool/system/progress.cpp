#include "system/progress.hpp"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

namespace zorvel {
namespace {

constexpr std::chrono::milliseconds firstShown{500};
constexpr std::chrono::milliseconds shownEvery{100};
constexpr std::uint64_t linesBetweenLooks = 64;
constexpr std::uint64_t barWidth = 30;

}  // namespace

Progress::Progress(bool wanted)
    : _wanted(wanted && isatty(STDERR_FILENO) == 1),
      _next(std::chrono::steady_clock::now() + firstShown) {}

Progress::~Progress() {
  if (_shown) std::fputs("\r\x1b[K", stderr);
}

void Progress::update(const LineReader& lines) {
  if (!_wanted || lines.lineNumber() % linesBetweenLooks != 0) return;
  const auto now = std::chrono::steady_clock::now();
  if (now < _next) return;
  _next = now + shownEvery;
  _shown = true;
  std::string bar;
  if (lines.fileSize() > 0) {
    // A file that grows while it is read may give more than its size told.
    const std::uint64_t read = std::min(lines.bytesRead(), lines.fileSize());
    const std::uint64_t filled = barWidth * read / lines.fileSize();
    bar = fmt::format("[{:#<{}}{:{}}] {:>3} % ", "", filled, "", barWidth - filled,
                      100 * read / lines.fileSize());
  }
  fmt::print(stderr, "\r{}{} lines\x1b[K", bar, lines.lineNumber());
  std::fflush(stderr);
}

}  // namespace zorvel

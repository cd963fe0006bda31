#include "system/progress.hpp"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

namespace zorvel {
namespace {

constexpr std::chrono::milliseconds firstShown{500};
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
  update(lines.bytesRead(), lines.fileSize(), fmt::format("{} lines", lines.lineNumber()));
}

void Progress::update(std::uint64_t done, std::uint64_t whole, std::string_view words) {
  const auto now = std::chrono::steady_clock::now();
  if (!_wanted || now < _next) return;
  _next = now + shownEvery;
  _shown = true;
  std::string bar;
  if (whole > 0) {
    // A file that grows while it is read may give more than its size said.
    done = std::min(done, whole);
    const std::uint64_t filled = barWidth * done / whole;
    bar = fmt::format("[{:#<{}}{:{}}] {:>3} % ", "", filled, "", barWidth - filled,
                      100 * done / whole);
  }
  fmt::print(stderr, "\r{}{}\x1b[K", bar, words);
  std::fflush(stderr);
}

}  // namespace zorvel

#include "recording/standard_error.hpp"

#include <fmt/format.h>
#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <utility>

namespace zorvel {
namespace {

constexpr std::chrono::seconds period{1};
// Lines in a period: of a source, and of all.
constexpr std::uint64_t mostLines = 10;
constexpr std::uint64_t mostOfAll = 100;
// Sources whose held-back lines are counted in a line of their own.
constexpr std::size_t mostNamed = 10;

}  // namespace

void StandardError::say(std::string_view line) {
  // What is left of a line comes before the next.
  if (!write()) {
    ++_lost;
    return;
  }
  _rest = fmt::format("{}\n", line);
  const std::size_t whole = _rest.size();
  if (write() || _rest.size() < whole) return;
  _rest.clear();
  ++_lost;
}

void StandardError::say(const std::string& source, std::string_view line) {
  if (std::chrono::steady_clock::now() - _begin >= period) sayHeldBack();
  Source& own = _sources[source];
  if (own.said == mostLines || _said == mostOfAll) {
    ++own.heldBack;
    return;
  }
  ++own.said;
  ++_said;
  say(line);
}

void StandardError::sayHeldBack() {
  std::size_t sources = 0;
  std::uint64_t rest = 0;
  for (const auto& [source, own] : std::exchange(_sources, {})) {
    if (own.heldBack == 0) continue;
    if (++sources > mostNamed) {
      rest += own.heldBack;
    } else {
      say(fmt::format("and {} more from {}", own.heldBack, source));
    }
  }
  if (rest > 0) say(fmt::format("and {} more from {} others", rest, sources - mostNamed));
  _said = 0;
  _begin = std::chrono::steady_clock::now();
}

/// Whether PIPE_BUF bytes can be written without a wait.
bool StandardError::isReady() const {
  pollfd awaited{_descriptor, POLLOUT, 0};
  return poll(&awaited, 1, 0) == 1 && (awaited.revents & POLLOUT) != 0;
}

/// Writes what is left of a line; returns whether that was all.
bool StandardError::write() {
  while (!_rest.empty() && isReady()) {
    const ssize_t count =
        ::write(_descriptor, _rest.data(), std::min<std::size_t>(_rest.size(), PIPE_BUF));
    if (count > 0) {
      _rest.erase(0, static_cast<std::size_t>(count));
    } else if (errno != EINTR) {
      break;
    }
  }
  return _rest.empty();
}

}  // namespace zorvel

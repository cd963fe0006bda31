#include "view/line_queue.hpp"

namespace zorvel {

void LineQueue::add(std::string_view line) {
  while (!_lines.empty() && !fits(line)) {
    _bytes -= _lines.front().size();
    _lines.pop_front();
    ++_dropped;
  }
  _lines.emplace_back(line);
  _bytes += line.size();
}

std::string LineQueue::take(std::size_t most) {
  std::string taken;
  while (!_lines.empty() && (taken.empty() || taken.size() + _lines.front().size() <= most)) {
    taken += _lines.front();
    _bytes -= _lines.front().size();
    _lines.pop_front();
  }
  return taken;
}

std::size_t LineQueue::clear() {
  const std::size_t count = _lines.size();
  _lines.clear();
  _bytes = 0;
  return count;
}

}  // namespace zorvel

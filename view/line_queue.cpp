#include "view/line_queue.hpp"

#include <algorithm>
#include <set>
#include <utility>

namespace zorvel {

void LineQueue::add(Topic topic, std::string_view line) {
  _lines.push_back({topic, std::string(line)});
  _bytes += line.size();
  if (_bytes > mostBytes) drop();
}

std::string LineQueue::take(std::size_t most) {
  std::string taken;
  while (!_lines.empty() && (taken.empty() || taken.size() + _lines.front().text.size() <= most)) {
    taken += _lines.front().text;
    _bytes -= _lines.front().text.size();
    _lines.pop_front();
  }
  return taken;
}

std::uint64_t LineQueue::takeDropped() { return std::exchange(_dropped, 0); }

// Down to half, so that a reader who never reads costs little for each line.
void LineQueue::drop() {
  const std::size_t before = _lines.size();
  std::deque<Line> kept;
  std::set<std::int64_t> later;
  std::size_t bytes = 0;
  for (auto line = _lines.rbegin(); line != _lines.rend(); ++line) {
    if (line->topic && !later.insert(*line->topic).second) continue;
    // The newest stays, however long it is.
    if (!kept.empty() && bytes + line->text.size() > mostBytes / 2) break;
    bytes += line->text.size();
    kept.push_front(std::move(*line));
  }
  _lines = std::move(kept);
  _bytes = bytes;
  _dropped += before - _lines.size();
}

}  // namespace zorvel

#include "view/peers.hpp"

#include <algorithm>

#include "playback/row_line.hpp"
#include "recording/json_writer.hpp"

namespace zorvel {
namespace {

// How many bytes are sent at once.
constexpr std::size_t mostAtOnce = std::size_t{64} << 10;

std::string pictureLine(std::string_view place) {
  return jsonLine([place](JsonLineWriter& json) { json.member("picture", place); });
}

}  // namespace

void Page::add(Topic topic, std::string_view line) {
  if (!_needsPicture && !_lines.fits(line)) {
    missed += _lines.clear();
    _needsPicture = true;
  }
  if (_needsPicture || isToCome(topic)) {
    ++missed;
  } else {
    _lines.add(line);
  }
  wake();
}

void Page::addError(std::string_view line) {
  _errors.add(line);
  wake();
}

std::string Page::take(const Newest& newest, const std::function<std::string()>& status) {
  std::string text;
  if (_needsPicture && !_nextInPicture) {
    _needsPicture = false;
    _nextInPicture = std::numeric_limits<std::int64_t>::min();
    text = jsonLine([](JsonLineWriter& json) { writeReasons(json); });
    wantsStatus = true;
  }
  if (wantsStatus) text += status();
  wantsStatus = false;
  if (const auto count = missed - std::exchange(_reportedMissed, missed); count > 0) {
    text += jsonLine([count](JsonLineWriter& json) { json.member("missed", count); });
  }
  text += _errors.take(mostAtOnce);
  if (_nextInPicture) {
    appendPicture(text, newest);
  } else {
    text += _lines.take(mostAtOnce);
  }
  lines += static_cast<std::uint64_t>(std::count(text.begin(), text.end(), '\n'));
  return text;
}

void Page::appendPicture(std::string& text, const Newest& newest) {
  if (*_nextInPicture == std::numeric_limits<std::int64_t>::min()) text += pictureLine("begins");
  auto person = newest.people.lower_bound(*_nextInPicture);
  for (; person != newest.people.end() && text.size() < mostAtOnce; ++person) {
    text += person->second;
    _nextInPicture = person->first + 1;
  }
  if (person != newest.people.end()) return;
  text += newest.room + pictureLine("complete");
  _nextInPicture.reset();
}

}  // namespace zorvel

#include "view/last_minute.hpp"

#include "recording/event_reader.hpp"
#include "recording/failure.hpp"
#include "recording/recording_writer.hpp"

namespace zorvel {
namespace {

constexpr Time::duration keptTime = boost::chrono::seconds(60);
constexpr std::size_t keptBytes = std::size_t{64} << 20;

}  // namespace

void LastMinute::add(Time time, std::string line) {
  _bytes += line.size();
  _lines.emplace_back(time, std::make_shared<const std::string>(std::move(line)));
  while (between(_lines.front().first, time) > keptTime || _bytes > keptBytes) drop();
}

/// Moves the oldest line to what was before.
void LastMinute::drop() {
  std::string line = *_lines.front().second;
  _bytes -= line.size();
  _lines.pop_front();
  if (!_before) _before.emplace(Forces::Unwatched);
  if (const auto event = EventReader(MissingTime::Error).read(line)) _before->play(*event);
}

void LastMinute::clear() {
  _lines.clear();
  _bytes = 0;
  _before.reset();
}

std::vector<std::shared_ptr<const std::string>> LastMinute::recording(std::string header,
                                                                      StandardError& errors) const {
  std::vector<std::shared_ptr<const std::string>> lines;
  lines.reserve(_lines.size() + 1);
  lines.push_back(std::make_shared<const std::string>(std::move(header)));
  if (_before) {
    for (Restore& restore : _before->save()) {
      try {
        lines.push_back(std::make_shared<const std::string>(
            eventLine({_lines.front().first, std::move(restore)})));
      } catch (const Failure& failure) {
        errors.say(failure.what());  // the lines begin without that state
      }
    }
  }
  for (const auto& [time, line] : _lines) lines.push_back(line);
  return lines;
}

}  // namespace zorvel

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <ku/clock.hpp>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>

#include "recording/failure.hpp"
#include "recording/json_line.hpp"
#include "recording/observation_fields.hpp"
#include "recording/printable.hpp"
#include "recording/recording_reader.hpp"
#include "recording/recording_writer.hpp"
#include "recording/saved_state.hpp"
#include "system/command_line.hpp"
#include "system/interrupt.hpp"
#include "system/progress.hpp"
#include "view/client.hpp"
#include "view/service_address.hpp"

namespace zorvel {
namespace {

using Steady = std::chrono::steady_clock;

/// How far back a service's answer can still be traced to its line.
constexpr std::size_t rememberedLines = 100'000;

struct SendOptions {
  std::string recording;
  std::string address = "127.0.0.1:8642";
  std::string tokenFile;
  double speed = 1.0;
};

/// Sends lines to a service, and finds the lines that it refuses.
class LineSender {
 public:
  /// Takes the line of the recording, and what is wrong with it.
  using UseOfError = std::function<void(std::uint64_t, const std::string&)>;

  LineSender(const std::string& address, const std::string& tokenFile, UseOfError use)
      : _address(address),
        _use(std::move(use)),
        _client(address, tokenFile, interruptDescriptor(),
                [this](const std::string& line) { answer(line); }) {}

  /// Sends a line, which has that number in the file.
  void send(const std::string& line, std::uint64_t lineNumber) {
    ++_sentLines;
    _lineNumbers.push_back(lineNumber);
    if (_lineNumbers.size() > rememberedLines) _lineNumbers.pop_front();
    _client.send(line);
  }

  /// Waits, and throws Interrupted when a signal comes.
  void waitUntil(Steady::time_point time) {
    if (!_client.waitUntil(time)) throwIfInterrupted();
  }

  void close() { _client.close(); }

 private:
  void answer(const std::string& line) {
    try {
      JsonLine json;
      std::string text = line;
      JsonObject object(json.parse(text));
      const auto error = object.find("error");
      const auto number = object.find("line");
      if (!error || !number) return;
      const std::uint64_t first = _sentLines - _lineNumbers.size();
      const auto index = static_cast<std::uint64_t>(number->integer(1, INT64_MAX)) - 1 - first;
      _use(index < _lineNumbers.size() ? _lineNumbers[index] : 0, std::string(error->text()));
    } catch (const JsonError& error) {
      throw Failure(fmt::format("{}: its answer is {}", printable(_address), error.what()));
    }
  }

  std::string _address;
  UseOfError _use;
  std::uint64_t _sentLines = 0;
  std::deque<std::uint64_t> _lineNumbers;
  Client _client;
};

/// Moves the event to `now`, and its readings with it.
void move(Event& event, Time now) {
  const auto moveTime = [&](Time& time) {
    const auto age = std::clamp(between(time, event.time), -latestTime, latestTime);
    time = Time(std::clamp(now.time_since_epoch() - age, -latestTime, latestTime));
  };
  if (auto* const observation = std::get_if<Observation>(&event.what)) {
    forEachReading(observation->fields,
                   [&](std::size_t /*field*/, auto& reading) { moveTime(reading.timestamp); });
  } else if (auto* const restore = std::get_if<Restore>(&event.what)) {
    if (auto* const person = std::get_if<SavedPerson>(&restore->state)) {
      forEachTime(*person, moveTime);
    }
  }
  event.time = now;
}

void send(const SendOptions& options) {
  catchInterrupts();
  RecordingReader recording(options.recording, waitForInput);
  std::uint64_t refused = 0;
  LineSender service(
      options.address, options.tokenFile, [&](std::uint64_t line, const std::string& error) {
        ++refused;
        fmt::print(stderr, "{}:{}: {}\n", printable(options.recording), line, printable(error));
      });
  std::set<std::int32_t> people;
  const auto write = [&](const Event& event) {
    service.send(eventLine(event), recording.lines().lineNumber());
  };
  std::string failure;
  try {
    Progress progress(true);
    std::optional<Time> first;
    const auto start = Steady::now();
    while (auto event = recording.next()) {
      first = first.value_or(event->time);
      const double seconds = inSeconds(between(*first, event->time)) / options.speed;
      service.waitUntil(start + std::chrono::duration_cast<Steady::duration>(
                                    std::chrono::duration<double>(std::min(seconds, 1e9))));
      move(*event, ku::SystemClock::now());
      write(*event);
      if (const auto* const rename = std::get_if<Rename>(&event->what)) {
        if (people.erase(rename->person) > 0) people.insert(rename->to);
      } else if (const auto person = personOf(*event)) {
        if (std::holds_alternative<Remove>(event->what)) {
          people.erase(*person);
        } else {
          people.insert(*person);
        }
      }
      progress.update(recording.lines());
    }
  } catch (const Interrupted&) {
    // This is how it is ended early.
  } catch (const BadLine& error) {
    failure = error.what();
  }
  for (const std::int32_t person : people) write({ku::SystemClock::now(), Remove{person}});
  service.close();
  if (failure.empty() && refused > 0) failure = fmt::format("lines refused: {}", refused);
  if (!failure.empty()) throw Failure(failure);
}

}  // namespace

void addSend(Command tool) {
  Command command = tool.addSubcommand(
      "send", "Send a recording to a live page, at its own speed",
      R"(Every line gets the time at which it is sent, and its readings keep their ages. At the end, or when
a signal ends it, the people that it has sent are removed. A line that the service refuses is reported with
its number.

Examples:
  zorvel send meeting.jsonl
  zorvel simulate --people 5 | zorvel send -
  zorvel send meeting.jsonl --to http://192.168.1.7:8642/ --token-file robot.token)");
  const auto options = std::make_shared<SendOptions>();
  command.addRecording(options->recording);
  command
      .add("--to", options->address,
           "Where zorvel view listens: HOST:PORT, the address of its page, or unix:PATH")
      .type("ADDRESS")
      .check([](const std::string& text) {
        try {
          readServiceAddress(text);
          return std::string();
        } catch (const Failure& failure) {
          return std::string(failure.what());
        }
      })
      .showDefault();
  command
      .add("--token-file", options->tokenFile, "The file with the token that the service asks for")
      .type("FILE");
  command
      .addNumber("--speed", options->speed, 1e-3, 1e6, "How many times as fast as it was recorded")
      .type("FACTOR")
      .showDefault();
  command.setAction([options] { send(*options); });
}

}  // namespace zorvel

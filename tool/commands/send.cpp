#include <fcntl.h>
#include <fmt/format.h>

#include <algorithm>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/websocket.hpp>
#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <ku/clock.hpp>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "recording/failure.hpp"
#include "recording/json_line.hpp"
#include "recording/observation_fields.hpp"
#include "recording/printable.hpp"
#include "recording/recording_reader.hpp"
#include "recording/recording_writer.hpp"
#include "system/command_line.hpp"
#include "system/interrupt.hpp"
#include "system/progress.hpp"

namespace zorvel {
namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace websocket = beast::websocket;
using Tcp = asio::ip::tcp;
using Error = boost::system::error_code;
using Steady = std::chrono::steady_clock;

/// How far back a service's answer can still be traced to its line.
constexpr std::size_t rememberedLines = 100'000;
constexpr std::chrono::seconds longestGoodbye{5};

struct SendOptions {
  std::string recording;
  std::string address = "127.0.0.1:8642";
  double speed = 1.0;
};

/// Sends lines to a service and prints what it answers.
class ServiceConnection {
 public:
  /// Throws Failure when there is no service.
  explicit ServiceConnection(const std::string& address) : _address(address) {
    _stop.assign(fcntl(interruptDescriptor(), F_DUPFD_CLOEXEC, 0));
    _stop.async_wait(asio::posix::stream_descriptor::wait_read,
                     [this](Error /*error*/) { _isInterrupted = true; });
    const std::size_t colon = address.rfind(':');
    try {
      Tcp::resolver resolver(_context);
      beast::get_lowest_layer(_socket).connect(
          resolver.resolve(address.substr(0, colon), address.substr(colon + 1)));
      beast::get_lowest_layer(_socket).socket().set_option(Tcp::no_delay(true));
      _socket.handshake(address, "/events");
    } catch (const boost::system::system_error& error) {
      throw Failure(fmt::format("{}: {}: is zorvel view running there?", printable(address),
                                error.code().message()));
    }
    _socket.text(true);
    read();
  }

  /// Sends the line that stands in that line of the file. Throws Failure when the service has gone.
  void send(const std::string& line, std::uint64_t lineNumber) {
    ++_sentLines;
    _lineNumbers.push_back(lineNumber);
    if (_lineNumbers.size() > rememberedLines) _lineNumbers.pop_front();
    bool isSent = false;
    _socket.async_write(asio::buffer(line), [&](Error error, std::size_t /*size*/) {
      isSent = true;
      _isOpen = _isOpen && !error;
    });
    while (!isSent) _context.run_one();
    requireOpen();
  }

  /// Waits, and throws Interrupted when a signal comes in.
  void waitUntil(Steady::time_point time) {
    do {
      if (_isInterrupted) throwIfInterrupted();
      requireOpen();
    } while (_context.run_one_until(time) > 0);
  }

  /// Ends the connection when the service has answered everything.
  void close() {
    bool isClosed = false;
    _socket.async_close(websocket::close_code::normal, [&](Error /*error*/) { isClosed = true; });
    const auto latest = Steady::now() + longestGoodbye;
    while (!isClosed && _context.run_one_until(latest) > 0) {
    }
    _context.stop();
  }

  /// Takes what the service refused; the prefix is that of the recording.
  template <typename Print>
  void onError(Print print) {
    _print = print;
  }

 private:
  // The handler runs later, from the event loop.
  // NOLINTBEGIN(misc-no-recursion)
  void read() {
    _socket.async_read(_received, [this](Error error, std::size_t /*size*/) {
      if (error) {
        _isOpen = false;
        return;
      }
      std::string text = beast::buffers_to_string(_received.data());
      _received.consume(_received.size());
      for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t end = std::min(text.find('\n', begin), text.size());
        answer(text.substr(begin, end - begin));
        begin = end + 1;
      }
      read();
    });
  }
  // NOLINTEND(misc-no-recursion)

  void answer(std::string line) {
    if (line.empty()) return;
    try {
      JsonLine json;
      JsonObject object(json.parse(line));
      const auto error = object.find("error");
      const auto number = object.find("line");
      if (!error || !number) return;
      const std::uint64_t first = _sentLines - _lineNumbers.size();
      const auto index = static_cast<std::uint64_t>(number->integer(1, INT64_MAX)) - 1 - first;
      _print(index < _lineNumbers.size() ? _lineNumbers[index] : 0, std::string(error->text()));
    } catch (const JsonError& error) {
      throw Failure(fmt::format("{}: its answer is {}", printable(_address), error.what()));
    }
  }

  void requireOpen() const {
    if (!_isOpen) throw Failure(printable(_address) + ": the service has gone");
  }

  std::string _address;
  asio::io_context _context{1};
  asio::posix::stream_descriptor _stop{_context};
  websocket::stream<beast::tcp_stream> _socket{_context};
  beast::flat_buffer _received;
  std::function<void(std::uint64_t, const std::string&)> _print;
  std::uint64_t _sentLines = 0;
  std::deque<std::uint64_t> _lineNumbers;
  bool _isOpen = true;
  bool _isInterrupted = false;
};

/// Moves the event to `now`, and its readings with it.
void move(Event& event, Time now) {
  if (auto* const observation = std::get_if<Observation>(&event.what)) {
    forEachReading(observation->fields, [&](std::size_t /*field*/, auto& reading) {
      const auto age = std::clamp(between(reading.timestamp, event.time), -latestTime, latestTime);
      const auto moved = std::clamp(now.time_since_epoch() - age, -latestTime, latestTime);
      reading.timestamp = Time(moved);
    });
  }
  event.time = now;
}

void send(const SendOptions& options) {
  catchInterrupts();
  RecordingReader recording(options.recording, waitForInput);
  ServiceConnection service(options.address);
  std::uint64_t refused = 0;
  service.onError([&](std::uint64_t line, const std::string& error) {
    ++refused;
    fmt::print(stderr, "{}:{}: {}\n", printable(options.recording), line, printable(error));
  });
  std::set<std::int32_t> people;
  const auto write = [&](const Event& event) {
    fmt::memory_buffer text;
    appendEvent(text, event);
    service.send(fmt::to_string(text), recording.lines().lineNumber());
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
      if (const auto person = personOf(*event)) {
        if (std::holds_alternative<Remove>(event->what)) {
          people.erase(*person);
        } else {
          people.insert(*person);
        }
      }
      progress.update(recording.lines());
    }
  } catch (const Interrupted&) {
    // The way to end it early.
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
      R"(Every line becomes one of the moment at which it is sent, and its readings keep their ages. In the
end, or when a signal ends it, the people that it brought leave. What the service refuses is reported
with its line.

Examples:
  zorvel send meeting.jsonl
  zorvel simulate --people 5 | zorvel send -)");
  const auto options = std::make_shared<SendOptions>();
  command.addRecording(options->recording);
  command.add("--to", options->address, "Where zorvel view listens")
      .type("HOST:PORT")
      .check([](const std::string& text) {
        const std::size_t colon = text.rfind(':');
        const bool isAddress = colon != text.npos && colon > 0 && colon + 1 < text.size();
        return isAddress ? std::string() : inQuotes(text) + " is not like 127.0.0.1:8642";
      })
      .showDefault();
  command
      .addNumber("--speed", options->speed, 1e-3, 1e6, "How many times as fast as it was recorded")
      .type("FACTOR")
      .showDefault();
  command.setAction([options] { send(*options); });
}

}  // namespace zorvel

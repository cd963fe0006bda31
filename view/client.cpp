#include "view/client.hpp"

#include <fcntl.h>
#include <fmt/format.h>

#include <algorithm>
#include <boost/asio/connect.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <optional>
#include <utility>

#include "recording/failure.hpp"
#include "recording/printable.hpp"
#include "view/web_socket.hpp"

namespace zorvel {
namespace {

namespace asio = boost::asio;
using Tcp = asio::ip::tcp;
using Local = asio::local::stream_protocol;
using Error = boost::system::error_code;

constexpr std::string_view localPrefix = "unix:";
constexpr std::chrono::seconds longestGoodbye{5};
// For everything, once somebody wants to end.
constexpr std::chrono::seconds longestEnd{2};

/// Of an address in the file system.
std::optional<std::string> localPath(const std::string& address) {
  if (address.compare(0, localPrefix.size(), localPrefix) != 0) return std::nullopt;
  return address.substr(localPrefix.size());
}

}  // namespace

class Client::Implementation {
 public:
  Implementation(const std::string& address, int stopDescriptor, UseOfAnswer use)
      : _address(address), _use(std::move(use)) {
    _stop.assign(fcntl(stopDescriptor, F_DUPFD_CLOEXEC, 0));
    _stop.async_wait(asio::posix::stream_descriptor::wait_read,
                     [this](Error error) { _isStopped = !error; });
    try {
      _socket.emplace(connect());
      await([this](auto done) {
        const bool isLocal = localPath(_address).has_value();
        _socket->handshake(isLocal ? "localhost" : _address, "/events", done);
      });
    } catch (const boost::system::system_error& error) {
      throw Failure(fmt::format("{}: {}: is zorvel view running there?", printable(address),
                                error.code().message()));
    }
    read();
  }

  void send(const std::string& line) {
    try {
      await([&](auto done) {
        _socket->write(line, [done](Error result, std::size_t /*size*/) { done(result); });
      });
    } catch (const boost::system::system_error&) {
      _isOpen = false;
    }
    requireOpen();
  }

  bool waitUntil(std::chrono::steady_clock::time_point time) {
    do {
      if (_isStopped) return false;
      requireOpen();
    } while (_context.run_one_until(time) > 0);
    return true;
  }

  void close() {
    bool isClosed = false;
    _socket->close(WebSocket::Reason::Normal, [&](Error /*error*/) { isClosed = true; });
    const auto latest = std::chrono::steady_clock::now() + longestGoodbye;
    while (!isClosed && _context.run_one_until(latest) > 0) {
    }
    _context.stop();
  }

 private:
  // The handler runs later, from the event loop.
  // NOLINTBEGIN(misc-no-recursion)
  void read() {
    _socket->read(_received, [this](Error error, std::size_t /*size*/) {
      if (error) {
        _isOpen = false;
        return;
      }
      if (_socket->isMessageDone()) {
        const std::string message = std::exchange(_received, {});
        for (std::size_t begin = 0; begin < message.size();) {
          const std::size_t end = std::min(message.find('\n', begin), message.size());
          if (end > begin) _use(message.substr(begin, end - begin));
          begin = end + 1;
        }
      }
      read();
    });
  }
  // NOLINTEND(misc-no-recursion)

  WebSocket::Socket connect() {
    if (const auto path = localPath(_address)) {
      Local::socket socket(_context);
      await([&](auto done) { socket.async_connect(Local::endpoint(*path), done); });
      return socket;
    }
    const std::size_t colon = _address.rfind(':');
    Tcp::resolver resolver(_context);
    const auto endpoints = resolver.resolve(_address.substr(0, colon), _address.substr(colon + 1));
    Tcp::socket socket(_context);
    await([&](auto done) {
      asio::async_connect(socket, endpoints,
                          [done](Error error, const Tcp::endpoint& /*used*/) { done(error); });
    });
    socket.set_option(Tcp::no_delay(true));
    return socket;
  }

  /// Serves until what `start(done)` starts is done. Throws boost::system::system_error when it
  /// failed, and Failure when it takes too long for somebody who wants to end.
  template <typename Start>
  void await(Start start) {
    std::optional<Error> result;
    start([&result](Error error) { result = error; });
    while (!result) {
      if (!_isStopped) {
        _context.run_one();
        continue;
      }
      if (!_latestEnd) _latestEnd = std::chrono::steady_clock::now() + longestEnd;
      if (_context.run_one_until(*_latestEnd) == 0) {
        throw Failure(printable(_address) +
                      ": the service takes nothing; whom this brought may still be there");
      }
    }
    if (*result) throw boost::system::system_error(*result);
  }

  void requireOpen() const {
    if (!_isOpen) throw Failure(printable(_address) + ": the service has gone");
  }

  std::string _address;
  UseOfAnswer _use;
  asio::io_context _context{1};
  asio::posix::stream_descriptor _stop{_context};
  std::optional<WebSocket> _socket;
  std::string _received;  // of a message that is not complete
  bool _isOpen = true;
  bool _isStopped = false;
  std::optional<std::chrono::steady_clock::time_point> _latestEnd;
};

Client::Client(const std::string& address, int stopDescriptor, UseOfAnswer use)
    : _implementation(std::make_unique<Implementation>(address, stopDescriptor, std::move(use))) {}

Client::~Client() = default;

bool Client::isAddress(const std::string& text) {
  if (const auto path = localPath(text)) return !path->empty();
  const std::size_t colon = text.rfind(':');
  return colon != text.npos && colon > 0 && colon + 1 < text.size();
}

void Client::send(const std::string& line) { _implementation->send(line); }

bool Client::waitUntil(std::chrono::steady_clock::time_point time) {
  return _implementation->waitUntil(time);
}

void Client::close() { _implementation->close(); }

}  // namespace zorvel

#include "view/client.hpp"

#include <fcntl.h>
#include <fmt/format.h>

#include <algorithm>
#include <boost/algorithm/string/trim.hpp>
#include <boost/asio/connect.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <optional>
#include <utility>

#include "recording/failure.hpp"
#include "recording/printable.hpp"
#include "view/service_address.hpp"
#include "view/token.hpp"
#include "view/web_socket.hpp"

namespace zorvel {
namespace {

namespace asio = boost::asio;
using Tcp = asio::ip::tcp;
using Local = asio::local::stream_protocol;
using Error = boost::system::error_code;

constexpr std::chrono::seconds longestGoodbye{5};
constexpr unsigned int unauthorized = 401;
// For all that is still to be done after a stop.
constexpr std::chrono::seconds longestEnd{2};

}  // namespace

class Client::Implementation {
 public:
  Implementation(const std::string& address, const std::string& tokenFile, int stopDescriptor,
                 UseOfAnswer use)
      : _address(address), _place(readServiceAddress(address)), _use(std::move(use)) {
    const std::string token = tokenFile.empty() ? "" : readToken(tokenFile);
    _stop.assign(fcntl(stopDescriptor, F_DUPFD_CLOEXEC, 0));
    _stop.async_wait(asio::posix::stream_descriptor::wait_read,
                     [this](Error error) { _isStopped = !error; });
    try {
      _socket.emplace(connect());
      await([&](auto done) { _socket->handshake(hostHeader(), "/events", token, done); });
    } catch (const boost::system::system_error& error) {
      throw Failure(fmt::format("{}: {}", printable(address), whyNot(error, tokenFile)));
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
    if (!_place.socket.empty()) {
      Local::socket socket(_context);
      await([&](auto done) { socket.async_connect(Local::endpoint(_place.socket), done); });
      return socket;
    }
    Tcp::resolver resolver(_context);
    const auto endpoints =
        resolver.resolve(_place.host, _place.port, Tcp::resolver::numeric_service);
    Tcp::socket socket(_context);
    await([&](auto done) {
      asio::async_connect(socket, endpoints,
                          [done](Error error, const Tcp::endpoint& /*used*/) { done(error); });
    });
    socket.set_option(Tcp::no_delay(true));
    return socket;
  }

  /// Why there is no connection.
  std::string whyNot(const boost::system::system_error& error, const std::string& tokenFile) const {
    const unsigned int status = _socket ? _socket->refusal() : 0;
    if (status == 0) return error.code().message() + ": is zorvel view running there?";
    if (status != unauthorized) {
      return fmt::format("answers {}: {}", status,
                         inQuotes(boost::trim_copy(_socket->refusalText())));
    }
    if (tokenFile.empty()) return "asks for a token, which --token-file gives";
    return fmt::format("the token of {} is not the one that the service asks for",
                       printable(tokenFile));
  }

  /// The host part of a URL.
  std::string hostHeader() const {
    if (!_place.socket.empty()) return "localhost";
    const bool isV6 = _place.host.find(':') != std::string::npos;
    return fmt::format(isV6 ? "[{}]:{}" : "{}:{}", _place.host, _place.port);
  }

  /// Serves until the operation that `start(done)` starts is done. Throws
  /// boost::system::system_error when it fails, and Failure when it takes too long after a stop.
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
                      ": the service does not respond; people who were sent may still be there");
      }
    }
    if (*result) throw boost::system::system_error(*result);
  }

  void requireOpen() const {
    if (!_isOpen) throw Failure(printable(_address) + ": the service has gone");
  }

  std::string _address;  // for messages
  ServiceAddress _place;
  UseOfAnswer _use;
  asio::io_context _context{1};
  asio::posix::stream_descriptor _stop{_context};
  std::optional<WebSocket> _socket;
  std::string _received;  // an incomplete message
  bool _isOpen = true;
  bool _isStopped = false;
  std::optional<std::chrono::steady_clock::time_point> _latestEnd;
};

Client::Client(const std::string& address, const std::string& tokenFile, int stopDescriptor,
               UseOfAnswer use)
    : _implementation(
          std::make_unique<Implementation>(address, tokenFile, stopDescriptor, std::move(use))) {}

Client::~Client() = default;

void Client::send(const std::string& line) { _implementation->send(line); }

bool Client::waitUntil(std::chrono::steady_clock::time_point time) {
  return _implementation->waitUntil(time);
}

void Client::close() { _implementation->close(); }

}  // namespace zorvel

#include "view/client.hpp"

#include <fcntl.h>
#include <fmt/format.h>

#include <algorithm>
#include <boost/asio/connect.hpp>
#include <boost/asio/io_context.hpp>
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
using Error = boost::system::error_code;

constexpr std::chrono::seconds longestGoodbye{5};

}  // namespace

class Client::Implementation {
 public:
  Implementation(const std::string& address, int stopDescriptor, UseOfAnswer use)
      : _address(address), _use(std::move(use)) {
    _stop.assign(fcntl(stopDescriptor, F_DUPFD_CLOEXEC, 0));
    _stop.async_wait(asio::posix::stream_descriptor::wait_read,
                     [this](Error error) { _isStopped = !error; });
    const std::size_t colon = address.rfind(':');
    try {
      Tcp::resolver resolver(_context);
      Tcp::socket socket(_context);
      asio::connect(socket, resolver.resolve(address.substr(0, colon), address.substr(colon + 1)));
      socket.set_option(Tcp::no_delay(true));
      _socket.emplace(std::move(socket));
      _socket->handshake(address, "/events");
    } catch (const boost::system::system_error& error) {
      throw Failure(fmt::format("{}: {}: is zorvel view running there?", printable(address),
                                error.code().message()));
    }
    read();
  }

  void send(const std::string& line) {
    bool isSent = false;
    _socket->write(line, [&](Error error, std::size_t /*size*/) {
      isSent = true;
      _isOpen = _isOpen && !error;
    });
    while (!isSent) _context.run_one();
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
};

Client::Client(const std::string& address, int stopDescriptor, UseOfAnswer use)
    : _implementation(std::make_unique<Implementation>(address, stopDescriptor, std::move(use))) {}

Client::~Client() = default;

void Client::send(const std::string& line) { _implementation->send(line); }

bool Client::waitUntil(std::chrono::steady_clock::time_point time) {
  return _implementation->waitUntil(time);
}

void Client::close() { _implementation->close(); }

}  // namespace zorvel

#include "view/server.hpp"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <boost/algorithm/string/case_conv.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/steady_timer.hpp>
#include <cerrno>
#include <chrono>
#include <functional>
#include <optional>
#include <type_traits>
#include <utility>

#include "recording/failure.hpp"
#include "recording/printable.hpp"
#include "view/connection.hpp"
#include "view/request.hpp"

namespace zorvel {
namespace {

namespace asio = boost::asio;
using Tcp = asio::ip::tcp;
using Local = asio::local::stream_protocol;
using Socket = WebSocket::Socket;
using Error = boost::system::error_code;

constexpr std::size_t outputPieceSize = std::size_t{64} << 10;
constexpr std::chrono::seconds closingTime{2};

asio::ip::address addressOf(const std::string& text) {
  Error error;
  auto address = asio::ip::make_address(text, error);
  if (error) throw Failure(inQuotes(text) + " is not an IP address");
  return address;
}

/// The host part of a URL.
std::string hostOf(const asio::ip::address& address) {
  return address.is_v6() ? fmt::format("[{}]", address.to_string()) : address.to_string();
}

/// Another descriptor for the same pipe or socket, for which one can wait; none for a file or a
/// device, which is always ready. A pipe is opened again: other processes share the descriptor, and
/// making it non-blocking would surprise them.
std::optional<int> waitableDescriptor(int descriptor, int mode) {
  struct stat status {};
  if (fstat(descriptor, &status) != 0) return std::nullopt;
  int opened = -1;
  if (S_ISFIFO(status.st_mode)) {
    opened =
        open(fmt::format("/proc/self/fd/{}", descriptor).c_str(), mode | O_NONBLOCK | O_CLOEXEC);
  }
  if (opened < 0 && (S_ISFIFO(status.st_mode) || S_ISSOCK(status.st_mode))) {
    opened = fcntl(descriptor, F_DUPFD_CLOEXEC, 0);
  }
  return opened < 0 ? std::nullopt : std::optional(opened);
}

}  // namespace

class Server::Implementation {
 public:
  Implementation(Service& service, const ServerOptions& options);
  Implementation(const Implementation&) = delete;
  Implementation& operator=(const Implementation&) = delete;
  ~Implementation() {
    if (!_localPath.empty()) unlink(_localPath.c_str());
  }

  std::string url() const;
  void output(std::string_view line);
  std::uint64_t droppedOutput() const { return _outputLines.dropped(); }
  void waitForInput(int descriptor);
  bool poll() { return _context.poll() > 0; }
  bool isStopped() const { return _isStopped; }
  void close();

 private:
  void listen(const ServerOptions& options);
  void listenLocally(const std::string& path);
  template <typename Acceptor>
  void accept(Acceptor& acceptor);
  void arrived(Socket socket, bool isLocal);
  void tick();
  void writeOutput();

  Connections _connections;
  asio::io_context& _context = _connections.context;
  Tcp::acceptor _acceptor{_context};
  Local::acceptor _localAcceptor{_context};
  std::string _name;  // by which others reach this machine, if it was given one
  std::string _localPath;
  std::vector<std::function<void()>> _pausedAccepts;
  bool _isShortOfDescriptors = false;
  asio::steady_timer _timer{_context};
  asio::posix::stream_descriptor _stop{_context};
  bool _isStopped = false;

  asio::posix::stream_descriptor _input{_context};
  bool _hasLookedAtInput = false;
  bool _isInputReady = false;

  int _outputDescriptor;
  asio::posix::stream_descriptor _output{_context};
  LineQueue _outputLines;
  std::string _outputPiece;
  bool _isOutputStalled = false;
};

Server::Implementation::Implementation(Service& service, const ServerOptions& options)
    : _connections(service, _outputLines), _outputDescriptor(options.outputDescriptor) {
  _connections.token = options.token;
  _connections.cameraFolder = options.cameraFolder;
  if (!options.address.empty()) listen(options);
  if (!options.socket.empty()) listenLocally(options.socket);
  if (options.stopDescriptor >= 0) {
    _stop.assign(fcntl(options.stopDescriptor, F_DUPFD_CLOEXEC, 0));
    _stop.async_wait(asio::posix::stream_descriptor::wait_read, [this](Error error) {
      if (!error) _isStopped = true;
    });
  }
  if (const auto output = waitableDescriptor(_outputDescriptor, O_WRONLY)) _output.assign(*output);
  tick();
}

void Server::Implementation::listen(const ServerOptions& options) {
  const Tcp::endpoint endpoint(addressOf(options.address), options.port);
  try {
    _acceptor.open(endpoint.protocol());
    _acceptor.set_option(Tcp::acceptor::reuse_address(true));
    _acceptor.bind(endpoint);
    _acceptor.listen();
  } catch (const boost::system::system_error& error) {
    throw Failure(
        fmt::format("{}:{}: {}", hostOf(endpoint.address()), options.port, error.code().message()));
  }
  std::vector<std::string> names{"127.0.0.1", "[::1]", "localhost"};
  if (!endpoint.address().is_unspecified()) names.push_back(hostOf(endpoint.address()));
  names.insert(names.end(), options.hosts.begin(), options.hosts.end());
  const auto ownPort = std::to_string(_acceptor.local_endpoint().port());
  for (const auto& name : names) {
    const std::size_t bracket = name.find(']');  // of an IPv6 address, which has colons
    const std::size_t colon = name.find(':', bracket == std::string::npos ? 0 : bracket);
    const auto host = boost::to_lower_copy(name.substr(0, colon));
    const auto port = colon == std::string::npos ? ownPort : name.substr(colon + 1);
    _connections.hosts.insert(fmt::format("{}:{}", host, port));
    // A browser leaves out the usual port.
    if (port == "80" || port == "443") _connections.hosts.insert(host);
  }
  const auto isOwn = [](const std::string& name) { return name.find(':') == std::string::npos; };
  const auto name = std::find_if(options.hosts.begin(), options.hosts.end(), isOwn);
  if (name != options.hosts.end()) _name = *name;
  accept(_acceptor);
}

void Server::Implementation::listenLocally(const std::string& path) {
  try {
    const Local::endpoint endpoint(path);
    struct stat status {};
    if (lstat(path.c_str(), &status) == 0) {
      Error error;
      if (S_ISSOCK(status.st_mode)) Local::socket(_context).connect(endpoint, error);
      if (error != asio::error::connection_refused) {
        throw Failure(printable(path) + ": already exists");
      }
      unlink(path.c_str());  // left behind by a service that was killed
    }
    _localAcceptor.open();
    const mode_t mask = umask(0177);
    Error error;
    _localAcceptor.bind(endpoint, error);
    umask(mask);
    if (error) throw boost::system::system_error(error);
    _localPath = path;
    _localAcceptor.listen();
  } catch (const boost::system::system_error& error) {
    throw Failure(fmt::format("{}: {}", printable(path), error.code().message()));
  }
  accept(_localAcceptor);
}

std::string Server::Implementation::url() const {
  if (!_acceptor.is_open()) return "";
  const auto endpoint = _acceptor.local_endpoint();
  std::string host = hostOf(endpoint.address());
  if (endpoint.address().is_unspecified()) host = _name.empty() ? "localhost" : _name;
  return fmt::format("http://{}:{}/", host, endpoint.port());
}

template <typename Acceptor>
void Server::Implementation::accept(Acceptor& acceptor) {
  acceptor.async_accept([this, &acceptor](Error error, auto socket) {
    if (!acceptor.is_open()) return;
    if (error == asio::error::no_descriptors ||
        error == boost::system::errc::too_many_files_open_in_system ||
        error == asio::error::no_buffer_space || error == asio::error::no_memory) {
      // Trying again at once would take all the time.
      _pausedAccepts.emplace_back([this, &acceptor] { accept(acceptor); });
      if (!std::exchange(_isShortOfDescriptors, true)) {
        _connections.service.errors().say(
            fmt::format("new connections have to wait: {}", error.message()));
      }
      return;
    }
    if (!error) arrived(std::move(socket), std::is_same_v<Acceptor, Local::acceptor>);
    accept(acceptor);
  });
}

void Server::Implementation::arrived(Socket socket, bool isLocal) {
  if (!isLocal) {
    Error ignored;
    socket.set_option(Tcp::no_delay(true), ignored);
  }
  serveRequest(_connections, std::move(socket), isLocal);
}

void Server::Implementation::tick() {
  for (Connection* const connection : _connections.all) connection->tick();
  _connections.service.tick();
  if (_pausedAccepts.empty()) _isShortOfDescriptors = false;
  for (const auto& resume : std::exchange(_pausedAccepts, {})) resume();
  _timer.expires_after(std::chrono::seconds(1));
  _timer.async_wait([this](Error error) {
    if (!error) tick();
  });
}

void Server::Implementation::waitForInput(int descriptor) {
  if (descriptor >= 0 && !std::exchange(_hasLookedAtInput, true)) {
    if (const auto input = waitableDescriptor(descriptor, O_RDONLY)) _input.assign(*input);
  }
  _isInputReady = descriptor >= 0 && !_input.is_open();
  if (descriptor >= 0 && _input.is_open()) {
    _input.async_wait(asio::posix::stream_descriptor::wait_read,
                      [this](Error /*error*/) { _isInputReady = true; });
  }
  poll();
  while (!_isInputReady && !_isStopped) _context.run_one();
}

void Server::Implementation::output(std::string_view line) {
  if (_outputDescriptor < 0) return;
  _outputLines.add(line);
  if (!_isOutputStalled) writeOutput();
}

/// Writes until everything is written or the reader has to catch up.
void Server::Implementation::writeOutput() {
  _isOutputStalled = false;
  const int descriptor = _output.is_open() ? _output.native_handle() : _outputDescriptor;
  while (true) {
    if (_outputPiece.empty()) _outputPiece = _outputLines.take(outputPieceSize);
    if (_outputPiece.empty()) return;
    const ssize_t count = write(descriptor, _outputPiece.data(), _outputPiece.size());
    if (count >= 0) {
      _outputPiece.erase(0, static_cast<std::size_t>(count));
    } else if (errno == EAGAIN && _output.is_open()) {
      _isOutputStalled = true;
      _output.async_wait(asio::posix::stream_descriptor::wait_write,
                         [this](Error /*error*/) { writeOutput(); });
      return;
    } else if (errno != EINTR) {
      // The reader has gone, or the disk is full. The pages go on.
      _outputDescriptor = -1;
      _connections.service.endOutput(systemFailure("standard output", errno));
      return;
    }
  }
}

void Server::Implementation::close() {
  _acceptor.close();
  _localAcceptor.close();
  _timer.cancel();
  _stop.close();
  _input.close();
  // Closing a connection may remove it, or others, from the list.
  const auto connections = _connections.all;
  for (Connection* const connection : connections) {
    const auto& left = _connections.all;
    if (std::count(left.begin(), left.end(), connection) > 0) connection->close();
  }
  const auto end = std::chrono::steady_clock::now() + closingTime;
  while ((!_connections.all.empty() || _isOutputStalled) && _context.run_one_until(end) > 0) {
  }
}

Reach reachOf(const std::string& text) {
  const auto address = addressOf(text);
  if (address.is_loopback()) return Reach::ThisMachine;
  return address.is_unspecified() ? Reach::AllAddresses : Reach::OneAddress;
}

Server::Server(Service& service, const ServerOptions& options)
    : _implementation(std::make_unique<Implementation>(service, options)) {}

Server::~Server() = default;

std::string Server::url() const { return _implementation->url(); }
void Server::output(std::string_view line) { _implementation->output(line); }
std::uint64_t Server::droppedOutput() const { return _implementation->droppedOutput(); }
void Server::waitForInput(int descriptor) { _implementation->waitForInput(descriptor); }
bool Server::poll() { return _implementation->poll(); }
bool Server::isStopped() const { return _implementation->isStopped(); }
void Server::close() { _implementation->close(); }

}  // namespace zorvel

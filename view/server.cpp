#include "view/server.hpp"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <boost/algorithm/string/case_conv.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <cerrno>
#include <chrono>
#include <fstream>
#include <iterator>
#include <optional>
#include <set>
#include <utility>

#include "recording/failure.hpp"
#include "view/camera_files.hpp"
#include "view/page.hpp"
#include "view/web_socket.hpp"

namespace zorvel {
namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
using Tcp = asio::ip::tcp;
using Error = boost::system::error_code;
using std::chrono::seconds;

constexpr std::size_t mostConnections = 64;
constexpr std::uint32_t longestHeader = std::uint32_t{8} << 10;
constexpr std::size_t longestMessage = std::size_t{1} << 20;
constexpr std::size_t longestCommand = std::size_t{1} << 10;
constexpr std::size_t mostLinesAtOnce = 100;
// In a row, and such as cannot be read.
constexpr std::uint64_t mostBadLines = 1000;
// Of all messages together that are not complete or not handled.
constexpr std::size_t mostUnfinished = std::size_t{16} << 20;
// How much may be on its way: little, so that what a slow page gets is not old.
constexpr std::size_t windowSize = std::size_t{64} << 10;
constexpr const char* windowPing = "window";
constexpr std::string_view cameraPath = "/camera/";
// What the page may do besides when there is a camera: start the worker that analyses pictures, and
// play a video that the user opens.
constexpr const char* cameraPolicy = " 'wasm-unsafe-eval'; worker-src 'self'; media-src blob:";
constexpr const char* workerPolicy =
    "default-src 'none'; script-src 'self' 'wasm-unsafe-eval'; connect-src 'self'";
constexpr seconds handshakeTime{10};
constexpr seconds idleTime{60};
constexpr seconds closingTime{2};

asio::ip::address addressOf(const std::string& text) {
  Error error;
  auto address = asio::ip::make_address(text, error);
  if (error) throw Failure(inQuotes(text) + " is no IP address");
  return address;
}

std::string_view standard(beast::string_view text) { return {text.data(), text.size()}; }

/// As it stands in an URL.
std::string hostOf(const asio::ip::address& address) {
  return address.is_v6() ? fmt::format("[{}]", address.to_string()) : address.to_string();
}

/// Another descriptor for the same pipe or socket, which can be waited for; none for a file or a
/// device, which never lets anybody wait. A pipe is opened anew: to make the one that other
/// processes share non-blocking would surprise them.
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

  std::string url() const;
  void output(std::string_view line);
  std::uint64_t droppedOutput() const { return _droppedOutput; }
  void waitForInput(int descriptor);
  bool poll() { return _context.poll() > 0; }
  bool isStopped() const { return _isStopped; }
  void close();

 private:
  class Connection;
  class Request;
  class Lines;
  class Events;
  class States;

  void accept();
  void tick();
  bool isOwnHost(std::string_view host) const;
  void writeOutput();

  Service& _service;
  std::set<Connection*> _connections;
  std::uint64_t _connectionCount = 0;
  std::size_t _unfinished = 0;
  asio::io_context _context{1};  // its end ends the connections, which use what stands before it
  Tcp::acceptor _acceptor{_context};
  asio::steady_timer _timer{_context};
  asio::posix::stream_descriptor _stop{_context};
  bool _isStopped = false;
  std::set<std::string> _hosts;
  std::string _cameraFolder;

  asio::posix::stream_descriptor _input{_context};
  bool _hasLookedAtInput = false;
  bool _isInputReady = false;

  int _outputDescriptor;
  asio::posix::stream_descriptor _output{_context};
  LineQueue _outputLines;
  std::string _outputPiece;
  bool _isOutputStalled = false;
  std::uint64_t _droppedOutput = 0;
};

// A handler runs later, from the event loop, so what starts its own operation anew does not
// recurse. NOLINTBEGIN(misc-no-recursion)

/// A connection, whatever it is used for. It lives as long as an operation on it is pending.
class Server::Implementation::Connection {
 public:
  explicit Connection(Implementation& server) : _server(server) {
    _server._connections.insert(this);
  }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;
  virtual ~Connection() { _server._connections.erase(this); }
  /// Sends what waits, if anything, and closes.
  virtual void close() = 0;

 protected:
  Implementation& server() const { return _server; }

 private:
  Implementation& _server;
};

/// A WebSocket that carries lines, in messages of one or more.
class Server::Implementation::Lines : public Connection,
                                      public std::enable_shared_from_this<Lines> {
 public:
  Lines(Implementation& server, Tcp::socket socket, std::size_t longest)
      : Connection(server), _socket(std::move(socket)) {
    _socket.setTimeouts(handshakeTime, idleTime);
    _socket.setLongestMessage(longest);
    _socket.onPong([this](std::string_view text) {
      if (text != windowPing) return;
      asio::post(this->server()._context, [self = shared_from_this()] { self->openWindow(); });
    });
  }
  ~Lines() override { server()._unfinished -= _received.size(); }

  void accept(const WebSocket::Request& request) {
    _socket.accept(request, [self = shared_from_this()](Error error) {
      if (error) return;
      self->_isOpen = true;
      self->opened();
      self->read();
    });
  }

  void close() override {
    _isClosing = true;
    if (_isOpen && !_isWriting) startClosing(WebSocket::Reason::GoingAway);
  }

 protected:
  virtual void opened() {}
  virtual void handleLine(std::string line) = 0;
  /// Whether nothing good will come any more.
  virtual bool isHopeless() const { return false; }
  /// The next message; "" when nothing waits.
  virtual std::string takeWaiting() = 0;

  /// To be called when something waits to be sent.
  void sendWaiting() {
    if (!_isOpen || _isWriting || _onTheWay >= windowSize) return;
    _sent = takeWaiting();
    if (_sent.empty()) {
      if (_isClosing) startClosing(WebSocket::Reason::GoingAway);
      return;
    }
    _isWriting = true;
    _socket.write(_sent, [self = shared_from_this()](Error error, std::size_t /*size*/) {
      self->_isWriting = false;
      if (error) {
        self->_isOpen = false;
        return;
      }
      self->_onTheWay += self->_sent.size();
      if (self->_onTheWay >= windowSize) self->closeWindow();
      self->sendWaiting();
    });
  }

 private:
  /// Nothing more is sent until the other side has read all this and answers a ping.
  void closeWindow() {
    _socket.ping(windowPing, [self = shared_from_this()](Error /*error*/) {});
  }

  void openWindow() {
    _onTheWay = 0;
    sendWaiting();
  }

  void read() {
    _socket.read(_received, [self = shared_from_this()](Error error, std::size_t size) {
      self->server()._unfinished += size;
      if (error) {
        self->_isOpen = false;
        return;
      }
      self->receivedPiece();
    });
  }

  void receivedPiece() {
    if (server()._unfinished > mostUnfinished) {
      startClosing(WebSocket::Reason::TryAgainLater);
      return;
    }
    if (!_socket.isText()) {
      startClosing(WebSocket::Reason::NoText);
      return;
    }
    if (_socket.isMessageDone()) {
      handleLines();
    } else {
      read();
    }
  }

  /// Handles some lines of a message, and the others when everybody else has had a turn.
  void handleLines() {
    for (std::size_t count = 0; count < mostLinesAtOnce && _handled < _received.size(); ++count) {
      const std::size_t end = std::min(_received.find('\n', _handled), _received.size());
      handleLine(_received.substr(_handled, end - _handled));
      _handled = end + 1;
    }
    sendWaiting();
    if (isHopeless()) {
      startClosing(WebSocket::Reason::BadContent);
    } else if (_handled < _received.size()) {
      asio::post(server()._context, [self = shared_from_this()] { self->handleLines(); });
    } else {
      server()._unfinished -= _received.size();
      _received.clear();
      _handled = 0;
      read();
    }
  }

  void startClosing(WebSocket::Reason reason) {
    if (!std::exchange(_isOpen, false)) return;
    _socket.close(reason, [self = shared_from_this()](Error /*error*/) {});
  }

  WebSocket _socket;
  std::string _received;     // a message, or what has come of it
  std::size_t _handled = 0;  // of its bytes
  std::string _sent;
  std::size_t _onTheWay = 0;
  bool _isOpen = false;
  bool _isWriting = false;
  bool _isClosing = false;
};

/// A sender of events.
class Server::Implementation::Events : public Lines {
 public:
  Events(Implementation& server, Tcp::socket socket)
      : Lines(server, std::move(socket), longestMessage),
        _sender(fmt::format("connection {}", ++server._connectionCount)) {}
  ~Events() override { server()._service.leave(_sender); }

 private:
  void handleLine(std::string line) override {
    const std::string answer = server()._service.receive(_sender, std::move(line));
    if (!answer.empty()) _answers.add(std::nullopt, answer);
  }
  bool isHopeless() const override { return _sender.badLines >= mostBadLines; }
  std::string takeWaiting() override { return _answers.take(); }

  Sender _sender;
  LineQueue _answers;
};

/// A page, which watches states.
class Server::Implementation::States : public Lines {
 public:
  States(Implementation& server, Tcp::socket socket)
      : Lines(server, std::move(socket), longestCommand) {}
  ~States() override { server()._service.disconnect(_page); }

 private:
  void opened() override {
    _page.wake = [this] { sendWaiting(); };
    server()._service.connect(_page);
  }
  void handleLine(std::string line) override {
    const std::string answer = server()._service.receive(_page, std::move(line));
    if (!answer.empty()) _page.add(std::nullopt, answer);
  }
  std::string takeWaiting() override { return _page.take(); }

  Page _page;
};

/// A request of HTTP. One that asks for a WebSocket gets one, any other one answer.
class Server::Implementation::Request : public Connection,
                                        public std::enable_shared_from_this<Request> {
 public:
  Request(Implementation& server, Tcp::socket socket)
      : Connection(server), _stream(std::move(socket)) {
    _parser.header_limit(longestHeader);
  }

  void read() {
    _stream.expires_after(handshakeTime);
    http::async_read_header(
        _stream, _buffer, _parser, [self = shared_from_this()](Error error, std::size_t /*size*/) {
          if (error == http::error::end_of_stream || error == asio::error::operation_aborted ||
              error == beast::error::timeout) {
            return;
          }
          if (error) {
            self->answer(http::status::bad_request, "not a request of HTTP\n");
          } else {
            self->handle(self->_parser.get());
          }
        });
  }

  void close() override { _stream.cancel(); }

 private:
  void handle(const http::request<http::empty_body>& request) {
    const std::string_view host = standard(request[http::field::host]);
    if (!server().isOwnHost(host)) {
      answer(http::status::misdirected_request,
             "this server does not go by that name; zorvel view --host gives it one\n");
      return;
    }
    const std::string_view target = standard(request.target());
    if (WebSocket::isUpgrade(request)) {
      const auto origin = request.find(http::field::origin);
      if (origin != request.end() && standard(origin->value()) != fmt::format("http://{}", host)) {
        answer(http::status::forbidden, "that is for this server's own page\n");
      } else if (target == "/events") {
        become<Events>(request);
      } else if (target == "/states") {
        become<States>(request);
      } else {
        answer(http::status::not_found, "there is /events and /states\n");
      }
    } else if (request.method() != http::verb::get && request.method() != http::verb::head) {
      answer(http::status::method_not_allowed, "only GET and HEAD\n");
    } else if (target == "/") {
      std::string policy(viewPagePolicy());
      if (findCameraFile(server()._cameraFolder, "worker.js")) policy += cameraPolicy;
      _response.set("Content-Security-Policy", policy);
      answer(http::status::ok, std::string(viewPage()), "text/html; charset=utf-8");
    } else if (target == "/health") {
      answer(http::status::ok, server()._service.status(), "application/json");
    } else if (target == "/recording") {
      _response.set(http::field::content_disposition, "attachment; filename=\"last-minute.jsonl\"");
      answer(http::status::ok, server()._service.lastMinute(), "application/jsonl");
    } else if (target.substr(0, cameraPath.size()) == cameraPath) {
      answerCameraFile(target.substr(cameraPath.size()),
                       standard(request[http::field::if_none_match]));
    } else {
      answer(http::status::not_found, "there is /, /health, /recording, /events and /states\n");
    }
  }

  void answerCameraFile(std::string_view name, std::string_view knownTag) {
    const auto file = findCameraFile(server()._cameraFolder, name);
    if (!file) {
      answer(
          http::status::not_found,
          "To use a camera, install zorvel-camera, or run scripts/camera where zorvel is built.\n");
      return;
    }
    _response.set(http::field::etag, file->tag);
    _response.set("Content-Security-Policy", workerPolicy);
    _cacheControl = "no-cache";  // to be kept, but asked for anew
    if (file->tag == knownTag) {
      answer(http::status::not_modified, "", file->type);
      return;
    }
    std::ifstream content(file->path, std::ios::binary);
    answer(http::status::ok, std::string(std::istreambuf_iterator<char>(content), {}), file->type);
  }

  template <typename Socket>
  void become(const http::request<http::empty_body>& request) {
    _stream.expires_never();
    std::make_shared<Socket>(server(), _stream.release_socket())->accept(request);
  }

  void answer(http::status status, std::string text,
              std::string_view type = "text/plain; charset=utf-8") {
    _response.result(status);
    _response.set(http::field::content_type, beast::string_view(type.data(), type.size()));
    _response.set(http::field::cache_control, _cacheControl);
    _response.set("X-Content-Type-Options", "nosniff");
    _response.set("Referrer-Policy", "no-referrer");
    _response.set("Cross-Origin-Resource-Policy", "same-origin");
    _response.keep_alive(false);
    _response.body() = std::move(text);
    _response.prepare_payload();
    if (_parser.get().method() == http::verb::head) _response.body().clear();
    _stream.expires_after(idleTime);
    http::async_write(_stream, _response,
                      [self = shared_from_this()](Error /*error*/, std::size_t /*size*/) {
                        Error ignored;
                        self->_stream.socket().shutdown(Tcp::socket::shutdown_send, ignored);
                      });
  }

  beast::tcp_stream _stream;
  beast::flat_buffer _buffer;
  http::request_parser<http::empty_body> _parser;
  http::response<http::string_body> _response;
  const char* _cacheControl = "no-store";
};

Server::Implementation::Implementation(Service& service, const ServerOptions& options)
    : _service(service),
      _cameraFolder(options.cameraFolder),
      _outputDescriptor(options.outputDescriptor) {
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
  const auto port = _acceptor.local_endpoint().port();
  for (const auto& name : names) {
    _hosts.insert(fmt::format("{}:{}", boost::to_lower_copy(name), port));
    // A browser leaves out the port that everybody knows.
    if (port == 80) _hosts.insert(boost::to_lower_copy(name));
  }
  if (options.stopDescriptor >= 0) {
    _stop.assign(fcntl(options.stopDescriptor, F_DUPFD_CLOEXEC, 0));
    _stop.async_wait(asio::posix::stream_descriptor::wait_read, [this](Error error) {
      if (!error) _isStopped = true;
    });
  }
  if (const auto output = waitableDescriptor(_outputDescriptor, O_WRONLY)) _output.assign(*output);
  accept();
  tick();
}

std::string Server::Implementation::url() const {
  const auto endpoint = _acceptor.local_endpoint();
  const bool isAny = endpoint.address().is_unspecified();
  return fmt::format("http://{}:{}/", isAny ? "localhost" : hostOf(endpoint.address()),
                     endpoint.port());
}

bool Server::Implementation::isOwnHost(std::string_view host) const {
  return _hosts.count(boost::to_lower_copy(std::string(host))) > 0;
}

void Server::Implementation::accept() {
  _acceptor.async_accept([this](Error error, Tcp::socket socket) {
    if (!_acceptor.is_open()) return;
    // One too many is closed at once.
    if (!error && _connections.size() < mostConnections) {
      socket.set_option(Tcp::no_delay(true), error);
      std::make_shared<Request>(*this, std::move(socket))->read();
    }
    accept();
  });
}

void Server::Implementation::tick() {
  _service.tick();
  _timer.expires_after(seconds(1));
  _timer.async_wait([this](Error error) {
    if (!error) tick();
  });
}

// NOLINTEND(misc-no-recursion)

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
  _outputLines.add(std::nullopt, line);
  _droppedOutput += _outputLines.takeDropped();
  if (!_isOutputStalled) writeOutput();
}

/// Writes until everything is written or the reader has to catch up.
void Server::Implementation::writeOutput() {
  _isOutputStalled = false;
  const int descriptor = _output.is_open() ? _output.native_handle() : _outputDescriptor;
  while (true) {
    if (_outputPiece.empty()) _outputPiece = _outputLines.take();
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
      // Whoever read has gone, or the disk is full. The pages go on.
      _outputDescriptor = -1;
      _service.endOutput(systemFailure("standard output", errno));
      return;
    }
  }
}

void Server::Implementation::close() {
  _acceptor.close();
  _timer.cancel();
  _stop.close();
  _input.close();
  // A connection may go while it is told to.
  const auto connections = _connections;
  for (Connection* const connection : connections) {
    if (_connections.count(connection) > 0) connection->close();
  }
  const auto end = std::chrono::steady_clock::now() + closingTime;
  while ((!_connections.empty() || _isOutputStalled) && _context.run_one_until(end) > 0) {
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

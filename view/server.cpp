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
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <cerrno>
#include <chrono>
#include <fstream>
#include <functional>
#include <iterator>
#include <limits>
#include <optional>
#include <set>
#include <type_traits>
#include <utility>

#include "recording/failure.hpp"
#include "recording/printable.hpp"
#include "view/camera_files.hpp"
#include "view/page.hpp"
#include "view/web_socket.hpp"

namespace zorvel {
namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
using Tcp = asio::ip::tcp;
using Local = asio::local::stream_protocol;
using Socket = WebSocket::Socket;
using Error = boost::system::error_code;
using std::chrono::seconds;

constexpr std::size_t mostConnections = 64;
constexpr std::uint32_t longestHeader = std::uint32_t{8} << 10;
constexpr std::size_t longestMessage = std::size_t{1} << 20;
constexpr std::size_t longestCommand = std::size_t{1} << 10;
constexpr std::size_t mostLinesAtOnce = 100;
// In a row, and such as cannot be read.
constexpr std::uint64_t mostBadLines = 1000;
// Of all messages together that are not complete or not handled; each connection has a share.
constexpr std::size_t mostUnfinished = std::size_t{16} << 20;
constexpr std::size_t shareOfUnfinished = mostUnfinished / mostConnections;
// Of the last minute.
constexpr int mostDownloads = 4;
// How much may be on its way: little, so that what a slow page gets is not old.
constexpr std::size_t windowSize = std::size_t{64} << 10;
constexpr std::size_t longestAnswer = std::size_t{64} << 10;
constexpr const char* windowPing = "window";
constexpr const char* lifePing = "life";
constexpr std::string_view cameraPath = "/camera/";
// What the page may do besides when there is a camera: start the worker that analyses pictures, and
// play a video that the user opens.
constexpr const char* cameraPolicy = " 'wasm-unsafe-eval'; worker-src 'self'; media-src blob:";
constexpr const char* workerPolicy =
    "default-src 'none'; script-src 'self' 'wasm-unsafe-eval'; connect-src 'self'";
// For what should take an instant: a request, a handshake, a piece of an answer.
constexpr seconds patience{10};
constexpr seconds idleTime{60};
// Whoever has been silent for longer is pinged.
constexpr seconds quietTime{1};
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
  class Connection;
  class Request;
  class Lines;
  class Events;
  class States;

  void listen(const ServerOptions& options);
  void listenLocally(const std::string& path);
  template <typename Acceptor>
  void accept(Acceptor& acceptor);
  void arrived(Socket socket, bool isLocal);
  void tick();
  void limitUnfinished();
  bool isOwnHost(std::string_view host) const;
  void writeOutput();

  Service& _service;
  std::vector<Connection*> _connections;  // in the order of their arrival
  std::uint64_t _senderCount = 0;
  std::uint64_t _pageCount = 0;
  std::uint64_t _refusedConnections = 0;
  /// Those with messages that are not complete or not handled; whose began first is first.
  std::vector<Lines*> _unfinished;
  std::size_t _unfinishedBytes = 0;
  int _downloads = 0;
  asio::io_context _context{1};  // its end ends the connections, which use what stands before it
  Tcp::acceptor _acceptor{_context};
  Local::acceptor _localAcceptor{_context};
  std::string _localPath;
  std::vector<std::function<void()>> _pausedAccepts;
  bool _isShortOfDescriptors = false;
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
};

// A handler runs later, from the event loop, so what starts its own operation anew does not
// recurse. NOLINTBEGIN(misc-no-recursion)

/// A connection, whatever it is used for. It lives as long as an operation on it is pending.
class Server::Implementation::Connection {
 public:
  explicit Connection(Implementation& server) : _server(server) {
    _server._connections.push_back(this);
  }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;
  virtual ~Connection() { forget(); }
  /// Sends what waits, if anything, and closes.
  virtual void close() = 0;
  /// Ends for the sake of another, unless it is good for something; returns whether it does.
  virtual bool makeWay() { return false; }
  /// Called about once a second.
  virtual void tick() {}

 protected:
  Implementation& server() const { return _server; }
  /// It counts no more.
  void forget() {
    auto& all = _server._connections;
    all.erase(std::remove(all.begin(), all.end(), this), all.end());
  }

 private:
  Implementation& _server;
};

/// A WebSocket that carries lines, in messages of one or more.
class Server::Implementation::Lines : public Connection,
                                      public std::enable_shared_from_this<Lines> {
 public:
  Lines(Implementation& server, Socket socket, std::size_t longest)
      : Connection(server), _socket(std::move(socket)) {
    _socket.setTimeouts(patience, idleTime);
    _socket.setLongestMessage(longest);
    _socket.onPong([this](std::string_view text) {
      _lastSign = std::chrono::steady_clock::now();
      if (text != windowPing) return;
      asio::post(this->server()._context, [self = shared_from_this()] { self->openWindow(); });
    });
  }
  ~Lines() override { dropMessage(); }

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

  std::size_t unfinished() const { return _received.size(); }
  /// Others need what it holds.
  void giveUp() {
    dropMessage();
    startClosing(WebSocket::Reason::TryAgainLater);
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
      // Nothing more is sent until the other side has read all this and answers a ping.
      if (self->_onTheWay >= windowSize) self->ping(windowPing);
      self->sendWaiting();
    });
  }

  /// Asks for a sign of life.
  void pingForLife() {
    if (_isOpen && !_isPinging) ping(lifePing);
  }
  std::chrono::steady_clock::time_point lastSign() const { return _lastSign; }

 private:
  void openWindow() {
    _onTheWay = 0;
    sendWaiting();
  }

  /// One at a time; a later one goes after it.
  void ping(const char* text) {
    if (std::exchange(_isPinging, true)) {
      _nextPing = text;
      return;
    }
    _socket.ping(text, [self = shared_from_this()](Error error) {
      self->_isPinging = false;
      const char* const next = std::exchange(self->_nextPing, nullptr);
      if (!error && next != nullptr) self->ping(next);
    });
  }

  void read() {
    _socket.read(_received, [self = shared_from_this()](Error error, std::size_t size) {
      if (error || !self->_isOpen) {
        self->_isOpen = false;
        self->_received.resize(self->_received.size() - size);
        return;
      }
      self->receivedPiece(size);
    });
  }

  void receivedPiece(std::size_t size) {
    _lastSign = std::chrono::steady_clock::now();
    if (size > 0 && _received.size() == size) server()._unfinished.push_back(this);
    server()._unfinishedBytes += size;
    server().limitUnfinished();
    if (!_isOpen) return;
    if (!_socket.isText()) {
      startClosing(WebSocket::Reason::NoText);
    } else if (_socket.isMessageDone()) {
      handleLines();
    } else {
      read();
    }
  }

  /// Handles some lines of a message, and the others when everybody else has had a turn.
  void handleLines() {
    if (!_isOpen) return;
    for (std::size_t count = 0; count < mostLinesAtOnce && _handled < _received.size(); ++count) {
      const std::size_t end = std::min(_received.find('\n', _handled), _received.size());
      handleLine(_received.substr(_handled, end - _handled));
      _handled = end + 1;
    }
    _lastSign = std::chrono::steady_clock::now();
    sendWaiting();
    if (isHopeless()) {
      startClosing(WebSocket::Reason::BadContent);
    } else if (_handled < _received.size()) {
      asio::post(server()._context, [self = shared_from_this()] { self->handleLines(); });
    } else {
      dropMessage();
      read();
    }
  }

  void dropMessage() {
    auto& unfinished = server()._unfinished;
    unfinished.erase(std::remove(unfinished.begin(), unfinished.end(), this), unfinished.end());
    server()._unfinishedBytes -= _received.size();
    _received.clear();
    if (_received.capacity() > shareOfUnfinished) _received.shrink_to_fit();
    _handled = 0;
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
  bool _isPinging = false;
  const char* _nextPing = nullptr;
  std::chrono::steady_clock::time_point _lastSign = std::chrono::steady_clock::now();
};

/// A sender of events.
class Server::Implementation::Events : public Lines {
 public:
  Events(Implementation& server, Socket socket)
      : Lines(server, std::move(socket), longestMessage),
        _sender(fmt::format("connection {}", ++server._senderCount)) {}
  ~Events() override { server()._service.leave(_sender); }

  void tick() override {
    _sender.lastSign = lastSign();
    if (std::chrono::steady_clock::now() - lastSign() > quietTime) pingForLife();
  }

 private:
  void opened() override { server()._service.join(_sender); }
  void handleLine(std::string line) override {
    server()._service.receive(_sender, std::move(line));
  }
  bool isHopeless() const override { return _sender.unreadableLines >= mostBadLines; }
  std::string takeWaiting() override { return _sender.answers.take(longestAnswer); }

  Sender _sender;
};

/// A page, which watches states.
class Server::Implementation::States : public Lines {
 public:
  States(Implementation& server, Socket socket)
      : Lines(server, std::move(socket), longestCommand),
        _page(fmt::format("page {}", ++server._pageCount)) {}
  ~States() override { server()._service.leave(_page); }

 private:
  void opened() override {
    _page.wake = [this] { sendWaiting(); };
    server()._service.join(_page);
    sendWaiting();
  }
  void handleLine(std::string line) override { server()._service.receive(_page, std::move(line)); }
  std::string takeWaiting() override { return server()._service.take(_page); }

  Page _page;
};

/// A request of HTTP. One that asks for a WebSocket gets one, any other one answer.
class Server::Implementation::Request : public Connection,
                                        public std::enable_shared_from_this<Request> {
 public:
  Request(Implementation& server, Socket socket, bool isLocal)
      : Connection(server), _stream(std::move(socket)), _isLocal(isLocal) {
    _parser.header_limit(longestHeader);
    _parser.body_limit(std::numeric_limits<std::uint64_t>::max());  // none is ever read
  }
  ~Request() override { endDownload(); }

  void read() {
    _stream.expires_after(patience);
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

  /// There are too many.
  void refuse() {
    answer(http::status::service_unavailable,
           fmt::format("there are {} connections already; try again\n", mostConnections));
  }

  void close() override { _stream.cancel(); }

  bool makeWay() override {
    if (_isAnswering) return false;
    forget();
    _stream.close();
    return true;
  }

 private:
  void handle(const http::request<http::empty_body>& request) {
    const std::string_view host = standard(request[http::field::host]);
    if (!_isLocal && !server().isOwnHost(host)) {
      answer(http::status::misdirected_request,
             "this server does not go by that name; zorvel view --host gives it one\n");
      return;
    }
    const std::string_view target = standard(request.target());
    if (WebSocket::isUpgrade(request)) {
      const auto origin = request.find(http::field::origin);
      if (!_isLocal && origin != request.end() &&
          standard(origin->value()) != fmt::format("http://{}", host)) {
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
      answer(http::status::ok, server()._service.health(server()._refusedConnections),
             "application/json");
    } else if (target == "/recording") {
      answerLastMinute();
    } else if (target.substr(0, cameraPath.size()) == cameraPath) {
      answerCameraFile(target.substr(cameraPath.size()),
                       standard(request[http::field::if_none_match]));
    } else {
      answer(http::status::not_found, "there is /, /health, /recording, /events and /states\n");
    }
  }

  void answerLastMinute() {
    if (server()._downloads == mostDownloads) {
      answer(http::status::service_unavailable,
             fmt::format("{} others are saving the last minute; try again\n", mostDownloads));
      return;
    }
    ++server()._downloads;
    _lines = server()._service.lastMinute();
    std::size_t size = 0;
    for (const auto& line : _lines) size += line->size();
    _response.set(http::field::content_disposition, "attachment; filename=\"last-minute.jsonl\"");
    setHeader(http::status::ok, "application/jsonl");
    _response.content_length(size);
    if (_parser.get().method() == http::verb::head) _nextLine = _lines.size();
    send();
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

  template <typename Peer>
  void become(const http::request<http::empty_body>& request) {
    _stream.expires_never();
    forget();
    std::make_shared<Peer>(server(), _stream.release_socket())->accept(request);
  }

  void answer(http::status status, std::string text,
              std::string_view type = "text/plain; charset=utf-8") {
    setHeader(status, type);
    _response.body() = std::move(text);
    _response.prepare_payload();
    if (_parser.get().method() == http::verb::head) _response.body().clear();
    send();
  }

  void setHeader(http::status status, std::string_view type) {
    _response.result(status);
    _response.set(http::field::content_type, beast::string_view(type.data(), type.size()));
    _response.set(http::field::cache_control, _cacheControl);
    _response.set("X-Content-Type-Options", "nosniff");
    _response.set("Referrer-Policy", "no-referrer");
    _response.set("Cross-Origin-Resource-Policy", "same-origin");
    _response.keep_alive(false);
  }

  void send() {
    _isAnswering = true;
    _stream.expires_after(idleTime);
    http::async_write(_stream, _response,
                      [self = shared_from_this()](Error error, std::size_t /*size*/) {
                        if (!error) self->sendLines();
                      });
  }

  /// Sends the lines of the last minute that are left, if any, and ends.
  void sendLines() {
    _piece.clear();
    for (; _nextLine < _lines.size() && _piece.size() < windowSize; ++_nextLine) {
      _piece += *std::exchange(_lines[_nextLine], nullptr);
    }
    _stream.expires_after(patience);
    if (_piece.empty()) {
      endDownload();
      Error ignored;
      _stream.socket().shutdown(Socket::shutdown_send, ignored);
      _isAnswering = false;
      readRest();
      return;
    }
    asio::async_write(_stream, asio::buffer(_piece),
                      [self = shared_from_this()](Error error, std::size_t /*size*/) {
                        if (!error) self->sendLines();
                      });
  }

  void endDownload() {
    if (!_lines.empty()) --server()._downloads;
    _lines.clear();
  }

  /// The answer would be lost with a connection that is closed while something is unread.
  void readRest() {
    _buffer.clear();
    _stream.async_read_some(_buffer.prepare(longestHeader),
                            [self = shared_from_this()](Error error, std::size_t /*size*/) {
                              if (!error) self->readRest();
                            });
  }

  beast::basic_stream<asio::generic::stream_protocol> _stream;
  bool _isLocal;
  bool _isAnswering = false;
  beast::flat_buffer _buffer;
  http::request_parser<http::empty_body> _parser;
  http::response<http::string_body> _response;
  const char* _cacheControl = "no-store";
  std::vector<std::shared_ptr<const std::string>> _lines;  // of the last minute
  std::size_t _nextLine = 0;
  std::string _piece;
};

Server::Implementation::Implementation(Service& service, const ServerOptions& options)
    : _service(service),
      _cameraFolder(options.cameraFolder),
      _outputDescriptor(options.outputDescriptor) {
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
  const auto port = _acceptor.local_endpoint().port();
  for (const auto& name : names) {
    _hosts.insert(fmt::format("{}:{}", boost::to_lower_copy(name), port));
    // A browser leaves out the port that everybody knows.
    if (port == 80) _hosts.insert(boost::to_lower_copy(name));
  }
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
        throw Failure(printable(path) + ": is there already");
      }
      unlink(path.c_str());  // of a service that could not do it itself
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
  const bool isAny = endpoint.address().is_unspecified();
  return fmt::format("http://{}:{}/", isAny ? "localhost" : hostOf(endpoint.address()),
                     endpoint.port());
}

bool Server::Implementation::isOwnHost(std::string_view host) const {
  return _hosts.count(boost::to_lower_copy(std::string(host))) > 0;
}

template <typename Acceptor>
void Server::Implementation::accept(Acceptor& acceptor) {
  acceptor.async_accept([this, &acceptor](Error error, auto socket) {
    if (!acceptor.is_open()) return;
    if (error == asio::error::no_descriptors ||
        error == boost::system::errc::too_many_files_open_in_system ||
        error == asio::error::no_buffer_space || error == asio::error::no_memory) {
      // To try again at once would take all the time.
      _pausedAccepts.emplace_back([this, &acceptor] { accept(acceptor); });
      if (!std::exchange(_isShortOfDescriptors, true)) {
        _service.errors().say(
            fmt::format("no connection can be accepted: {}; they have to wait", error.message()));
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
  if (_connections.size() >= mostConnections) {
    ++_refusedConnections;
    for (Connection* const connection : _connections) {
      if (connection->makeWay()) break;  // which changes the list
    }
  }
  const auto request = std::make_shared<Request>(*this, std::move(socket), isLocal);
  if (_connections.size() > mostConnections) {
    request->refuse();
  } else {
    request->read();
  }
}

void Server::Implementation::limitUnfinished() {
  while (_unfinishedBytes > mostUnfinished) {
    // There is one: all together hold more than all shares.
    const auto hoarder =
        std::find_if(_unfinished.begin(), _unfinished.end(),
                     [](const Lines* lines) { return lines->unfinished() > shareOfUnfinished; });
    (*hoarder)->giveUp();
  }
}

void Server::Implementation::tick() {
  for (Connection* const connection : _connections) connection->tick();
  _service.tick();
  if (_pausedAccepts.empty()) _isShortOfDescriptors = false;
  for (const auto& resume : std::exchange(_pausedAccepts, {})) resume();
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
  _outputLines.add(line);
  if (!_isOutputStalled) writeOutput();
}

/// Writes until everything is written or the reader has to catch up.
void Server::Implementation::writeOutput() {
  _isOutputStalled = false;
  const int descriptor = _output.is_open() ? _output.native_handle() : _outputDescriptor;
  while (true) {
    if (_outputPiece.empty()) _outputPiece = _outputLines.take(longestAnswer);
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
  _localAcceptor.close();
  _timer.cancel();
  _stop.close();
  _input.close();
  // A connection may go while it is told to.
  const auto connections = _connections;
  for (Connection* const connection : connections) {
    if (std::count(_connections.begin(), _connections.end(), connection) > 0) connection->close();
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

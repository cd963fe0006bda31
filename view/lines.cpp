#include "view/lines.hpp"

#include <algorithm>
#include <boost/asio/post.hpp>
#include <memory>
#include <utility>

namespace zorvel {
namespace {

namespace asio = boost::asio;
using Socket = WebSocket::Socket;
using Error = boost::system::error_code;

constexpr std::size_t longestMessage = std::size_t{1} << 20;
constexpr std::size_t longestCommand = std::size_t{1} << 10;
constexpr std::size_t mostLinesAtOnce = 100;
// After so many unreadable lines in a row a connection is closed.
constexpr std::uint64_t mostBadLines = 1000;
// In bytes, of all incomplete and unhandled messages together; each connection has a share.
constexpr std::size_t mostUnfinished = std::size_t{16} << 20;
constexpr std::size_t shareOfUnfinished = mostUnfinished / mostConnections;
constexpr std::size_t longestAnswer = std::size_t{64} << 10;
constexpr const char* windowPing = "window";
constexpr const char* lifePing = "life";
// A sender that has been silent for longer gets a ping.
constexpr std::chrono::seconds quietTime{1};

}  // namespace

// A handler runs later, from the event loop, so a function that starts its operation again does not
// recurse. NOLINTBEGIN(misc-no-recursion)

/// A WebSocket whose messages are one or more lines.
class Lines : public Connection, public std::enable_shared_from_this<Lines> {
 public:
  Lines(Connections& connections, Socket socket, std::size_t longest)
      : Connection(connections), _socket(std::move(socket)) {
    _socket.setTimeouts(patience, idleTime);
    _socket.setLongestMessage(longest);
    _socket.onPong([this](std::string_view text) {
      _lastSign = std::chrono::steady_clock::now();
      if (text != windowPing) return;
      asio::post(this->connections().context, [self = shared_from_this()] { self->openWindow(); });
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

 protected:
  virtual void opened() {}
  virtual void handleLine(std::string line) = 0;
  /// Whether to close the connection for what has come from it.
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

  /// Sends one ping at a time; the last one that is asked for meanwhile follows.
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
    if (size > 0 && _received.size() == size) connections().unfinished.push_back(this);
    connections().unfinishedBytes += size;
    limitUnfinished();
    if (!_isOpen) return;
    if (!_socket.isText()) {
      startClosing(WebSocket::Reason::NoText);
    } else if (_socket.isMessageDone()) {
      handleLines();
    } else {
      read();
    }
  }

  /// Handles some lines of a message, and the others after the other connections have had a turn.
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
      asio::post(connections().context, [self = shared_from_this()] { self->handleLines(); });
    } else {
      dropMessage();
      read();
    }
  }

  void limitUnfinished() {
    while (connections().unfinishedBytes > mostUnfinished) {
      // There is one, as together they hold more than all shares.
      const auto& unfinished = connections().unfinished;
      const auto hoarder = std::find_if(
          unfinished.begin(), unfinished.end(),
          [](const Lines* lines) { return lines->_received.size() > shareOfUnfinished; });
      (*hoarder)->giveUp();
    }
  }

  /// Frees what it holds for others.
  void giveUp() {
    dropMessage();
    startClosing(WebSocket::Reason::TryAgainLater);
  }

  void dropMessage() {
    auto& unfinished = connections().unfinished;
    unfinished.erase(std::remove(unfinished.begin(), unfinished.end(), this), unfinished.end());
    connections().unfinishedBytes -= _received.size();
    _received.clear();
    if (_received.capacity() > shareOfUnfinished) _received.shrink_to_fit();
    _handled = 0;
  }

  void startClosing(WebSocket::Reason reason) {
    if (!std::exchange(_isOpen, false)) return;
    _socket.close(reason, [self = shared_from_this()](Error /*error*/) {});
  }

  WebSocket _socket;
  std::string _received;     // a message, perhaps incomplete
  std::size_t _handled = 0;  // how many of its bytes
  std::string _sent;
  std::size_t _onTheWay = 0;
  bool _isOpen = false;
  bool _isWriting = false;
  bool _isClosing = false;
  bool _isPinging = false;
  const char* _nextPing = nullptr;
  std::chrono::steady_clock::time_point _lastSign = std::chrono::steady_clock::now();
};

namespace {

/// A sender of events.
class Events : public Lines {
 public:
  Events(Connections& connections, Socket socket)
      : Lines(connections, std::move(socket), longestMessage),
        _sender(fmt::format("connection {}", ++connections.senderCount)) {}
  ~Events() override { connections().service.leave(_sender); }

  void tick() override {
    _sender.lastSign = lastSign();
    if (std::chrono::steady_clock::now() - lastSign() > quietTime) pingForLife();
  }

 private:
  void opened() override { connections().service.join(_sender); }
  void handleLine(std::string line) override {
    connections().service.receive(_sender, std::move(line));
  }
  bool isHopeless() const override { return _sender.unreadableLines >= mostBadLines; }
  std::string takeWaiting() override { return _sender.answers.take(longestAnswer); }

  Sender _sender;
};

/// A page, which watches states.
class States : public Lines {
 public:
  States(Connections& connections, Socket socket)
      : Lines(connections, std::move(socket), longestCommand),
        _page(fmt::format("page {}", ++connections.pageCount)) {}
  ~States() override { connections().service.leave(_page); }

 private:
  void opened() override {
    _page.wake = [this] { sendWaiting(); };
    connections().service.join(_page);
    sendWaiting();
  }
  void handleLine(std::string line) override {
    connections().service.receive(_page, std::move(line));
  }
  std::string takeWaiting() override { return connections().service.take(_page); }

  Page _page;
};

}  // namespace

// NOLINTEND(misc-no-recursion)

void serveEvents(Connections& connections, Socket socket, const WebSocket::Request& request) {
  std::make_shared<Events>(connections, std::move(socket))->accept(request);
}

void serveStates(Connections& connections, Socket socket, const WebSocket::Request& request) {
  std::make_shared<States>(connections, std::move(socket))->accept(request);
}

}  // namespace zorvel

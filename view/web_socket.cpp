#include "view/web_socket.hpp"

#include <boost/beast/core.hpp>
#include <boost/beast/websocket.hpp>
#include <utility>

namespace zorvel {
namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
namespace websocket = beast::websocket;

constexpr const char* protocol = "zorvel";

constexpr std::size_t pieceSize = std::size_t{64} << 10;

websocket::close_code closeCode(WebSocket::Reason reason) {
  switch (reason) {
    case WebSocket::Reason::GoingAway:
      return websocket::close_code::going_away;
    case WebSocket::Reason::NoText:
      return websocket::close_code::unknown_data;
    case WebSocket::Reason::BadContent:
      return websocket::close_code::policy_error;
    case WebSocket::Reason::TryAgainLater:
      return websocket::close_code::try_again_later;
    case WebSocket::Reason::Normal:
      break;
  }
  return websocket::close_code::normal;
}

}  // namespace

class WebSocket::Implementation {
 public:
  explicit Implementation(Socket socket) : stream(std::move(socket)) {}

  // Without compression: neither end agrees to it, and it takes long to compile.
  websocket::stream<beast::basic_stream<asio::generic::stream_protocol>, false> stream;
  beast::flat_buffer piece;
  websocket::response_type answer;  // to the handshake
  bool isRefused = false;
};

WebSocket::WebSocket(Socket socket)
    : _implementation(std::make_unique<Implementation>(std::move(socket))) {
  _implementation->stream.text(true);
}

WebSocket::~WebSocket() = default;

void WebSocket::setTimeouts(std::chrono::seconds handshake, std::chrono::seconds idle) {
  websocket::stream_base::timeout timeout{};
  timeout.handshake_timeout = handshake;
  timeout.idle_timeout = idle;
  timeout.keep_alive_pings = true;
  _implementation->stream.set_option(timeout);
}

void WebSocket::setLongestMessage(std::size_t bytes) {
  _implementation->stream.read_message_max(bytes);
}

void WebSocket::onPong(const std::function<void(std::string_view)>& use) {
  _implementation->stream.control_callback(
      [use](websocket::frame_type kind, beast::string_view text) {
        if (kind == websocket::frame_type::pong) use({text.data(), text.size()});
      });
}

bool WebSocket::isUpgrade(const Request& request) { return websocket::is_upgrade(request); }

void WebSocket::accept(const Request& request, Handler done) {
  auto& stream = _implementation->stream;
  // A client that offers protocols needs one of them in the answer; the others are never repeated.
  if (http::token_list(request[http::field::sec_websocket_protocol]).exists(protocol)) {
    stream.set_option(websocket::stream_base::decorator([](websocket::response_type& response) {
      response.set(http::field::sec_websocket_protocol, protocol);
    }));
  }
  stream.async_accept(request, std::move(done));
}

void WebSocket::handshake(const std::string& host, const std::string& path,
                          const std::string& token, Handler done) {
  auto& stream = _implementation->stream;
  if (!token.empty()) {
    stream.set_option(websocket::stream_base::decorator([token](websocket::request_type& request) {
      request.set(http::field::authorization, "Bearer " + token);
    }));
  }
  stream.async_handshake(_implementation->answer, host, path,
                         [this, done = std::move(done)](Error error) {
                           _implementation->isRefused = error == websocket::error::upgrade_declined;
                           done(error);
                         });
}

unsigned int WebSocket::refusal() const {
  return _implementation->isRefused ? _implementation->answer.result_int() : 0;
}

const std::string& WebSocket::refusalText() const { return _implementation->answer.body(); }

void WebSocket::write(const std::string& text, SizeHandler done) {
  _implementation->stream.async_write(asio::buffer(text), std::move(done));
}

void WebSocket::ping(std::string_view text, Handler done) {
  _implementation->stream.async_ping({text.data(), text.size()}, std::move(done));
}

void WebSocket::read(std::string& text, SizeHandler done) {
  auto& piece = _implementation->piece;
  _implementation->stream.async_read_some(
      piece, pieceSize,
      SizeHandler([&piece, &text, done = std::move(done)](Error error, std::size_t size) {
        text.append(static_cast<const char*>(piece.data().data()), size);
        piece.consume(size);
        done(error, size);
      }));
}

bool WebSocket::isText() const { return _implementation->stream.got_text(); }

bool WebSocket::isMessageDone() const { return _implementation->stream.is_message_done(); }

void WebSocket::close(Reason reason, Handler done) {
  _implementation->stream.async_close(closeCode(reason), std::move(done));
}

}  // namespace zorvel

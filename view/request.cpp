#include "view/request.hpp"

#include <fmt/format.h>

#include <boost/algorithm/string/case_conv.hpp>
#include <boost/algorithm/string/predicate.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <fstream>
#include <iterator>
#include <limits>
#include <memory>
#include <utility>
#include <vector>

#include "view/camera_files.hpp"
#include "view/lines.hpp"
#include "view/page.hpp"
#include "view/token.hpp"

namespace zorvel {
namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
using Socket = WebSocket::Socket;
using Error = boost::system::error_code;

constexpr std::uint32_t longestHeader = std::uint32_t{8} << 10;
// How many connections may get the last minute at once.
constexpr int mostDownloads = 4;
constexpr std::string_view cameraPath = "/camera/";
constexpr std::string_view bearer = "Bearer ";
// The only header that scripts can give a WebSocket lists protocols, so the token may be there.
constexpr std::string_view tokenProtocol = "token.";
// What else the page may do when there is a camera: start the worker that analyses pictures, and
// play a film that the user opens.
constexpr const char* cameraPolicy = " 'wasm-unsafe-eval'; worker-src 'self'; media-src blob:";
constexpr const char* workerPolicy =
    "default-src 'none'; script-src 'self' 'wasm-unsafe-eval'; connect-src 'self'";

std::string_view standard(beast::string_view text) { return {text.data(), text.size()}; }

/// All that may be meant as a token; "" for an authorization of another kind.
std::vector<std::string_view> offeredTokens(const WebSocket::Request& request) {
  std::vector<std::string_view> tokens;
  for (auto [field, end] = request.equal_range(http::field::authorization); field != end; ++field) {
    const std::string_view value = standard(field->value());
    const bool isBearer = boost::istarts_with(value, bearer);
    tokens.push_back(isBearer ? value.substr(bearer.size()) : "");
  }
  auto [field, end] = request.equal_range(http::field::sec_websocket_protocol);
  for (; field != end; ++field) {
    for (const auto protocol : http::token_list(field->value())) {
      if (boost::starts_with(protocol, tokenProtocol)) {
        tokens.push_back(standard(protocol).substr(tokenProtocol.size()));
      }
    }
  }
  return tokens;
}

// A handler runs later, from the event loop, so a function that starts its operation again does not
// recurse. NOLINTBEGIN(misc-no-recursion)

/// A request of HTTP. One that asks for a WebSocket gets it; any other gets one answer.
class Request : public Connection, public std::enable_shared_from_this<Request> {
 public:
  Request(Connections& connections, Socket socket, bool isLocal)
      : Connection(connections), _stream(std::move(socket)), _isLocal(isLocal) {
    _parser.header_limit(longestHeader);
    _parser.body_limit(std::numeric_limits<std::uint64_t>::max());  // no body is ever read
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
            self->answer(http::status::bad_request, "not an HTTP request\n");
          } else {
            self->handle(self->_parser.get());
          }
        });
  }

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
    if (!_isLocal && !isOwnHost(host)) {
      answer(http::status::misdirected_request,
             "this server does not go by that name; zorvel view --host gives it one\n");
      return;
    }
    const std::string_view target = standard(request.target());
    const bool isOfPage = target == "/" || boost::starts_with(target, cameraPath);
    if ((WebSocket::isUpgrade(request) || !isOfPage) && !isAuthorized(request)) {
      _response.set(http::field::www_authenticate, "Bearer");
      answer(http::status::unauthorized, "");
      return;
    }
    if (WebSocket::isUpgrade(request)) {
      if (!_isLocal && !isOwnOrigin(request, host)) {
        answer(http::status::forbidden, "that is for this server's own page\n");
      } else if (target == "/events") {
        become(serveEvents);
      } else if (target == "/states") {
        become(serveStates);
      } else {
        answer(http::status::not_found, "there are /events and /states\n");
      }
    } else if (request.method() != http::verb::get && request.method() != http::verb::head) {
      answer(http::status::method_not_allowed, "only GET and HEAD\n");
    } else if (target == "/") {
      std::string policy(viewPagePolicy());
      if (findCameraFile(connections().cameraFolder, "worker.js")) policy += cameraPolicy;
      _response.set("Content-Security-Policy", policy);
      answer(http::status::ok, std::string(viewPage()), "text/html; charset=utf-8");
    } else if (target == "/health") {
      answer(http::status::ok, connections().service.health(connections().counts()),
             "application/json");
    } else if (target == "/metrics") {
      answer(http::status::ok, connections().service.metrics(connections().counts()),
             "application/openmetrics-text; version=1.0.0; charset=utf-8");
    } else if (target == "/recording") {
      answerLastMinute();
    } else if (boost::starts_with(target, cameraPath)) {
      answerCameraFile(target.substr(cameraPath.size()),
                       standard(request[http::field::if_none_match]));
    } else {
      answer(http::status::not_found,
             "there are /, /health, /metrics, /recording, /events and /states\n");
    }
  }

  bool isOwnHost(std::string_view host) const {
    return connections().hosts.count(boost::to_lower_copy(std::string(host))) > 0;
  }

  /// Whether it comes from the server's own page or from no page. A page over https came through a
  /// proxy, which knows the server by the same name.
  static bool isOwnOrigin(const http::request<http::empty_body>& request, std::string_view host) {
    const auto origin = request.find(http::field::origin);
    return origin == request.end() || origin->value() == fmt::format("http://{}", host) ||
           origin->value() == fmt::format("https://{}", host);
  }

  /// Whether it has the token, and nothing that could be meant as another one.
  bool isAuthorized(const http::request<http::empty_body>& request) const {
    const auto& token = connections().token;
    if (_isLocal || token.empty()) return true;
    const auto offered = offeredTokens(request);
    return offered.size() == 1 && isToken(token, offered.front());
  }

  void answerLastMinute() {
    if (connections().downloads == mostDownloads) {
      answer(http::status::service_unavailable,
             fmt::format("{} others are saving the last minute; try again\n", mostDownloads));
      return;
    }
    ++connections().downloads;
    _lines = connections().service.lastMinute();
    std::size_t size = 0;
    for (const auto& line : _lines) size += line->size();
    _response.set(http::field::content_disposition, "attachment; filename=\"last-minute.jsonl\"");
    setHeader(http::status::ok, "application/jsonl");
    _response.content_length(size);
    if (_parser.get().method() == http::verb::head) _nextLine = _lines.size();
    send();
  }

  void answerCameraFile(std::string_view name, std::string_view knownTag) {
    const auto file = findCameraFile(connections().cameraFolder, name);
    if (!file) {
      answer(
          http::status::not_found,
          "To use a camera, install zorvel-camera, or run scripts/camera where zorvel is built.\n");
      return;
    }
    _response.set(http::field::etag, file->tag);
    _response.set("Content-Security-Policy", workerPolicy);
    _cacheControl = "no-cache";  // to be kept, but compared each time
    if (file->tag == knownTag) {
      answer(http::status::not_modified, "", file->type);
      return;
    }
    std::ifstream content(file->path, std::ios::binary);
    answer(http::status::ok, std::string(std::istreambuf_iterator<char>(content), {}), file->type);
  }

  template <typename Serve>
  void become(Serve serve) {
    _stream.expires_never();
    forget();
    serve(connections(), _stream.release_socket(), _parser.get());
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
    if (!_lines.empty()) --connections().downloads;
    _lines.clear();
  }

  /// The answer would be lost if the connection were closed while something is unread.
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

// NOLINTEND(misc-no-recursion)

}  // namespace

void serveRequest(Connections& connections, Socket socket, bool isLocal) {
  if (connections.all.size() >= mostConnections) {
    ++connections.refused;
    for (Connection* const connection : connections.all) {
      if (connection->makeWay()) break;  // the list has changed
    }
  }
  const auto request = std::make_shared<Request>(connections, std::move(socket), isLocal);
  if (connections.all.size() > mostConnections) {
    request->refuse();
  } else {
    request->read();
  }
}

}  // namespace zorvel

#ifndef ZORVEL_VIEW_WEB_SOCKET_HPP
#define ZORVEL_VIEW_WEB_SOCKET_HPP

#include <boost/asio/generic/stream_protocol.hpp>
#include <boost/beast/http/empty_body.hpp>
#include <boost/beast/http/message.hpp>
#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace zorvel {

/// Either end of a WebSocket of texts. Its handlers run later, from the event loop, and it must not
/// be destroyed before the last of them has run. Both ends use this class, so that the library
/// behind it is compiled once.
class WebSocket {
 public:
  /// Of any family of addresses.
  using Socket = boost::asio::generic::stream_protocol::socket;
  using Error = boost::system::error_code;
  using Handler = std::function<void(Error)>;
  using SizeHandler = std::function<void(Error, std::size_t)>;
  using Request = boost::beast::http::request<boost::beast::http::empty_body>;

  enum class Reason { Normal, GoingAway, NoText, BadContent, TryAgainLater };

  explicit WebSocket(Socket socket);
  WebSocket(const WebSocket&) = delete;
  WebSocket& operator=(const WebSocket&) = delete;
  ~WebSocket();

  /// Ends the connection when a handshake or an answer takes longer; after half of `idle` without
  /// a message it sends a ping.
  void setTimeouts(std::chrono::seconds handshake, std::chrono::seconds idle);
  /// Refuses longer messages.
  void setLongestMessage(std::size_t bytes);
  /// `use` is called during a read, for each answer to a ping, with the text of the ping.
  void onPong(const std::function<void(std::string_view)>& use);

  static bool isUpgrade(const Request& request);
  /// Accepts the request, as the server.
  void accept(const Request& request, Handler done);
  /// Connects as a client, with the token unless that is "".
  void handshake(const std::string& host, const std::string& path, const std::string& token,
                 Handler done);
  /// The HTTP status and the text with which the server refused the handshake; 0 if it did not.
  unsigned int refusal() const;
  const std::string& refusalText() const;

  /// Sends a message. The text must live until `done`.
  void write(const std::string& text, SizeHandler done);
  void ping(std::string_view text, Handler done);
  /// Appends a piece of a message to the text, which must live until `done`.
  void read(std::string& text, SizeHandler done);
  /// Whether the last piece is of a text.
  bool isText() const;
  /// Whether the last piece ended its message.
  bool isMessageDone() const;
  void close(Reason reason, Handler done);

 private:
  class Implementation;
  std::unique_ptr<Implementation> _implementation;
};

}  // namespace zorvel

#endif

// Any bytes from the network: whatever a connection sends, the server ends it and goes on serving
// others.

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <string>

#include "fuzzing.hpp"
#include "recording/json_line.hpp"
#include "view/server.hpp"
#include "view/token.hpp"

using zorvel::fuzz::require;

namespace {

/// From this kind of input on, the service asks for a token, and the input is the headers.
constexpr unsigned int asksForToken = 128;

/// A request that opens a WebSocket; messages follow it.
std::string upgrade(const std::string& target, const std::string& host) {
  return "GET " + target + " HTTP/1.1\r\nHost: " + host +
         "\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
         "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\nSec-WebSocket-Version: 13\r\n\r\n";
}

/// A text message, masked with zeros.
std::string message(const std::string& text) {
  std::string frame = "\x81";
  if (text.size() < 126) {
    frame += static_cast<char>(0x80U | text.size());
  } else {
    frame += "\xFE";
    frame += static_cast<char>(text.size() >> 8U);
    frame += static_cast<char>(text.size());
  }
  return frame + std::string(4, '\0') + text;
}

class Client {
 public:
  explicit Client(std::uint16_t port) : _descriptor(socket(AF_INET, SOCK_STREAM, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    // From another address each time: the ports of one would be used up within a minute.
    static std::uint32_t count = 0;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK + count++ % 0xFFFFF);
    const int yes = 1;
    setsockopt(_descriptor, IPPROTO_IP, IP_BIND_ADDRESS_NO_PORT, &yes, sizeof yes);
    bind(_descriptor, reinterpret_cast<sockaddr*>(&address), sizeof address);
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    int result = 0;
    do {  // the fuzzer has a timer, whose signal may interrupt the call
      result = connect(_descriptor, reinterpret_cast<sockaddr*>(&address), sizeof address);
    } while (result != 0 && errno == EINTR);
    require(result == 0, "the server does not listen");
  }
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;
  ~Client() { close(_descriptor); }

  /// Sends the bytes and nothing more; returns the answer when the server has closed the
  /// connection.
  std::string say(const std::string& bytes, zorvel::Server& server) const {
    std::string answer;
    std::size_t sent = 0;
    std::array<char, 65'536> heard{};
    for (int turn = 0; turn < 100'000; ++turn) {
      if (sent < bytes.size()) {
        const auto count = send(_descriptor, bytes.data() + sent, bytes.size() - sent,
                                MSG_DONTWAIT | MSG_NOSIGNAL);
        if (count > 0) sent += static_cast<std::size_t>(count);
        if (count < 0 && errno != EAGAIN) return answer;
      } else {
        shutdown(_descriptor, SHUT_WR);
      }
      server.poll();
      const auto count = recv(_descriptor, heard.data(), heard.size(), MSG_DONTWAIT);
      if (count == 0 || (count < 0 && errno != EAGAIN)) return answer;
      if (count > 0) answer.append(heard.data(), static_cast<std::size_t>(count));
    }
    require(false, "the server does not close the connection");
    return answer;
  }

 private:
  int _descriptor;
};

std::string bytesFor(unsigned int kind, const std::string& input, const std::string& host) {
  if (kind >= asksForToken) return "GET /states HTTP/1.1\r\nHost: " + host + "\r\n" + input;
  switch (kind % 4) {
    case 0:
      return input;
    case 1:
      return upgrade("/events", host) + input;
    case 2:
      return upgrade("/states", host) + message(input.substr(0, 65'535));
    default:
      return upgrade("/events", host) + message(input.substr(0, 65'535));
  }
}

}  // namespace

int LLVMFuzzerInitialize(int* /*argumentCount*/, char*** /*arguments*/) {
  std::signal(SIGPIPE, SIG_IGN);
  return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  zorvel::StandardError errors(-1);
  zorvel::Service::Options options{{}, errors, {}};
  options.live.ahead = boost::chrono::seconds(1);
  options.live.forces = zorvel::Forces::Watched;
  options.output = [](std::string_view line) {
    std::string text(line);
    zorvel::JsonLine().parse(text);
  };
  zorvel::Service service(options);
  zorvel::ServerOptions address;
  address.address = "127.0.0.1";
  if (data[0] >= asksForToken) address.token = zorvel::newToken();
  zorvel::Server server(service, address);
  const std::string url = server.url();
  const std::string host = url.substr(7, url.size() - 8);
  const auto port = static_cast<std::uint16_t>(std::stoi(host.substr(host.find(':') + 1)));
  const std::string input(reinterpret_cast<const char*>(data + 1), size - 1);
  const auto answer = Client(port).say(bytesFor(data[0], input, host), server);
  require(address.token.empty() || answer.rfind("HTTP/1.1 101", 0) != 0,
          "it opens without its token");
  for (int turn = 0; turn < 100 && server.poll(); ++turn) {
  }
  zorvel::Sender other("other");
  require(service.receive(other, R"({"event":"not_seen","person":1})"), "others suffer");
  std::string status = service.health({});
  zorvel::JsonLine().parse(status);
  return 0;
}

#ifndef ZORVEL_VIEW_SERVER_HPP
#define ZORVEL_VIEW_SERVER_HPP

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "view/service.hpp"

namespace zorvel {

struct ServerOptions {
  /// An IP address of this machine, or one that means all of them; "" for none.
  std::string address;
  /// 0 for any that is free.
  std::uint16_t port = 0;
  /// The path of a socket for programs of this user alone; "" for none.
  std::string socket;
  /// More names by which browsers may call the server, besides its address and those of the
  /// loopback; one with a port is that of a proxy.
  std::vector<std::string> hosts;
  /// The token that requests to the address need, except those for the page's own files; "" for
  /// none.
  std::string token;
  /// Where the files with which the page analyses pictures are, if they are installed.
  std::string cameraFolder;
  /// The server ends when this descriptor is readable.
  int stopDescriptor = -1;
  /// The descriptor to which `output` writes; -1 for none.
  int outputDescriptor = -1;
};

/// From where a server can be reached.
enum class Reach { ThisMachine, OneAddress, AllAddresses };

/// From where an IP address can be reached. Throws Failure when the text is not one.
Reach reachOf(const std::string& address);

/// Serves a Service over HTTP and WebSocket, in the thread that calls. The page is at /, the status
/// at /health and /metrics, the last minute at /recording, and the files with which the page
/// analyses pictures under /camera/; senders connect to /events and pages to /states. Requests
/// under a name that is not the server's, or from a page of another server, are refused, so a
/// foreign page in the same browser can neither read nor feed. Programs may also connect to a
/// socket in the file system, under any name and without a token.
class Server {
 public:
  /// Listens. Throws Failure when it cannot.
  Server(Service& service, const ServerOptions& options);
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;
  ~Server();

  /// The address for a browser; "" when there is none.
  std::string url() const;

  /// Writes a line to standard output when its reader takes it; the oldest lines are dropped when
  /// the reader does not keep up. Returns at once.
  void output(std::string_view line);
  /// How many lines were dropped.
  std::uint64_t droppedOutput() const;

  /// Serves until the descriptor is readable or the server is to end; -1 is never readable.
  void waitForInput(int descriptor);
  /// Does what can be done now, and returns whether there was anything.
  bool poll();
  /// Whether the stop descriptor has ended the server.
  bool isStopped() const;

  /// Sends what waits and closes all connections, in at most two seconds.
  void close();

 private:
  class Implementation;
  std::unique_ptr<Implementation> _implementation;
};

}  // namespace zorvel

#endif

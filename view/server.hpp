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
  /// An IP address of this machine, or one that stands for all of them; "" for none.
  std::string address;
  /// 0 for any that is free.
  std::uint16_t port = 0;
  /// Where a socket for programs of this user alone is made, if anywhere.
  std::string socket;
  /// Names besides the address and those of the loopback by which browsers may call the server; one
  /// with a port is that of a proxy.
  std::vector<std::string> hosts;
  /// What whoever comes to the address has to show for everything but the page's own files; "" for
  /// nothing.
  std::string token;
  /// Where the files are with which the page analyses pictures, if they are installed.
  std::string cameraFolder;
  /// The server ends when there is something to read from this descriptor.
  int stopDescriptor = -1;
  /// Where `output` writes to; -1 for nowhere.
  int outputDescriptor = -1;
};

/// From where a server can be reached.
enum class Reach { ThisMachine, OneAddress, AllAddresses };

/// How far an IP address reaches. Throws Failure when it is none.
Reach reachOf(const std::string& address);

/// Serves a Service over HTTP and WebSocket, in the thread that calls. The page is served at /, its
/// status at /health, the last minute at /recording, what it analyses pictures with under /camera/;
/// senders connect to /events and pages to /states. Whoever calls by another name than the server's
/// own, or comes from a page of somebody else, is refused; so a foreign page in the same browser
/// can neither read nor feed. Programs may also come by a socket in the file system, by any name
/// and without a token.
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
  /// How many lines were dropped there.
  std::uint64_t droppedOutput() const;

  /// Serves until the descriptor can be read or the server is to end; -1 is never read.
  void waitForInput(int descriptor);
  /// Serves what is there to do now, and returns whether that was anything.
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

#ifndef ZORVEL_VIEW_CONNECTION_HPP
#define ZORVEL_VIEW_CONNECTION_HPP

#include <algorithm>
#include <boost/asio/io_context.hpp>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "view/service.hpp"

namespace zorvel {

class Connection;
class Lines;

constexpr std::size_t mostConnections = 64;
/// How many bytes may be on their way: few, so that what a slow page gets is not old.
constexpr std::size_t windowSize = std::size_t{64} << 10;
/// How long a request, a handshake or a piece of an answer may take.
constexpr std::chrono::seconds patience{10};
constexpr std::chrono::seconds idleTime{60};

/// The connections of a server, and what they share.
struct Connections {
  Connections(Service& service_, const LineQueue& output_) : service(service_), output(output_) {}

  ServerCounts counts() const { return {refused, output.dropped()}; }

  Service& service;
  /// The lines that wait for standard output.
  const LineQueue& output;
  /// The names under which requests may reach the server, each with its port.
  std::set<std::string> hosts;
  /// The token that requests need, except those for the page's own files; "" for none.
  std::string token;
  std::string cameraFolder;

  std::vector<Connection*> all;  // in the order of their arrival
  std::uint64_t senderCount = 0;
  std::uint64_t pageCount = 0;
  std::uint64_t refused = 0;
  /// The connections with an incomplete or unhandled message, the oldest message first.
  std::vector<Lines*> unfinished;
  std::size_t unfinishedBytes = 0;
  int downloads = 0;
  boost::asio::io_context context{1};  // last: its end ends the connections, which use the others
};

/// A connection, whatever it is used for. It lives as long as an operation on it is pending.
class Connection {
 public:
  explicit Connection(Connections& connections) : _connections(connections) {
    _connections.all.push_back(this);
  }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;
  virtual ~Connection() { forget(); }
  /// Sends what waits, if anything, and closes.
  virtual void close() = 0;
  /// Closes to make room for another, unless it is in use; returns whether it does.
  virtual bool makeWay() { return false; }
  /// Called about once a second.
  virtual void tick() {}

 protected:
  Connections& connections() const { return _connections; }
  /// Takes it off the list of connections.
  void forget() {
    auto& all = _connections.all;
    all.erase(std::remove(all.begin(), all.end(), this), all.end());
  }

 private:
  Connections& _connections;
};

}  // namespace zorvel

#endif

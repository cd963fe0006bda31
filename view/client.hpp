#ifndef ZORVEL_VIEW_CLIENT_HPP
#define ZORVEL_VIEW_CLIENT_HPP

#include <chrono>
#include <functional>
#include <memory>
#include <string>

namespace zorvel {

/// A program's connection to a live service, to which it sends lines. It is served only while one
/// of its functions runs. All of them but close() throw Failure when the service has gone, or when
/// it accepts nothing for two seconds after the stop descriptor has become readable.
class Client {
 public:
  using UseOfAnswer = std::function<void(const std::string& line)>;

  /// Connects to an address that readServiceAddress accepts, with the token in the file, "" for no
  /// file. Throws Failure when no service is there or it refuses. `use` is called for each line
  /// that the service answers; what it throws leaves the function that is running.
  Client(const std::string& address, const std::string& tokenFile, int stopDescriptor,
         UseOfAnswer use);
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;
  ~Client();

  void send(const std::string& line);
  /// Returns true at that time, or false once the stop descriptor is readable.
  bool waitUntil(std::chrono::steady_clock::time_point time);
  /// Ends the connection when the service has answered everything, in at most five seconds.
  void close();

 private:
  class Implementation;
  std::unique_ptr<Implementation> _implementation;
};

}  // namespace zorvel

#endif

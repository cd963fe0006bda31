#ifndef ZORVEL_VIEW_CLIENT_HPP
#define ZORVEL_VIEW_CLIENT_HPP

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace zorvel {

/// A program's connection to a live service, which it sends lines. It serves the connection only
/// while one of its functions runs. Each of them but close() throws Failure when the service has
/// gone, or does not take what it is sent within two seconds after there was something to read from
/// the stop descriptor.
class Client {
 public:
  using UseOfAnswer = std::function<void(const std::string& line)>;

  /// Connects to an address as readServiceAddress takes it, and shows the token that the file
  /// holds, "" for none; throws Failure when no service is there or it refuses.
  /// `use` is called for each line that the service answers; what it throws comes out of the
  /// function that serves.
  Client(const std::string& address, const std::string& tokenFile, int stopDescriptor,
         UseOfAnswer use);
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;
  ~Client();

  void send(const std::string& line);
  /// Returns whether the time has come before there was something to read from the stop descriptor.
  bool waitUntil(std::chrono::steady_clock::time_point time);
  /// Ends the connection when the service has answered everything, in at most five seconds.
  void close();

 private:
  class Implementation;
  std::unique_ptr<Implementation> _implementation;
};

}  // namespace zorvel

#endif

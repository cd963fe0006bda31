#ifndef ZORVEL_VIEW_SERVICE_ADDRESS_HPP
#define ZORVEL_VIEW_SERVICE_ADDRESS_HPP

#include <string>

namespace zorvel {

/// Where a live service is: a socket in the file system, or else a host and a port.
struct ServiceAddress {
  std::string socket;
  std::string host;
  std::string port;
};

/// Reads HOST:PORT, unix:PATH, or the URL of the page or of /events. Throws Failure, which says
/// what is accepted and repeats nothing that may hold a token.
ServiceAddress readServiceAddress(const std::string& text);

}  // namespace zorvel

#endif

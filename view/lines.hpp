#ifndef ZORVEL_VIEW_LINES_HPP
#define ZORVEL_VIEW_LINES_HPP

#include "view/connection.hpp"
#include "view/web_socket.hpp"

namespace zorvel {

// What the requests for a WebSocket become: connections that carry lines.

/// A sender of events.
void serveEvents(Connections& connections, WebSocket::Socket socket,
                 const WebSocket::Request& request);
/// A page, which watches states.
void serveStates(Connections& connections, WebSocket::Socket socket,
                 const WebSocket::Request& request);

}  // namespace zorvel

#endif

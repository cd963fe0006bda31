#ifndef ZORVEL_VIEW_LINES_HPP
#define ZORVEL_VIEW_LINES_HPP

#include "view/connection.hpp"
#include "view/web_socket.hpp"

namespace zorvel {

// Turn a request for a WebSocket into a connection that carries lines.

/// From a sender of events.
void serveEvents(Connections& connections, WebSocket::Socket socket,
                 const WebSocket::Request& request);
/// To a page, which watches states.
void serveStates(Connections& connections, WebSocket::Socket socket,
                 const WebSocket::Request& request);

}  // namespace zorvel

#endif

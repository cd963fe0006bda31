#ifndef ZORVEL_VIEW_REQUEST_HPP
#define ZORVEL_VIEW_REQUEST_HPP

#include "view/connection.hpp"
#include "view/web_socket.hpp"

namespace zorvel {

/// Reads a request of HTTP from a connection that has arrived. One that asks for a WebSocket gets
/// it; any other gets one answer. When there are too many connections, the oldest one without a
/// request yet is closed; if there is none, this one is refused. `isLocal`: it came over a socket
/// in the file system.
void serveRequest(Connections& connections, WebSocket::Socket socket, bool isLocal);

}  // namespace zorvel

#endif
